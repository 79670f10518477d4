// vosk run under an interactive shell on a terminal: keys and job control.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "support/files.h"
#include "tools/scripts.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char kInterrupt[] = "\x03", kSuspend[] = "\x1a", kQuit[] = "\x1c";

// An interactive bash on a terminal of its own.
class terminal {
 public:
  terminal() {
    child_ = forkpty(&fd_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
      setenv("PATH", QX_BINARY_DIR "/bin:/usr/bin:/bin", 1);
      setenv("PS1", "prompt> ", 1);
      setenv("TERM", "dumb", 1);
      setenv("LC_ALL", "C", 1);
      (void)!chdir(directory_.path().c_str());
      execlp("bash", "bash", "--norc", "--noprofile", "--noediting", "-i", nullptr);
      _exit(127);
    }
    (void)expect("prompt> ");
    // No echo: what is expected shall not be found in what was typed.
    (void)command("stty -echo; eval \"$(vosk env create --name job $$)\"");
  }
  ~terminal() {
    (void)kill(child_, SIGHUP);
    hang_up();
    (void)kill(child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
  }

  void type(const std::string &text) const { EXPECT_EQ(write(fd_, text.data(), text.size()), ssize_t(text.size())); }

  // What comes up to and with `text`.
  std::string expect(const std::string &text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::size_t at;
    while ((at = seen_.find(text)) == std::string::npos) {
      pollfd readable{fd_, POLLIN, 0};
      char buffer[4096];
      ssize_t n = 0;
      if (poll(&readable, 1, 100) > 0) n = read(fd_, buffer, sizeof buffer);
      if (n > 0) seen_.append(buffer, static_cast<std::size_t>(n));
      if (n < 0 || std::chrono::steady_clock::now() > end) {
        ADD_FAILURE() << "'" << text << "' does not come, but: " << seen_;
        return std::exchange(seen_, "");
      }
    }
    const std::string taken = seen_.substr(0, at + text.size());
    seen_.erase(0, taken.size());
    return taken;
  }

  // Types a command and returns what it prints, up to the next prompt.
  std::string command(const std::string &text) {
    type(text + "\n");
    return expect("prompt> ");
  }

  void hang_up() {
    if (fd_ >= 0) (void)close(std::exchange(fd_, -1));
  }

  const files::TemporaryDirectory &directory() const { return directory_; }

 private:
  files::TemporaryDirectory directory_;
  int fd_ = -1;
  pid_t child_ = -1;
  std::string seen_;
};

// A command that says when it runs, and what it is told. Of the shells, bash never dies of the quit key; dash starts
// programs in a way that a stop can catch half way, and then does not stop.
std::string talking(const std::string &options, const std::string &traps = "", const std::string &shell = "bash") {
  return "vosk run " + options + " -- " + shell + " -c '" + traps + " echo runs; while :; do sleep 0.02; done'";
}

class RunOnTerminal : public testing::TestWithParam<const char *> {
 protected:
  std::string options() const { return GetParam(); }
  terminal t_;
};

INSTANTIATE_TEST_SUITE_P(, RunOnTerminal, testing::Values("", "--stderr-tail"),
                         [](const auto &row) { return *row.param == '\0' ? "Plain" : "WithTail"; });

}  // namespace

TEST_P(RunOnTerminal, TheInterruptKeyEndsBoth) {
  t_.type(talking(options()) + "; echo status $?\n");
  (void)t_.expect("runs\r\n");
  t_.type(kInterrupt);
  const std::string seen = t_.expect("prompt> ");
  EXPECT_THAT(seen, HasSubstr("vosk: bash: killed by signal 2 (SIGINT); recorded as "));
  EXPECT_THAT(t_.command("echo $?"), HasSubstr("130\r\n"));
}

TEST_P(RunOnTerminal, TheQuitKeyEndsBothWithoutACore) {
  t_.type("ulimit -c 0; " + talking(options(), "", "sh") + "\n");
  (void)t_.expect("runs\r\n");
  t_.type(kQuit);
  const std::string seen = t_.expect("prompt> ");
  EXPECT_THAT(seen, HasSubstr("killed by signal 3 (SIGQUIT)"));
  EXPECT_THAT(seen, HasSubstr("Quit"));
  EXPECT_THAT(seen, Not(HasSubstr("core dumped")));
}

TEST_P(RunOnTerminal, AnInterruptEndsTheScriptAroundIt) {
  t_.type("bash -c 'vosk run " + options() + " -- sh -c \"echo runs; exec sleep 20\"; echo goes on'\n");
  (void)t_.expect("runs\r\n");
  t_.type(kInterrupt);
  EXPECT_THAT(t_.expect("prompt> "), Not(HasSubstr("goes on")));
  EXPECT_THAT(t_.command("echo $?"), HasSubstr("130\r\n"));
}

