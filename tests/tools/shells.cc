#include "tools/shells.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "support/files.h"

namespace shells {

namespace {

std::string path_of(const std::string &shell) {
  for (const char *directory : {"/bin/", "/usr/bin/", "/usr/local/bin/"})
    if (access((directory + shell).c_str(), X_OK) == 0) return directory + shell;
  return "";
}

[[noreturn]] void become(const std::string &program, const std::string &directory,
                         const std::map<std::string, std::string> &given) {
  const auto redirect = [](int fd, const std::string &file, int flags) {
    const int opened = open(file.c_str(), flags, 0644);
    if (opened < 0 || dup2(opened, fd) < 0) _exit(126);
  };
  redirect(0, "/dev/null", O_RDONLY);
  redirect(1, directory + "/stdout", O_WRONLY | O_CREAT | O_TRUNC);
  redirect(2, directory + "/stderr", O_WRONLY | O_CREAT | O_TRUNC);
  std::map<std::string, std::string> variables{
      {"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}, {"PATH", QX_BINARY_DIR "/bin:/usr/bin:/bin"}, {"D", directory}};
  if (const char *const options = std::getenv("ASAN_OPTIONS")) variables["ASAN_OPTIONS"] = options;
  for (const auto &[name, value] : given) variables[name] = value;
  std::vector<std::string> assignments;
  for (const auto &[name, value] : variables) assignments.push_back(name + "=" + value);
  std::vector<char *> environment;
  for (std::string &assignment : assignments) environment.push_back(assignment.data());
  environment.push_back(nullptr);
  std::string name = program, script = directory + "/script.sh";
  char *arguments[] = {name.data(), script.data(), nullptr};
  (void)alarm(60);
  (void)signal(SIGPIPE, SIG_DFL);
  execve(program.c_str(), arguments, environment.data());
  _exit(127);
}

}  // namespace

const std::vector<std::string> kAll = {"dash", "bash", "zsh"};

std::string missing() {
  std::string names;
  for (const std::string &shell : kAll)
    if (path_of(shell).empty()) names += shell + " is missing; ";
  return names;
}

result run(const std::string &shell, const std::string &script, const std::map<std::string, std::string> &variables) {
  const files::TemporaryDirectory directory;
  EXPECT_TRUE(files::write(directory / "script.sh", script));
  result r;
  const pid_t child = fork();
  if (child == 0) become(path_of(shell), directory.path(), variables);
  int status = 0;
  (void)waitpid(child, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  r.out = files::read(directory / "stdout").value_or("");
  r.err = files::read(directory / "stderr").value_or("");
  return r;
}

}  // namespace shells
