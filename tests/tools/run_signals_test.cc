// vosk run and signals without a terminal: what is passed on, what ends it, what stops it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support/files.h"
#include "tools/scripts.h"

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

const std::string kReady = "echo $$ > ready; ";
const std::string kIdle = "while :; do sleep 0.05; done";

}  // namespace

TEST(RunSignals, PassesOnWhatIsSentToItAlone) {
  struct {
    int number;
    const char *name;
  } const rows[] = {{SIGTERM, "TERM"}, {SIGHUP, "HUP"}, {SIGUSR1, "USR1"}, {SIGUSR2, "USR2"},
                    {SIGCONT, "CONT"}, {SIGINT, "INT"}, {SIGQUIT, "QUIT"}};
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
