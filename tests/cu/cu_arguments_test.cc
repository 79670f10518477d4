// Argument lists: what each conversion stores, and when there is no list.

#include <gtest/gtest.h>

#include <sys/types.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "qx_cu.h"
#include "support/interpose.h"

namespace {

struct Outcome {
  int result = 0, count = 0;
  std::vector<cu_arg_t> args;
  bool array = false;
};

Outcome arguments_of(const char *message, ...) {
  Outcome outcome;
  cu_arg_t *args = reinterpret_cast<cu_arg_t *>(&outcome);  // must be replaced in every case
  outcome.count = -7;
  va_list list;
  va_start(list, message);
  outcome.result = cu_set_error_args_1(message, list, &args, &outcome.count);
  va_end(list);
  outcome.array = args != nullptr;
  if (args != nullptr) outcome.args.assign(args, args + outcome.count);
  EXPECT_EQ(cu_rel_error_args_1(args, outcome.count), 0);
  return outcome;
}

TEST(ErrorArguments, AreNoneForAMessageWithoutThem) {
  for (const char *message : {static_cast<const char *>(nullptr), "", "plain text", "100%%", "%m and %%s"}) {
    SCOPED_TRACE(message != nullptr ? message : "(null)");
    const Outcome outcome = arguments_of(message);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.count, 0);
    EXPECT_FALSE(outcome.array);
  }
}

void expect_integers(const Outcome &outcome, int type, const std::vector<std::int64_t> &values) {
  ASSERT_EQ(outcome.result, 0);
  ASSERT_EQ(outcome.count, static_cast<int>(values.size()));
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(outcome.args[i].type, type) << i;
    EXPECT_EQ(outcome.args[i].value.i64, values[i]) << i;
  }
}

TEST(ErrorArguments, HoldIntegersOfEveryWidth) {
  expect_integers(arguments_of("%d %i %hd %hhd", INT_MIN, INT_MAX, -3, 4), CU_ARG_INT, {INT_MIN, INT_MAX, -3, 4});
  expect_integers(arguments_of("%u %x %X %o %hu %hhx", UINT_MAX, 1U, 2U, 3U, 4U, 5U), CU_ARG_UINT,
                  {UINT_MAX, 1, 2, 3, 4, 5});
  expect_integers(arguments_of("%ld %lld %jd %td %zd", LONG_MIN, LLONG_MAX, static_cast<std::intmax_t>(-3),
                               static_cast<std::ptrdiff_t>(-4), static_cast<ssize_t>(-5)),
                  CU_ARG_LONG, {LONG_MIN, LLONG_MAX, -3, -4, -5});
  expect_integers(arguments_of("%lu %llx %ju %zu %to", ULONG_MAX, 1ULL, static_cast<std::uintmax_t>(2),
                               static_cast<std::size_t>(3), static_cast<std::size_t>(4)),
                  CU_ARG_ULONG, {-1, 1, 2, 3, 4});
  expect_integers(arguments_of("%c%c", 'x', 200), CU_ARG_CHAR, {'x', 200});
}

TEST(ErrorArguments, WithoutMemoryAreCountedAndNotGiven) {
  platform::Calls calls;
  calls.fail_nth("calloc", 1, ENOMEM);
  const Outcome outcome = calls.during([] { return arguments_of("%d of %d", 1, 2); });
  EXPECT_EQ(outcome.result, -1);
  EXPECT_EQ(outcome.count, 2);
  EXPECT_FALSE(outcome.array);
}

TEST(ErrorArguments, HoldTheCallersStringsPointersAndReals) {
  const char text[] = "text";
  const char *null = nullptr;
  int object = 0;
  const Outcome outcome =
      arguments_of("%s %s %p %f %Lg", text, null, static_cast<void *>(&object), 0.1, static_cast<long double>(-2.5));
  ASSERT_EQ(outcome.result, 0);
  ASSERT_EQ(outcome.count, 5);
  EXPECT_EQ(outcome.args[0].type, 5) << "a string";
  EXPECT_EQ(outcome.args[0].value.string, text);
  EXPECT_EQ(outcome.args[1].type, CU_ARG_STRING);
  EXPECT_EQ(outcome.args[1].value.string, nullptr);
  EXPECT_EQ(outcome.args[2].type, CU_ARG_POINTER);
  EXPECT_EQ(outcome.args[2].value.pointer, &object);
  EXPECT_EQ(outcome.args[3].type, CU_ARG_DOUBLE);
  EXPECT_EQ(outcome.args[3].value.real, 0.1);
  EXPECT_EQ(outcome.args[4].type, CU_ARG_DOUBLE);
  EXPECT_EQ(outcome.args[4].value.real, -2.5);
}

