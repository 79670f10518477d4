// Taking identifiers apart: results and outputs, each of them set or left alone at every point of failure.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "identifiers/decoding.h"
#include "qx_vosk.h"

namespace {

using decoding::eid;
using decoding::here_with;
using decoding::here_without_directory;
using decoding::Outputs;
using decoding::slot;
using decoding::Values;
using platform::Calls;
using testing::ElementsAre;

// The outputs up to a point: each function sets what the step sets.
using Step = void (*)(Values &);

void header_version_1(Values &v) {
  v.version = 1;
}
void header_version_2(Values &v) {
  v.version = 2;
}
void location_template(Values &v) {
  v.location = 0;
}
void location_stack(Values &v) {
  v.location = 1;
}
void location_syslog(Values &v) {
  v.location = 2;
}
void time_decoded(Values &v) {
  v.seconds = 1700000000;
  v.microseconds = 123456;
}
void time_cleared(Values &v) {
  v.seconds = v.microseconds = 0;
}
void address_ipv4(Values &v) {
  v.address.replace(0, 4, decoding::kAddressBytes);
  v.ipv6 = 0;
}
void address_ipv6(Values &v) {
  v.address = decoding::kAddressBytesIpv6;
  v.ipv6 = 1;
}
void off_node(Values &v) {
  v.on_node = 0;
}
void on_node(Values &v) {
  v.on_node = 1;
}
void template_decoded(Values &v) {
  v.templ_id = 0x12345678;
}
void template_zero(Values &v) {
  v.templ_id = 0;
}
void name_found(Values &v) {
  v.names.replace(0, 256, slot("s.1"));
}
void selector_decoded(Values &v) {
  v.facility = 24;
  v.priority = 3;
}

struct Row {
  const char *what;
  std::string eid;
  decoding::Surroundings node;
  int code;
  std::vector<Step> set;
};

void expect_rows(int version, const std::vector<Row> &rows) {
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    EdgeText identifier(row.eid);
    Outputs outputs;
    Calls calls;
    row.node(calls);
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 0, nullptr, identifier.chars()); }), row.code);
    Values expected = outputs.untouched();
    for (Step step : row.set) step(expected);
    EXPECT_EQ(outputs.values(), expected);
    decoding::close_left_open(calls);
  }
}

TEST(Decoding, OfVersion1SetsWhatItReaches) {
  expect_rows(
      1, {
             {"a template",
              eid(".sN3BG."),
              decoding::elsewhere,
              0,
              {header_version_1, location_template, time_decoded, address_ipv4, off_node, template_decoded}},
             {"a template of this node",
              eid(".sN3BG."),
              decoding::here,
              0,
              {header_version_1, location_template, time_decoded, address_ipv4, on_node, template_decoded}},
             {"template 0",
              eid("......."),
              decoding::elsewhere,
              -1,
              {header_version_1, location_template, time_decoded, address_ipv4, off_node, template_zero}},
             {"a stack elsewhere",
              eid("/5Oh2.."),
              decoding::elsewhere,
              0,
              {header_version_1, location_stack, time_decoded, address_ipv4, off_node}},
             {"a stack here",
              eid("/5Oh2.."),
              here_with({{"x", 1}, {"s.1", 1234567}}),
              0,
              {header_version_1, location_stack, time_decoded, address_ipv4, on_node, name_found}},
             {"a stack here that is gone",
              eid("/5Oh2.."),
              here_with({{"x", 1}}),
              -24,
              {header_version_1, location_stack, time_decoded, address_ipv4, on_node}},
             {"a stack here without a directory",
              eid("/5Oh2.."),
              here_without_directory(ENOENT),
              -14,
              {header_version_1, location_stack, time_decoded, address_ipv4, on_node}},
             {"a stack here without the right",
              eid("/5Oh2.."),
              here_without_directory(EACCES),
              -13,
              {header_version_1, location_stack, time_decoded, address_ipv4, on_node}},
             {"a stack here without descriptors",
              eid("/5Oh2.."),
              here_without_directory(EMFILE),
              -1,
              {header_version_1, location_stack, time_decoded, address_ipv4, on_node}},
             {"the System Log",
              eid("022...."),
              decoding::here,
              -1,
              {header_version_1, location_syslog, time_decoded, address_ipv4, on_node}},
             {"a stack of version 2", eid("75Oh2.."), decoding::here, -99, {header_version_2, location_stack}},
             {"a template of version 2", eid("6sN3BG."), decoding::here, -99, {header_version_2, location_template}},
             {"an unknown version", eid("E5Oh2.."), decoding::here, -99, {}},
             {"an unknown location", eid("15Oh2.."), decoding::here, -99, {header_version_1}},
             {"no seconds",
              eid(".sN3BG.", ".......7S."),
              decoding::here,
              -36,
              {header_version_1, location_template, time_cleared}},
             {"a whole second of microseconds",
              eid(".sN3BG.", ".2zIZ/.7o1"),
              decoding::here,
              -36,
              {header_version_1, location_template, time_cleared}},
             {"an unknown type of address",
              eid(".sN3BG.", decoding::kTime, ".XO.8...................0"),
              decoding::here,
              -5,
              {header_version_1, location_template, time_decoded}},
             {"an IPv6 address",
              eid(".sN3BG.", decoding::kTime, decoding::kAddressIpv6),
              decoding::here,
              0,
              {header_version_1, location_template, time_decoded, address_ipv6, off_node, template_decoded}},
             {"a stack with an IPv6 address",
              eid("/5Oh2..", decoding::kTime, decoding::kAddressIpv6),
              decoding::here,
              0,
              {header_version_1, location_stack, time_decoded, address_ipv6, off_node}},
         });
}

