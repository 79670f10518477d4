#include "utils/conversions.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using vk::arg_type;
using Types = std::vector<arg_type>;

Types types_of(const vk::format_arguments &list) {
  return Types(list.types, list.types + list.count);
}

TEST(FormatArguments, AreFoundInPlainAndPositionalFormats) {
  constexpr arg_type i = arg_type::int_type, u = arg_type::unsigned_type, s = arg_type::string_type;
  struct {
    const char *format;
    Types types;
  } const rows[] = {
      {"", {}},
      {"no conversion", {}},
      {"100%%", {}},
      {"%%%%%%", {}},
      {"%s", {s}},
      {"%s%d%u", {s, i, u}},
      {"%1$s", {s}},
      {"%2$d %1$s", {s, i}},
      {"%1$s %1$s %1$20.5s", {s}},
      {"%*d", {i, i}},
      {"%-*.*s", {i, i, s}},
      {"%.*f", {i, arg_type::double_type}},
      {"%2$*1$d", {i, i}},
      {"%3$-*1$.*2$s", {i, i, s}},
      {"%1$s%%%2$s", {s, s}},
      {"%m %s %m", {s}},
      {"%-20m", {}},
      {"%+ 0'-d", {i}},
      {"%#0-x", {u}},
      {"%+ #0'-f", {arg_type::double_type}},
      {"50% done", {i}},  // like printf: "% d"
      {"%--d", {i}},
      {"%05d", {i}},
      {"%1$05d", {i}},
      {"%.d", {i}},
      {"%65535d", {i}},
      {"%.65535d", {i}},
      {"%hhd%hd%ld%lld%jd%td%zd",
       {i, i, arg_type::long_type, arg_type::long_long_type, arg_type::intmax_type, arg_type::ptrdiff_type,
        arg_type::ssize_type}},
      {"%hhu%hx%lX%llo%ju%tu%zu",
       {u, u, arg_type::unsigned_long_type, arg_type::unsigned_long_long_type, arg_type::uintmax_type,
        arg_type::unsigned_ptrdiff_type, arg_type::size_type}},
      {"%i%o%x%X", {i, u, u, u}},
      {"%f%F%e%E%g%G%a%A", Types(8, arg_type::double_type)},
      {"%lf%Lg", {arg_type::double_type, arg_type::long_double_type}},
      {"%c%p", {arg_type::character_type, arg_type::pointer_type}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.format);
    const vk::format_arguments list = vk::arguments_of(row.format);
    EXPECT_TRUE(list.valid);
    EXPECT_EQ(types_of(list), row.types);
  }
}

TEST(FormatArguments, AreRefusedWithTheNumberDetectedBeforeTheFault) {
  struct {
    const char *format;
    int detected;
  } const rows[] = {
      {"%", 0},
      {"%s %", 1},
      {"%s %d %y", 2},
      {"%n", 0},
      {"%s%n", 1},
      {"%hhn", 0},
      {"%5%", 0},
      {"%-%", 0},
      {"%1$%", 0},
      {"%1$m", 0},
      {"%lm", 0},
      {"%1$s %s", 1},
      {"%s %1$s", 1},
      {"%1$*d", 0},
      {"%*1$d", 0},
      {"%2$s", 1},
      {"%1$s %3$s", 2},
      {"%3$*1$d", 2},
      {"%1$s %1$d", 1},
      {"%1$d %1$u", 1},
      {"%1$*1$s", 1},
      {"%0$s", 0},
      {"%1$", 0},
      {"%1$2$s", 0},
      {"%-1$s", 0},
      {"%65$s", 0},
      {"%999999999$s", 0},
      {"%99999999999999999999$s", 0},
      {"%65536d", 0},
      {"%.65536d", 0},
      {"%4294967297d", 0},
      {"%*65$d", 0},
      {"%ls", 0},
      {"%lc", 0},
      {"%S", 0},
      {"%C", 0},
      {"%hs", 0},
      {"%Ld", 0},
      {"%llf", 0},
      {"%hhhd", 0},
      {"%lp", 0},
      {"%I64d", 0},
      {"%.-3d", 0},
      {"% ", 0},
      {"%*", 0},
      {"%.*", 0},
      {"%h", 0},
      {"50% of all", 0},
      {"80% systems", 0},
      {"%+s", 0},
      {"%05s", 0},
      {"%#s", 0},
      {"%0c", 0},
      {"% p", 0},
      {"%#d", 0},
      {"%+u", 0},
      {"%'x", 0},
      {"%'e", 0},
      {"%0m", 0},
      {"%1$s %2$*1$d", 1},
      {"%1$s %2$.*1$d", 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.format);
    const vk::format_arguments list = vk::arguments_of(row.format);
    EXPECT_FALSE(list.valid);
    EXPECT_EQ(list.count, row.detected);
  }
}

