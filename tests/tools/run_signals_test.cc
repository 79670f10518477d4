// vosk run and signals without a terminal: what is passed on, what ends it, what stops it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support/files.h"
#include "support/sandbox.h"
#include "tools/scripts.h"
#include "vosk/child_signals.h"

using scripts::kWithStack;
using scripts::script;

namespace {

// vosk run as a child of this process, in a process group of its own.
class running {
 public:
  explicit running(const std::string &command, bool tail = false) {
    child_ = fork();
    if (child_ == 0) {
      (void)setpgid(0, 0);
      (void)!chdir(directory_.path().c_str());
      (void)dup2(open("err", O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
      const rlimit cores{RLIM_INFINITY, RLIM_INFINITY};
      (void)setrlimit(RLIMIT_CORE, &cores);
      const char *const option = tail ? "--stderr-tail" : "--json";
      execl(QX_BINARY_DIR "/bin/vosk", "vosk", "run", option, "--", "sh", "-c", command.c_str(), nullptr);
      _exit(127);
    }
  }
  ~running() {
    if (ended_) return;
    (void)kill(-child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
  }

  pid_t pid() const { return child_; }

  // The number that the command wrote to its file "ready": its process id.
  pid_t command() const {
    for (int i = 0; i < 500; ++i, usleep(10000)) {
      const std::string text = files::read(directory_ / "ready").value_or("");
      if (text.ends_with('\n')) return std::stoi(text);
    }
    return -1;
  }

  int next_status(int options = 0) {
    int status = -1;
    EXPECT_EQ(waitpid(child_, &status, options), child_);
    ended_ = !WIFSTOPPED(status) && !WIFCONTINUED(status);
    return status;
  }

  std::string file(const std::string &name) const { return files::read(directory_ / name).value_or(""); }
  std::vector<std::string> files() const { return files::list(directory_.path()); }

 private:
  files::TemporaryDirectory directory_;
  pid_t child_;
  bool ended_ = false;
};

void wait_until_it_goes_on(pid_t process) {
  const auto stopped = [&] {
    const std::string state = files::read("/proc/" + std::to_string(process) + "/stat").value_or("");
    return state.find(") T") != std::string::npos;
  };
  for (int i = 0; i < 500 && stopped(); ++i) usleep(10000);
  EXPECT_FALSE(stopped());
}

// Runs in a process of its own, whose signals are changed for good.
#define IN_A_PROCESS(...)                                                 \
  do {                                                                    \
    const sandbox::Outcome outcome = sandbox::run_child(__VA_ARGS__, 10); \
    EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;   \
  } while (false)

// Keeps the lock of the first stack that there is, as any process can.
class lock_holder {
 public:
  explicit lock_holder(const std::string &held) : child_(fork()) {
    if (child_ != 0) return;
    while (files::list(sandbox::kStacks).empty()) usleep(5000);
    const std::string stack = std::string(sandbox::kStacks) + "/" + files::list(sandbox::kStacks)[0];
    if (lockf(open(stack.c_str(), O_RDWR), F_LOCK, 0) == 0) (void)open(held.c_str(), O_WRONLY | O_CREAT, 0644);
    for (;;) pause();
  }
  ~lock_holder() {
    (void)kill(child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

const std::string kReady = "echo $$ > ready; ";
const std::string kIdle = "while :; do sleep 0.05; done";

}  // namespace

// Both are told before it sees the one of the command.
TEST(RunSignals, DoesNotStopWithACommandThatIsToGoOnAlready) {
  running vosk("trap 'exit 11' CONT; " + kReady + kIdle);
  const pid_t command = vosk.command();
  ASSERT_GT(command, 0);
  ASSERT_EQ(kill(vosk.pid(), SIGSTOP), 0);
  ASSERT_TRUE(WIFSTOPPED(vosk.next_status(WUNTRACED)));
  ASSERT_EQ(kill(command, SIGSTOP), 0);
  const auto stopped = [&] {
    return files::read("/proc/" + std::to_string(command) + "/stat").value_or("").find(") T") != std::string::npos;
  };
  for (int i = 0; i < 500 && !stopped(); ++i) usleep(10000);
  ASSERT_EQ(kill(vosk.pid(), SIGCONT), 0);
  const int status = vosk.next_status(WUNTRACED);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 11);
}

TEST(RunSignals, PassesOnWhatIsSentToItAlone) {
  struct {
    int number;
    const char *name;
  } const rows[] = {{SIGTERM, "TERM"}, {SIGHUP, "HUP"}, {SIGUSR1, "USR1"}, {SIGUSR2, "USR2"},
                    {SIGCONT, "CONT"}, {SIGINT, "INT"}, {SIGQUIT, "QUIT"}, {SIGALRM, "ALRM"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    running vosk("trap 'exit 11' " + std::string(row.name) + "; " + kReady + kIdle);
    ASSERT_GT(vosk.command(), 0);
    ASSERT_EQ(kill(vosk.pid(), row.number), 0);
    const int status = vosk.next_status();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 11) << status;
  }
}

TEST(RunSignals, DoesNotReturnWhatTheCommandSendsToItsParent) {
  running vosk("trap 'exit 11' USR1 TERM; " + kReady + "kill -USR1 $PPID; kill -TERM $PPID; sleep 0.2; exit 0");
  const int status = vosk.next_status();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(RunSignals, DiesOfTheSignalThatKilledTheCommandWithoutACore) {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGKILL, SIGSEGV, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1,
                           SIGUSR2, SIGRTMIN, SIGRTMAX}) {
    SCOPED_TRACE(number);
    for (const bool tail : {false, true}) {
      running vosk("ulimit -c 0; kill -" + std::to_string(number) + " $$", tail);
      const int status = vosk.next_status();
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number) << status;
      EXPECT_FALSE(WIFSIGNALED(status) && WCOREDUMP(status));
      EXPECT_EQ(vosk.files(), std::vector<std::string>{"err"});
    }
  }
}

TEST(RunSignals, ALateSignalDoesNotTakeTheRecordAway) {
  // The whole group gets it: the command dies, and vosk is told a second time what it passed on already.
  running vosk(kReady + kIdle);
  ASSERT_GT(vosk.command(), 0);
  ASSERT_EQ(kill(-vosk.pid(), SIGTERM), 0);
  const int status = vosk.next_status();
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_THAT(vosk.file("err"), testing::HasSubstr("\"signal\":15"));
}

TEST(RunSignals, StopsWhereTheCommandStopsAndGoesOnWithIt) {
  for (const int number : {SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU}) {
    SCOPED_TRACE(number);
    running vosk("trap 'exit 5' USR1; " + kReady + kIdle);
    const pid_t command = vosk.command();
    ASSERT_GT(command, 0);
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(kill(command, number), 0);
      const int status = vosk.next_status(WUNTRACED);
      ASSERT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == number) << status;
      // vosk alone is told to go on, and passes it on.
      ASSERT_EQ(kill(vosk.pid(), SIGCONT), 0);
      ASSERT_TRUE(WIFCONTINUED(vosk.next_status(WCONTINUED)));
      wait_until_it_goes_on(command);
    }
    ASSERT_EQ(kill(vosk.pid(), SIGUSR1), 0);
    const int status = vosk.next_status();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 5) << status;
  }
}

