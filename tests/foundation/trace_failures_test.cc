// vk_debug when something fails, and on files that are no trace files.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/trace_bytes.h"
#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using foundation::entry_of;
using foundation::header;
using foundation::kEnd;
using foundation::kRecycle;
using foundation::over;
using foundation::write_entry;
using platform::Calls;
using testing::ElementsAre;

class TraceFailures : public testing::Test {
 protected:
  void put(const std::string &bytes) const { ASSERT_TRUE(files::write(path_, bytes)); }
  std::string bytes() const { return *files::read(path_); }

  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "trace";
};

TEST_F(TraceFailures, RefusesNullArgumentsInOrder) {
  Calls calls;
  EXPECT_EQ(calls.during([] { return vk_debug(nullptr, nullptr, nullptr); }), -2);
  EXPECT_EQ(calls.during([] { return vk_debug(nullptr, "r", "m"); }), -2);
  EXPECT_EQ(calls.during([] { return vk_debug("/dev/null", nullptr, nullptr); }), -3);
  EXPECT_EQ(calls.during([] { return vk_debug("/dev/null", nullptr, "m"); }), -3);
  EXPECT_EQ(calls.during([] { return vk_debug("/dev/null", "r", nullptr); }), -4);
  EXPECT_EQ(calls.count_all(), 0);
}

TEST_F(TraceFailures, AnswersByTheErrorOfTheOpen) {
  struct Row {
    int error, result;
  };
  for (const Row &row :
       {Row{ENOENT, -24}, Row{EACCES, -25}, Row{ENOTDIR, -14}, Row{ENFILE, -20}, Row{EMFILE, -20}, Row{EROFS, -16},
        Row{ELOOP, -21}, Row{EIO, -1}, Row{EISDIR, -1}, Row{ENAMETOOLONG, -1}, Row{ENOSPC, -1}, Row{EPERM, -1},
        Row{ENXIO, -1}, Row{EDQUOT, -1}, Row{ESTALE, -1}, Row{EOVERFLOW, -1}, Row{EAGAIN, -1}, Row{ENOMEM, -1}}) {
    SCOPED_TRACE(platform::error_name(row.error));
    put(foundation::fresh_trace());
    Calls calls;
    calls.fail_nth("open", 1, row.error);
    EXPECT_EQ(write_entry(calls, path_, 70), row.result);
    EXPECT_EQ(calls.count("open"), 1);
    EXPECT_EQ(calls.names().back(), "open");
    EXPECT_EQ(bytes(), foundation::fresh_trace());
  }
}

TEST_F(TraceFailures, OpensAgainAsOftenAsItIsInterrupted) {
  put(foundation::fresh_trace());
  Calls calls;
  calls.fail_first("open", 1000, EINTR);
  EXPECT_EQ(write_entry(calls, path_, 70), 0);
  EXPECT_EQ(calls.count("open"), 1001);
  EXPECT_EQ(calls.count("gettimeofday"), 1);
  Calls then;
  then.fail_first("open", 2, EINTR);
  then.fail_nth("open", 3, EMFILE);
  EXPECT_EQ(write_entry(then, path_, 70), -20);
}

TEST_F(TraceFailures, AnswersWhatThePathIs) {
  put("");
  ASSERT_EQ(mkdir((directory_ / "dir").c_str(), 0700), 0);
  ASSERT_EQ(symlink("loop", (directory_ / "loop").c_str()), 0);
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0600), 0);
  struct Row {
    std::string path;
    int result;
  };
  for (const Row &row : {Row{directory_ / "missing", -24}, Row{"", -24}, Row{directory_ / "missing/file", -24},
                         Row{path_ + "/below", -14}, Row{directory_ / "loop", -21}, Row{directory_ / "dir", -1},
                         Row{directory_ / std::string(256, 'n'), -1}, Row{std::string(4096, '/'), -1},
                         Row{std::string(9000, 'x'), -1}, Row{path_, -26}, Row{directory_ / "fifo", -26},
                         Row{"/dev/null", -26}, Row{"/dev/zero", -26}, Row{"/dev/full", -26}}) {
    SCOPED_TRACE(row.path.substr(0, 100));
    EXPECT_EQ(vk_debug(row.path.c_str(), "r", "m"), row.result);
  }
  EXPECT_FALSE(files::exists(directory_ / "missing")) << "it is not created";
}

