// Messages are formatted as printf does it: random formats and values, compared with snprintf.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cfloat>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <variant>
#include <vector>

#include "current_error.h"

// The formats are made at run time, which is the point here.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

using Value = std::variant<int, unsigned, long, unsigned long, long long, double, long double, const char *, void *>;

struct Kind {
  std::size_t index;  // of the variant
  const char *flags;  // those that are defined for the specifier
  const char *length;
  const char *specifiers;
};

constexpr Kind kKinds[] = {
    {0, "-+ 0'", "", "di"},   {0, "-+ 0'", "hh", "di"}, {0, "-+ 0'", "h", "di"},       {0, "-", "", "c"},
    {1, "-#0", "", "oxX"},    {1, "-0'", "", "u"},      {1, "-#0", "hh", "oxX"},       {1, "-0", "h", "u"},
    {2, "-+ 0'", "l", "di"},  {2, "-+ 0", "t", "di"},   {2, "-+ 0", "z", "di"},        {2, "-+ 0", "j", "di"},
    {3, "-#0", "l", "oxX"},   {3, "-0'", "z", "u"},     {3, "-0", "j", "u"},           {3, "-#0", "t", "ox"},
    {3, "-#0", "ll", "oxX"},  {3, "-0'", "ll", "u"},    {4, "-+ 0'", "ll", "di"},      {5, "-+ #0'", "", "fFgG"},
    {5, "-+ #0", "", "eEaA"}, {5, "-+ #0", "l", "fe"},  {6, "-+ #0", "L", "fFeEgGaA"}, {7, "-", "", "s"},
    {8, "-", "", "p"},
};

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  int below(int limit) { return std::uniform_int_distribution<int>(0, limit - 1)(random_); }
  bool one_in(int n) { return below(n) == 0; }

  void set_value(Value &value, std::size_t index) {
    const auto bits = std::uniform_int_distribution<std::uint64_t>()(random_) >> below(64);
    static constexpr double kReals[] = {0.0, -0.0, 1.0, -1.5, 1e300, -1e-300, DBL_MAX, DBL_MIN, 1.0 / 3, 999999.5};
    static constexpr const char *kTexts[] = {"", "a", "%s%n%d", "vk_push_stack", "\xc3\xbc\xff", "two\nlines"};
    const double real = one_in(2) ? kReals[below(10)] : static_cast<double>(bits) / 7919 * (one_in(2) ? 1 : -1);
    switch (index) {
      case 0:
        value = static_cast<int>(bits);
        break;
      case 1:
        value = static_cast<unsigned>(bits);
        break;
      case 2:
        value = static_cast<long>(bits);
        break;
      case 3:
        value = static_cast<unsigned long>(bits);
        break;
      case 4:
        value = static_cast<long long>(bits);
        break;
      case 5:
        value = real;
        break;
      case 6:
        value = static_cast<long double>(real);
        break;
      case 7:
        value = kTexts[below(6)];
        break;
      default:
        value = one_in(5) ? nullptr : reinterpret_cast<void *>(bits);
    }
  }

  std::string flags(const char *allowed) {
    std::string chosen;
    for (; *allowed != '\0'; ++allowed)
      if (one_in(4)) chosen += *allowed;
    return chosen;
  }

  std::string literal() {
    static constexpr const char *kTexts[] = {"", " ", "text", "%%", "\n\t", "100%% ", "$1", "\xc3\xa4"};
    return kTexts[below(8)];
  }

  std::mt19937 &engine() { return random_; }

 private:
  std::mt19937 random_;
};

// A format for exactly three arguments and values for it. Widths and precisions that are arguments take a value, too.
struct Case {
  std::string format;
  std::array<Value, 3> values;
};

class CaseMaker {
 public:
  CaseMaker(Generator &generator, bool positional) : g_(generator), positional_(positional) {}

  Case make() {
    std::vector<std::string> conversions;
    while (used_ < 3) conversions.push_back(conversion());
    if (positional_) {
      if (g_.one_in(3)) conversions.push_back(conversions.front());
      std::shuffle(conversions.begin(), conversions.end(), g_.engine());
    }
    for (const std::string &one : conversions) made_.format += g_.literal() + one;
    made_.format += g_.literal();
    return made_;
  }

