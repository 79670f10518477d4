// What vk_debug writes for one entry, byte for byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"

namespace {

using foundation::fresh_trace;
using platform::Calls;

constexpr std::int64_t kThen = 1706745599;  // 2024-01-31 23:59:59 UTC

class TraceEntry : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(files::write(path_, fresh_trace())); }

  // The entry that a message leaves in a fresh file, without its mark; checks everything around it.
  template <class... Values>
  std::string written(const char *routine, const char *format, Values... values) {
    EXPECT_TRUE(files::write(path_, fresh_trace()));
    Calls calls;
    calls.fixed_clock(kThen, 999999);
    calls.return_all("getpid", 4711);
    calls.return_all("pthread_self", thread_);
    EXPECT_EQ(calls.during([&] { return vk_debug(path_.c_str(), routine, format, values...); }), 0);
    const std::string bytes = *files::read(path_);
    EXPECT_EQ(bytes.size(), 16384U);
    const std::size_t end = bytes.find("[END OF FINAL ENTRY]\n");
    if (end == std::string::npos || end < 37) return "no end marker";
    char header[64];
    std::snprintf(header, sizeof header, "VKTFO=%-5zu VKTFW=0     VKTFS=16384\n", end);
    EXPECT_EQ(bytes.substr(0, 36), header);
    EXPECT_EQ(bytes[36], '\x01');
    EXPECT_EQ(bytes.find_first_not_of('\0', end + 21), std::string::npos) << "zeros behind the end marker";
    return bytes.substr(37, end - 37);
  }
  // The lines of the message alone.
  std::string lines(const std::string &message) {
    const std::string entry = written("r", "%s", message.c_str());
    const std::string preamble =
        "Wed Jan 31 23:59:59 2024\n\tVOSK Routine: r\n\tCalled by PID 4711 Thread " + thread_text_ + "\n";
    EXPECT_EQ(entry.substr(0, preamble.size()), preamble);
    return entry.substr(std::min(entry.size(), preamble.size()));
  }

  platform::UtcZone zone_;
  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "trace";
  long long thread_ = 0x7f1200000042;
  std::string thread_text_ = "66";
};

TEST_F(TraceEntry, HasItsLayoutByteForByte) {
  Calls calls;
  calls.fixed_clock(kThen, 0);
  calls.return_all("getpid", 4711);
  calls.return_all("pthread_self", 0x7f12fffffffe);
  EXPECT_EQ(calls.during([&] {
    return vk_debug(path_.c_str(), "vk_init_main", "Option %d of %s\nReturning %s(%d) to caller\n", 1, "three",
                    "VK_SUCCESS", 0);
  }),
            0);
  std::string expected =
      "VKTFO=174   VKTFW=0     VKTFS=16384\n"
      "\x01"
      "Wed Jan 31 23:59:59 2024\n"
      "\tVOSK Routine: vk_init_main\n"
      "\tCalled by PID 4711 Thread -2\n"
      "\tOption 1 of three\n"
      "\tReturning VK_SUCCESS(0) to caller\n"
      "[END OF FINAL ENTRY]\n";
  ASSERT_EQ(expected.size(), 174U + 21U);
  expected.resize(16384, '\0');
  EXPECT_EQ(files::difference(expected, *files::read(path_)), "");
}

TEST_F(TraceEntry, ShowsTheLocalTime) {
  platform::Environment environment;
  environment.set("TZ", "EST5");
  tzset();
  EXPECT_THAT(written("r", "m"), testing::StartsWith("Wed Jan 31 18:59:59 2024\n\tVOSK Routine: r\n"));
}

TEST_F(TraceEntry, PutsSingleDigitDaysIntoTheSameWidth) {
  Calls calls;
  calls.fixed_clock(0, 0);
  EXPECT_EQ(calls.during([&] { return vk_debug(path_.c_str(), "r", "m"); }), 0);
  EXPECT_EQ(files::read(path_)->substr(36, 26), "\x01Thu Jan  1 00:00:00 1970\n");
}

TEST_F(TraceEntry, ShowsTheLow32BitsOfTheThreadSigned) {
  struct Row {
    long long thread;
    const char *text;
  };
  for (const Row &row : {Row{0, "0"}, Row{0x100000000, "0"}, Row{0x7fffffff, "2147483647"},
                         Row{0x80000000, "-2147483648"}, Row{0x7f12ffffffff, "-1"}, Row{0x7f1200000042, "66"}}) {
    thread_ = row.thread;
    EXPECT_EQ(written("r", "%s", ""), std::string("Wed Jan 31 23:59:59 2024\n\tVOSK Routine: r\n\tCalled by PID 4711 "
                                                  "Thread ") +
                                          row.text + "\n");
  }
}

