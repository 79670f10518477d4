// What real processes are taken for: shells, their scripts, and who is above whom.
#include "vosk/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "support/files.h"

namespace {

// A program that runs with these arguments until the end of the body.
class program {
 public:
  // The kernel shows other arguments than those given where it starts an interpreter.
  program(const std::string &path, const std::vector<std::string> &arguments,
          const std::vector<std::string> &shown = {}) {
    int input[2];
    EXPECT_EQ(pipe2(input, O_CLOEXEC), 0);
    input_ = input[1];
    id_ = fork();
    if (id_ == 0) {
      std::vector<char *> argv;
      for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
      argv.push_back(nullptr);
      (void)dup2(input[0], 0);
      (void)execv(path.c_str(), argv.data());
      _exit(127);
    }
    (void)close(input[0]);
    for (int i = 0; i < 200 && vosk::command_line(id_) != (shown.empty() ? arguments : shown); ++i) usleep(5000);
  }
  program(const program &) = delete;
  program &operator=(const program &) = delete;
  ~program() {
    (void)kill(id_, SIGKILL);
    (void)waitpid(id_, nullptr, 0);
    (void)close(input_);
  }
  pid_t id() const { return id_; }

 private:
  int input_ = -1;
  pid_t id_ = -1;
};

}  // namespace

TEST(Process, OfAShellTellsItsScript) {
  const files::TemporaryDirectory dir;
  const std::string script = dir / "job.sh", other = dir / "other";
  ASSERT_TRUE(files::write(script, "read line\n") && files::write(other, ""));
  struct {
    std::vector<std::string> arguments;
    std::optional<std::string> name;
  } const rows[] = {
      {{"bash", script}, "job.sh"},
      {{"bash", "--", script}, "job.sh"},
      {{"bash", "-", script}, "job.sh"},
      {{"bash", "-e", script}, "job.sh"},
      {{"bash", "-o", "errexit", script}, "job.sh"},
      {{"bash", "+O", "extglob", script}, "job.sh"},
      {{"bash", "+e", script}, "job.sh"},
      {{"bash", "--posix", script}, "job.sh"},
      {{"bash", "--rcfile", other, script}, "job.sh"},
      {{"bash", "--init-file", other, script}, "job.sh"},
      {{"bash", script, "argument"}, "job.sh"},
      {{"bash"}, {}},
      {{"bash", "--"}, {}},
      {{"bash", "-"}, {}},
      {{"bash", "-s"}, {}},
      {{"bash", "-e"}, {}},
      {{"bash", "-c", "read line", script}, {}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const program shell("/bin/bash", row.arguments);
    EXPECT_TRUE(vosk::is_shell(shell.id()));
    EXPECT_EQ(vosk::script_name(shell.id()), row.name);
  }
}

TEST(Process, OfAShellOfAnyNameTellsItsScript) {
  const files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "job.sh", "read line\n"));
  if (access("/bin/zsh", X_OK) != 0) CANNOT_RUN_HERE("zsh is missing");
  const program zsh("/bin/zsh", {"zsh", "--emulate", "sh", dir / "job.sh"});
  EXPECT_EQ(vosk::script_name(zsh.id()), "job.sh");
  // What is taken for shells: it complains of its first argument, and then waits.
  for (const char *name : {"sh", "busybox"}) ASSERT_EQ(std::system(("cp /bin/cat " + dir / name).c_str()), 0);
  const struct {
    const char *executable;
    std::vector<std::string> arguments;
    std::optional<std::string> name;
  } rows[] = {{"sh", {"sh", "/", "-"}, {}},
              {"sh", {"sh", "x", "-"}, "x"},
              {"sh", {"sh", "/nowhere/job/", "-"}, "job"},
              {"busybox", {"-ash", "/nowhere/job", "-"}, "job"},
              {"busybox", {"cat", "/nowhere/job", "-"}, {}},
              {"busybox", {"", "/nowhere/job", "-"}, {}}};
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const program shell(dir / row.executable, row.arguments);
    EXPECT_EQ(vosk::script_name(shell.id()), row.name);
  }
}

TEST(Process, OfAnotherProgramTellsTheScriptThatItIsNamedAfter) {
  const files::TemporaryDirectory dir;
  const std::string script = dir / "job";
  ASSERT_TRUE(files::write(script, "#!/bin/cat\n"));
  ASSERT_EQ(chmod(script.c_str(), 0755), 0);
  const program interpreter(script, {"job", "-"}, {"/bin/cat", script, "-"});
  EXPECT_EQ(vosk::script_name(interpreter.id()), "job");
  const program plain("/bin/cat", {"cat"}), fed("/bin/cat", {"cat", "-", "-"});
  for (const pid_t id : {plain.id(), fed.id()}) {
    EXPECT_FALSE(vosk::is_shell(id));
    EXPECT_EQ(vosk::script_name(id), std::nullopt);
    EXPECT_EQ(vosk::command_name(id), "cat");
  }
}

TEST(Process, ThatIsGoneIsNobodysAncestor) {
  pid_t gone = 0;
  {
    const program over("/bin/cat", {"cat"});
    gone = over.id();
    EXPECT_TRUE(vosk::is_ancestor(getpid(), gone));
    EXPECT_TRUE(vosk::is_ancestor(gone, gone));
    EXPECT_FALSE(vosk::is_ancestor(gone, getpid()));
  }
  EXPECT_FALSE(vosk::find_process(gone));
  EXPECT_FALSE(vosk::is_ancestor(getpid(), gone));
  EXPECT_FALSE(vosk::is_shell(gone));
  EXPECT_EQ(vosk::script_name(gone), std::nullopt);
  EXPECT_EQ(vosk::command_name(gone), "_");
}

TEST(Process, IsACopyOnlyWhileItRunsTheSameProgram) {
  const program one("/bin/cat", {"cat"}), two("/bin/cat", {"cat"});
  const auto first = vosk::find_process(one.id()), second = vosk::find_process(two.id());
  ASSERT_TRUE(first && second);
  EXPECT_TRUE(vosk::is_copy_of(*first, *first));
  vosk::process other = *first;
  for (unsigned long long vosk::process::image::*part :
       {&vosk::process::image::code, &vosk::process::image::stack, &vosk::process::image::data,
        &vosk::process::image::arguments, &vosk::process::image::environment}) {
    other = *first;
    other.image.*part += 1;
    EXPECT_FALSE(vosk::is_copy_of(*first, other));
  }
  other = *first;
  other.id = getpid();
  EXPECT_FALSE(vosk::is_copy_of(*first, other)) << "another program at the same place";
  const program third("/bin/cat", {"cat", "-"});
  other.id = third.id();
  EXPECT_FALSE(vosk::is_copy_of(*first, other)) << "other arguments";
  vosk::process hidden = *first;
  hidden.image.stack = 0;
  EXPECT_FALSE(vosk::is_copy_of(hidden, hidden)) << "what cannot be told";
}

TEST(ProcessName, HasNoSlashesAndNoControlCharacters) {
  EXPECT_EQ(vosk::as_process_name(""), "_");
  EXPECT_EQ(vosk::as_process_name("a/b\n\x7f\xC2\x85\xC2\xA0ü"), "a_b___\xC2\xA0ü");
  EXPECT_TRUE(vosk::has_control_characters("a\x7f"));
  EXPECT_FALSE(vosk::has_control_characters("aü"));
}
