// Processes in bad shape: huge variables, raised privileges, closed standard descriptors, tight limits, many addresses,
// a file system that reports nonsense.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "proof/roads.h"
#include "support/cu_double.h"
#include "support/files.h"
#include "support/leaks.h"

namespace proof {
namespace {

class HostileProcess : public testing::Test {
 protected:
  void prepare(State state) {
    lay_out(push_, Tracing::kOff, state);
    cu_double::reset();
  }
  static int push() {
    vk_eid_t fid = {};
    return vk_push_stack_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, "the details of what happened here, at some length",
                           nullptr, "c", 1, 1, "m");
  }
  // Runs the body in a child and returns what it returns.
  static int in_child(const std::function<int()> &body) {
    const pid_t child = fork();
    if (child == 0) {
      own_environment();
      alarm(20);
      _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  const Road &push_ = road("later push");
};

TEST_F(HostileProcess, WithAVariableOfAMegabyteGetsItsResult) {
  struct {
    const char *variable;
    char filling;
    int code;
  } rows[] = {
      {"VOSKSTACK", '/', 99},  // a path that is too long
      {"VOSKSTACK", 'x', 99},  {"VOSKORIG", '1', 0},     {"VOSKPID", '9', 15}, {"VOSKADDR", '.', 37},
      {"VOSKPNAME", 'n', 44},  // cut with the record
      {"VOSKDEBUG", '/', 0},   {"VOSKSDISABLE", 'x', 0}, {"COLUMNS", '9', 0},  {"NLSPATH", '%', 0},
      {"VOSKRECLAIM", 'w', 0}, {"TZ", 'Z', 0},           {"LANG", 'x', 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.variable << " full of " << row.filling);
    prepare(State::kPartlyFilled);
    const int code = in_child([&] {
      setenv(row.variable, std::string(1 << 20, row.filling).c_str(), 1);
      const int result = push();
      // The other entry points have to get through it, too.
      vk_eid_t fid = {};
      (void)vk_log_error_1(&fid, nullptr, nullptr, "p", "f", "1", 1, 0, 1, 0, "d", 1, nullptr, "m");
      (void)vk_test_stack_1();
      (void)vk_init_main_1(VK_STACK_CREAT, nullptr, getpid(), 0);
      char description[] = "a description";
      if (vk_truncate_description(description, 2) != 13) return 101;
      return result;
    });
    EXPECT_EQ(code, row.code);
  }
}

TEST_F(HostileProcess, WithRaisedPrivilegesTrustsNoVariableOfItsCaller) {
  if (geteuid() != 0) CANNOT_RUN_HERE("a set-uid program of another user needs root");
  prepare(State::kMissing);
  const std::string helper = std::string(sandbox::kRoot) + "/helper";
  ASSERT_TRUE(files::write(helper, files::read(QX_SECURE_HELPER).value_or("")));
  if (chown(helper.c_str(), 1, 1) != 0) CANNOT_RUN_HERE("files cannot be given to another user");
  ASSERT_EQ(chmod(helper.c_str(), 04755), 0);
  struct {
    std::string stack;
    const char *output;
  } rows[] = {
      {kStack, "secure 1 trace 3 push 0\n"},
      {std::string(sandbox::kStacks) + "/../elsewhere", "secure 1 trace 3 push 17\n"},
      {std::string(sandbox::kRoot) + "/elsewhere", "secure 1 trace 3 push 17\n"},
      {std::string(sandbox::kStacks) + "/.", "secure 1 trace 3 push 17\n"},
      {std::string(sandbox::kStacks) + "/a/b", "secure 1 trace 3 push 17\n"},
      {"stacks/road", "secure 1 trace 3 push 17\n"},
  };
  ASSERT_EQ(chmod(sandbox::kRoot, 0777), 0);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.stack);
    const std::string out = std::string(sandbox::kRoot) + "/out";
    const int status = in_child([&] {
      setenv("VOSKSTACK", row.stack.c_str(), 1);
      setenv("VOSKDEBUG", kTraceFile.c_str(), 1);
      if (std::freopen(out.c_str(), "w", stdout) == nullptr || !sandbox::drop_to(sandbox::kNobody)) return 100;
      execl(helper.c_str(), helper.c_str(), static_cast<char *>(nullptr));
      return errno;
    });
    ASSERT_EQ(status, 0);
    EXPECT_EQ(files::read(out), row.output);
    EXPECT_FALSE(files::exists(std::string(sandbox::kRoot) + "/elsewhere"));
    EXPECT_FALSE(files::exists(kTraceFile));
  }
}

TEST_F(HostileProcess, WithoutStandardDescriptorsRecordsAllTheSame) {
  for (State state : {State::kMissing, State::kPartlyFilled}) {
    for (Tracing tracing : {Tracing::kOff, Tracing::kOn}) {
      lay_out(push_, tracing, state);
      const int code = in_child([] {
        for (int fd : {0, 1, 2}) close(fd);
        vk_eid_t fid = {};
        if (vk_log_error_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, 1, 0, nullptr, 0, kDetail.c_str(), "m") != 0)
          return 101;
        if (vk_display_fid_1(fid) != 0) return 102;
        return push();
      });
      EXPECT_EQ(code, 0);
      EXPECT_EQ(stack_model::records(*files::read(kStack))->size(), state == State::kMissing ? 1u : 4u);
      ASSERT_EQ(files::list(sandbox::kDumps).size(), 1u);
      EXPECT_EQ(files::read(std::string(sandbox::kDumps) + "/" + files::list(sandbox::kDumps)[0]), kDetailBytes);
    }
  }
}