// Before vosk is there the shell gets it, then vosk, then the command: at no moment nobody.
TEST_P(RunOnTerminal, NoInterruptIsLostWhileTheCommandStarts) {
  for (int round = 0; round < 40; ++round) {
    t_.type("sh -c 'echo starts; exec vosk run " + options() + " -- sleep 30'\n");
    (void)t_.expect("starts\r\n");
    usleep(static_cast<useconds_t>(round) * 300);
    t_.type(kInterrupt);
    (void)t_.expect("prompt> ");
    if (HasFailure()) break;
  }
}

TEST_P(RunOnTerminal, ACommandThatHandlesTheInterruptKeyGetsItOnceAndDecides) {
  t_.type(
      talking(options(), "trap \"echo told; [ -n \\\"\\$told\\\" ] && exit 9; told=1\" INT; trap \"exit 4\" TERM;") +
      "\n");
  (void)t_.expect("runs\r\n");
  t_.type(kInterrupt);
  (void)t_.expect("told\r\n");
  usleep(300000);
  t_.type(kInterrupt);
  const std::string seen = t_.expect("prompt> ");
  EXPECT_THAT(seen, testing::StartsWith("told\r\n"));
  EXPECT_THAT(t_.command("echo $?"), HasSubstr("9\r\n"));
}

TEST_P(RunOnTerminal, StopsAndGoesOnInTheForegroundAndTheBackground) {
  t_.type(talking(options(), "trap \"echo goes on\" CONT; trap \"echo bye; exit 6\" TERM;") + "\n");
  (void)t_.expect("runs\r\n");
  t_.type(kSuspend);
  EXPECT_THAT(t_.expect("prompt> "), HasSubstr("Stopped"));
  EXPECT_THAT(t_.command("jobs"), HasSubstr("Stopped"));
  t_.type("fg\n");
  (void)t_.expect("goes on\r\n");
  t_.type(kSuspend);
  EXPECT_THAT(t_.expect("prompt> "), HasSubstr("Stopped"));
  t_.type("bg\n");
  (void)t_.expect("goes on\r\n");
  t_.type("jobs\n");
  (void)t_.expect("Running");
  t_.type("kill %1; wait %1; echo status $?\n");
  EXPECT_THAT(t_.expect("status 6\r\n"), HasSubstr("bye\r\n"));
}

TEST_P(RunOnTerminal, StopsWhereTheCommandReadsInTheBackground) {
  t_.type("vosk run " + options() + " -- sh -c 'read word; echo got $word; exit 8' &\n");
  t_.type("while ! jobs | grep Stopped; do sleep 0.05; done\n");
  (void)t_.expect("Stopped");
  (void)t_.expect("prompt> ");
  t_.type("fg\nhello\n");
  EXPECT_THAT(t_.expect("prompt> "), HasSubstr("got hello\r\n"));
  EXPECT_THAT(t_.command("echo $?"), HasSubstr("8\r\n"));
}

TEST_P(RunOnTerminal, IsAJobThatCanBeWaitedFor) {
  t_.type("vosk run " + options() + " -- sh -c 'sleep 0.2; exit 17' & wait $!; echo status $?\n");
  (void)t_.expect("status 17\r\n");
}

TEST_P(RunOnTerminal, AGrandchildWritesLateAndLives) {
  const std::string late = "(sleep 0.5; echo late >&2; echo $? > wrote) & echo soon >&2; exit 3";
  t_.type("vosk run " + options() + " -- sh -c '" + late + "'; echo status $?\n");
  EXPECT_THAT(t_.expect("status 3\r\n"), Not(HasSubstr("late")));
  (void)t_.expect("late\r\n");
  for (int i = 0; i < 200 && files::read(t_.directory() / "wrote").value_or("") != "0\n"; ++i) usleep(20000);
  EXPECT_EQ(files::read(t_.directory() / "wrote"), "0\n");
}

// The pipe in between is no terminal; without one everything is.
TEST_P(RunOnTerminal, StandardErrorIsATerminalWithoutATail) {
  t_.type("vosk run " + options() + " -- sh -c 'test -t 0 && test -t 1 && test -t 2'; echo status $?\n");
  (void)t_.expect(options().empty() ? "status 0\r\n" : "status 1\r\n");
}

TEST_P(RunOnTerminal, AHangUpReachesTheCommand) {
  t_.type("exec " + talking(options(), "trap \"echo hung up > told; exit 1\" HUP;") + "\n");
  (void)t_.expect("runs\r\n");
  t_.hang_up();
  for (int i = 0; i < 200 && !files::exists(t_.directory() / "told"); ++i) usleep(20000);
  EXPECT_EQ(files::read(t_.directory() / "told"), "hung up\n");
}
