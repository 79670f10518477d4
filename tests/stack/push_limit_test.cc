// A process that may not write so large a file gets the result of the failed write and goes on living.
#include <sys/resource.h>

#include <csignal>

#include "stack/push_test.h"

namespace {

using files::u32;
using stack_test::file_of;
using stack_test::header;
using stack_test::Incident;
using stack_test::kStack;
using stack_test::push;
using stack_test::zeros;
using testing::ElementsAre;

const std::string kPath = std::string("\"") + kStack + "\"";

int signals_handled = 0;
void count_signal(int) {
  ++signals_handled;
}
bool is_pending() {
  sigset_t set;
  return sigpending(&set) == 0 && sigismember(&set, SIGXFSZ) == 1;
}
bool is_blocked() {
  sigset_t mask;
  return pthread_sigmask(SIG_SETMASK, nullptr, &mask) == 0 && sigismember(&mask, SIGXFSZ) == 1;
}

class PushLimit : public stack_test::PushTest {
 protected:
  // Runs the body in a child that may write `bytes` of a file; a signal would end it.
  static void expect_survives(rlim_t bytes, const std::function<void()> &body) {
    const sandbox::Outcome outcome = sandbox::run_child([&] {
      const std::string pid = std::to_string(getpid());
      setenv("VOSKPID", pid.c_str(), 1);
      setenv("VOSKORIG", pid.c_str(), 1);
      rlimit limit = {};
      ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
      const rlimit former = limit;
      limit.rlim_cur = bytes;
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
      body();
      EXPECT_FALSE(is_pending());
      EXPECT_FALSE(is_blocked());
      ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);  // for what a failed test prints
    });
    EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
  }
};

TEST_F(PushLimit, BelowTheSizeOfAStackLeavesNoFile) {
  struct Row {
    rlim_t limit;
    int result;
  };
  for (const Row &row : {Row{0, 40}, {8191, 40}, {16383, 40}, {16384, 0}}) {
    SCOPED_TRACE(row.limit);
    ASSERT_EQ(sandbox::fresh(), "");
    expect_survives(row.limit, [&] {
      EXPECT_EQ(push(incident()), row.result);
      if (row.result != 0) {
        EXPECT_THAT(cu_double::reports(),
                    ElementsAre("no error", "40: vosk.cat 1/36 (\"/var/adm/vosk/stacks\", 8192)"));
      }
    });
    EXPECT_EQ(files::exists(kStack), row.result == 0);
  }
}

TEST_F(PushLimit, WithinARecordIsAFailedOrAShortWrite) {
  struct Row {
    rlim_t limit;
    const char *report;
    std::size_t written;  // of the record at 10000
  };
  const Row rows[] = {{23, "41: vosk.cat 1/42 (PATH, 27)", 0},
                      {10000, "41: vosk.cat 1/42 (PATH, 27)", 0},
                      {10001, "41: vosk.cat 1/42 (PATH, 0)", 1},
                      {10188, "41: vosk.cat 1/42 (PATH, 0)", 188},
                      {10189, "no error", 189}};
  const std::string before = file_of(16384, header(0, 24, 10000, 24, 16384, 0), {}, 'x');
  for (const Row &row : rows) {
    SCOPED_TRACE(row.limit);
    put_stack(before);
    std::string report = row.report;
    if (const std::size_t at = report.find("PATH"); at != std::string::npos) report.replace(at, 4, kPath);
    expect_survives(row.limit, [&] {
      EXPECT_EQ(push_known(incident()), report == "no error" ? 0 : 41);
      EXPECT_THAT(cu_double::reports(), ElementsAre("no error", report));
      std::string after = before;
      after.replace(10000, row.written, golden().bytes().substr(0, row.written));
      if (row.written == 189) after.replace(8, 4, u32(10189));
      EXPECT_EQ(files::difference(after, stack()), "");
    });
  }
}

TEST_F(PushLimit, WithinTheRecordsToBeClearedCountsAsACorruptFile) {
  const std::string before = file_of(16384, header(0, 24, 16380, 24, 16384, 0), {{24, u32(400)}}, 'x');
  put_stack(before);
  expect_survives(100, [&] {
    EXPECT_EQ(push(incident()), 24);
    EXPECT_THAT(cu_double::reports(),
                ElementsAre("no error", "24: vosk.cat 1/41 (" + kPath + ", \"vk_clear_records\")"));
  });
  std::string after = before;
  after.replace(24, 76, zeros(76));
  EXPECT_EQ(files::difference(after, stack()), "");
}

TEST_F(PushLimit, BelowTheSizeOfADetailFileCostsTheCopyOnly) {
  files::TemporaryDirectory directory;
  const std::string details = directory / "details";
  ASSERT_TRUE(files::write(details, std::string(6000, 'd')));
  put_stack(empty_stack());
  Incident in = incident();
  in.data = nullptr;
  in.detail_file = details.c_str();
  expect_survives(5000, [&] { EXPECT_EQ(push(in), VK_COPY_FAILED); });
  EXPECT_THAT(files::list(sandbox::kDumps), testing::IsEmpty());
  EXPECT_NE(stack().find(stack_test::z(details)), std::string::npos);
}

TEST_F(PushLimit, BelowTheTraceFileCostsTheTraceOnly) {
  put_stack(empty_stack());
  trace();
  expect_survives(300, [&] { EXPECT_EQ(push(incident()), 0); });
  EXPECT_EQ(stack().substr(8, 4), u32(24 + 189));
}

TEST_F(PushLimit, CallsNoHandlerAndLeavesASignalThatWasPending) {
  put_stack(file_of(16384, header(0, 24, 10000, 24, 16384, 0)));
  expect_survives(10000, [&] {
    ASSERT_NE(std::signal(SIGXFSZ, count_signal), SIG_ERR);
    EXPECT_EQ(push(incident()), 41);
    EXPECT_EQ(signals_handled, 0);

    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGXFSZ);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, nullptr), 0);
    ASSERT_EQ(raise(SIGXFSZ), 0);
    EXPECT_EQ(push(incident()), 41);
    EXPECT_TRUE(is_pending()) << "it came before the push";
    EXPECT_TRUE(is_blocked());
    EXPECT_EQ(signals_handled, 0);
    ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &set, nullptr), 0);
    EXPECT_EQ(signals_handled, 1);
    EXPECT_EQ(push(incident()), 41);
    EXPECT_EQ(signals_handled, 1);
  });
}

}  // namespace
