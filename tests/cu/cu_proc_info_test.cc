// The command name of a process, as the kernel reports it.

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>

#include "qx_cu.h"
#include "support/interpose.h"

namespace {

// A child that has taken `name` and waits, or that has ended and was not waited for.
class child_process {
 public:
  enum class state { waiting, zombie };

  child_process(const char *name, state wanted) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      prctl(PR_SET_NAME, name);
      close(ready[0]);
      (void)!write(ready[1], "", 1);
      if (wanted == state::zombie) _exit(0);
      for (;;) pause();
    }
    close(ready[1]);
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    if (wanted == state::zombie) {
      siginfo_t info;
      EXPECT_EQ(waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT), 0);
    }
  }
  child_process(const child_process &) = delete;
  child_process &operator=(const child_process &) = delete;
  ~child_process() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  int pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
};

TEST(ProcessInfo, NamesTheCallingProcess) {
  std::string name;
  std::getline(std::ifstream("/proc/self/comm"), name);
  cu_proc_info_t record;
  std::memset(&record, 0xff, sizeof record);
  ASSERT_EQ(cu_get_proc_info_1(&record, getpid()), 1);
  EXPECT_EQ(record.pid, getpid());
  EXPECT_EQ(record.command, name);
}

TEST(ProcessInfo, KeepsOddNamesAsTheyAre) {
  for (const char *name : {"two words", "a) S 1 (b", "(((", "line\nfeed", "\n", "\n\n", "", " ", "tab\there",
                           "\xff\x01", "exactly15bytes!", "back\\slash"}) {
    SCOPED_TRACE(name);
    const child_process child(name, child_process::state::waiting);
    cu_proc_info_t record{};
    ASSERT_EQ(cu_get_proc_info_1(&record, child.pid()), 1);
    EXPECT_EQ(record.pid, child.pid());
    EXPECT_STREQ(record.command, name);
  }
}

TEST(ProcessInfo, HasWhatTheKernelKeptOfALongName) {
  const child_process child("sixteen bytes ab", child_process::state::waiting);
  cu_proc_info_t record{};
  ASSERT_EQ(cu_get_proc_info_1(&record, child.pid()), 1);
  EXPECT_STREQ(record.command, "sixteen bytes a");
}

TEST(ProcessInfo, NamesAProcessThatHasEndedUntilItIsWaitedFor) {
  const child_process child("zombie", child_process::state::zombie);
  cu_proc_info_t record{};
  ASSERT_EQ(cu_get_proc_info_1(&record, child.pid()), 1);
  EXPECT_STREQ(record.command, "zombie");
}

TEST(ProcessInfo, FailsForAMissingProcessAndLeavesTheRecord) {
  pid_t gone;
  {
    const child_process child("gone", child_process::state::zombie);
    gone = child.pid();
  }
  for (const int pid : {static_cast<int>(gone), 0, -1, INT_MIN, INT_MAX}) {
    SCOPED_TRACE(pid);
    cu_proc_info_t record, before;
    std::memset(&record, 0x5a, sizeof record);
    before = record;
    errno = 0;
    EXPECT_EQ(cu_get_proc_info_1(&record, pid), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
  }
}

TEST(ProcessInfo, AsksAgainAfterAnInterruption) {
  platform::Calls calls;
  calls.fail_first("open", 2, EINTR);
  calls.fail_first("read", 3, EINTR);
  cu_proc_info_t record{};
  EXPECT_EQ(calls.during([&] { return cu_get_proc_info_1(&record, getpid()); }), 1);
  EXPECT_STREQ(record.command, "cu_proc_info_te");
  EXPECT_EQ(calls.count("open"), 3);
  EXPECT_EQ(calls.count("read"), 4);
  EXPECT_TRUE(calls.left_open().empty());
}

TEST(ProcessInfo, FailsWhereTheNameCannotBeReadAndLeavesTheRecord) {
  cu_proc_info_t record, before;
  std::memset(&record, 0x5a, sizeof record);
  before = record;
  platform::Calls calls;
  calls.fail_nth("read", 1, ESRCH);  // the process has gone meanwhile
  errno = 0;
  EXPECT_EQ(calls.during([&] { return cu_get_proc_info_1(&record, getpid()); }), 0);
  EXPECT_EQ(errno, ESRCH);
  EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
  EXPECT_TRUE(calls.left_open().empty());
}

TEST(ProcessInfo, TakesWhatAShortReadGives) {
  const struct {
    long long bytes;
    const char *name;
  } rows[] = {{0, ""}, {4, "cu_p"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.bytes);
    platform::Calls calls;
    calls.short_nth("read", 1, row.bytes);
    cu_proc_info_t record{};
    EXPECT_EQ(calls.during([&] { return cu_get_proc_info_1(&record, getpid()); }), 1);
    EXPECT_STREQ(record.command, row.name);
  }
}

TEST(ProcessInfo, FailsWithoutARecord) {
  errno = 0;
  EXPECT_EQ(cu_get_proc_info_1(nullptr, getpid()), 0);
  EXPECT_EQ(errno, EINVAL);
}

TEST(ProcessInfo, FailsWithoutADescriptorAndLeavesNoneOpen) {
  const int before = dup(0);
  close(before);
  cu_proc_info_t record{};
  ASSERT_EQ(cu_get_proc_info_1(&record, getpid()), 1);
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);

  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit none = {static_cast<rlim_t>(before), limit.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  errno = 0;
  const int result = cu_get_proc_info_1(&record, getpid());
  const int err = errno;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(err, EMFILE);
}

}  // namespace
