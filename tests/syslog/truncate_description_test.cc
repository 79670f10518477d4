// Cutting a description to what is left of a terminal's line.
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <climits>
#include <string>

#include "support/interpose.h"

namespace {

// How much is left of a description of `length` characters. At most one byte of it may change.
std::size_t cut(std::size_t length, int columns_used) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
  std::string expected = text + '\0' + "behind";
  std::string buffer = expected;
  EXPECT_EQ(vk_truncate_description(buffer.data(), columns_used), static_cast<int>(length));
  const std::size_t left = std::string(buffer.c_str()).size();
  if (left < length) expected[left] = '\0';
  EXPECT_EQ(buffer, expected);
  return left;
}

TEST(TruncateDescription, WidthIsThatOfColumnsOrEighty) {
  const struct {
    const char *columns;
    std::size_t width;
  } rows[] = {
      {nullptr, 80},  {"", 80},     {"0", 80},           {"-1", 80},          {"-99999999999999999999", 80},
      {"none", 80},   {"1", 1},     {"40", 40},          {"  40", 40},        {"+40", 40},
      {"40x", 40},    {"40.9", 40}, {"0x28", 80},        {"132", 132},        {"040", 40},
      {"\n\t7 8", 7}, {"%s%n", 80}, {"2147483647", 500}, {"2147483648", 500}, {"99999999999999999999", 500},
  };
  for (const auto &row : rows) {
    platform::Environment environment;
    if (row.columns != nullptr)
      environment.set("COLUMNS", row.columns);
    else
      environment.unset("COLUMNS");
    EXPECT_EQ(cut(500, 0), row.width) << (row.columns != nullptr ? row.columns : "unset");
  }
}

TEST(TruncateDescription, ColumnsInUseAreTakenOff) {
  platform::Environment environment;
  environment.set("COLUMNS", "20");
  EXPECT_EQ(cut(30, 0), 20U);
  EXPECT_EQ(cut(30, 5), 15U);
  EXPECT_EQ(cut(30, 19), 1U);
  EXPECT_EQ(cut(30, 20), 0U);
  EXPECT_EQ(cut(30, -5), 25U);
}

TEST(TruncateDescription, TextThatFitsStays) {
  platform::Environment environment;
  environment.set("COLUMNS", "20");
  EXPECT_EQ(cut(0, 0), 0U);
  EXPECT_EQ(cut(19, 0), 19U);
  EXPECT_EQ(cut(20, 0), 20U);
  EXPECT_EQ(cut(21, 0), 20U);
  EXPECT_EQ(cut(0, 20), 0U);
}

TEST(TruncateDescription, NullIsTheEmptyText) {
  EXPECT_EQ(vk_truncate_description(nullptr, 0), 0);
  EXPECT_EQ(vk_truncate_description(nullptr, 80), 0);
}

TEST(TruncateDescription, OverfullLineCutsNothing) {
  platform::Environment environment;
  environment.set("COLUMNS", "20");
  EXPECT_EQ(cut(30, 21), 30U);
  EXPECT_EQ(cut(30, INT_MAX), 30U);
}

TEST(TruncateDescription, LimitsDoNotOverflow) {
  platform::Environment environment;
  environment.set("COLUMNS", "2147483647");
  EXPECT_EQ(cut(30, INT_MIN), 30U);
  EXPECT_EQ(cut(30, -1), 30U);
  EXPECT_EQ(cut(30, INT_MAX), 0U);
  environment.set("COLUMNS", "1");
  EXPECT_EQ(cut(30, INT_MAX), 30U);
  EXPECT_EQ(cut(30, INT_MIN), 30U);
}

}  // namespace