// Not even a header in a FIFO makes it a trace file, and nobody waits for another one.
TEST_F(TraceFailures, DoesNotBlockOnAFifoThatHoldsAHeader) {
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int fd = open(fifo.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  const std::string first = header(36, 0, 16384);
  ASSERT_EQ(write(fd, first.data(), first.size()), 36);
  EXPECT_EQ(vk_debug(fifo.c_str(), "r", "m"), -26);
  EXPECT_EQ(vk_debug(fifo.c_str(), "r", "m"), -26);
  char left[64];
  EXPECT_EQ(read(fd, left, sizeof left), 36) << "nothing is taken out of it";
  close(fd);
}

TEST_F(TraceFailures, IsRefusedByPermissionsAndReadOnlyFileSystems) {
  sandbox::Options options;
  RUN_IN_SANDBOX(options, [] {
    const char path[] = "/var/adm/vosk/trace";
    ASSERT_TRUE(files::write(path, foundation::fresh_trace()));
    ASSERT_TRUE(sandbox::remount(true));
    EXPECT_EQ(vk_debug(path, "r", "m"), -16);
  });
  if (geteuid() != 0) CANNOT_RUN_HERE("another user needs real root");
  RUN_IN_SANDBOX(options, [] {
    const char path[] = "/var/adm/vosk/trace";
    ASSERT_TRUE(files::write(path, foundation::fresh_trace()));
    ASSERT_EQ(chmod(path, 0444), 0);
    ASSERT_TRUE(sandbox::drop_to(sandbox::kNobody));
    EXPECT_EQ(vk_debug(path, "r", "m"), -25);
  });
}

TEST_F(TraceFailures, OnlyClosesTheFileWhenItHasNoPosition) {
  for (int error : {ESPIPE, EIO, EINVAL}) {
    put(foundation::fresh_trace());
    Calls calls;
    calls.fail_nth("lseek", 1, error);
    EXPECT_EQ(write_entry(calls, path_, 70), -26);
    EXPECT_THAT(calls.log_of({"open", "lseek", "lockf", "read", "write", "close"}),
                ElementsAre("open(\"" + path_ + "\", 0x2) = fd1",
                            "lseek(fd1, 0, SEEK_SET) = -1 " + platform::error_name(error), "close(fd1) = 0"));
    EXPECT_EQ(bytes(), foundation::fresh_trace());
  }
}

TEST_F(TraceFailures, OnlyClosesTheFileWhenTheLockIsRefused) {
  for (int error : {ENOLCK, EINTR, EDEADLK, EIO, EAGAIN}) {
    put(foundation::fresh_trace());
    Calls calls;
    calls.fail_nth("lockf", 1, error);
    EXPECT_EQ(write_entry(calls, path_, 70), -28);
    EXPECT_THAT(calls.log_of({"open", "lseek", "lockf", "read", "write", "close"}),
                ElementsAre("open(\"" + path_ + "\", 0x2) = fd1", "lseek(fd1, 0, SEEK_SET) = 0",
                            "lockf(fd1, F_LOCK, 0) = -1 " + platform::error_name(error), "close(fd1) = 0"));
    EXPECT_EQ(bytes(), foundation::fresh_trace());
  }
}

TEST_F(TraceFailures, SaysThatTheLockCouldNotBeReleasedWhateverTheEntry) {
  put(foundation::fresh_trace());
  Calls calls;
  calls.fail_nth("lockf", 2, EIO);
  EXPECT_EQ(write_entry(calls, path_, 70), -29);
  EXPECT_EQ(calls.names().back(), "close");
  EXPECT_EQ(bytes().substr(0, 36), header(106, 0, 16384)) << "the entry is written";
  Calls both;
  both.fail_nth("read", 1, EIO);
  both.fail_nth("lockf", 2, EIO);
  EXPECT_EQ(write_entry(both, path_, 70), -29);
  EXPECT_EQ(both.names().back(), "close");
}

// Each call of the writer fails once: the n-th of its name, the lseek before the lock being the first.
TEST_F(TraceFailures, AnswerByWhatFailedAndLeaveTheHeaderAsItWas) {
  enum State { kFirstRound, kRecycling, kClearing };
  struct Row {
    State state;
    const char *what, *call;
    int nth;
    long long moved;  // -1: the call fails with EIO; else it moves that many bytes
    int result;
  };
  const Row rows[] = {
      {kFirstRound, "header read", "read", 1, -1, -26},
      {kFirstRound, "header read in part", "read", 1, 35, -26},
      {kFirstRound, "seek to the offset", "lseek", 2, -1, -26},
      {kFirstRound, "entry", "write", 1, -1, -26},
      {kFirstRound, "entry in part", "write", 1, 99, -26},
      {kFirstRound, "nothing of the entry", "write", 1, 0, -26},
      {kFirstRound, "new offset", "lseek", 3, -1, -26},
      {kFirstRound, "end marker", "write", 2, -1, -26},
      {kFirstRound, "end marker in part", "write", 2, 20, -26},
      {kFirstRound, "seek to the header", "lseek", 4, -1, -26},
      {kFirstRound, "header", "write", 3, -1, -26},
      {kFirstRound, "last seek", "lseek", 5, -1, 0},
      {kRecycling, "header read", "read", 1, -1, -26},
      {kRecycling, "seek to the recycle marker", "lseek", 2, -1, -26},
      {kRecycling, "recycle marker", "write", 1, -1, 0},
      {kRecycling, "recycle marker in part", "write", 1, 21, 0},
      {kRecycling, "position of the zeros", "lseek", 3, -1, -26},
      {kRecycling, "zeros", "write", 2, -1, -26},
      {kRecycling, "seek behind the header", "lseek", 4, -1, -26},
      {kRecycling, "entry", "write", 3, -1, -26},
      {kRecycling, "new offset", "lseek", 5, -1, -26},
      {kRecycling, "end marker", "write", 4, -1, -26},
      {kRecycling, "header", "write", 6, -1, -26},
      {kClearing, "noting the position", "lseek", 4, -1, -1},
      {kClearing, "remains read", "read", 2, -1, -26},
      {kClearing, "seek back to the remains", "lseek", 5, -1, -1},
      {kClearing, "position of the zeros", "lseek", 6, -1, -26},
      {kClearing, "zeros", "write", 3, -1, -26},
      {kClearing, "seek to the header", "lseek", 7, -1, -26},
      {kClearing, "header", "write", 4, -1, -26},
      {kClearing, "last seek", "lseek", 8, -1, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(std::string(row.what) + " in state " + std::to_string(row.state));
    const std::string first = row.state == kFirstRound  ? header(500, 0, 16384)
                              : row.state == kRecycling ? header(16300, 0, 16384)
                                                        : header(500, 2, 16384);
    std::string before = over(std::string(16384, 'o'), 0, first);
    before[700] = '\x01';
    put(before);
    Calls calls;
    if (row.moved < 0) {
      calls.fail_nth(row.call, row.nth, EIO);
    } else {
      calls.short_nth(row.call, row.nth, row.moved);
    }
    if (row.state == kRecycling) {
      before[200] = '\x01';
      put(before);
    }
    EXPECT_EQ(write_entry(calls, path_, 100), row.result);
    const std::vector<std::string> names = calls.names();
    ASSERT_GE(names.size(), 2U);
    EXPECT_EQ(names[names.size() - 2], "lockf");
    EXPECT_EQ(names[names.size() - 1], "close");
    EXPECT_EQ(bytes().substr(0, 36) == first, row.result != 0);
    EXPECT_EQ(bytes().size(), 16384U);
  }
}

TEST_F(TraceFailures, WriteTheNextEntryOverADamagedOne) {
  put(foundation::fresh_trace());
  ASSERT_EQ(write_entry(path_, 80), 0);
  Calls calls;
  calls.short_nth("write", 1, 50);
  EXPECT_EQ(write_entry(calls, path_, 142), -26);
  ASSERT_EQ(write_entry(path_, 90), 0);
  std::string expected = header(206, 0, 16384) + entry_of(80) + entry_of(90) + kEnd;
  expected.resize(16384, '\0');
  EXPECT_EQ(files::difference(expected, bytes()), "");
}

TEST_F(TraceFailures, AFullFileSystemDoesNotStopAReservedFile) {
  sandbox::Options options;
  options.size = "256k";
  RUN_IN_SANDBOX(options, [] {
    const char path[] = "/var/adm/vosk/trace";
    ASSERT_EQ(vk_create_debug_file(path), 0);
    ASSERT_TRUE(sandbox::fill(0));
    for (int i = 0; i < 500; ++i) ASSERT_EQ(vk_debug(path, "r", "entry %d", i), 0);
    const trace_file::Trace trace = trace_file::read(path);
    EXPECT_EQ(trace.problem, "");
    EXPECT_EQ(trace.entries.back().message(), "entry 499");
    EXPECT_GT(trace.wraps, 1);
  });
}

}  // namespace
