// What a user at a terminal sees: a pager, the superuser's in its secure mode, and none where it is not wanted.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>

#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// A command at a terminal of its own.
class terminal {
 public:
  terminal(
      const std::vector<std::string> &arguments, const std::map<std::string, std::string> &environment,
      const std::function<bool()> &prepared = [] { return true; }) {
    pid_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (pid_ != 0) return;
    if (!prepared()) _exit(126);
    clearenv();
    for (const auto &[name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char *> argv;
    for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    execv((std::string(QX_BINARY_DIR "/bin/") + arguments[0]).c_str(), argv.data());
    _exit(127);
  }
  ~terminal() {
    if (pid_ > 0) {
      (void)kill(-pid_, SIGKILL);
      (void)waitpid(pid_, nullptr, 0);
    }
    (void)close(fd_);
  }
  terminal(const terminal &) = delete;
  terminal &operator=(const terminal &) = delete;

  // Everything that was shown, once `text` has been; or to the end, where it is empty.
  std::string shows(const std::string &text = "") {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while ((text.empty() || shown_.find(text) == std::string::npos) && std::chrono::steady_clock::now() < end) {
      pollfd wanted{fd_, POLLIN, 0};
      if (poll(&wanted, 1, 100) <= 0) continue;
      char buffer[4096];
      const ssize_t n = read(fd_, buffer, sizeof buffer);
      if (n <= 0) break;
      shown_.append(buffer, static_cast<std::size_t>(n));
    }
    return shown_;
  }
  void types(const std::string &keys) {
    EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }
  bool runs() { return waitpid(pid_, &status_, WNOHANG) == 0; }
  // Its exit status, or 1000 and the signal that ended it.
  int ends() {
    (void)shows();
    (void)waitpid(pid_, &status_, 0);
    pid_ = -1;
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : 1000 + WTERMSIG(status_);
  }

 private:
  int fd_ = -1, status_ = 0;
  pid_t pid_ = -1;
  std::string shown_;
};

bool become_nobody() {
  return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0;
}

class Pager : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
    tool::write_stack(dir_ / "stack", builder::never_wrapped_file());
    // Two pagers that say what they are, what they were told, and what they were given.
    for (const char *name : {"less", "mine"}) {
      ASSERT_TRUE(files::write(dir_ / name, "#!/bin/sh\necho \"[" + std::string(name) +
                                                " LESS=$LESS SECURE=$LESSSECURE]\"\n/bin/cat\necho '[end]'\n"));
      ASSERT_EQ(chmod((dir_ / name).c_str(), 0755), 0);
    }
  }
  std::map<std::string, std::string> environment(const std::map<std::string, std::string> &more = {}) const {
    std::map<std::string, std::string> all{
        {"PATH", dir_.path() + ":/usr/bin:/bin"}, {"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}, {"TERM", "xterm"}};
    for (const auto &[name, value] : more) all[name] = value;
    return all;
  }
  std::vector<std::string> report(const std::vector<std::string> &more = {}) const {
    std::vector<std::string> arguments{"vosk", "report", dir_ / "stack"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
  }
  files::TemporaryDirectory dir_;
};

}  // namespace

TEST_F(Pager, IsStartedOnATerminalAndSecureForTheSuperuser) {
  terminal t(report(), environment());
  const std::string shown = t.shows("[end]");
  EXPECT_EQ(t.ends(), 0);
  EXPECT_THAT(shown, testing::StartsWith(geteuid() == 0 ? "[less LESS=FRX SECURE=1]" : "[less LESS=FRX SECURE=]"));
  EXPECT_THAT(shown, HasSubstr("\x1b[2m2023-11-14 22:13:20")) << "in colours";
  EXPECT_THAT(shown, testing::EndsWith("[end]\r\n"));
}

TEST_F(Pager, OfTheSuperuserIsNeverAnotherOne) {
  if (geteuid() != 0) CANNOT_RUN_HERE("needs the superuser");
  for (const char *name : {"PAGER", "VOSK_PAGER"}) {
    terminal t(report(), environment({{name, dir_ / "mine"}, {"LESSSECURE", "0"}, {"LESS", "X"}}));
    EXPECT_THAT(t.shows("[end]"), testing::StartsWith("[less LESS=X SECURE=1]")) << name;
    EXPECT_EQ(t.ends(), 0);
  }
}

TEST_F(Pager, OfOthersIsTheOneThatTheyWant) {
  if (geteuid() != 0) CANNOT_RUN_HERE("needs to become another user");
  struct {
    std::map<std::string, std::string> environment;
    std::string starts_with;
  } const rows[] = {{{{"PAGER", "mine"}}, "[mine "},
                    {{{"PAGER", "mine -x | cat"}}, "[mine "},
                    {{{"VOSK_PAGER", "mine"}, {"PAGER", "less"}}, "[mine "},
                    {{{"VOSK_PAGER", ""}, {"PAGER", "less"}}, "\x1b[36m-- "},
                    {{}, "[less LESS=FRX SECURE=]"}};
  for (const auto &row : rows) {
    terminal t(report(), environment(row.environment), become_nobody);
    EXPECT_THAT(t.shows(), testing::StartsWith(row.starts_with));
    EXPECT_EQ(t.ends(), 0);
  }
}

TEST_F(Pager, OfOthersNeedsAShell) {
  if (geteuid() != 0) CANNOT_RUN_HERE("needs to become another user");
  RUN_IN_SANDBOX({}, [&] {
    ASSERT_EQ(mount("/dev/null", "/bin/sh", nullptr, MS_BIND, nullptr), 0);
    terminal t(report(), environment({{"PAGER", "mine"}}), become_nobody);
    EXPECT_THAT(t.shows(), testing::AllOf(HasSubstr("2023-11-14"), Not(HasSubstr("[mine"))));
    EXPECT_EQ(t.ends(), 0);
  });
}

TEST_F(Pager, IsNotStartedWhereItIsNotWanted) {
  struct {
    std::vector<std::string> arguments;
    std::map<std::string, std::string> environment;
  } const rows[] = {{{"--no-pager"}, {}},     {{"--json"}, {}},           {{}, {{"PAGER", ""}}},
                    {{}, {{"PAGER", "cat"}}}, {{}, {{"VOSK_PAGER", ""}}}, {{}, {{"PATH", "/nonexistent"}}}};
  for (const auto &row : rows) {
    terminal t(report(row.arguments), environment(row.environment));
    const std::string shown = t.shows();
    EXPECT_EQ(t.ends(), 0);
    EXPECT_THAT(shown, Not(HasSubstr("[less")));
    EXPECT_THAT(shown, HasSubstr("2023-11-14"));
  }
  tool::options how;
  how.environment = {{"PATH", dir_.path()}};
  EXPECT_THAT(tool::run(report(), how).out, Not(HasSubstr("[less"))) << "its output is no terminal";
}

TEST_F(Pager, IsDoneWithoutWhereItCannotBeStarted) {
  for (const char *failing : {"pipe2|1|24|", "pipe2|2|24|", "fork|1|11|", "dup2|1|16|pipe"}) {
    SCOPED_TRACE(failing);
    terminal t(report(), environment({{"LD_PRELOAD", QX_FAULTS_LIBRARY}, {"QX_FAULTS", failing}}));
    const std::string shown = t.shows();
    EXPECT_EQ(t.ends(), 0);
    EXPECT_THAT(shown, Not(HasSubstr("[less")));
    EXPECT_THAT(shown, HasSubstr("2023-11-14"));
  }
  for (const char *failing : {"waitpid|1|4|", "write|1|4|pipe"}) {
    terminal t(report(), environment({{"LD_PRELOAD", QX_FAULTS_LIBRARY}, {"QX_FAULTS", failing}}));
    const std::string shown = t.shows();
    EXPECT_THAT(shown, HasSubstr("2023-11-14")) << failing;
    EXPECT_THAT(shown, testing::EndsWith("[end]\r\n")) << "it is waited for although that is interrupted";
    EXPECT_EQ(t.ends(), 0);
  }
  terminal lost(report(), environment({{"LD_PRELOAD", QX_FAULTS_LIBRARY}, {"QX_FAULTS", "waitpid|1+|10|"}}));
  EXPECT_EQ(lost.ends(), 0) << "one that is no child any more is not waited for";
}

TEST_F(Pager, GetsColoursOnlyForATerminalThatHasThem) {
  for (const auto &[name, value] : std::map<std::string, std::string>{{"TERM", "dumb"}, {"NO_COLOR", "1"}}) {
    terminal t(report(), environment({{name, value}}));
    EXPECT_THAT(t.shows(), Not(HasSubstr("\x1b["))) << name;
  }
  auto unknown = environment();
  unknown.erase("TERM");
  EXPECT_THAT(terminal(report(), unknown).shows(), Not(HasSubstr("\x1b[")));
  EXPECT_THAT(terminal(report({"--color", "never"}), environment()).shows(), Not(HasSubstr("\x1b[")));
  const tool::result empty = tool::run({"vosk", "show", "--color", "always", "--log", "none", ""});
  EXPECT_EQ(empty.status, 4) << empty.err;
  EXPECT_THAT(empty.out, testing::AllOf(testing::StartsWith("\n"), HasSubstr("\x1b["))) << "not for an empty text";
  terminal t(report(), environment({{"NO_COLOR", ""}}));
  EXPECT_THAT(t.shows(), HasSubstr("\x1b["));
}

TEST_F(Pager, MayBeLeftEarly) {
  builder::model m(16384);
  for (unsigned i = 0; i < 30; ++i) ASSERT_TRUE(m.push(builder::record_bytes(builder::record().at(1700000000 + i, 0))));
  for (int i = 0; i < 200; ++i) tool::write_stack(dir_ / ("more" + std::to_string(i)), m.file());
  ASSERT_TRUE(files::write(dir_ / "less", "#!/bin/sh\necho '[left]'\n"));
  terminal t({"vosk", "report", "-v", dir_.path()}, environment());
  EXPECT_EQ(t.ends(), 0);
}

// An interrupt stops a search in the pager; the shell must not have the terminal back while the pager is there.
TEST_F(Pager, OutlivesAnInterrupt) {
  ASSERT_TRUE(files::write(dir_ / "less",
                           "#!/bin/sh\ntrap 'echo \"[interrupted]\"' INT\ncat >/dev/null\necho '[ready]'\n"
                           "read key </dev/tty; read key </dev/tty\necho \"[left $key]\"\n"));
  // The second waiting is that for the pager once more; it may be interrupted itself.
  for (const char *failing : {"", "waitpid|2|4|"}) {
    terminal t(report(), environment({{"LD_PRELOAD", QX_FAULTS_LIBRARY}, {"QX_FAULTS", failing}}));
    (void)t.shows("[ready]");
    t.types("\x03");
    (void)t.shows("[interrupted]");
    usleep(50000);
    EXPECT_TRUE(t.runs()) << failing;
    t.types("q\nq\n");
    EXPECT_THAT(t.shows("[left"), HasSubstr("[left"));
    EXPECT_EQ(t.ends(), 1000 + SIGINT);
  }
}

TEST_F(Pager, ThatIsNoChildAnyMoreIsNotWaitedForAtAnInterrupt) {
  ASSERT_TRUE(
      files::write(dir_ / "less", "#!/bin/sh\ntrap '' INT\ncat >/dev/null\necho '[ready]'\nread key </dev/tty\n"));
  terminal t(report(), environment({{"LD_PRELOAD", QX_FAULTS_LIBRARY}, {"QX_FAULTS", "waitpid|2+|10|"}}));
  (void)t.shows("[ready]");
  t.types("\x03");
  EXPECT_EQ(t.ends(), 1000 + SIGINT);
}

TEST_F(Pager, GetsRawTextsWhereThatIsAskedFor) {
  builder::record r;
  r.detail = "red\x1b[31m\nlines";
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(dir_ / "stack", m.file());
  EXPECT_THAT(tool::run(report({"-v"})).out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(tool::run(report({"-v", "--raw"})).out, HasSubstr("red\x1b[31m\n"));
}

TEST_F(Pager, IsTheRealOneWhereItIsInstalled) {
  if (!files::exists("/usr/bin/less")) GTEST_SKIP() << "less is not installed";
  ASSERT_EQ(unlink((dir_ / "less").c_str()), 0);
  terminal t({"vosk", "report", "-v", dir_ / "stack"}, environment());
  (void)t.shows("Record at offset 24");
  t.types("q");
  EXPECT_EQ(t.ends(), 0);
}
