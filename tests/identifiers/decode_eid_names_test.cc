// Taking identifiers apart: the names of stack files, and how many of them a caller has room for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "identifiers/decoding.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using decoding::eid;
using decoding::Outputs;
using decoding::slot;
using platform::Calls;

TEST(Decoding, ListsAsManyNamesAsThereAreSlots) {
  const std::vector<platform::FakeEntry> entries = {
      {"one", 1234567}, {"other", 7}, {"two", 1234567}, {"three", 1234567}};
  const std::string untouched(256, EdgeBuffer::kUntouched);
  const struct {
    std::size_t slots;
    std::string names;
  } rows[] = {{1, slot("one")},
              {2, slot("one") + slot("two")},
              {3, slot("one") + slot("two") + slot("three")},
              {4, slot("one") + slot("two") + slot("three") + untouched}};
  for (const auto &row : rows) {
    Outputs outputs(row.slots);
    Calls calls;
    decoding::here(calls);
    calls.fake_directory(entries);
    EXPECT_EQ(calls.during([&] { return outputs.decode(2, 0, nullptr, eid("75Oh2..").c_str()); }), 0);
    EXPECT_EQ(files::difference(row.names, outputs.values().names), "");
    decoding::close_left_open(calls);
  }
  // The older call has one name, however many there are.
  Outputs outputs(2);
  Calls calls;
  decoding::here(calls);
  calls.fake_directory(entries);
  EXPECT_EQ(calls.during([&] { return outputs.decode(1, 0, nullptr, eid("/5Oh2..").c_str()); }), 0);
  EXPECT_EQ(outputs.values().names, slot("one") + untouched);
  decoding::close_left_open(calls);
}

TEST(Decoding, TakesAnySizeOfTheListForTrue) {
  for (unsigned size : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    unsigned on_node = 0, version = 0, location = 0, templ_id = 0, facility = 0, priority = 0, ipv6 = 0;
    timeval time = {};
    EdgeBuffer names(256), address(16);
    Calls calls;
    decoding::here_with({{"x", 1}, {"s.1", 1234567}})(calls);
    EXPECT_EQ(calls.during([&] {
      return vk_decode_eid_2(0, nullptr, eid("75Oh2..").c_str(), &on_node, &version, &location, names.chars(), size,
                             &templ_id, &facility, &priority, &time, address.chars(), &ipv6);
    }),
              0);
    EXPECT_EQ(names.bytes(), slot("s.1"));
    decoding::close_left_open(calls);
  }
}

TEST(Decoding, WithoutSlotsRefusesOnlyTheLookup) {
  const struct {
    std::string eid;
    decoding::Surroundings node;
    int code;
  } rows[] = {{eid("75Oh2.."), decoding::here, -6},     {eid("/5Oh2.."), decoding::here, -6},
              {eid("75Oh2.."), decoding::elsewhere, 0}, {eid("6sN3BG."), decoding::here, 0},
              {eid("822...."), decoding::here, 0},      {eid("827...."), decoding::here, -4},
              {eid("6sN3BG."), decoding::elsewhere, 0}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.eid);
    ScratchTrace trace;
    for (unsigned trace_on : {0u, 1u}) {
      Outputs outputs(0);  // not one byte of a slot may be touched
      Calls calls;
      row.node(calls);
      EXPECT_EQ(calls.during([&] { return outputs.decode(2, trace_on, trace.path(), row.eid.c_str()); }), row.code);
      EXPECT_EQ(calls.count("opendir"), 0);
      decoding::close_left_open(calls);
    }
    if (row.code == -6) continue;
    EXPECT_THAT(trace.entries().back(), testing::HasSubstr("\nFirst Stack File (none), Template ID "));
  }
}

}  // namespace
