// Times as they are shown and typed.
#include "tools/reader/moment.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

using vosk::moment;
using vosk::zone;

namespace {

// 2023-11-14 22:13:20 UTC; 23:13:20 in this zone, which is one hour ahead in winter and two in summer.
constexpr moment kNow{1700000000, 250000};

class Moment : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
  }
  void TearDown() override {
    setenv("TZ", "UTC", 1);
    tzset();
  }
};

}  // namespace

TEST_F(Moment, IsShownWithMicrosecondsAndZone) {
  EXPECT_EQ(vosk::time_text(1700000000, 123456, zone::local), "2023-11-14 23:13:20.123456 +0100");
  EXPECT_EQ(vosk::time_text(1690000000, 5, zone::local), "2023-07-22 06:26:40.000005 +0200");
  EXPECT_EQ(vosk::time_text(1700000000, 0, zone::utc), "2023-11-14 22:13:20.000000 +0000");
  EXPECT_EQ(vosk::time_text(1700000000, std::nullopt, zone::utc), "2023-11-14 22:13:20 +0000");
  EXPECT_EQ(vosk::utc_time_text(1700000000, 123456), "2023-11-14T22:13:20.123456Z");
  EXPECT_EQ(vosk::time_text(0xFFFFFFFFF, 0, zone::utc), "4147-08-20 07:32:15.000000 +0000");
}

TEST_F(Moment, IsReadAsUsersTypeIt) {
  struct {
    const char *text;
    std::int64_t seconds;
    std::int32_t microseconds;
  } const rows[] = {
      {"2023-11-14 23:13:20", 1700000000, 0},
      {"2023-11-14T23:13:20.5", 1700000000, 500000},
      {"2023-11-14 23:13:20.1234567", 1700000000, 123456},
      {"2023-11-14 23:13", 1699999980, 0},
      {"2023-11-14", 1699916400, 0},
      {"2023-11-14 22:13:20Z", 1700000000, 0},
      {"2023-11-14T22:13:20 +0000", 1700000000, 0},
      {"2023-11-15T00:13:20+02:00", 1700000000, 0},
      {"2023-11-14T19:43:20-0230", 1700000000, 0},
      {"23:13:20", 1700000000, 0},
      {"7:30", 1699943400, 0},
      {"now", 1700000000, 250000},
      {"today", 1699916400, 0},
      {"yesterday", 1699830000, 0},
      {"@1700000000", 1700000000, 0},
      {"@1700000000.25", 1700000000, 250000},
      {"-90", 1699999910, 250000},
      {"-1h30m", 1699994600, 250000},
      {"-500ms", 1699999999, 750000},
      {"2d ago", 1699827200, 250000},
      {"2023-07-22 06:26:40", 1690000000, 0},
      {"2024-02-29", 1709161200, 0},
      {"2023-11-14 23:59:60", 1700002800, 0},
  };
  for (const auto &row : rows) {
    const auto at = vosk::parse_moment(row.text, zone::local, kNow);
    ASSERT_TRUE(at) << row.text;
    EXPECT_EQ(at->seconds, row.seconds) << row.text;
    EXPECT_EQ(at->microseconds, row.microseconds) << row.text;
  }
  EXPECT_EQ(vosk::parse_moment("2023-11-14 22:13:20", zone::utc, kNow)->seconds, 1700000000);
  EXPECT_EQ(vosk::parse_moment("today", zone::utc, kNow)->seconds, 1699920000);
}

TEST_F(Moment, IsShownInAZoneBehind) {
  setenv("TZ", "EST5", 1);
  tzset();
  EXPECT_EQ(vosk::time_text(1700000000, 0, zone::local), "2023-11-14 17:13:20.000000 -0500");
}

TEST_F(Moment, IsANumberWhereNoCalendarReaches) {
  constexpr std::int64_t kNever = INT64_MAX;
  EXPECT_EQ(vosk::time_text(kNever, 0, zone::local), "@9223372036854775807");
  EXPECT_EQ(vosk::utc_time_text(kNever, 0), "@9223372036854775807");
  for (const char *text : {"today", "23:13"}) EXPECT_FALSE(vosk::parse_moment(text, zone::utc, {kNever, 0})) << text;
}

TEST_F(Moment, IsRefusedWhereItIsNone) {
  for (const char *text : {"",
                           " ",
                           "x",
                           "2023",
                           "2023-13-01",
                           "2023-00-01",
                           "2023-02-30",
                           "2023-11-14 24:00",
                           "2023-11-14 23:60",
                           "2023-11-14 23:13:61",
                           "2023-11-14 23:13:20.",
                           "2023-11-14 23:13:20 CET",
                           "2023-11-14x",
                           "20x3-11-14",
                           "2023-x1-14",
                           "2023-11/14",
                           "2023-11-",
                           "2023-11-00",
                           "2023-11-32",
                           "2023-02-30 23:13Z",
                           "2023-11-14 23:13:",
                           "2023-11-14 23:13:20.5x",
                           "2023-11-14 23:13 +",
                           "2023-11-14 23:13 +01",
                           "2023-11-14 23:13 +24:00",
                           "2023-11-14 23:13 +01:60",
                           "2023-11-14 23:13 0100",
                           "23:13 0100",
                           "@5.",
                           "@5x",
                           "x ago",
                           "1:2",
                           "-",
                           "-x",
                           "5m ago ago",
                           "-5m ago",
                           "@",
                           "@x",
                           "+5m",
                           "2023-11-14 22:13Z Z",
                           "tomorrow"})
    EXPECT_FALSE(vosk::parse_moment(text, zone::local, kNow)) << text;
}

TEST(Duration, IsReadInAllUnits) {
  struct {
    const char *text;
    std::int64_t microseconds;
  } const rows[] = {{"90", 90000000},      {"90s", 90000000},      {"5m", 300000000}, {"2h", 7200000000},
                    {"1d", 86400000000},   {"1w", 604800000000},   {"500ms", 500000}, {"20us", 20},
                    {"1h30m", 5400000000}, {"1h 30m", 5400000000}, {"0", 0}};
  for (const auto &row : rows) EXPECT_EQ(vosk::parse_duration(row.text), row.microseconds) << row.text;
  for (const char *text : {"", "m", "5x", "1h30", "-5m", "5.5m", "999999999999w", "1h-30m"})
    EXPECT_FALSE(vosk::parse_duration(text)) << text;
}

TEST(Duration, IsShownInFittingUnits) {
  struct {
    std::int64_t microseconds;
    const char *text;
  } const rows[] = {{0, "0.000000 s"},        {123, "0.000123 s"},         {59999999, "59.999999 s"},
                    {60000000, "1 min 0 s"},  {3599999999, "59 min 59 s"}, {3600000000, "1 h 0 min"},
                    {86400000000, "1 d 0 h"}, {-1500000, "-1.500000 s"}};
  for (const auto &row : rows) EXPECT_EQ(vosk::duration_text(row.microseconds), row.text);
}

TEST(Shifted, CarriesBetweenMicrosecondsAndSeconds) {
  EXPECT_EQ(vosk::shifted({10, 900000}, 200000), (moment{11, 100000}));
  EXPECT_EQ(vosk::shifted({10, 100000}, -200000), (moment{9, 900000}));
  EXPECT_EQ(vosk::shifted({10, 0}, -1), (moment{9, 999999}));
  EXPECT_EQ(vosk::microseconds_between({9, 999999}, {10, 1}), 2);
}