TEST_F(HostileProcess, AtItsFileSizeLimitIsToldAndNotKilled) {
  struct {
    State state;
    rlim_t limit;
    int code, message;
  } rows[] = {
      {State::kMissing, 0, 40, 36},        {State::kMissing, 4096, 40, 36},      {State::kMissing, 16383, 40, 36},
      {State::kPartlyFilled, 0, 41, 42},   {State::kPartlyFilled, 1001, 41, 42}, {State::kPartlyFilled, 1002, 41, 42},
      {State::kPartlyFilled, 16384, 0, 0}, {State::kFull, 100, 24, 41},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << to_string(row.state) << ", limit " << row.limit);
    prepare(row.state);
    const int code = in_child([&] {
      const rlimit limit = {row.limit, RLIM_INFINITY};
      setrlimit(RLIMIT_FSIZE, &limit);
      const int result = push();
      const auto errors = cu_double::errors();
      return (errors.empty() ? 0 : errors.back().number) == row.message ? result : 101;
    });
    EXPECT_EQ(code, row.code);
    EXPECT_EQ(files::exists(kStack), row.state != State::kMissing);
  }
}

TEST_F(HostileProcess, WithoutAFreeDescriptorIsTold) {
  struct {
    State state;
    int code, message;
  } rows[] = {{State::kMissing, 99, 30}, {State::kPartlyFilled, 20, 38}};
  for (const auto &row : rows) {
    for (Tracing tracing : {Tracing::kOff, Tracing::kOn}) {
      lay_out(push_, tracing, row.state);
      cu_double::reset();
      const std::string before = files::read(kStack).value_or("");
      const int code = in_child([&] {
        const int next = dup(0);
        close(next);
        const rlimit limit = {static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
        setrlimit(RLIMIT_NOFILE, &limit);
        const int result = push();
        // A log record needs none of its own.
        vk_eid_t fid = {};
        if (vk_log_error_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, 1, 0, "d", 1, nullptr, "m") != 0) return 101;
        return cu_double::errors().back().number == row.message ? result : 102;
      });
      EXPECT_EQ(code, row.code);
      EXPECT_EQ(files::read(kStack).value_or(""), before);
    }
  }
}

TEST_F(HostileProcess, OnAFileSystemThatReportsNoBlockSizeGetsNoStack) {
  for (std::int64_t size : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
    prepare(State::kMissing);
    platform::Calls calls;
    calls.statfs_figures({{1000000, 900000, size}});
    EXPECT_EQ(calls.during(push), 99);
    EXPECT_EQ(cu_double::errors().back().number, 30);
    EXPECT_FALSE(files::exists(kStack));
  }
}

// The first sixty-four are seen.
TEST_F(HostileProcess, OnANodeWithSeventyAddressesFindsThoseThatFit) {
  leaks::OnPurpose assignments;
  std::vector<platform::FakeInterface> seventy;
  for (int i = 0; i < 70; ++i) {
    seventy.push_back({.name = "eth" + std::to_string(i), .address = "10.0.1." + std::to_string(i + 1), .flags = 1});
  }
  prepare(State::kMissing);
  platform::Calls calls;
  calls.fake_interfaces(seventy);
  char list[65][46] = {};
  unsigned count = 0;
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list[0], 0, &count); }), 0);
  EXPECT_EQ(count, 64u);
  EXPECT_STREQ(list[63], "10.0.1.64");
  EXPECT_STREQ(list[64], "");
  // One of them, made into an identifier, is of this node; one that was not seen is not.
  for (int host : {1, 64, 65, 70}) {
    char digits[8] = {};
    (void)vk_l64a_r(10u | 1u << 16 | static_cast<std::uint64_t>(host) << 24, digits, 6);
    std::string eid = std::string("822.....2zIZ/.7S.") + digits;
    eid.resize(42, '.');
    unsigned on_node = 7, version = 0, location = 0, templ = 0, facility = 0, priority = 0, ipv6 = 0;
    char names[256] = {}, address[16] = {};
    timeval time = {};
    EXPECT_EQ(calls.during([&] {
      return vk_decode_eid_2(0, nullptr, eid.c_str(), &on_node, &version, &location, names, 1, &templ, &facility,
                             &priority, &time, address, &ipv6);
    }),
              0);
    EXPECT_EQ(on_node, host <= 64 ? 1u : 0u) << host;
  }
  for (const auto &[fd, path] : calls.left_open()) close(fd);
}

}  // namespace
}  // namespace proof
