// The trace of taking an identifier apart: every step's entry, and the summary at the end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "identifiers/decoding.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using decoding::eid;
using decoding::Outputs;
using platform::Calls;

constexpr const char *kRoutine = "vk_decode_eid";  // the name of both calls

std::string header_entry(const char *character, const char *version, const char *location) {
  return trace_entry("vk_conv_base_64_hdr", std::string("Header code ") + character + " translated into version " +
                                                version + " and location 0x" + location +
                                                "\nReturning VOSK_SUCCESS(0) to the caller\n");
}
const std::string kTimeEntry = trace_entry("vk_conv_base_64_time",
                                           "Time base-64 rep of .2zIZ/.7S. converted to 1700000000 secs 123456 usecs\n"
                                           "Returning VOSK_SUCCESS(0) to caller\n");
const std::string kAddressEntry =
    trace_entry("vk_conv_ipaddr", "IP Address representation .XO.8................... converted to 0xa01a8c0");
// Its words are 0xb80d0120, 5, 6 and 0x1000000.
constexpr const char *kAddressOfFourWords = "U2E1s03.....4........././";
const std::string kAddressEntryIpv6 =
    trace_entry("vk_conv_ipaddr", "IP Address representation U2E1s03.....4........./. converted to 0xb80d0120lxlxlx");
const std::string kLoopbackEntry =
    trace_entry("vk_obtain_ipaddrs", "Adapt Info: lo 00000009 address=127.0.0.1 AF_INET IFF_UP IFF_LOOPBACK");
const std::string kDiscoveredEntry = trace_entry("vk_obtain_ipaddrs", "Returning VOSK_SUCCESS(0) to the caller");

std::string here_entry() {
  return trace_entry("vk_test_ipaddr", "Match found for address 192.168.1.10 at index 1\nReturning VOSK_SUCCESS(0)");
}
std::string elsewhere_entry(const std::string &address) {
  return trace_entry("vk_test_ipaddr", "No matches fo address " + address +
                                           " found in 2 known base addresses\n"
                                           "Assuming this address not on this node\nReturning VOSK_FAILURE(-1)");
}
std::string adapter_entry(const std::string &address) {
  return trace_entry("vk_obtain_ipaddrs", "Adapt Info: eth0 00000001 address=" + address + " AF_INET IFF_UP  ");
}

// The entries of the steps that every identifier goes through.
std::vector<std::string> steps(const std::string &header, bool here, const std::vector<std::string> &then) {
  std::vector<std::string> all = {header,
                                  kTimeEntry,
                                  kAddressEntry,
                                  kLoopbackEntry,
                                  adapter_entry(here ? "192.168.1.10" : "10.0.0.1"),
                                  kDiscoveredEntry,
                                  here ? here_entry() : elsewhere_entry("192.168.1.10")};
  all.insert(all.end(), then.begin(), then.end());
  return all;
}

const std::string kTemplateEntry =
    trace_entry("vk_conv_base_64_templ",
                "Converted template base-64 value of sN3BG. to 305419896\nReturning VOSK_SUCCESS(0) to the caller\n");
const std::string kSelectorEntry = trace_entry(
    "vk_conv_base_64_selector", "Selector \"22....\" yielded:\n\tFacility 24\tPriority 3\nReturning VOSK_SUCCESS(0)");
const std::string kFoundEntry =
    trace_entry("vk_conv_base_64_inode",
                "1 matches to base-64 i-node 5Oh2.. (decimal 1234567) found in directory /var/adm/vosk/stacks\n"
                "First match: s.1\nReturning VOSK_SUCCESS(0) to the caller\n");
const std::string kMissingEntry =
    trace_entry("vk_conv_base_64_inode",
                "Cannot locate the base-64 i-node 5Oh2.. (decimal 1234567) in directory /var/adm/vosk/stacks\n"
                "Returning VOSK_FILE_MISSING(-24) to the caller\n");

struct Row {
  const char *what;
  int version;
  std::string eid;
  bool here;
  std::vector<platform::FakeEntry> directory;
  int code;
  std::vector<std::string> entries;
};

