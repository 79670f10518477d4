// Where the process may not write so large a file, calls fail with their own result and the process goes on living.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
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

using platform::Calls;
using testing::ElementsAre;
using trace_file::folded_text;

// Inside a child: the limit for its lifetime. Without care the first write at the limit ends the process.
class Limit {
 public:
  explicit Limit(rlim_t bytes) {
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &former_), 0);
    const rlimit lower = {bytes, former_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &lower), 0);
    EXPECT_NE(signal(SIGXFSZ, SIG_DFL), SIG_ERR);
  }
  ~Limit() { setrlimit(RLIMIT_FSIZE, &former_); }
  Limit(const Limit &) = delete;
  Limit &operator=(const Limit &) = delete;

 private:
  rlimit former_ = {};
};

bool blocked() {
  sigset_t mask;
  return pthread_sigmask(SIG_SETMASK, nullptr, &mask) == 0 && sigismember(&mask, SIGXFSZ) == 1;
}
bool pending() {
  sigset_t set;
  return sigpending(&set) == 0 && sigismember(&set, SIGXFSZ) == 1;
}
void block() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGXFSZ);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, nullptr), 0);
}

int signals_handled;
void count_signal(int) {
  ++signals_handled;
}

#define RUN_IN_CHILD(...)                                               \
  do {                                                                  \
    const sandbox::Outcome outcome = sandbox::run_child(__VA_ARGS__);   \
    ASSERT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text; \
  } while (false)

class FileSizeLimit : public testing::Test {
 protected:
  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "file";
};

TEST_F(FileSizeLimit, FailsTheClearingThatPassesIt) {
  struct Row {
    rlim_t limit;
    int length, result;
    std::size_t size;
  };
  for (const Row &row : {Row{1000, 2500, -1, 1000}, Row{1024, 2500, -1, 1024}, Row{2499, 2500, -1, 2499},
                         Row{2500, 2500, 2500, 2500}, Row{0, 1, -1, 0}, Row{0, 0, 0, 0}, Row{5000, 2500, 2500, 2500}}) {
    SCOPED_TRACE(row.limit);
    RUN_IN_CHILD([&] {
      const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
      int result = 0, error = 0;
      {
        const Limit limit(row.limit);
        errno = 0;
        result = fclear(fd, row.length);
        error = errno;
      }
      EXPECT_EQ(result, row.result);
      EXPECT_EQ(error, row.result < 0 ? EFBIG : 0);
      EXPECT_EQ(files::read(path_)->size(), row.size);
      EXPECT_FALSE(blocked());
      EXPECT_FALSE(pending());
    });
  }
}

TEST_F(FileSizeLimit, CallsNoHandlerAndRestoresTheMask) {
  RUN_IN_CHILD([&] {
    const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const Limit limit(100);
    ASSERT_NE(signal(SIGXFSZ, count_signal), SIG_ERR);
    EXPECT_EQ(fclear(fd, 1000), -1);
    EXPECT_EQ(signals_handled, 0);
    EXPECT_FALSE(blocked());
    raise(SIGXFSZ);
    EXPECT_EQ(signals_handled, 1) << "the handler is still there";

    block();
    EXPECT_EQ(fclear(fd, 1000), -1);
    EXPECT_TRUE(blocked()) << "as it was before";
    EXPECT_FALSE(pending()) << "the new one is taken away";
    EXPECT_EQ(signals_handled, 1);

    raise(SIGXFSZ);
    ASSERT_TRUE(pending());
    EXPECT_EQ(fclear(fd, 1000), -1);
    EXPECT_TRUE(blocked());
    EXPECT_TRUE(pending()) << "one that was there before stays";
    EXPECT_EQ(fclear(fd, 0), 0);
    EXPECT_TRUE(pending());
  });
}

TEST_F(FileSizeLimit, KeepsOtherSignalsAsTheyAre) {
  RUN_IN_CHILD([&] {
    const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigaddset(&mask, SIGXCPU);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &mask, nullptr), 0);
    raise(SIGUSR1);
    const Limit limit(100);
    EXPECT_EQ(fclear(fd, 1000), -1);
    sigset_t after;
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
    for (int number = 1; number < NSIG; ++number)
      EXPECT_EQ(sigismember(&after, number), sigismember(&mask, number)) << number;
    sigset_t waiting;
    sigpending(&waiting);
    EXPECT_EQ(sigismember(&waiting, SIGUSR1), 1);
  });
}

TEST_F(FileSizeLimit, LeavesNoReservedFileBehind) {
  const foundation::TraceFile trace(directory_ / "trace");
  RUN_IN_CHILD([&] {
    const Limit limit(10000);
    Calls calls;
    calls.statfs_figures({{1000, 1000, 4096}});
    std::int64_t reserved = -777;
    EXPECT_EQ(calls.during([&] { return vk_allocate_file(1, trace.c_str(), path_.c_str(), 16384, 8192, &reserved); }),
              -18);
    EXPECT_EQ(reserved, -777);
    EXPECT_FALSE(files::exists(path_));
    EXPECT_FALSE(blocked());
    EXPECT_FALSE(pending());
  });
  EXPECT_THAT(trace.entries(),
              ElementsAre("vk_determine_max_fsize: Requested 16384 bytes, able to get 16384 bytes",
                          "vk_allocate_file: " +
                              folded_text("Not enough space for fclear(%s,16384) - error 27\n", path_.c_str())));
}