TEST(Decoding, OfVersion2SetsWhatItReaches) {
  expect_rows(2, {
                     {"a template",
                      eid("6sN3BG."),
                      decoding::elsewhere,
                      0,
                      {header_version_2, location_template, time_decoded, address_ipv4, off_node, template_decoded}},
                     {"a template of version 1",
                      eid(".sN3BG."),
                      decoding::here,
                      0,
                      {header_version_1, location_template, time_decoded, address_ipv4, on_node, template_decoded}},
                     {"template 0",
                      eid("6......"),
                      decoding::elsewhere,
                      -1,
                      {header_version_2, location_template, time_decoded, address_ipv4, off_node, template_zero}},
                     {"a stack elsewhere",
                      eid("75Oh2.."),
                      decoding::elsewhere,
                      0,
                      {header_version_2, location_stack, time_decoded, address_ipv4, off_node}},
                     {"a stack here",
                      eid("75Oh2.."),
                      here_with({{"x", 1}, {"s.1", 1234567}}),
                      0,
                      {header_version_2, location_stack, time_decoded, address_ipv4, on_node, name_found}},
                     {"a stack of version 1 here",
                      eid("/5Oh2.."),
                      here_with({{"x", 1}, {"s.1", 1234567}}),
                      0,
                      {header_version_1, location_stack, time_decoded, address_ipv4, on_node, name_found}},
                     {"a stack here that is gone",
                      eid("75Oh2.."),
                      here_with({{"x", 1}}),
                      -24,
                      {header_version_2, location_stack, time_decoded, address_ipv4, on_node}},
                     {"a stack here without a directory",
                      eid("75Oh2.."),
                      here_without_directory(ENOTDIR),
                      -14,
                      {header_version_2, location_stack, time_decoded, address_ipv4, on_node}},
                     {"a stack here without the right",
                      eid("75Oh2.."),
                      here_without_directory(EACCES),
                      -13,
                      {header_version_2, location_stack, time_decoded, address_ipv4, on_node}},
                     {"a stack here without descriptors",
                      eid("75Oh2.."),
                      here_without_directory(ENFILE),
                      -1,
                      {header_version_2, location_stack, time_decoded, address_ipv4, on_node}},
                     {"the System Log",
                      eid("822...."),
                      decoding::here,
                      0,
                      {header_version_2, location_syslog, time_decoded, address_ipv4, on_node, selector_decoded}},
                     {"the System Log of version 1, elsewhere",
                      eid("022...."),
                      decoding::elsewhere,
                      0,
                      {header_version_1, location_syslog, time_decoded, address_ipv4, off_node, selector_decoded}},
                     {"a bad shape of a selector",
                      eid("822...x"),
                      decoding::here,
                      -4,
                      {header_version_2, location_syslog, time_decoded, address_ipv4, on_node}},
                     {"a bad facility",
                      eid("8N2...."),
                      decoding::here,
                      -4,
                      {header_version_2, location_syslog, time_decoded, address_ipv4, on_node}},
                     {"a bad priority",
                      eid("827...."),
                      decoding::here,
                      -4,
                      {header_version_2, location_syslog, time_decoded, address_ipv4, on_node}},
                     {"an unknown version", eid("E5Oh2.."), decoding::here, -99, {}},
                     {"an unknown location", eid("95Oh2.."), decoding::here, -99, {header_version_2}},
                     {"an unknown location of version 1", eid("15Oh2.."), decoding::here, -99, {header_version_1}},
                     {"no seconds",
                      eid("822....", ".......7S."),
                      decoding::here,
                      -36,
                      {header_version_2, location_syslog, time_cleared}},
                     {"a whole second of microseconds",
                      eid("822....", ".2zIZ/.7o1"),
                      decoding::here,
                      -36,
                      {header_version_2, location_syslog, time_cleared}},
                     {"an unknown type of address",
                      eid("822....", decoding::kTime, ".XO.8...................z"),
                      decoding::here,
                      -5,
                      {header_version_2, location_syslog, time_decoded}},
                     {"an IPv6 address",
                      eid("822....", decoding::kTime, decoding::kAddressIpv6),
                      decoding::here,
                      0,
                      {header_version_2, location_syslog, time_decoded, address_ipv6, off_node, selector_decoded}},
                     {"a stack with an IPv6 address",
                      eid("75Oh2..", decoding::kTime, decoding::kAddressIpv6),
                      decoding::here,
                      0,
                      {header_version_2, location_stack, time_decoded, address_ipv6, off_node}},
                 });
}

