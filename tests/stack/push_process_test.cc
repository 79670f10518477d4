// Whose stack a process records into: owners, descendants and commands, in real processes.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>

#include "stack/stack_test.h"
#include "support/stack_model.h"

namespace {

using stack_test::kStack;
using stack_test::push;

class PushProcess : public stack_test::StackTest {
 protected:
  // What the command prints; run as a child by `sh -c`, or directly.
  static std::string output_of(const std::string &argument, bool through_shell) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return "no pipe";
    const std::string command = std::string(QX_BINARY_DIR) + "/tests/push_command";
    const pid_t child = fork();
    if (child == 0) {
      dup2(ends[1], 1);
      if (through_shell) {
        const std::string line = "'" + command + "' " + argument + "; exit 0";
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
      } else {
        execl(command.c_str(), command.c_str(), argument.c_str(), nullptr);
      }
      _exit(127);
    }
    close(ends[1]);
    std::string output;
    char piece[256];
    for (ssize_t n; (n = read(ends[0], piece, sizeof piece)) > 0;) output.append(piece, static_cast<std::size_t>(n));
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) output += " status " + std::to_string(status);
    return output;
  }
  static std::vector<stack_model::Decoded> records() {
    std::vector<stack_model::Decoded> out;
    for (const std::string &record : stack_model::records(stack()).value_or(std::vector<std::string>{"unreadable"})) {
      const std::optional<stack_model::Decoded> decoded = stack_model::decode(record);
      if (!decoded) {
        ADD_FAILURE() << "not a record: " << record;
        continue;
      }
      out.push_back(*decoded);
    }
    return out;
  }
};

TEST_F(PushProcess, RunsACommandThatRecordsForIt) {
  ASSERT_EQ(push(incident()), 0);
  const std::string printed = output_of("cmd", false);
  ASSERT_EQ(printed.substr(0, 2), "0 ");
  const std::string command_identifier = printed.substr(2, 42) + '\0';

  const std::vector<stack_model::Decoded> found = records();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].push.identifier, identifier());
  const stack_model::Push &made = found[1].push;
  EXPECT_EQ(made.identifier, command_identifier);
  EXPECT_EQ(made.pid, getpid()) << "the process that ran the command";
  EXPECT_EQ(made.parent, 0) << "which created the environment";
  EXPECT_EQ(made.process_name, "service");
  EXPECT_EQ(made.file, "command.c");
  ASSERT_EQ(made.arguments.size(), 1u);
  EXPECT_EQ(made.arguments[0].text, "a service");
  EXPECT_EQ(made.detail, "by a command");
}

TEST_F(PushProcess, RunsACommandThatCannotRecordForItself) {
  ASSERT_EQ(push(incident()), 0);
  const std::string before = stack();
  EXPECT_EQ(output_of("own", false), "15 \n");
  EXPECT_EQ(files::difference(before, stack()), "");
}

// The shell is the command's parent then, and it owns no environment.
TEST_F(PushProcess, IsNotTheParentOfACommandThatAShellRuns) {
  ASSERT_EQ(push(incident()), 0);
  const std::string before = stack();
  EXPECT_EQ(output_of("cmd", true), "15 \n");
  EXPECT_EQ(files::difference(before, stack()), "");
}

TEST_F(PushProcess, HasItsParentInARecordOnlyWhereItInherited) {
  ASSERT_EQ(push(incident()), 0);
  const pid_t creator = getpid();
  const sandbox::Outcome outcome = sandbox::run_child([&] {
    EXPECT_EQ(push(incident()), VK_NO_VK_ENVIR) << "the environment is the parent's";
    EXPECT_EQ(vk_init_1(VK_STACK_INHERIT), VK_INHERIT_SUCCESS);
    EXPECT_EQ(push(incident()), 0);
    const std::vector<stack_model::Decoded> found = records();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[1].push.pid, getpid());
    EXPECT_EQ(found[1].push.parent, creator);
  });
  EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
  // The parent's own goes on as before.
  ASSERT_EQ(push(incident()), 0);
  const std::vector<stack_model::Decoded> found = records();
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(found[2].push.pid, creator);
  EXPECT_EQ(found[2].push.parent, 0);
}

TEST_F(PushProcess, WithoutPermissionIsRefused) {
  struct Row {
    const char *what;
    void (*prepare)();
    int result;
  };
  const Row rows[] = {
      {"a stack that may be read only",
       [] {
         put_stack("");
         ASSERT_EQ(chmod(kStack, 0444), 0);
       },
       VK_STACK_ACCESS},
      {"a directory that may not be written", [] { ASSERT_EQ(chmod(sandbox::kStacks, 0755), 0); }, VK_STACK_ACCESS},
      {"a directory that may not be searched", [] { ASSERT_EQ(chmod(sandbox::kStacks, 0600), 0); }, VK_STACK_ACCESS},
      {"a directory that cannot be asked about", [] { ASSERT_EQ(chmod(sandbox::kRoot, 0600), 0); }, 19},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(sandbox::fresh(), "");
    row.prepare();
    const sandbox::Outcome outcome = sandbox::run_child([&] {
      if (!sandbox::drop_to(sandbox::kNobody)) CANNOT_RUN_HERE("this user cannot become another one");
      set("VOSKPID", std::to_string(getpid()));
      EXPECT_EQ(push(incident()), row.result);
    });
    if (outcome.kind == sandbox::Outcome::kSkipped) GTEST_SKIP() << outcome.text;
    EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
  }
}

TEST_F(PushProcess, OnAReadOnlyFileSystemIsRefused) {
  ASSERT_TRUE(sandbox::remount(true));
  EXPECT_EQ(push(incident()), VK_STACK_ACCESS);
  ASSERT_TRUE(sandbox::remount(false));
  ASSERT_EQ(push(incident()), 0);
  const std::string before = stack();
  ASSERT_TRUE(sandbox::remount(true));
  forget_identifier();
  EXPECT_EQ(push(incident()), VK_STACK_ACCESS);
  EXPECT_EQ(identifier(), untouched());
  ASSERT_TRUE(sandbox::remount(false));
  EXPECT_EQ(files::difference(before, stack()), "");
}

TEST_F(PushProcess, OnAFullFileSystemIsRefusedAStackButNotARecord) {
  sandbox::Options options;
  options.size = "128k";
  ASSERT_EQ(sandbox::fresh(options), "");
  ASSERT_TRUE(sandbox::fill(5));  // of 32 blocks; 4 for the file, 1 more, and five percent
  EXPECT_EQ(push(incident()), 40);
  EXPECT_THAT(files::list(sandbox::kStacks), testing::IsEmpty());
  ASSERT_TRUE(sandbox::remove_filling());
  ASSERT_EQ(push(incident()), 0);
  ASSERT_TRUE(sandbox::fill(0));
  EXPECT_EQ(push(incident()), 0) << "the room was reserved";
  EXPECT_EQ(records().size(), 2u);
}

}  // namespace
