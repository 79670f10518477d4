// The time field of an identifier: six digits of seconds, four of microseconds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/interpose.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

using testing::ElementsAre;

constexpr const char *kEncoder = "vk_get_base_64_time";
constexpr const char *kDecoder = "vk_conv_base_64_time";
constexpr std::int64_t kUnset = 0x5A5A5A5A5A5A5A5A;

struct Time {
  std::int64_t seconds, microseconds;
  const char *field;
};
constexpr Time kTimes[] = {
    {1700000000, 123456, ".2zIZ/.7S."},
    {1700000000, 0, ".2zIZ/...."},
    {1700000000, 999999, ".2zIZ/z6o1"},
    {1, 1, "/...../..."},
    {63, 64, "z....../.."},
    {0xFFFFFFFF, 5, "zzzzz13..."},
    {(std::int64_t{1} << 36) - 1, 999999, "zzzzzzz6o1"},
};

TEST(TimeEncoder, WritesTheClockInTenCharacters) {
  for (const Time &row : kTimes) {
    SCOPED_TRACE(row.field);
    EdgeBuffer field(10);
    std::int64_t seconds = kUnset;
    platform::Calls calls;
    calls.fixed_clock(row.seconds, row.microseconds);
    EXPECT_EQ(calls.during([&] { return vk::vk_get_base_64_time(0, nullptr, field.chars(), &seconds); }), 0);
    EXPECT_EQ(field.bytes(), row.field);
    EXPECT_EQ(seconds, row.seconds);
    EXPECT_THAT(calls.log(), ElementsAre("gettimeofday() = 0"));
  }
}

TEST(TimeEncoder, KeepsTheLowThirtySixBitsOfTheSecondsButHandsAllOfThemOut) {
  const Time rows[] = {{std::int64_t{1} << 36, 1, "....../..."},
                       {(std::int64_t{1} << 40) + 7, 1, "5...../..."},
                       {-1, 0, "zzzzzz...."}};  // a clock before 1970
  for (const Time &row : rows) {
    EdgeBuffer field(10);
    std::int64_t seconds = kUnset;
    platform::Calls calls;
    calls.fixed_clock(row.seconds, row.microseconds);
    EXPECT_EQ(calls.during([&] { return vk::vk_get_base_64_time(0, nullptr, field.chars(), &seconds); }), 0);
    EXPECT_EQ(field.bytes(), row.field);
    EXPECT_EQ(seconds, row.seconds);
  }
}

TEST(TimeEncoder, TracesSecondsAndMicroseconds) {
  const struct {
    std::int64_t seconds;
    const char *text;
  } rows[] = {
      {1700000000,
       "Time of day value 1700000000 secs 123456 usecs converted to base-64 rep of .2zIZ/.7S.\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
      {5000000000,  // by its low 32 bits
       "Time of day value 705032704 secs 123456 usecs converted to base-64 rep of .6T/e2.7S.\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
  };
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) {
          char field[11] = {};
          std::int64_t seconds = 0;
          platform::Calls calls;
          calls.fixed_clock(row.seconds, 123456);
          return calls.during([&] { return vk::vk_get_base_64_time(on, path, field, &seconds); });
        },
        0, {trace_entry(kEncoder, row.text)});
  }
}

TEST(TimeEncoder, RefusesInTheOrderFieldSecondsAndDoesNotReadTheClockThen) {
  EdgeBuffer field(10);
  std::int64_t seconds = kUnset;
  const struct {
    char *field;
    std::int64_t *seconds;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, "Called with a NULL parameter for tod64rep\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {nullptr, &seconds, -4, "Called with a NULL parameter for tod64rep\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {field.chars(), nullptr, -5,
       "Called with a NULL parameter for seconds\nReturning VOSK_INV_PARAM4(-5) to caller\n"},
  };
  for (const auto &row : rows) {
    const auto call = [&](int on, const char *path) {
      return vk::vk_get_base_64_time(on, path, row.field, row.seconds);
    };
    expect_result_and_trace(call, row.code, {trace_entry(kEncoder, row.text)});
    platform::Calls calls;
    calls.during([&] { return call(0, nullptr); });
    EXPECT_EQ(calls.count_all(), 0);
  }
  EXPECT_TRUE(field.untouched());
  EXPECT_EQ(seconds, kUnset);
}

