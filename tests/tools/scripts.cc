#include "scripts.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace scripts {

namespace {

[[noreturn]] void become(const std::string &directory, const std::string &shell, const std::string &text) {
  const auto open_as = [&](const char *name, int fd) {
    const int file = open((directory + "/" + name).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    if (dup2(file, fd) < 0) _exit(126);
  };
  open_as("out", 1);
  open_as("err", 2);
  if (chdir(directory.c_str()) != 0) _exit(126);
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
  setenv("PATH", QX_BINARY_DIR "/bin:/usr/bin:/bin", 1);
  setenv("TZ", "UTC", 1);
  setenv("LC_ALL", "C.UTF-8", 1);
  (void)std::signal(SIGPIPE, SIG_DFL);
  execlp(shell.c_str(), shell.c_str(), "-c", text.c_str(), static_cast<char *>(nullptr));
  _exit(127);
}

}  // namespace

tool::result script::run(const std::string &text, const std::string &shell) {
  const pid_t child = fork();
  if (child == 0) become(directory_.path(), shell, text);
  tool::result r;
  int status = 0;
  (void)waitpid(child, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  r.out = files::read(directory_ / "out").value_or("");
  r.err = files::read(directory_ / "err").value_or("");
  return r;
}

std::string script::file(const std::string &name, int lines) const {
  std::string text;
  for (int i = 0; i < 500; ++i) {
    text = files::read(directory_ / name).value_or("");
    if (std::count(text.begin(), text.end(), '\n') >= lines) break;
    usleep(20000);
  }
  return text;
}

std::vector<tool::json> records() {
  std::vector<tool::json> found;
  for (tool::json &line : tool::json_lines(tool::run({"vosk", "report", "--json"}).out))
    if (line["type"] == "record") found.push_back(std::move(line));
  return found;
}

}  // namespace scripts