TEST(Decoding, AsksForTheAddressesThenForTheDirectory) {
  for (int version : {1, 2}) {
    Outputs outputs;
    Calls calls;
    here_with({{"x", 1}, {"s.1", 1234567}})(calls);
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 0, nullptr, eid("/5Oh2..").c_str()); }), 0);
    EXPECT_THAT(
        calls.log_of({"socket", "ioctl", "opendir", "readdir_r", "closedir", "stat", "open", "getenv", "close"}),
        ElementsAre("socket(2, 0x2, 0) = fd1", "ioctl(fd1, SIOCGIFCONF, 2560) = 0",
                    "ioctl(fd1, SIOCGIFFLAGS, \"lo\") = 0", "ioctl(fd1, SIOCGIFFLAGS, \"eth0\") = 0",
                    "ioctl(fd1, SIOCGIFFLAGS, \"eth1\") = 0", "opendir(\"/var/adm/vosk/stacks\") = pointer",
                    "readdir_r(\"/var/adm/vosk/stacks\") = 0", "readdir_r(\"/var/adm/vosk/stacks\") = 0",
                    "closedir(\"/var/adm/vosk/stacks\") = 0"));
    EXPECT_EQ(calls.left_open().size(), 1u);
    decoding::close_left_open(calls);
  }
}

TEST(Decoding, AsksNobodyAboutWhatItRefuses) {
  const std::string rows[] = {"", eid("E5Oh2.."), eid("15Oh2.."), eid("/5Oh2..", ".......7S."),
                              eid("/5Oh2..", decoding::kTime, ".XO.8...................0")};
  for (const std::string &row : rows) {
    for (int version : {1, 2}) {
      Outputs outputs;
      Calls calls;
      calls.during([&] { return outputs.decode(version, 0, nullptr, row.c_str()); });
      EXPECT_EQ(calls.count_all(), 0) << row;
    }
  }
}

}  // namespace
