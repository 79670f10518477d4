// The trace file as a circle: where writing starts again, what is cleared, and the header's counters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/trace_bytes.h"
#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_file.h"

namespace {

using foundation::entry_of;
using foundation::header;
using foundation::kEnd;
using foundation::kRecycle;
using foundation::over;
using foundation::write_entry;
using platform::Calls;
using testing::ElementsAre;

class TraceCircle : public testing::Test {
 protected:
  // A file of old bytes that no marks are among.
  static std::string old_file(int offset, int wraps, int size = 16384) {
    return over(std::string(static_cast<std::size_t>(size), 'o'), 0, header(offset, wraps, size));
  }
  void put(const std::string &bytes) const { ASSERT_TRUE(files::write(path_, bytes)); }
  std::string difference(const std::string &expected) const { return files::difference(expected, *files::read(path_)); }

  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "trace";
};

TEST_F(TraceCircle, EachEntryIsWrittenOverTheFormerEndMarker) {
  put(foundation::fresh_trace());
  ASSERT_EQ(write_entry(path_, 70), 0);
  ASSERT_EQ(write_entry(path_, 142), 0);
  ASSERT_EQ(write_entry(path_, 100), 0);
  std::string expected = header(348, 0, 16384) + entry_of(70) + entry_of(142) + entry_of(100) + kEnd;
  expected.resize(16384, '\0');
  EXPECT_EQ(difference(expected), "");
}

// 16384 <= 16300 + 70 + 23.
TEST_F(TraceCircle, StartsAgainBehindTheHeaderWhereTheEntryWouldNotFit) {
  put(old_file(16300, 0));
  Calls calls;
  ASSERT_EQ(write_entry(calls, path_, 70), 0);
  std::string expected = old_file(106, 1);
  expected = over(expected, 36, entry_of(70) + kEnd);
  expected = over(expected, 16300, kRecycle + std::string(16383 - 16322, '\0'));  // up to 16382
  EXPECT_EQ(expected[16383], 'o');
  EXPECT_EQ(difference(expected), "");
  EXPECT_THAT(calls.log_of({"open", "lseek", "read", "write", "lockf", "close"}),
              ElementsAre("open(\"" + path_ + "\", 0x2) = fd1", "lseek(fd1, 0, SEEK_SET) = 0",
                          "lockf(fd1, F_LOCK, 0) = 0", "read(fd1, 36) = 36", "lseek(fd1, 16300, SEEK_SET) = 16300",
                          "write(fd1, 22) = 22", "lseek(fd1, 0, SEEK_CUR) = 16322", "write(fd1, 61) = 61",
                          "lseek(fd1, 36, SEEK_SET) = 36", "write(fd1, 70) = 70", "lseek(fd1, 0, SEEK_CUR) = 106",
                          "write(fd1, 21) = 21", "lseek(fd1, 0, SEEK_CUR) = 127", "read(fd1, 1024) = 1024",
                          "lseek(fd1, 0, SEEK_SET) = 0", "write(fd1, 36) = 36", "lseek(fd1, 0, SEEK_SET) = 0",
                          "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"));
}

TEST_F(TraceCircle, KeepsAtLeast24BytesBehindAnEntry) {
  struct Row {
    int size, offset, length;
    bool recycles;
  };
  const Row rows[] = {{16384, 16384 - 70 - 24, 70, false},  {16384, 16384 - 70 - 23, 70, true},
                      {16384, 16384 - 70 - 22, 70, true},   {16384, 16384 - 142 - 24, 142, false},
                      {16384, 16384 - 142 - 23, 142, true}, {8192, 8192 - 100 - 24, 100, false},
                      {8192, 8192 - 100 - 23, 100, true},   {99999, 99999 - 70 - 24, 70, false},
                      {99999, 99999 - 70 - 23, 70, true},   {16384, 36, 70, false},
                      {16384, 16384 - 24, 70, true},        {16384, 16384 - 23, 70, true}};
  for (const Row &row : rows) {
    SCOPED_TRACE(std::to_string(row.offset) + " of " + std::to_string(row.size));
    put(old_file(row.offset, 0, row.size));
    ASSERT_EQ(write_entry(path_, row.length), 0);
    std::string expected = old_file(row.offset + row.length, 0, row.size);
    const auto offset = static_cast<std::size_t>(row.offset), size = static_cast<std::size_t>(row.size);
    if (row.recycles) {
      expected = over(old_file(36 + row.length, 1, row.size), offset, kRecycle);
      if (offset + 22 < size - 1) expected = over(expected, offset + 22, std::string(size - 1 - offset - 22, '\0'));
      expected = over(expected, 36, entry_of(row.length) + kEnd);
    } else {
      expected = over(expected, offset, entry_of(row.length) + kEnd);
    }
    EXPECT_EQ(difference(expected), "");
  }
}

// What lies behind the end marker of the new entry, and how much of it is cleared.
TEST_F(TraceCircle, ClearsWhatIsLeftOfTheOldestEntryAfterTheFirstWrap) {
  const std::string zero(1, '\0'), mark = "\x01";
  const auto o = [](std::size_t n) { return std::string(n, 'o'); };
  const auto z = [](std::size_t n) { return std::string(n, '\0'); };
  struct Row {
    const char *what;
    int wraps;
    std::string before, after;
  };
  const Row rows[] = {
      {"a fragment up to the next entry", 1, o(40) + mark + o(40), z(40) + mark + o(40)},
      {"one byte", 1, o(1) + mark + o(5), z(1) + mark + o(5)},
      {"none: the next entry begins right there", 1, mark + o(40) + mark, mark + o(40) + mark},
      {"up to the first mark of two", 7, o(3) + mark + o(3) + mark, z(3) + mark + o(3) + mark},
      {"nothing where a zero byte comes first", 1, o(40) + zero + mark + o(5), o(40) + zero + mark + o(5)},
      {"nothing where a zero byte is first of all", 1, zero + o(9) + mark, zero + o(9) + mark},
      {"the zero byte right behind the mark is no hindrance", 1, o(9) + mark + zero, z(9) + mark + zero},
      {"a mark as the last of 1024 bytes", 1, o(1023) + mark, z(1023) + mark},
      {"none within 1024 bytes", 1, o(1024) + mark, o(1024) + mark},
      {"no mark at all", 1, o(2000), o(2000)},
      {"nothing before the first wrap", 0, o(40) + mark + o(40), o(40) + mark + o(40)},
      {"a negative wrap count is not 0", -1, o(40) + mark, z(40) + mark},
      {"the largest wrap count", 99999, o(40) + mark, z(40) + mark},
      {"the end of the file behind a fragment", 1, "", ""},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    const std::size_t behind = 500 + 100 + 21;
    std::string bytes = over(old_file(500, row.wraps), behind, row.before);
    if (row.before.empty()) bytes.resize(behind + 300, 'o');  // nothing but an unended fragment
    put(bytes);
    ASSERT_EQ(write_entry(path_, 100), 0);
    std::string expected = over(over(bytes, 0, header(600, row.wraps, 16384)), 500, entry_of(100) + kEnd);
    expected = over(expected, behind, row.after);
    EXPECT_EQ(difference(expected), "");
  }
}

TEST_F(TraceCircle, ClearsWithTheseCalls) {
  put(over(old_file(500, 3), 500 + 100 + 21 + 30, "\x01"));
  Calls calls;
  ASSERT_EQ(write_entry(calls, path_, 100), 0);
  EXPECT_THAT(calls.log_of({"lseek", "read", "write"}),
              ElementsAre("lseek(fd1, 0, SEEK_SET) = 0", "read(fd1, 36) = 36", "lseek(fd1, 500, SEEK_SET) = 500",
                          "write(fd1, 100) = 100", "lseek(fd1, 0, SEEK_CUR) = 600", "write(fd1, 21) = 21",
                          "lseek(fd1, 0, SEEK_CUR) = 621", "read(fd1, 1024) = 1024", "lseek(fd1, 621, SEEK_SET) = 621",
                          "lseek(fd1, 0, SEEK_CUR) = 621", "write(fd1, 30) = 30", "lseek(fd1, 0, SEEK_SET) = 0",
                          "write(fd1, 36) = 36", "lseek(fd1, 0, SEEK_SET) = 0"));
}

TEST_F(TraceCircle, ReadsNothingToClearBeforeTheFirstWrap) {
  put(foundation::fresh_trace());
  Calls calls;
  ASSERT_EQ(write_entry(calls, path_, 100), 0);
  EXPECT_EQ(calls.count("read"), 1);
  EXPECT_EQ(calls.count("write"), 3);
}

// The entry that starts the circle anew cuts into the oldest one like any other.
TEST_F(TraceCircle, ClearsRightAfterStartingAgain) {
  std::string bytes = over(old_file(16300, 0), 36, entry_of(120) + entry_of(80));
  put(bytes);
  ASSERT_EQ(write_entry(path_, 70), 0);
  // 36 + 70 + 21 = 127; the second old entry begins at 156.
  std::string expected = over(over(bytes, 0, header(106, 1, 16384)), 36, entry_of(70) + kEnd + std::string(29, '\0'));
  expected = over(expected, 16300, kRecycle + std::string(61, '\0'));
  EXPECT_EQ(difference(expected), "");
  EXPECT_EQ(expected[156], '\x01');
}

TEST_F(TraceCircle, CannotCountMoreThan99999Wraps) {
  put(old_file(16300, 99998));
  ASSERT_EQ(write_entry(path_, 70), 0);
  EXPECT_EQ(files::read(path_)->substr(0, 36), "VKTFO=106   VKTFW=99999 VKTFS=16384\n");

  put(old_file(16300, 99999));
  EXPECT_EQ(write_entry(path_, 70), -26);
  std::string expected = over(old_file(0, 0), 0, "VKTFO=106   VKTFW=100000 VKTFS=16384");
  expected = over(expected, 16300, kRecycle + std::string(61, '\0'));
  expected = over(expected, 36, entry_of(70) + kEnd);
  EXPECT_EQ(difference(expected), "") << "all is written, but the header only as far as 36 bytes go";

  // Five characters of the count are read back, and the file goes on.
  ASSERT_EQ(write_entry(path_, 100), 0);
  EXPECT_EQ(files::read(path_)->substr(0, 36), header(206, 10000, 16384));
}

TEST_F(TraceCircle, StaysWellFormedThroughManyRounds) {
  put(foundation::fresh_trace(8192));
  std::mt19937 random(7);
  int wraps = 0;
  std::size_t most_older = 0;
  for (int i = 0; i < 3000; ++i) {
    const auto length = std::uniform_int_distribution<std::size_t>(0, 254)(random);
    const std::string message = std::to_string(i) + ":" + std::string(length, static_cast<char>('a' + i % 26));
    ASSERT_EQ(vk_debug(path_.c_str(), "round", "%s", message.c_str()), 0);
    const trace_file::Trace trace = trace_file::read(path_);
    ASSERT_EQ(trace.problem, "") << "after entry " << i;
    ASSERT_GT(trace.entries.size(), trace.older);
    EXPECT_EQ(trace.entries.back().lines, trace_file::folded("%s", message.c_str()));
    ASSERT_TRUE(trace.wraps == wraps || trace.wraps == wraps + 1);
    EXPECT_EQ(trace.recycle_marker && trace.wraps == 0, false);
    wraps = trace.wraps;
    most_older = std::max(most_older, trace.older);
    // What is left from before is in order and without gaps up to the newest.
    int expected = i - static_cast<int>(trace.entries.size() - trace.older) + 1;
    for (std::size_t k = trace.older; k < trace.entries.size(); ++k, ++expected)
      EXPECT_THAT(trace.entries[k].lines.at(0), testing::StartsWith(std::to_string(expected) + ":"));
  }
  EXPECT_GT(wraps, 80);
  EXPECT_GT(most_older, 10U);
}

}  // namespace