TEST(RunSignals, ATailIsReadOnWhileEverythingElseIsStopped) {
  // The writer is ready when it has left the group.
  running vosk("setsid sh -c '" + kReady + "sleep 0.2; head -c 200000 /dev/zero >&2' & wait", true);
  ASSERT_GT(vosk.command(), 0);
  ASSERT_EQ(kill(-vosk.pid(), SIGSTOP), 0);
  for (int i = 0; i < 200 && vosk.file("err").size() < 200000; ++i) usleep(20000);
  EXPECT_EQ(vosk.file("err").size(), 200000u);
}

TEST(RunSignals, TellsTheCommandOnceWhatWasPendingAtItsStart) {
  IN_A_PROCESS([] {
    const vosk::signal_desk desk(false);
    ASSERT_EQ(raise(SIGINT), 0);
    ASSERT_EQ(raise(SIGUSR1), 0);
    const pid_t command = fork();
    if (command == 0)
      for (desk.give_back();;) pause();
    vosk::signal_desk::catch_up(command);
    int status = 0;
    ASSERT_EQ(waitpid(command, &status, 0), command);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    sigset_t pending;
    ASSERT_EQ(sigpending(&pending), 0);
    EXPECT_EQ(sigismember(&pending, SIGINT), 0);
    EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
  });
}

TEST(RunSignals, WaitingAfterTheCommandIsInterruptedAgainAndAgain) {
  IN_A_PROCESS([] {
    const vosk::signal_desk desk(false);
    desk.only_interrupt();
    itimerval left{};
    ASSERT_EQ(getitimer(ITIMER_REAL, &left), 0);
    EXPECT_TRUE(left.it_value.tv_sec >= 8 && left.it_value.tv_sec <= 10) << left.it_value.tv_sec;
    EXPECT_EQ(left.it_interval.tv_sec, 1);
    desk.only_interrupt(std::chrono::milliseconds(20));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), -1);
    EXPECT_EQ(errno, EINTR);
  });
}

TEST(RunSignals, ALockedStackDoesNotKeepTheStatusBack) {
  // The alarm is sent by hand, and waited for where there is time.
  const bool soaking = getenv("QX_SOAK") != nullptr;
  script s;
  const lock_holder holder(s.directory() / "held");
  (void)s.run(kWithStack +
              "vosk push first >pushed; while [ ! -e held ]; do sleep 0.01; done\n"
              "vosk run -- sh -c 'trap \"\" ALRM; : >started; exit 3' & while [ ! -e started ]; do sleep 0.01; done\n" +
              (soaking ? "" : "for i in $(seq 40); do sleep 0.05; kill -ALRM $! || break; done 2>/dev/null\n") +
              "wait $!; echo $? >status");
  EXPECT_EQ(s.file("status"), "3\n");
  EXPECT_THAT(s.file("err"), testing::HasSubstr("vosk: sh: exit status 3"));
}
