// The template field of an identifier.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

constexpr const char *kEncoder = "vk_get_base_64_templ";
constexpr const char *kDecoder = "vk_conv_base_64_templ";
constexpr unsigned kUnset = 0xA5A5A5A5;

struct Template {
  std::uint32_t id;
  const char *field, *decimal;
};
constexpr Template kTemplates[] = {
    {1, "/.....", "1"},
    {0xFF, "z1....", "255"},
    {1234567, "5Oh2..", "1234567"},
    {0x12345678, "sN3BG.", "305419896"},
    {0x80000000, ".....0", "-2147483648"},
    {0xFFFFFFFF, "zzzzz1", "-1"},
};

TEST(TemplateEncoder, WritesTheNumberInSixCharacters) {
  for (const Template &row : kTemplates) {
    SCOPED_TRACE(row.field);
    EdgeBuffer exact(6);
    EXPECT_EQ(vk::vk_get_base_64_templ(0, nullptr, row.id, exact.chars()), 0);
    EXPECT_EQ(exact.bytes(), row.field);
    expect_result_and_trace(
        [&](int on, const char *path) {
          char field[7] = {};
          return vk::vk_get_base_64_templ(on, path, row.id, field);
        },
        0,
        {trace_entry(kEncoder, std::string("Converted template ID ") + row.decimal + " to base-64 value of " +
                                   row.field + "\nReturning VOSK_SUCCESS(0) to the caller\n")});
  }
}

TEST(TemplateEncoder, WritesZeroAsDots) {
  EdgeBuffer exact(6);
  EXPECT_EQ(vk::vk_get_base_64_templ(0, nullptr, 0, exact.chars()), 0);
  EXPECT_EQ(exact.bytes(), "......");
}

TEST(TemplateEncoder, RefusesANullField) {
  expect_result_and_trace(
      [](int on, const char *path) { return vk::vk_get_base_64_templ(on, path, 7, nullptr); }, -5,
      {trace_entry(kEncoder, "Called with a NULL pointer for templ64rep\nReturning VOSK_INV_PARAM4(-5) to caller\n")});
}

TEST(TemplateDecoder, ReadsWhatTheEncoderWrites) {
  for (const Template &row : kTemplates) {
    SCOPED_TRACE(row.field);
    EdgeText field(row.field);
    unsigned id = kUnset;
    expect_result_and_trace(
        [&](int on, const char *path) { return vk::vk_conv_base_64_templ(on, path, field.chars(), &id); }, 0,
        {trace_entry(kDecoder, std::string("Converted template base-64 value of ") + row.field + " to " + row.decimal +
                                   "\nReturning VOSK_SUCCESS(0) to the caller\n")});
    EXPECT_EQ(id, row.id);
  }
}

TEST(TemplateDecoder, KeepsTheLowThirtyTwoBits) {
  unsigned id = kUnset;
  EXPECT_EQ(vk::vk_conv_base_64_templ(0, nullptr, "/....2", &id), 0);  // 4 * 2^30 + 1
  EXPECT_EQ(id, 1u);
  EXPECT_EQ(vk::vk_conv_base_64_templ(0, nullptr, "zzzzzz", &id), 0);
  EXPECT_EQ(id, 0xFFFFFFFFu);
}

// Zero can be encoded but not decoded; it is stored all the same.
TEST(TemplateDecoder, RefusesZero) {
  for (const char *field : {"......", "", ".....2"}) {  // the last one is 2^32
    SCOPED_TRACE(field);
    unsigned id = kUnset;
    expect_result_and_trace(
        [&](int on, const char *path) {
          id = kUnset;
          return vk::vk_conv_base_64_templ(on, path, field, &id);
        },
        -1,
        {trace_entry(kDecoder, std::string("Cannot convert base-64 valueof ") + field +
                                   " to a valid template ID value\nReturning VOSK_FAILURE(-1) to caller\n")});
    EXPECT_EQ(id, 0u);
  }
}

TEST(TemplateDecoder, RefusesInTheOrderFieldNumber) {
  unsigned id = kUnset;
  constexpr const char *kNoField =
      "Called with a NULL pointer for templ64rep\nReturning VOSK_INV_PARAM3(-4) to caller\n";
  const struct {
    const char *field;
    unsigned *id;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, kNoField},
      {nullptr, &id, -4, kNoField},
      {"5Oh2..", nullptr, -5,
       "Asked to translate a template ID of 0, which seems invalid\nReturning VOSK_INV_PARAM4(-5) to the caller"},
  };
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) { return vk::vk_conv_base_64_templ(on, path, row.field, row.id); }, row.code,
        {trace_entry(kDecoder, row.text)});
  }
  EXPECT_EQ(id, kUnset);
}

}  // namespace
