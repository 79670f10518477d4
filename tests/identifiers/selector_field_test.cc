// The syslog selector of an identifier: facility and priority.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

constexpr const char *kEncoder = "vk_get_base_64_selector";
constexpr const char *kDecoder = "vk_conv_base_64_selector";
constexpr unsigned kUnset = 0xA5A5A5A5;
// The digits of the facility numbers 0 to 23 and of the priorities 0 to 7, each plus 1.
constexpr std::string_view kDigits = "/0123456789ABCDEFGHIJKLM";

std::string selector_of(unsigned number, unsigned priority) {
  return std::string() + kDigits[number] + kDigits[priority] + "....";
}

TEST(SelectorEncoder, WritesFacilityAndPriorityPlusOne) {
  EXPECT_EQ(selector_of(3, 3), "22....");
  for (unsigned facility = 0; facility <= 184; ++facility) {
    for (unsigned priority = 0; priority <= 7; ++priority) {
      EdgeBuffer selector(7);
      ASSERT_EQ(vk::vk_get_base_64_selector(0, nullptr, facility, priority, selector.chars()), 0);
      ASSERT_EQ(selector.bytes(), selector_of(facility / 8, priority) + '\0');  // the low 3 bits are lost
    }
  }
}

TEST(SelectorEncoder, TracesTheNumberOfTheFacility) {
  const struct {
    unsigned facility, priority;
    const char *text;
  } rows[] = {
      {24, 3, "Facility 3 and priority 3 translated to code \"22....\" - returning VOSK_SUCCESS(0)"},
      {31, 7, "Facility 3 and priority 7 translated to code \"26....\" - returning VOSK_SUCCESS(0)"},
      {0, 0, "Facility 0 and priority 0 translated to code \"//....\" - returning VOSK_SUCCESS(0)"},
      {184, 7, "Facility 23 and priority 7 translated to code \"M6....\" - returning VOSK_SUCCESS(0)"},
  };
  for (const auto &row : rows) {
    EdgeBuffer selector(7);
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_get_base_64_selector(on, path, row.facility, row.priority, selector.chars());
        },
        0, {trace_entry(kEncoder, row.text)});
  }
}

TEST(SelectorEncoder, RefusesInTheOrderFacilityPriorityPointer) {
  EdgeBuffer selector(7);
  const struct {
    unsigned facility, priority;
    char *selector;
    int code;
    const char *text;
  } rows[] = {
      {185, 8, nullptr, -4, "facility 23 invalid - returning VOSK_INV_PARAM3(-4)\n"},
      {192, 0, selector.chars(), -4, "facility 24 invalid - returning VOSK_INV_PARAM3(-4)\n"},
      {1024, 0, selector.chars(), -4, "facility 0 invalid - returning VOSK_INV_PARAM3(-4)\n"},
      {UINT_MAX, UINT_MAX, selector.chars(), -4, "facility 127 invalid - returning VOSK_INV_PARAM3(-4)\n"},
      {24, 8, nullptr, -5, "priority value 8 invalid - returning VOSK_INV_PARAM4(-5)\n"},
      {184, UINT_MAX, selector.chars(), -5, "priority value -1 invalid - returning VOSK_INV_PARAM4(-5)\n"},
      {24, 3, nullptr, -6, "sel64rep pointer 0x0 invalid - returning VOSK_INV_PARAM5(-6)\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.facility) + " " + std::to_string(row.priority));
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_get_base_64_selector(on, path, row.facility, row.priority, row.selector);
        },
        row.code, {trace_entry(kEncoder, row.text)});
  }
  EXPECT_TRUE(selector.untouched());
}

struct Decoded {
  unsigned facility = kUnset, priority = kUnset;
};

TEST(SelectorDecoder, ReadsWhatTheEncoderWrites) {
  for (unsigned number = 0; number <= 23; ++number) {
    for (unsigned priority = 0; priority <= 7; ++priority) {
      EdgeText selector(selector_of(number, priority));
      Decoded out;
      ASSERT_EQ(vk::vk_conv_base_64_selector(0, nullptr, selector.chars(), &out.facility, &out.priority), 0);
      ASSERT_EQ(out.facility, number * 8);
      ASSERT_EQ(out.priority, priority);
    }
  }
}