TEST_F(TraceEntry, ShowsThisProcessAndThread) {
  ASSERT_EQ(vk_debug(path_.c_str(), "r", "m"), 0);
  const trace_file::Trace trace = trace_file::read(path_);
  ASSERT_EQ(trace.entries.size(), 1U);
  EXPECT_EQ(trace.entries[0].pid, getpid());
  EXPECT_EQ(trace.entries[0].thread, static_cast<int>(static_cast<unsigned>(pthread_self())));
}

TEST_F(TraceEntry, TakesTheTimeTheProcessAndTheThreadBeforeItOpensTheFile) {
  Calls calls;
  calls.fixed_clock(kThen, 0);
  calls.return_all("getpid", 4711);
  calls.return_all("pthread_self", 66);
  EXPECT_EQ(calls.during([&] { return vk_debug(path_.c_str(), "r", "m"); }), 0);
  // 36 bytes of header; the entry is 1 + 25 + 17 + 30 + 3 bytes long.
  EXPECT_THAT(calls.log(),
              testing::ElementsAre("gettimeofday() = 0", "ctime_r(1706745599) = \"Wed Jan 31 23:59:59 2024\\n\"",
                                   "getpid() = 4711", "pthread_self() = 66", "getrlimit(RLIMIT_FSIZE) = 0",
                                   "open(\"" + path_ + "\", 0x2) = fd1", "lseek(fd1, 0, SEEK_SET) = 0",
                                   "lockf(fd1, F_LOCK, 0) = 0", "read(fd1, 36) = 36", "lseek(fd1, 36, SEEK_SET) = 36",
                                   "write(fd1, 76) = 76", "lseek(fd1, 0, SEEK_CUR) = 112", "write(fd1, 21) = 21",
                                   "lseek(fd1, 0, SEEK_SET) = 0", "write(fd1, 36) = 36", "lseek(fd1, 0, SEEK_SET) = 0",
                                   "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"));
}