std::string repeated(const char *text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

TEST(FormatArguments, AreAtMostSixtyFour) {
  EXPECT_TRUE(vk::arguments_of(repeated("%d", 64).c_str()).valid);
  EXPECT_EQ(vk::arguments_of(repeated("%d", 64).c_str()).count, 64);
  EXPECT_FALSE(vk::arguments_of(repeated("%d", 65).c_str()).valid);
  EXPECT_EQ(vk::arguments_of(repeated("%d", 65).c_str()).count, 64);
  EXPECT_TRUE(vk::arguments_of(repeated("%*d", 32).c_str()).valid);
  EXPECT_FALSE(vk::arguments_of((repeated("%*d", 32) + "%d").c_str()).valid);
  EXPECT_TRUE(vk::arguments_of(repeated("%1$d", 10000).c_str()).valid) << "one argument, however often";
}

TEST(SameConversions, MeansTheSameArgumentsByPositionAndType) {
  struct {
    const char *a, *b;
    bool same;
  } const rows[] = {
      {"", "", true},
      {"text", "other text", true},
      {"%s", "%s", true},
      {"%s and %d", "%2$d und %1$s", true},
      {"%1$s %2$s", "%2$s %1$s %2$s", true},
      {"%s", "%-20.10s", true},
      {"%d", "%i", true},
      {"%d", "%+05d", true},
      {"%x", "%u", true},
      {"%*d", "%2$*1$d", true},
      {"100%% %s", "%s", true},
      {"%m: %s", "%s: %m", true},
      {"%s", "", false},
      {"", "%s", false},
      {"%s", "%d", false},
      {"%d", "%s", false},
      {"%d", "%u", false},
      {"%d", "%ld", false},
      {"%ld", "%lld", false},
      {"%d", "%c", false},
      {"%f", "%Lf", false},
      {"%s", "%p", false},
      {"%s", "%s %s", false},
      {"%1$s %2$s", "%2$s", false},
      {"%s %d", "%d %s", false},
      {"%d", "%*d", false},
      {"%s", "%s %m", false},
      {"%s", "%n", false},
      {"%s", "%s %n", false},
      {"%n", "%n", false},
      {"%", "%", false},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(vk::same_conversions(row.a, row.b), row.same) << row.a << " | " << row.b;
    EXPECT_EQ(vk::same_conversions(row.b, row.a), row.same) << row.b << " | " << row.a;
  }
}

TEST(ConversionScanner, GivesEveryPartOfAConversion) {
  const char *format = "a%%b%3$-+08.*2$hhdc%m";
  vk::conversion_scanner scanner(format);
  vk::conversion c;
  ASSERT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(std::string(c.begin, c.end), "%%");
  EXPECT_EQ(c.specifier, '%');
  EXPECT_EQ(c.position, 0);
  ASSERT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(std::string(c.begin, c.end), "%3$-+08.*2$hhd");
  EXPECT_STREQ(c.flags, "-+0");
  EXPECT_EQ(c.width.where, vk::field_number::in_text);
  EXPECT_EQ(c.width.value, 8);
  EXPECT_EQ(c.precision.where, vk::field_number::in_argument);
  EXPECT_EQ(c.precision.value, 2);
  EXPECT_STREQ(c.length, "hh");
  EXPECT_EQ(c.specifier, 'd');
  EXPECT_EQ(c.type, arg_type::int_type);
  EXPECT_EQ(c.position, 3);
  ASSERT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(c.specifier, 'm');
  EXPECT_EQ(scanner.next(c), vk::scan_result::finished);
  EXPECT_EQ(scanner.next(c), vk::scan_result::finished);
}

TEST(ConversionScanner, NumbersPlainConversionsAndTheirStars) {
  vk::conversion_scanner scanner("%d %*.*f");
  vk::conversion c;
  ASSERT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(c.position, 1);
  ASSERT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(c.width.value, 2);
  EXPECT_EQ(c.precision.value, 3);
  EXPECT_EQ(c.position, 4);
}

TEST(ConversionScanner, StopsAtABrokenConversionForGood) {
  vk::conversion_scanner scanner("%s %y %s");
  vk::conversion c;
  EXPECT_EQ(scanner.next(c), vk::scan_result::found);
  EXPECT_EQ(scanner.next(c), vk::scan_result::broken);
  EXPECT_EQ(scanner.next(c), vk::scan_result::broken);
}

// Every text gets an answer that holds: the walk ends, stays inside the text, and its arguments are within the limit.
TEST(ConversionScanner, AnswersAnyText) {
  std::mt19937 random(4711);
  const std::string letters = "%%%%%%%%0123456789$*.-+ #'hlLjztdiouxXfeEgGaAcspmnCSyI\x01\xff";
  int valid = 0;
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (std::size_t length = random() % 24; length > 0; --length) text += letters[random() % letters.size()];
    SCOPED_TRACE(text);
    vk::conversion_scanner scanner(text.c_str());
    vk::conversion c;
    const char *from = text.c_str();
    vk::scan_result result;
    while ((result = scanner.next(c)) == vk::scan_result::found) {
      ASSERT_GE(c.begin, from);
      ASSERT_EQ(*c.begin, '%');
      ASSERT_GE(c.end - c.begin, 2);
      ASSERT_LE(c.end, text.c_str() + text.size());
      ASSERT_LE(c.position, vk::kMaxArguments);
      ASSERT_EQ(c.position == 0, c.specifier == '%' || c.specifier == 'm');
      from = c.end;
    }
    const vk::format_arguments list = vk::arguments_of(text.c_str());
    ASSERT_GE(list.count, 0);
    ASSERT_LE(list.count, vk::kMaxArguments);
    if (result == vk::scan_result::broken) {
      ASSERT_FALSE(list.valid);
    }
    ASSERT_EQ(vk::same_conversions(text.c_str(), text.c_str()), list.valid);
    valid += list.valid;
  }
  EXPECT_GT(valid, 10000);
}

}  // namespace
