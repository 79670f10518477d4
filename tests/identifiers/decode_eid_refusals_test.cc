// Taking identifiers apart: texts that are none, and outputs that are missing.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "identifiers/decoding.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using decoding::eid;
using decoding::Outputs;
using platform::Calls;

constexpr const char *kRoutine = "vk_decode_eid";  // the name of both calls

// Both calls refuse with this code and entry, ask nobody, and leave every output alone.
void expect_refusal(const char *identifier, int code, const std::string &text,
                    const std::vector<std::string_view> &null = {}, std::vector<int> versions = {1, 2}) {
  for (int version : versions) {
    Outputs outputs;
    expect_result_and_trace(
        [&](int on, const char *path) {
          return outputs.decode(version, static_cast<unsigned>(on), path, identifier, null);
        },
        code, {trace_entry(kRoutine, text)});
    EXPECT_EQ(outputs.values(), outputs.untouched());
    Calls calls;
    calls.during([&] { return outputs.decode(version, 0, nullptr, identifier, null); });
    EXPECT_EQ(calls.count_all(), 0);
  }
}

constexpr const char *kNoIdentifier = "Detected invalid VOSK Error ID\nReturning VOSK_INV_PARAM2(-3) to the caller\n";

std::string wrong_size(const std::string &shown) {
  return "VOSK Error ID \"" + shown + "\"is not correct size\nReturning VOSK_INV_PARAM2(-3) to the caller\n";
}

TEST(DecodingRefusal, OfNoIdentifier) {
  expect_refusal(nullptr, -3, kNoIdentifier);
  expect_refusal(EdgeText("").chars(), -3, kNoIdentifier);
}

TEST(DecodingRefusal, OfATextThatIsTooShort) {
  for (std::size_t length : {1u, 2u, 7u, 17u, 41u}) {
    const std::string text = eid("75Oh2..").substr(0, length);
    expect_refusal(EdgeText(text).chars(), -3, wrong_size(text));
  }
}

// Shown in full, as far as an entry reaches.
TEST(DecodingRefusal, OfATextThatIsTooLong) {
  for (std::size_t length : {43u, 44u, 100u, 238u, 239u, 240u, 100000u}) {
    std::string text = eid("75Oh2..");
    text.resize(length, 'x');
    expect_refusal(EdgeText(text).chars(), -3, wrong_size(text));
  }
}

// Without the trace nothing behind the 43 bytes is looked at.
TEST(DecodingRefusal, OfABufferThatNothingEnds) {
  for (const std::string &bytes : {eid("75Oh2..") + "x", std::string(43, '\xFF')}) {
    for (int version : {1, 2}) {
      Outputs outputs;
      EXPECT_EQ(outputs.decode(version, 0, nullptr, EdgeBuffer(bytes).chars()), -3);
      EXPECT_EQ(outputs.values(), outputs.untouched());
    }
  }
}

TEST(DecodingRefusal, OfAnIdentifierNeverReadsBehindItsBuffer) {
  for (int version : {1, 2}) {
    EdgeBuffer identifier(eid(".sN3BG.") + '\0');
    Outputs outputs;
    Calls calls;
    decoding::on_a_node_with(calls, {});
    EXPECT_EQ(calls.during([&] { return outputs.decode(version, 0, nullptr, identifier.chars()); }), 0);
    decoding::close_left_open(calls);
  }
}

// A bad identifier is found before a missing output, and the outputs are tested in this order.
TEST(DecodingRefusal, OfMissingOutputsInTheirOrder) {
  const struct {
    std::string_view name;
    int code;
    const char *text;
  } rows[] = {
      {"version_id", -4, "Detected invalid pointer for version_id\nReturning VOSK_INV_PARAM3(-4) to the caller\n"},
      {"location_mask", -5,
       "Detected invalid pointer for location_mask\nReturning VOSK_INV_PARAM4(-5) to the caller\n"},
      {"stack_file", -6, nullptr},
      {"err_templ_label", -7,
       "Detected invalid pointer for err_templ_label\nReturning VOSK_INV_PARAM6(-7) to the caller\n"},
      {"timestamp", -8, "Detected invalid pointer for timestamp\nReturning VOSK_INV_PARAM7(-8) to the caller\n"},
      {"ip_addr", -9, "Detected invalid pointer for ip_addr\nReturning VOSK_INV_PARAM8(-9) to the caller\n"},
      {"ipv6_flag", -10, "Detected invalid pointer for ipv6_flag\nReturning VOSK_INV_PARAM9(-10) to the caller\n"},
  };
  const std::string good = eid("15Oh2..");  // its header is refused only behind the pointers
  std::vector<std::string_view> later = {"bsd_facility", "bsd_priority"};
  for (auto row = std::rbegin(rows); row != std::rend(rows); ++row) {
    SCOPED_TRACE(row->name);
    later.push_back(row->name);
    for (const std::vector<std::string_view> &null : {std::vector<std::string_view>{row->name}, later}) {
      if (row->text != nullptr) {
        expect_refusal(good.c_str(), row->code, row->text, null);
        continue;
      }
      // The one name that differs between the calls.
      expect_refusal(good.c_str(), row->code,
                     "Detected invalid pointer for stack_file\nReturning VOSK_INV_PARAM5(-6) to the caller\n", null,
                     {1});
      expect_refusal(good.c_str(), row->code,
                     "Detected invalid pointer for stack_file_list\nReturning VOSK_INV_PARAM5(-6) to the caller\n",
                     null, {2});
    }
  }
  expect_refusal(nullptr, -3, kNoIdentifier, later);
  expect_refusal("short", -3, wrong_size("short"), later);
}

std::string low32_hex(const void *pointer) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(reinterpret_cast<unsigned long>(pointer)));
  return text;
}

TEST(DecodingRefusal, OfAMissingFacilityOrPriorityComesLast) {
  unsigned on_node = 0, version = 0, location = 0, templ_id = 0, ipv6 = 0, facility = 7, priority = 7;
  char names[256] = {}, address[16] = {};
  timeval time = {};
  const struct {
    unsigned *facility, *priority;
  } rows[] = {{nullptr, &priority}, {&facility, nullptr}, {nullptr, nullptr}};
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk_decode_eid_2(static_cast<unsigned>(on), path, eid("E5Oh2..").c_str(), &on_node, &version, &location,
                                 names, 1, &templ_id, row.facility, row.priority, &time, address, &ipv6);
        },
        -11,
        {trace_entry(kRoutine, "Detected invalid pointer for bsd_priority (0x" + low32_hex(row.priority) +
                                   ") or bsd_facility (0x" + low32_hex(row.facility) +
                                   ")\nReturning VOSK_INV_PARAMCOMBO(-11) to the caller\n")});
  }
  EXPECT_EQ(facility, 7u);
  EXPECT_EQ(priority, 7u);
}

}  // namespace