TEST(ErrorArguments, AreOrderedByPosition) {
  const Outcome outcome = arguments_of("%3$s %1$-20s %2$d %1$s", "first", 2, "third");
  ASSERT_EQ(outcome.result, 0);
  ASSERT_EQ(outcome.count, 3);
  EXPECT_STREQ(outcome.args[0].value.string, "first");
  EXPECT_EQ(outcome.args[1].value.i64, 2);
  EXPECT_STREQ(outcome.args[2].value.string, "third");
}

TEST(ErrorArguments, CountStarsAsIntegers) {
  const Outcome plain = arguments_of("%*.*f%s", 10, 3, 0.5, "end");
  ASSERT_EQ(plain.count, 4);
  EXPECT_EQ(plain.args[0].type, CU_ARG_INT);
  EXPECT_EQ(plain.args[0].value.i64, 10);
  EXPECT_EQ(plain.args[1].value.i64, 3);
  EXPECT_EQ(plain.args[2].value.real, 0.5);
  EXPECT_STREQ(plain.args[3].value.string, "end");
  const Outcome positional = arguments_of("%2$*1$s", 8, "text");
  ASSERT_EQ(positional.count, 2);
  EXPECT_EQ(positional.args[0].value.i64, 8);
  EXPECT_STREQ(positional.args[1].value.string, "text");
}

TEST(ErrorArguments, FailWithTheNumberDetected) {
  struct {
    const char *message;
    int detected;
  } const rows[] = {
      {"%1$s %s", 1},     // mixed
      {"%d %s %1$s", 2},  // mixed, the other way round
      {"%2$s", 1},        // a gap in front
      {"%1$s %4$d", 2},   // a gap inside
      {"%1$s %1$d", 1},   // one position, two types
      {"%s %y", 1},       // unknown
      {"%s %d %n", 2},    // never taken
      {"100%", 0},        // nothing behind it
      {"%65$s", 0},       // too many
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.message);
    const Outcome outcome = arguments_of(row.message, "a", "b", "c", "d");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.count, row.detected);
    EXPECT_FALSE(outcome.array);
  }
}

TEST(ErrorArguments, AreAtMostSixtyFour) {
  std::string message;
  for (int position = 64; position >= 1; --position) message += "%" + std::to_string(position) + "$d";
  const auto call = [](const std::string &text) {
    return arguments_of(text.c_str(), 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
                        24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47,
                        48, 49, 50, 51, 52, 53, 54, 55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65);
  };
  const Outcome all = call(message);
  ASSERT_EQ(all.result, 0);
  ASSERT_EQ(all.count, 64);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(all.args[static_cast<std::size_t>(i)].value.i64, i + 1);
  const Outcome more = call("%65$d" + message);
  EXPECT_EQ(more.result, -1);
  EXPECT_EQ(more.count, 0);
}

int call_with(cu_arg_t **out, int *count, ...) {
  va_list list;
  va_start(list, count);
  const int result = cu_set_error_args_1("%d", list, out, count);
  va_end(list);
  return result;
}

TEST(ErrorArguments, FailWithoutAPlaceForThem) {
  cu_arg_t *args = nullptr;
  int count = 7;
  EXPECT_EQ(call_with(nullptr, &count, 1), -1);
  EXPECT_EQ(count, 7);
  EXPECT_EQ(call_with(&args, nullptr, 1), -1);
  EXPECT_EQ(args, nullptr);
}

TEST(ErrorArguments, ReleaseTakesANullArray) {
  EXPECT_EQ(cu_rel_error_args_1(nullptr, 0), 0);
}

}  // namespace
