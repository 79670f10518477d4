// What annotate, the doctor and run make of calls that fail, or take their time.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "syslog/private_log.h"
#include "tools/faults.h"

namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/job.1.20261121.120000";

// A command of a shell that waits until it is told to stop, which is its exit status 6.
tool::result run_command(const std::string &script, const std::string &failing) {
  return tool::run({"vosk", "run", "--", "sh", "-c", "trap 'exit 6' TSTP; " + script}, faults::with(failing));
}

}  // namespace

TEST(Faults, OfATextThatIsAnnotatedAreNamed) {
  files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "text", "words\n"));
  faults::expect({"a read that is interrupted", "annotate " + dir / "text", "read|1|4|text", 0, "words\n"});
  faults::expect({"a read that fails", "annotate " + dir / "text", "read|1|5|text", 1, "Input/output error"});
}

TEST(Faults, ThatSayNothingOfAFaultAreNoneToTheDoctor) {
  const std::string trouble = private_log::cover_dev();
  if (!trouble.empty()) CANNOT_RUN_HERE(trouble);
  const private_log::Listener log;
  std::map<std::string, std::string> environment;
  constexpr const char *kNames[] = {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
  for (const char *name : kNames) unsetenv(name);
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "job", getpid(), 0), 0);
  for (const char *name : kNames) environment[name] = getenv(name);
  environment["VOSKSTACK"] = kStack;
  tool::write_stack(kStack, builder::never_wrapped_file());
  ASSERT_EQ(chmod(kStack.c_str(), 0666), 0);
  for (const char *path : {sandbox::kStacks, sandbox::kDumps}) ASSERT_EQ(chmod(path, 01777), 0);
  for (const faults::row &row : {
           faults::row{"an owner that belongs to another user", "doctor", "kill|1|1|", 0, "-- no fault found"},
           faults::row{"a stack that cannot be read", "doctor", "pread|1|5|job.", 0, "-- no fault found"},
           faults::row{"a stack that goes meanwhile", "doctor", "openat|2+|2|job.", 0, "-- no fault found"},
       })
    faults::expect(row, environment);
}

TEST(Faults, OfTheReaderOfStandardErrorEndIt) {
  const tool::result lost =
      tool::run({"vosk", "run", "--stderr-tail=1K", "--", "ls", "/no-such-file"}, faults::with("dup2|2|16|"));
  EXPECT_EQ(lost.status, 2);
  EXPECT_THAT(lost.err, testing::HasSubstr("ls: exit status 2"));
  EXPECT_THAT(lost.err, testing::Not(testing::HasSubstr("cannot access")));
}

// What comes with the command's end stops nothing of what is left to do.
TEST(Faults, OfTimeDoNotHoldTheStatusBack) {
  const pid_t child = fork();
  if (child == 0) {
    (void)setpgid(0, 0);
    for (const auto &[name, value] : faults::with("wait4|1|run kill -TSTP $PPID|").environment)
      setenv(name.c_str(), value.c_str(), 1);
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "run", "--", "sh", "-c", "exit 3", nullptr);
    _exit(127);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  if (!WIFSTOPPED(status)) return;
  (void)kill(child, SIGKILL);
  (void)waitpid(child, nullptr, 0);
}

// What came before the command could get it.
TEST(Faults, OfTimeLoseNoSignals) {
  files::TemporaryDirectory dir;
  const std::string ready = dir / "ready", wait = "sigtimedwait|1|run until [ -e " + ready + " ]; do sleep 0.01; done";
  const tool::result told =
      run_command("touch " + ready + "; while :; do sleep 0.05; done", wait + "; kill -TSTP $PPID|");
  EXPECT_EQ(told.status, 6) << told.err;
  ASSERT_EQ(unlink(ready.c_str()), 0);
  const tool::result own = run_command("kill -TSTP $PPID; touch " + ready + "; sleep 0.4; exit 5", wait + "|");
  EXPECT_EQ(own.status, 5) << "what the command sent is not sent back: " << own.err;
}
