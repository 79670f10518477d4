#include "mutants/program.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace mutants {
namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void become(const Program &program, const std::string &log) {
  setpgid(0, 0);
  const int null = open("/dev/null", O_RDONLY);
  const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  dup2(null, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(out, STDERR_FILENO);
  closefrom(STDERR_FILENO + 1);
  for (const std::string &variable : program.environment) {
    const std::size_t equals = variable.find('=');
    setenv(variable.substr(0, equals).c_str(), variable.substr(equals + 1).c_str(), 1);
  }
  if (!program.directory.empty() && chdir(program.directory.c_str()) != 0) _exit(126);
  std::vector<char *> arguments;
  for (const std::string &argument : program.command) arguments.push_back(const_cast<char *>(argument.c_str()));
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  _exit(127);
}

// What the program started and did not wait for.
void end_children() {
  const std::string own = std::to_string(getpid());
  for (int round = 0; round < 1000; ++round) {
    std::ifstream children("/proc/self/task/" + own + "/children");
    pid_t child;
    bool any = false;
    while (children >> child) {
      any = true;
      kill(child, SIGKILL);
    }
    if (!any) return;
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void check(int result, const char *what) {
  if (result != 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

Outcome run(const Program &program, double seconds, const std::string &log) {
  const Clock::time_point start = Clock::now();
  const pid_t child = fork();
  if (child == 0) become(program, log);
  int status = 0;
  bool timed_out = false;
  for (useconds_t pause = 200; waitpid(child, &status, WNOHANG) == 0; pause = pause < 20000 ? pause * 2 : pause) {
    if (!timed_out && since(start) > seconds) {
      timed_out = true;
      kill(-child, SIGKILL);
    }
    usleep(pause);
  }
  const double took = since(start);
  kill(-child, SIGKILL);
  end_children();
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), timed_out, took};
}

void enter_with_libraries(const std::string &library_directory, const std::string &place) {
  check(prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), "adopting children");
  if (geteuid() == 0) {
    check(unshare(CLONE_NEWNS), "a mount namespace");
  } else {
    const std::string user = std::to_string(geteuid()) + " " + std::to_string(geteuid()) + " 1";
    check(unshare(CLONE_NEWUSER | CLONE_NEWNS), "user and mount namespaces");
    std::ofstream("/proc/self/uid_map") << user;
  }
  check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
  check(mount(library_directory.c_str(), place.c_str(), nullptr, MS_BIND, nullptr), "mounting the libraries");
}

}  // namespace mutants
