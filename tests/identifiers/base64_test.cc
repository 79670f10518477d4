// Numbers as base 64 digits and back, and the location field of an identifier.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <random>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"

namespace {

constexpr std::string_view kAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr int kOther = 77;  // an errno that nothing sets

struct Number {
  std::uint64_t value;
  const char *digits;
};

constexpr Number kNumbers[] = {
    {0, ""},
    {1, "/"},
    {2, "0"},
    {11, "9"},
    {12, "A"},
    {37, "Z"},
    {38, "a"},
    {63, "z"},
    {64, "./"},
    {65, "//"},
    {4095, "zz"},
    {4096, "../"},
    {123456, ".7S"},
    {1000000, ".7o1"},
    {1234567, "5Oh2"},
    {0x12345678, "sN3BG"},
    {1700000000, ".2zIZ/"},
    {0xFFFFFFFF, "zzzzz1"},
    {(std::uint64_t{1} << 36) - 1, "zzzzzz"},
    {std::uint64_t{1} << 36, "......"},  // bits from 36 on are dropped, but all six digits are written
    {(std::uint64_t{1} << 36) + 1, "/....."},
    {std::uint64_t{1} << 63, "......"},
    {UINT64_MAX, "zzzzzz"},
};

TEST(NumberToDigits, WritesTheLeastSignificantDigitFirstAndAZeroByte) {
  for (const Number &row : kNumbers) {
    SCOPED_TRACE(row.value);
    const std::string expected = std::string(row.digits) + '\0';
    for (int buflen : {6, 8, INT_MAX}) {
      EdgeBuffer buffer(expected.size());
      errno = kOther;
      EXPECT_EQ(vk_l64a_r(row.value, buffer.chars(), buflen), 0);
      EXPECT_EQ(buffer.bytes(), expected);
      EXPECT_EQ(errno, kOther);
    }
  }
}

// The values have 0 to 6 digits, told apart by their place.
constexpr Number kByLength[] = {{0, ""},
                                {3, "1"},
                                {3 + 64 * 4, "12"},
                                {3 + 64 * (4 + 64 * 5), "123"},
                                {3 + 64 * (4 + 64 * (5 + 64 * 6)), "1234"},
                                {3 + 64 * (4 + 64 * (5 + 64 * (6 + 64 * 7))), "12345"},
                                {3 + 64 * (4 + 64 * (5 + 64 * (6 + 64 * (7 + 64 * std::uint64_t{8})))), "123456"}};

TEST(NumberToDigits, LetsADigitLandAtTheBoundAndTheZeroByteBehindIt) {
  for (int buflen = 0; buflen <= 6; ++buflen) {
    for (std::size_t digits = 0; digits <= 6; ++digits) {
      SCOPED_TRACE(std::to_string(digits) + " digits, bound " + std::to_string(buflen));
      EdgeBuffer buffer(static_cast<std::size_t>(std::min(buflen + 2, 7)));
      errno = kOther;
      const int result = vk_l64a_r(kByLength[digits].value, buffer.chars(), buflen);
      if (digits <= static_cast<std::size_t>(buflen) + 1) {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(errno, kOther);
        EXPECT_EQ(buffer.bytes().substr(0, digits + 1), std::string(kByLength[digits].digits) + '\0');
        EXPECT_EQ(buffer.bytes().find_first_not_of(EdgeBuffer::kUntouched, digits + 1), std::string::npos);
      } else {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(buffer.chars()[0], '\0');
      }
    }
  }
}

TEST(NumberToDigits, RefusesANegativeBoundButForTheNumberWithoutDigits) {
  for (int buflen : {-1, -2, INT_MIN}) {
    EdgeBuffer one(1);
    errno = kOther;
    EXPECT_EQ(vk_l64a_r(0, one.chars(), buflen), 0);
    EXPECT_EQ(one.bytes(), std::string(1, '\0'));
    EXPECT_EQ(errno, kOther);
    one.fill('x');
    EXPECT_EQ(vk_l64a_r(1, one.chars(), buflen), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(one.bytes(), std::string(1, '\0'));
  }
}

TEST(NumberToDigits, RefusesANullBufferBeforeItLooksAtTheNumber) {
  for (std::uint64_t value : {std::uint64_t{0}, std::uint64_t{5}, UINT64_MAX}) {
    errno = kOther;
    EXPECT_EQ(vk_l64a_r(value, nullptr, 8), -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(DigitsToNumber, ReadsWhatTheOtherDirectionWrites) {
  for (const Number &row : kNumbers) {
    EXPECT_EQ(vk_a64l(EdgeText(row.digits).chars()), row.value & 0xFFFFFFFFF) << row.digits;
  }
}

TEST(DigitsToNumber, IsZeroForNothing) {
  EXPECT_EQ(vk_a64l(nullptr), 0u);
  EXPECT_EQ(vk_a64l(EdgeText("").chars()), 0u);
}

TEST(DigitsToNumber, TakesEveryCharacterOfTheAlphabetByItsPlace) {
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) {
    EXPECT_EQ(vk_a64l(EdgeText(kAlphabet.substr(i, 1)).chars()), i) << kAlphabet[i];
  }
}

TEST(DigitsToNumber, UsesEveryCharacterAndWrapsAround) {
  constexpr Number kRows[] = {
      {123456, ".7S."},
      {123456, ".7S..................................................."},  // the digit 0 on the right changes nothing
      {std::uint64_t{1} << 36, "....../"},                                 // a seventh digit
      {std::uint64_t{63} << 54, ".........z"},
      {std::uint64_t{15} << 60, "..........z"},  // the eleventh digit keeps its low four bits
      {std::uint64_t{1} << 60, "........../"},
      {0, "..........E"},  // 16
      {UINT64_MAX, "zzzzzzzzzzz"},
      {UINT64_MAX, "zzzzzzzzzzzz"},
      {5, "3..........zzzzzzzzzz"},
  };
  for (const Number &row : kRows) EXPECT_EQ(vk_a64l(EdgeText(row.digits).chars()), row.value) << row.digits;
}

TEST(DigitsToNumber, TakesWhatIsNoDigitForMoreThanAnyDigit) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::size_t place = kAlphabet.find(static_cast<char>(byte));
    EXPECT_EQ(vk_a64l(EdgeText(std::string(1, static_cast<char>(byte))).chars()),
              place != std::string_view::npos ? place : 64u)
        << byte;
  }
}

// From the last character to the first: add, and multiply by 64 but for the first.
std::uint64_t slow_number(const std::string &text, const std::uint64_t (&digit)[256]) {
  std::uint64_t number = 0;
  for (std::size_t i = text.size(); i-- > 0;) {
    number += digit[static_cast<unsigned char>(text[i])];
    if (i != 0) number *= 64;
  }
  return number;
}

TEST(DigitsToNumber, AgreesWithASlowerWayForRandomTexts) {
  std::uint64_t digit[256] = {};
  for (unsigned byte = 1; byte < 256; ++byte) {
    const std::size_t place = kAlphabet.find(static_cast<char>(byte));
    digit[byte] = place != std::string_view::npos ? place : 64;
  }
  std::mt19937 random(20231114);
  for (int round = 0; round < 20000; ++round) {
    const bool any_byte = round % 2 == 1;
    std::string text(random() % (round % 100 == 0 ? 3000 : 24), '\0');
    for (char &c : text) c = any_byte ? static_cast<char>(1 + random() % 255) : kAlphabet[random() % 64];
    ASSERT_EQ(vk_a64l(text.c_str()), slow_number(text, digit)) << testing::PrintToString(text);
  }
}

TEST(DigitsToNumber, GivesBackTheLowThirtySixBitsOfRandomNumbers) {
  std::mt19937_64 random(20231114);
  for (int round = 0; round < 20000; ++round) {
    const std::uint64_t value = random() >> (random() % 64);
    char digits[7];
    ASSERT_EQ(vk_l64a_r(value, digits, 6), 0);
    ASSERT_EQ(vk_a64l(digits), value & 0xFFFFFFFFF) << value;
  }
}

TEST(LocationField, IsCopiedWithoutAZeroByte) {
  EdgeBuffer identifier(std::string_view("75Oh2.."));  // nothing behind the field is read
  EdgeBuffer field(6);
  vk_selector_substr(identifier.chars(), field.chars());
  EXPECT_EQ(field.bytes(), "5Oh2..");
  vk_selector_substr(EdgeText("822.....2zIZ/.7S..XO.8....................").chars(), field.chars());
  EXPECT_EQ(field.bytes(), "22....");
}

TEST(LocationField, GoesNowhereWithoutABuffer) {
  vk_selector_substr("75Oh2...2zIZ/.7S..XO.8....................", nullptr);
  vk_selector_substr(nullptr, nullptr);
}

TEST(LocationField, OfNoIdentifierIsEmpty) {
  EdgeBuffer field(6);
  vk_selector_substr(nullptr, field.chars());
  EXPECT_EQ(field.bytes(), std::string(6, '\0'));
}

}  // namespace