TEST_F(TraceEntry, FoldsTheMessageIntoLinesOf72Characters) {
  const auto x = [](int n) { return std::string(static_cast<std::size_t>(n), 'x'); };
  const auto y = [](int n) { return std::string(static_cast<std::size_t>(n), 'y'); };
  struct Row {
    const char *what;
    std::string message, lines;
  };
  const Row rows[] = {
      {"nothing", "", ""},
      {"one character", "x", "\tx\n"},
      {"a line feed alone", "\n", "\t\n"},
      {"two of them", "\n\n", "\t\n\t\n"},
      {"with a line feed", "x\n", "\tx\n"},
      {"two lines", "one\ntwo\n", "\tone\n\ttwo\n"},
      {"two lines, the last unended", "one\ntwo", "\tone\n\ttwo\n"},
      {"an empty line between", "one\n\ntwo", "\tone\n\t\n\ttwo\n"},
      {"an empty line first", "\none", "\t\n\tone\n"},
      {"71", x(71), "\t" + x(71) + "\n"},
      {"72", x(72), "\t" + x(72) + "\n"},
      {"73", x(73), "\t" + x(72) + "\n\tx\n"},
      {"71 and a line feed", x(71) + "\n", "\t" + x(71) + "\n"},
      {"72 and a line feed, at distance 72", x(72) + "\n", "\t" + x(72) + "\n"},
      {"73 and a line feed, at distance 73", x(73) + "\n", "\t" + x(72) + "\n\tx\n"},
      {"72, a line feed and more", x(72) + "\ny", "\t" + x(72) + "\n\ty\n"},
      {"73, a line feed and more", x(73) + "\ny", "\t" + x(72) + "\n\tx\n\ty\n"},
      {"72 and two line feeds", x(72) + "\n\n", "\t" + x(72) + "\n\t\n"},
      {"144", x(144), "\t" + x(72) + "\n\t" + x(72) + "\n"},
      {"144 and a line feed", x(144) + "\n", "\t" + x(72) + "\n\t" + x(72) + "\n"},
      {"145 and a line feed", x(145) + "\n", "\t" + x(72) + "\n\t" + x(72) + "\n\tx\n"},
      {"200 without a line feed", x(200), "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(56) + "\n"},
      {"100, a line feed, 100", x(100) + "\n" + y(100),
       "\t" + x(72) + "\n\t" + x(28) + "\n\t" + y(72) + "\n\t" + y(28) + "\n"},
      {"253", x(253), "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(37) + "\n"},
      {"254", x(254), "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(38) + "\n"},
      {"255 are cut", x(255), "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(38) + "\n"},
      {"300 are cut", x(300), "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(38) + "\n"},
      {"a line feed as the 254th", x(253) + "\n",
       "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(37) + "\n"},
      {"a line feed as the 255th is cut", x(254) + "\nz",
       "\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(72) + "\n\t" + x(38) + "\n"},
      {"254 cut in the third line", x(10) + "\n" + y(243) + "z",
       "\t" + x(10) + "\n\t" + y(72) + "\n\t" + y(72) + "\n\t" + y(72) + "\n\t" + y(27) + "\n"},
      {"tabs and other controls stay", "\ta\rb\x1b\x7f", "\t\ta\rb\x1b\x7f\n"},
      {"bytes of other alphabets stay", "\xc3\xa4\xff", "\t\xc3\xa4\xff\n"},
      {"percent signs of a value stay", "100%s %n %d%%", "\t100%s %n %d%%\n"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(files::difference(row.lines, lines(row.message)), "");
  }
}

TEST_F(TraceEntry, Takes254LineFeeds) {
  std::string expected;
  for (int i = 0; i < 254; ++i) expected += "\t\n";
  EXPECT_EQ(files::difference(expected, lines(std::string(400, '\n'))), "");
}

TEST_F(TraceEntry, FormatsAsPrintfDoes) {
  EXPECT_THAT(written("r", "%2$s%% %1$d %2$s", 7, "a"), testing::EndsWith("Thread 66\n\ta% 7 a\n"));
  EXPECT_THAT(written("r", "%-5d|%05.1f|%c|0x%x", 12, 2.25, 'c', 255U), testing::EndsWith("\n\t12   |002.2|c|0xff\n"));
}

TEST_F(TraceEntry, KeepsWhatCameBeforeAValueThatCannotBeShown) {
  EXPECT_THAT(written("r", "one\ntwo %ls three", L"\xd800"), testing::EndsWith("Thread 66\n\tone\n\ttwo \n"));
  EXPECT_THAT(written("r", "%ls", L"\xd800"), testing::EndsWith("Thread 66\n"));
}

TEST_F(TraceEntry, KeepsTheWholeNameOfTheRoutineAsLongAsItFits) {
  const std::string name(700, 'n');
  EXPECT_EQ(written(name.c_str(), "m"),
            "Wed Jan 31 23:59:59 2024\n\tVOSK Routine: " + name + "\n\tCalled by PID 4711 Thread 66\n\tm\n");
  EXPECT_EQ(written("", "m"), "Wed Jan 31 23:59:59 2024\n\tVOSK Routine: \n\tCalled by PID 4711 Thread 66\n\tm\n");
}

// An entry fills its buffer of 1024 bytes at most, its mark and without a zero byte behind it included.
TEST_F(TraceEntry, IsNeverLongerThanItsBuffer) {
  for (std::size_t length :
       {std::size_t{690}, std::size_t{948}, std::size_t{949}, std::size_t{1000}, std::size_t{5000}}) {
    SCOPED_TRACE(length);
    const std::string entry = written(std::string(length, 'n').c_str(), "%s", std::string(400, 'x').c_str());
    EXPECT_THAT(entry, testing::StartsWith("Wed Jan 31 23:59:59 2024\n\tVOSK Routine: nnnnn"));
    EXPECT_LE(entry.size() + 1, 1023U);
    if (length > 690) {
      EXPECT_EQ(entry.size() + 1, 1023U);
    }
  }
}

// ctime_r has no more than four digits for a year.
TEST_F(TraceEntry, ShowsTheSecondsOfAClockThatCannotBePrinted) {
  const struct {
    std::int64_t seconds;
    bool refused;
    std::string shown;
  } rows[] = {{253402300800, false, "253402300800\n"},
              {1700000000, true, "1700000000\n"},
              {-62200000000, false, ""}};  // before the year 0: as the C library has it
  for (const auto &row : rows) {
    SCOPED_TRACE(row.seconds);
    ASSERT_TRUE(files::write(path_, fresh_trace()));
    Calls calls;
    calls.fixed_clock(row.seconds, 0);
    if (row.refused) calls.fail_all("ctime_r", EOVERFLOW);
    EXPECT_EQ(calls.during([&] { return vk_debug(path_.c_str(), "r", "m"); }), 0);
    const std::string bytes = *files::read(path_);
    EXPECT_EQ(bytes.substr(36, 1 + row.shown.size()), "\x01" + row.shown);
    EXPECT_NE(bytes.find("\n\tVOSK Routine: r\n"), std::string::npos);
  }
}

}  // namespace