TEST(TimeEncoder, FailsWhereTheClockCannotBeRead) {
  EdgeBuffer field(10);
  std::int64_t seconds = kUnset;
  expect_result_and_trace(
      [&](int on, const char *path) {
        platform::Calls calls;
        calls.fail_nth("gettimeofday", 1, EINVAL);
        return calls.during([&] { return vk::vk_get_base_64_time(on, path, field.chars(), &seconds); });
      },
      -1, {trace_entry(kEncoder, "Cannot obtain current time of day - returning VOSK_FAILURE(-1) to caller\n")});
  EXPECT_TRUE(field.untouched());
  EXPECT_EQ(seconds, kUnset);
}

TEST(TimeDecoder, ReadsWhatTheEncoderWrites) {
  for (const Time &row : kTimes) {
    SCOPED_TRACE(row.field);
    timeval time = {kUnset, kUnset};
    EXPECT_EQ(vk::vk_conv_base_64_time(0, nullptr, EdgeText(row.field).chars(), &time), 0);
    EXPECT_EQ(time.tv_sec, row.seconds);
    EXPECT_EQ(time.tv_usec, row.microseconds);
  }
}

TEST(TimeDecoder, AnswersEveryFieldAndSaysWhatItFound) {
  const struct {
    const char *field;
    std::int64_t seconds, microseconds;
    int code;
    const char *text;
  } rows[] = {
      {".2zIZ/.7S.", 1700000000, 123456, 0,
       "Time base-64 rep of .2zIZ/.7S. converted to 1700000000 secs 123456 usecs\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
      {".6T/e2.7S.", 5000000000, 123456, 0,
       "Time base-64 rep of .6T/e2.7S. converted to 705032704 secs 123456 usecs\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
      // The tenth character is the last one that counts.
      {".2zIZ/.7S.zz", 1700000000, 123456, 0,
       "Time base-64 rep of .2zIZ/.7S.zz converted to 1700000000 secs 123456 usecs\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
      // A field that ends early has no microseconds, or fewer digits of seconds.
      {".2zIZ/", 1700000000, 0, 0,
       "Time base-64 rep of .2zIZ/ converted to 1700000000 secs 0 usecs\nReturning VOSK_SUCCESS(0) to caller\n"},
      {"7", 9, 0, 0, "Time base-64 rep of 7 converted to 9 secs 0 usecs\nReturning VOSK_SUCCESS(0) to caller\n"},
      {".......7S.", 0, 0, -36,
       "Secs ...... translated to 0 - assuming an invalid time rep provided\n"
       "Returning VOSK_INV_FID(-36) to caller\n"},
      {".", 0, 0, -36,
       "Secs . translated to 0 - assuming an invalid time rep provided\nReturning VOSK_INV_FID(-36) to caller\n"},
      {".2zIZ/.7o1", 0, 0, -36,  // exactly one second
       "Usecs .7o1 translated to 1000000 - assuming an invalid time rep provided\n"
       "Returning VOSK_INV_FID(-36) to caller\n"},
      {".2zIZ/zzzz", 0, 0, -36,
       "Usecs zzzz translated to 16777215 - assuming an invalid time rep provided\n"
       "Returning VOSK_INV_FID(-36) to caller\n"},
      {".2zIZ/z6o1", 1700000000, 999999, 0,
       "Time base-64 rep of .2zIZ/z6o1 converted to 1700000000 secs 999999 usecs\n"
       "Returning VOSK_SUCCESS(0) to caller\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.field);
    EdgeText field(row.field);
    timeval time = {};
    expect_result_and_trace(
        [&](int on, const char *path) {
          time = {kUnset, kUnset};
          return vk::vk_conv_base_64_time(on, path, field.chars(), &time);
        },
        row.code, {trace_entry(kDecoder, row.text)});
    EXPECT_EQ(time.tv_sec, row.seconds);
    EXPECT_EQ(time.tv_usec, row.microseconds);
  }
}

TEST(TimeDecoder, RefusesInTheOrderFieldTime) {
  timeval time = {kUnset, kUnset};
  const struct {
    const char *field;
    timeval *time;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, "Called with a NULL string for a base-64 TOD\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {"", &time, -4, "Called with a NULL string for a base-64 TOD\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      // The code's name stands glued to the end.
      {"......", nullptr, -5,
       "No data area provided in tbuf parameter\nReturning VOSK_INV_PARAM4(-5) to caller\nVOSK_INV_PARAM4"},
  };
  for (const auto &row : rows) {
    expect_result_and_trace(
        [&](int on, const char *path) { return vk::vk_conv_base_64_time(on, path, row.field, row.time); }, row.code,
        {trace_entry(kDecoder, row.text)});
  }
  EXPECT_EQ(time.tv_sec, kUnset);
  EXPECT_EQ(time.tv_usec, kUnset);
}

}  // namespace