TEST(SelectorDecoder, AnswersEverySelectorAndSaysWhatItFound) {
  const struct {
    const char *selector;
    unsigned facility, priority;
    int code;
    const char *text;
  } rows[] = {
      {"22....", 24, 3, 0, "Selector \"22....\" yielded:\n\tFacility 24\tPriority 3\nReturning VOSK_SUCCESS(0)"},
      {"26....", 24, 7, 0, "Selector \"26....\" yielded:\n\tFacility 24\tPriority 7\nReturning VOSK_SUCCESS(0)"},
      {"M/....", 184, 0, 0, "Selector \"M/....\" yielded:\n\tFacility 184\tPriority 0\nReturning VOSK_SUCCESS(0)"},
      {"22.....", 24, 3, 0, "Selector \"22.....\" yielded:\n\tFacility 24\tPriority 3\nReturning VOSK_SUCCESS(0)"},
      // The shape.
      {".2....", kUnset, kUnset, -4, "Selector \".2....\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"2.....", kUnset, kUnset, -4, "Selector \"2.....\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"......", kUnset, kUnset, -4, "Selector \"......\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22...x", kUnset, kUnset, -4, "Selector \"22...x\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22x...", kUnset, kUnset, -4, "Selector \"22x...\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22.x..", kUnset, kUnset, -4, "Selector \"22.x..\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22..x.", kUnset, kUnset, -4, "Selector \"22..x.\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22...", kUnset, kUnset, -4, "Selector \"22...\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"22", kUnset, kUnset, -4, "Selector \"22\" invalid - returning VOSK_INV_PARAM3(-4)"},
      {"2", kUnset, kUnset, -4, "Selector \"2\" invalid - returning VOSK_INV_PARAM3(-4)"},
      // The numbers.
      {"N2....", kUnset, kUnset, -4,
       "Selector \"N2....\" yielded invalid facility value 24 - returning VOSK_INV_PARAM3(-4)"},
      {"z2....", kUnset, kUnset, -4,
       "Selector \"z2....\" yielded invalid facility value 62 - returning VOSK_INV_PARAM3(-4)"},
      {"27....", kUnset, kUnset, -4,
       "Selector \"27....\" yielded invalid priority value 8 - returning VOSK_INV_PARAM3(-4)"},
      {"2z....", kUnset, kUnset, -4,
       "Selector \"2z....\" yielded invalid priority value 62 - returning VOSK_INV_PARAM3(-4)"},
      {"N7....", kUnset, kUnset, -4,  // the facility is looked at first
       "Selector \"N7....\" yielded invalid facility value 24 - returning VOSK_INV_PARAM3(-4)"},
      // A seventh character is a digit of the priority: 4 + 2^30 - 1.
      {"22..../", kUnset, kUnset, -4,
       "Selector \"22..../\" yielded invalid priority value 1073741827 - returning VOSK_INV_PARAM3(-4)"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.selector);
    EdgeText selector(row.selector);
    Decoded out;
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_conv_base_64_selector(on, path, selector.chars(), &out.facility, &out.priority);
        },
        row.code, {trace_entry(kDecoder, row.text)});
    EXPECT_EQ(out.facility, row.facility);
    EXPECT_EQ(out.priority, row.priority);
  }
}

TEST(SelectorDecoder, RefusesAnyOtherByteBehindTheTwoDigits) {
  for (std::size_t place = 2; place < 6; ++place) {
    for (int byte = 1; byte < 256; ++byte) {
      if (byte == '.') continue;
      std::string text = "22....";
      text[place] = static_cast<char>(byte);
      Decoded out;
      ASSERT_EQ(vk::vk_conv_base_64_selector(0, nullptr, EdgeText(text).chars(), &out.facility, &out.priority), -4)
          << testing::PrintToString(text);
      ASSERT_EQ(out.facility, kUnset);
      ASSERT_EQ(out.priority, kUnset);
    }
  }
}

TEST(SelectorDecoder, RefusesInTheOrderSelectorFacilityPriorityShape) {
  unsigned facility = kUnset, priority = kUnset;
  constexpr const char *kNoFacility = "Facility pointer 0x0 invalid - returning VOSK_INV_PARAM4(-5)";
  const struct {
    const char *selector;
    unsigned *facility, *priority;
    int code;
    std::string text;
  } rows[] = {
      {nullptr, nullptr, nullptr, -4, "Selector \"\" at location 0x0 appears invalid - returning VOSK_INV_PARAM3(-4)"},
      {".2....", nullptr, nullptr, -5, kNoFacility},
      {"22....", nullptr, &priority, -5, kNoFacility},
      {".2....", &facility, nullptr, -6, "Priority pointer 0x0 invalid - returning VOSK_INV_PARAM5(-6)"},
  };
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) {
          return vk::vk_conv_base_64_selector(on, path, row.selector, row.facility, row.priority);
        },
        row.code, {trace_entry(kDecoder, row.text)});
  }
  EXPECT_EQ(facility, kUnset);
  EXPECT_EQ(priority, kUnset);
}

TEST(SelectorDecoder, ShowsWhereAnEmptySelectorLies) {
  EdgeText empty("");
  unsigned facility = kUnset, priority = kUnset;
  char text[128];
  std::snprintf(text, sizeof text, "Selector \"\" at location 0x%x appears invalid - returning VOSK_INV_PARAM3(-4)",
                static_cast<unsigned>(reinterpret_cast<unsigned long>(empty.chars())));
  expect_result_and_trace(
      [&](int on, const char *path) {
        return vk::vk_conv_base_64_selector(on, path, empty.chars(), &facility, &priority);
      },
      -4, {trace_entry(kDecoder, text)});
}

}  // namespace