void expect_row(const Row &row) {
  SCOPED_TRACE(row.what);
  platform::UtcZone zone;
  Outputs outputs;
  expect_result_and_trace(
      [&](int on, const char *path) {
        outputs.reset();
        outputs.names().chars()[0] = '\0';  // as from a caller who cleared it
        Calls calls;
        decoding::on_a_node_with(calls, {row.here ? "192.168.1.10" : "10.0.0.1"});
        calls.fake_directory(row.directory);
        const int result =
            calls.during([&] { return outputs.decode(row.version, static_cast<unsigned>(on), path, row.eid.c_str()); });
        decoding::close_left_open(calls);
        return result;
      },
      row.code, row.entries);
}

std::string summary(const std::string &text) {
  return trace_entry(kRoutine, text);
}

TEST(DecodingTrace, OfVersion1EndsWithASummary) {
  const Row rows[] = {
      {"a template elsewhere",
       1,
       eid(".sN3BG."),
       false,
       {},
       0,
       steps(header_entry(".", "1", "0"), false,
             {kTemplateEntry,
              summary("VOSK Error ID \".sN3BG..2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 1, Location 0x0\nStack File none, Template ID 305419896(0x12345678)\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
      // What the call did not set is printed as it stands in the caller's memory.
      {"a stack here",
       1,
       eid("/5Oh2.."),
       true,
       {{"s.1", 1234567}},
       0,
       steps(header_entry("/", "1", "1"), true,
             {kFoundEntry,
              summary("VOSK Error ID \"/5Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 1, Location 0x1\nStack File s.1, Template ID -1515870811(0xa5a5a5a5)\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
      {"a stack that is gone",
       1,
       eid("/5Oh2.."),
       true,
       {},
       -24,
       steps(header_entry("/", "1", "1"), true,
             {kMissingEntry,
              summary("VOSK Error ID \"/5Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 1, Location 0x1\nStack File none, Template ID -1515870811(0xa5a5a5a5)\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code -24")})},
      {"a stack elsewhere",
       1,
       eid("/5Oh2.."),
       false,
       {{"s.1", 1234567}},
       0,
       steps(header_entry("/", "1", "1"), false,
             {summary("VOSK Error ID \"/5Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 1, Location 0x1\nStack File none, Template ID -1515870811(0xa5a5a5a5)\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
  };
  for (const Row &row : rows) expect_row(row);
}

TEST(DecodingTrace, OfVersion2EndsWithASummary) {
  const Row rows[] = {
      {"a template",
       2,
       eid("6sN3BG."),
       false,
       {},
       0,
       steps(header_entry("6", "2", "0"), false,
             {kTemplateEntry,
              summary("VOSK Error ID \"6sN3BG..2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 2, Location 0x0\n"
                      "First Stack File (none), Template ID 0x12345678 Syslog Facility 52 Priority -1515870811\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
      {"a stack here",
       2,
       eid("75Oh2.."),
       true,
       {{"s.1", 1234567}},
       0,
       steps(header_entry("7", "2", "1"), true,
             {kFoundEntry,
              summary("VOSK Error ID \"75Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 2, Location 0x1\n"
                      "First Stack File s.1, Template ID 0xa5a5a5a5 Syslog Facility 52 Priority -1515870811\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
      {"a stack that is gone",
       2,
       eid("75Oh2.."),
       true,
       {},
       -24,
       steps(header_entry("7", "2", "1"), true,
             {kMissingEntry,
              summary("VOSK Error ID \"75Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 2, Location 0x1\n"
                      "First Stack File (none), Template ID 0xa5a5a5a5 Syslog Facility 52 Priority -1515870811\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code -24")})},
      {"the System Log",
       2,
       eid("822...."),
       true,
       {},
       0,
       steps(header_entry("8", "2", "2"), true,
             {kSelectorEntry,
              summary("VOSK Error ID \"822.....2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 2, Location 0x2\n"
                      "First Stack File (none), Template ID 0xa5a5a5a5 Syslog Facility 3 Priority 3\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code 0")})},
      // A bad selector does not end the decoding: it is the result behind the summary.
      {"a bad selector",
       2,
       eid("827...."),
       true,
       {},
       -4,
       steps(header_entry("8", "2", "2"), true,
             {trace_entry("vk_conv_base_64_selector",
                          "Selector \"27....\" yielded invalid priority value 8 - returning VOSK_INV_PARAM3(-4)"),
              summary("VOSK Error ID \"827.....2zIZ/.7S..XO.8....................\" decodes into:\n"
                      "Version 2, Location 0x2\n"
                      "First Stack File (none), Template ID 0xa5a5a5a5 Syslog Facility 52 Priority -1515870811\n"
                      "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xa01a8c0000 (IPv4 type)\nReturn code -4")})},
  };
  for (const Row &row : rows) expect_row(row);
}

TEST(DecodingTrace, ShowsAllWordsOfAnIpv6Address) {
  const std::string address = "Timestamp Tue Nov 14 22:13:20 2023\n\nIP Address 0xb80d0120561000000 (IPv6 type)\n";
  const std::vector<std::string> middle = {kTimeEntry,       kAddressEntryIpv6,
                                           kLoopbackEntry,   adapter_entry("192.168.1.10"),
                                           kDiscoveredEntry, elsewhere_entry("2001:db8:500:0:600::1")};
  const auto all = [&](const std::string &header, const std::string &field, const std::string &last) {
    std::vector<std::string> entries = {header};
    entries.insert(entries.end(), middle.begin(), middle.end());
    if (!field.empty()) entries.push_back(field);
    entries.push_back(last);
    return entries;
  };
  expect_row({"version 1",
              1,
              eid(".sN3BG.", decoding::kTime, kAddressOfFourWords),
              true,
              {},
              0,
              all(header_entry(".", "1", "0"), kTemplateEntry,
                  summary("VOSK Error ID \".sN3BG..2zIZ/.7S.U2E1s03.....4........././\" decodes into:\n"
                          "Version 1, Location 0x0\nStack File none, Template ID 305419896(0x12345678)\n" +
                          address + "Return code 0"))});
  expect_row({"version 2",
              2,
              eid("75Oh2..", decoding::kTime, kAddressOfFourWords),
              true,
              {},
              0,
              all(header_entry("7", "2", "1"), "",
                  summary("VOSK Error ID \"75Oh2...2zIZ/.7S.U2E1s03.....4........././\" decodes into:\n"
                          "Version 2, Location 0x1\n"
                          "First Stack File (none), Template ID 0xa5a5a5a5 Syslog Facility 52 Priority -1515870811\n" +
                          address + "Return code 0"))});
}

// Failures end the decoding where they are met: no summary.
TEST(DecodingTrace, HasNoSummaryAfterAFailure) {
  const auto unsupported = [](const char *text) { return trace_entry("vk_conv_base_64_hdr", text); };
  const std::string no_template = trace_entry(
      "vk_conv_base_64_templ",
      "Cannot convert base-64 valueof ...... to a valid template ID value\nReturning VOSK_FAILURE(-1) to caller\n");
  const Row rows[] = {
      {"version 2 for the older call",
       1,
       eid("75Oh2.."),
       true,
       {},
       -99,
       {header_entry("7", "2", "1"),
        summary("VOSK Error ID is an unsupported version: 0x2\nReturning VOSK_UNSUPPORTED(-99) to the caller\n")}},
      {"an unknown location",
       2,
       eid("95Oh2.."),
       true,
       {},
       -99,
       {unsupported("Unsupported record location 0x3 detected\nMaximum supported 0x2\n"
                    "Returning VOSK_UNSUPPORTED(-99)")}},
      {"no seconds",
       2,
       eid("75Oh2..", ".......7S."),
       true,
       {},
       -36,
       {header_entry("7", "2", "1"), trace_entry("vk_conv_base_64_time",
                                                 "Secs ...... translated to 0 - assuming an invalid time rep provided\n"
                                                 "Returning VOSK_INV_FID(-36) to caller\n")}},
      {"a bad type of address",
       2,
       eid("75Oh2..", decoding::kTime, ".XO.8...................x"),
       true,
       {},
       -5,
       {header_entry("7", "2", "1"), kTimeEntry,
        trace_entry("vk_conv_ipaddr",
                    "Invalid IP address type provided: 'x' - returning VOSK_INV_PARAM4(-5) to caller")}},
      {"the System Log for the older call",
       1,
       eid("022...."),
       true,
       {},
       -1,
       steps(header_entry("0", "1", "2"), true,
             {summary("Unknown location type 0x2 returned from vk_conv_base_64_hdr\n"
                      "Returning VOSK_FAILURE(-1) to caller\n")})},
      {"template 0, version 1",
       1,
       eid("......."),
       true,
       {},
       -1,
       steps(header_entry(".", "1", "0"), true, {no_template})},
      {"template 0, version 2",
       2,
       eid("6......"),
       true,
       {},
       -1,
       steps(header_entry("6", "2", "0"), true, {no_template})},
  };
  for (const Row &row : rows) expect_row(row);
  for (int version : {1, 2}) {
    Outputs outputs;
    ScratchTrace trace;
    Calls calls;
    decoding::on_a_node_with(calls, {"192.168.1.10"});
    calls.fail_nth("opendir", 1, ENOENT);
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 1, trace.path(), eid("/5Oh2..").c_str()); }), -14);
    EXPECT_EQ(trace.entries(),
              steps(header_entry("/", "1", "1"), true,
                    {trace_entry("vk_conv_base_64_inode",
                                 "Unable to open the directory /var/adm/vosk/stacks - errno is 2\n")}));
    decoding::close_left_open(calls);
  }
}

TEST(DecodingTrace, WithoutAddressesDoesNotLookForOne) {
  Outputs outputs;
  ScratchTrace trace;
  Calls calls;
  calls.fail_nth("socket", 1, EMFILE);
  EXPECT_EQ(calls.during([&] { return outputs.decode(2, 1, trace.path(), eid("75Oh2..").c_str()); }), 0);
  const std::vector<std::string> entries = trace.entries();
  ASSERT_EQ(entries.size(), 5u);
  EXPECT_EQ(entries[3], trace_entry("vk_obtain_ipaddrs",
                                    "Cannot create socket - error code 24\nReturning VOSK_FAILURE(-1) to caller"));
}

TEST(DecodingTrace, ShowsATimeThatHasNoDateAsSuch) {
  for (int version : {1, 2}) {
    Outputs outputs;
    outputs.names().chars()[0] = '\0';  // as from a caller who cleared it
    ScratchTrace trace;
    Calls calls;
    decoding::on_a_node_with(calls, {"10.0.0.1"});
    calls.fail_nth("ctime", 1, EOVERFLOW);
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 1, trace.path(), eid(".sN3BG.").c_str()); }), 0);
    EXPECT_THAT(trace.entries().back(), testing::HasSubstr("Timestamp (no date)\n"));
    decoding::close_left_open(calls);
  }
}

// Of a slot that nothing ends at most 255 bytes are shown.
TEST(DecodingTrace, TakesTheNameThroughACopy) {
  for (int version : {1, 2}) {
    Outputs outputs;
    outputs.names().fill('n');
    ScratchTrace trace;
    Calls calls;
    decoding::on_a_node_with(calls, {"10.0.0.1"});
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 1, trace.path(), eid("/5Oh2..").c_str()); }), 0);
    EXPECT_EQ(trace.entries().back(),
              summary(std::string("VOSK Error ID \"/5Oh2...2zIZ/.7S..XO.8....................\" decodes into:\n"
                                  "Version 1, Location 0x1\n") +
                      (version == 1 ? "Stack File " : "First Stack File ") + std::string(255, 'n')));
    decoding::close_left_open(calls);
  }
}

}  // namespace