 private:
  // A negative width means '-', which overrides '0'; with positions the C library forgets that, so it is not tried
  // here.
  std::string star(bool with_zero_flag) {
    made_.values[used_++] = g_.below(60) - (with_zero_flag ? 0 : 20);
    return positional_ ? "*" + std::to_string(used_) + "$" : "*";
  }
  bool can_star() const { return used_ < 2; }

  std::string number(bool with_zero_flag) {
    const bool as_argument = can_star() && g_.one_in(4);
    return as_argument ? star(with_zero_flag) : std::to_string(g_.one_in(50) ? 5000 : 1 + g_.below(40));
  }

  std::string conversion() {
    const Kind &kind = kKinds[g_.below(static_cast<int>(std::size(kKinds)))];
    const std::string specifiers = kind.specifiers;
    const char specifier = specifiers[static_cast<std::size_t>(g_.below(static_cast<int>(specifiers.size())))];
    std::string middle = g_.flags(kind.flags);
    const bool zero = middle.find('0') != std::string::npos;
    if (g_.one_in(2)) middle += number(zero);
    if (specifier != 'c' && specifier != 'p' && g_.one_in(2)) middle += "." + (g_.one_in(5) ? "" : number(zero));
    g_.set_value(made_.values[used_++], kind.index);
    const std::string position = positional_ ? std::to_string(used_) + "$" : "";
    return "%" + position + middle + kind.length + specifier;
  }

  Generator &g_;
  bool positional_;
  Case made_;
  std::size_t used_ = 0;
};

void expect_as_printf(const Case &c) {
  std::visit(
      [&](auto first, auto second, auto third) {
        char expected[4104];
        errno = ENOENT;
        (void)std::snprintf(expected, sizeof expected, c.format.c_str(), first, second, third);
        errno = ENOENT;
        cu_set_error_1(1, 0, nullptr, 1, 1, c.format.c_str(), first, second, third);
        ASSERT_EQ(current_text(), expected);
      },
      c.values[0], c.values[1], c.values[2]);
}

TEST(MessageFormat, IsPrintfsForRandomPlainFormats) {
  Generator generator(20240117);
  for (int round = 0; round < 20000; ++round) {
    const Case c = CaseMaker(generator, false).make();
    SCOPED_TRACE(c.format);
    expect_as_printf(c);
    if (HasFatalFailure()) return;
  }
}

TEST(MessageFormat, IsPrintfsForRandomPositionalFormats) {
  Generator generator(771);
  for (int round = 0; round < 20000; ++round) {
    const Case c = CaseMaker(generator, true).make();
    SCOPED_TRACE(c.format);
    expect_as_printf(c);
    if (HasFatalFailure()) return;
  }
}

TEST(MessageFormat, IsPrintfsAtTheEdgesOfTheTypes) {
  const Case rows[] = {
      {"%d %i %d", {INT_MIN, INT_MAX, -1}},
      {"%u %x %o", {UINT_MAX, UINT_MAX, UINT_MAX}},
      {"%ld %ld %ld", {LONG_MIN, LONG_MAX, -1L}},
      {"%lu %lx %lo", {ULONG_MAX, ULONG_MAX, ULONG_MAX}},
      {"%lld %lld %jd", {LLONG_MIN, LLONG_MAX, LONG_MIN}},
      {"%llu %llx %ju", {ULONG_MAX, ULONG_MAX, ULONG_MAX}},
      {"%hhd %hd %hhu", {300, 70000, 511U}},
      {"%f %g %a", {DBL_MAX, -0.0, 1e-310}},
      {"%Lf %Lg %La", {1.0L / 3, 1e4000L, -0.0L}},
      {"%f %e %G", {HUGE_VAL, -HUGE_VAL, static_cast<double>(__builtin_nanf(""))}},
      {"%c%c%c", {'A', 255, '\n'}},
      {"%.0f %#.0f %#x", {0.5, 1.5, 0U}},
      {"%.0d %.0x %+.0d", {0, 0U, 0}},
      {"%m %d %d%d", {1, 2, 3}},
      {"%-30m|%.3m|%40m %d %d %d", {1, 2, 3}},
  };
  for (const Case &row : rows) {
    SCOPED_TRACE(row.format);
    expect_as_printf(row);
  }
}

}  // namespace
