// What a call costs besides its own computing: the system calls of every road as the kernel sees them, in their order
// and not one more, and the blocks that it takes from the allocator.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>

#include "proof/instrumented.h"
#include "proof/roads.h"
#include "support/leaks.h"
#include "syslog/private_log.h"

namespace proof {
namespace {

// Marks where a road begins and ends; nothing else asks for the group of this process.
constexpr pid_t kMark = -4711;

std::string name_of(std::uint64_t number) {
  static const std::map<std::uint64_t, std::string> names = {{SYS_close, "close"},
                                                             {SYS_connect, "connect"},
                                                             {SYS_fchmod, "fchmod"},
                                                             {SYS_fcntl, "fcntl"},
                                                             {SYS_fstat, "stat"},
                                                             {SYS_getdents64, "getdents"},
                                                             {SYS_getpid, "getpid"},
                                                             {SYS_getppid, "getppid"},
                                                             {SYS_ioctl, "ioctl"},
                                                             {SYS_lseek, "lseek"},
                                                             {SYS_mmap, "mmap"},
                                                             {SYS_munmap, "munmap"},
                                                             {SYS_newfstatat, "stat"},
                                                             {SYS_openat, "open"},
                                                             {SYS_prlimit64, "rlimit"},
                                                             {SYS_read, "read"},
                                                             {SYS_sendto, "sendto"},
                                                             {SYS_socket, "socket"},
                                                             {SYS_statfs, "statfs"},
                                                             {SYS_write, "write"},
                                                             {SYS_getrandom, "getrandom"},
                                                             {SYS_rt_sigaction, "sigaction"},
                                                             {SYS_brk, "brk"},
                                                             {SYS_unlink, "unlink"}};
  const auto found = names.find(number);
  return found != names.end() ? found->second : "call " + std::to_string(number);
}

// The road in a child, between two marks.
[[noreturn]] void take(const Road &road, Tracing tracing) {
  lay_out(road, tracing, road.state);
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(2);  // refused here
  raise(SIGSTOP);
  (void)getpgid(kMark);
  road.body();
  (void)getpgid(kMark);
  _exit(0);
}

// "stat 2 open fcntl": names, with the number of calls where one follows itself.
std::string system_calls(const Road &road, Tracing tracing) {
  const pid_t child = fork();
  if (child == 0) take(road, tracing);
  int status = 0, marks = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  std::vector<std::pair<std::string, int>> seen;
  while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
         WIFSTOPPED(status)) {
    struct __ptrace_syscall_info call = {};
    if (WSTOPSIG(status) != (SIGTRAP | 0x80) || ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call) <= 0)
      continue;
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
    if (call.entry.nr == SYS_getpgid && static_cast<pid_t>(call.entry.args[0]) == kMark) {
      ++marks;
    } else if (marks == 1) {
      const std::string name = name_of(call.entry.nr);
      if (seen.empty() || seen.back().first != name) seen.emplace_back(name, 0);
      ++seen.back().second;
    }
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  std::string out;
  for (const auto &[name, count] : seen)
    out += (out.empty() ? "" : " ") + name + (count > 1 ? " " + std::to_string(count) : "");
  return out;
}

struct Row {
  const char *road, *calls;
};

const std::string kTest = "getpid rlimit ";      // whose environment it is; how far files may be written
const std::string kFind = "stat 2 open fcntl ";  // the directory, the file; opened and locked
const std::string kIdentify = "stat ";           // the i-node
const std::string kHeader = "lseek read 2 ";
const std::string kWrite = "lseek write lseek write ";  // the record, then the header
const std::string kLeave = "fcntl close";
const std::string kReserve = "statfs open fcntl fchmod lseek write 16 lseek write statfs fcntl close ";

// What the standard reclamation reads and clears of one record.
const std::string kClear = "lseek read lseek 2 write ";
const std::string kCopy = "rlimit getpid stat 2 open stat open read write read write read close 2";
const std::string kSend = "socket connect getpid sendto close";
const std::string kAddresses = "socket fcntl ioctl 2";
// The C library looks for a catalogue in eight places.
const std::string kNoCatalogue = "open 8";
const std::string kTraceEntry = "open lseek fcntl read lseek write lseek write lseek write lseek fcntl close";

class SystemCalls : public testing::Test {
 protected:
  // One address, so that the number of interfaces is the same everywhere.
  static void compare(const std::vector<std::pair<std::string, std::string>> &rows) {
    if (kInstrumented) GTEST_SKIP() << "a sanitizer makes calls of its own";
    sandbox::Options options;
    options.network = true;
    options.ip = sandbox::network::loopback_up();
    RUN_IN_SANDBOX(options, [&] {
      ASSERT_EQ(private_log::cover_dev(), "");
      const private_log::Listener log;
      const platform::UtcZone utc;
      for (const char *variable : {"LANG", "LC_ALL"}) setenv(variable, "C", 1);
      for (const auto &[name, calls] : rows) EXPECT_EQ(system_calls(road(name), Tracing::kOff), calls) << name;
    });
  }
};

TEST_F(SystemCalls, OfEveryRoadAreTheseAndNoMore) {
  compare({
      {"create", "getpid open read close stat 2 " + kAddresses},  // the process's name, the directory, the address
      {"inherit", "getpid open read close " + kNoCatalogue},      // the name, and a message about success
      {"first push", kTest + "stat 2 " + kReserve + "open fcntl write 2 " + kIdentify + kHeader + kWrite + kLeave},
      {"later push", kTest + kFind + kIdentify + kHeader + kWrite + kLeave},
      {"push that wraps", kTest + kFind + kIdentify + kHeader + kClear + kWrite + kLeave},
      {"push for a command", "getppid rlimit " + kFind + "getppid " + kIdentify + kHeader + kWrite + kLeave},
      {"push with a detail file", kTest + kFind + "stat 6 " + kCopy + " " + kIdentify + kHeader + kWrite + kLeave},
      {"log", kSend},
      {"log with a detail file", "stat 4 " + kCopy + " " + kSend},
      {"decode", kAddresses},
      {"display", kNoCatalogue},
      {"first trace line", "stat rlimit " + kReserve + "getpid rlimit " + kTraceEntry},
  });
}

// The library itself takes memory for the assignments of an environment only; libqx_cu does for a push's arguments.
TEST(Allocations, AreThoseOfTheAssignments) {
  const leaks::OnPurpose leaks;  // an environment's assignments belong to the process
  const std::map<std::string, int> expected = {{"create", 5},
                                               {"inherit", 2},
                                               {"first push", 1},
                                               {"later push", 1},
                                               {"push that wraps", 1},
                                               {"push for a command", 1},
                                               {"push with a detail file", 1}};
  for (const Road &road : roads()) {
    SCOPED_TRACE(road.name);
    lay_out(road, Tracing::kOff, road.state);
    platform::Calls calls;
    plan(calls);
    calls.during(road.body);
    (void)road.look();
    const auto found = expected.find(road.name);
    EXPECT_EQ(calls.count("allocation"), found != expected.end() ? found->second : 0);
  }
}

}  // namespace
}  // namespace proof