TEST_F(FileSizeLimit, FailsTheTraceEntryThatPassesIt) {
  struct Row {
    const char *what;
    int offset;
    rlim_t limit;
    int result;
  };
  for (const Row &row : {Row{"within", 36, 16384, 0}, Row{"just enough for the entry and its end", 1000, 1121, 0},
                         Row{"the end marker is cut", 1000, 1120, -26}, Row{"the entry ends at it", 1000, 1100, -26},
                         Row{"the entry is cut", 1000, 1099, -26}, Row{"the entry begins at it", 1000, 1000, -26},
                         Row{"no room for anything", 36, 0, -26}}) {
    SCOPED_TRACE(row.what);
    ASSERT_TRUE(
        files::write(path_, foundation::over(foundation::fresh_trace(), 0, foundation::header(row.offset, 0, 16384))));
    RUN_IN_CHILD([&] {
      int result = 0;
      {
        const Limit limit(row.limit);
        result = foundation::write_entry(path_, 100);
      }
      EXPECT_EQ(result, row.result);
      EXPECT_FALSE(blocked());
      EXPECT_FALSE(pending());
    });
    EXPECT_EQ(files::read(path_)->substr(0, 36),
              foundation::header(row.result == 0 ? row.offset + 100 : row.offset, 0, 16384));
  }
}

TEST_F(FileSizeLimit, LeavesNoPartOfACopyBehind) {
  struct Row {
    rlim_t limit;
    int result;
    const char *message;  // of vk_copy_file
  };
  const Row rows[] = {
      {1024, -18, "Error copying data - Iteration 1 - Error Code 27"},
      {1500, -1, "Error copying data - Iteration 1 - Error Code 0"},  // a short write sets no error
      {0, -18, "Error copying data - Iteration 0 - Error Code 27"},
      {2000, 0, "Successfully copied files\nReturning VOSK_SUCCESS(0) to caller"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.limit);
    RUN_IN_SANDBOX(sandbox::Options{}, [&] {
      // The trace is small enough for the limit only where it is written first.
      const std::string input = "/var/adm/vosk/input", trace = "/var/adm/vosk/trace";
      ASSERT_TRUE(files::write(input, std::string(2000, 'd')));
      ASSERT_EQ(setenv("VOSKPNAME", "prog", 1), 0);
      char cited[4096] = {};
      int result = 0;
      {
        const Limit limit(row.limit);
        result = vk_make_dump_file_copy(0, nullptr, input.c_str(), cited);
      }
      EXPECT_EQ(result, row.result);
      EXPECT_EQ(files::list(sandbox::kDumps).size(), row.result == 0 ? 1U : 0U);
      if (row.result != 0) {
        EXPECT_STREQ(cited, input.c_str());
      }
      EXPECT_FALSE(blocked());
      EXPECT_FALSE(pending());

      // With a trace that itself cannot grow: its own failed writes do not disturb the copy's result.
      const foundation::TraceFile traced(trace);
      for (const std::string &name : files::list(sandbox::kDumps))
        unlink((std::string(sandbox::kDumps) + "/" + name).c_str());
      {
        const Limit limit(row.limit);
        result = vk_make_dump_file_copy(1, trace.c_str(), input.c_str(), cited);
      }
      EXPECT_EQ(result, row.result);
      EXPECT_FALSE(pending());
      if (row.limit >= 1024) {
        EXPECT_THAT(traced.entries(), testing::Contains(std::string("vk_copy_file: ") + row.message));
      }
    });
  }
}

TEST_F(FileSizeLimit, IsAskedForOncePerCallAndNothingElseWhereThereIsNone) {
  ASSERT_TRUE(files::write(path_, foundation::fresh_trace()));
  const int fd = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  Calls clear;
  clear.during([&] { return fclear(fd, 10); });
  EXPECT_THAT(clear.log_of({"getrlimit"}), ElementsAre("getrlimit(RLIMIT_FSIZE) = 0"));
  close(fd);
  ASSERT_TRUE(files::write(path_, foundation::fresh_trace()));
  Calls debug;
  foundation::write_entry(debug, path_, 100);
  EXPECT_EQ(debug.count("getrlimit"), 1);
  Calls allocate;
  allocate.statfs_figures({{1000, 1000, 4096}});
  allocate.during([&] { return vk_allocate_file(0, nullptr, (path_ + "2").c_str(), 16384, 8192, nullptr); });
  EXPECT_EQ(allocate.count("getrlimit"), 1);
}

TEST_F(FileSizeLimit, ThatIsNotToldIsTakenForNone) {
  const int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  Calls clear;
  clear.fail_nth("getrlimit", 1, EINVAL);
  EXPECT_EQ(clear.during([&] { return fclear(fd, 10); }), 10);
  close(fd);
}

}  // namespace
