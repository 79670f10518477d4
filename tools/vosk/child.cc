#include "child.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace vosk {

namespace {

std::int64_t steady_microseconds() {
  timespec now{};
  (void)clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec * std::int64_t{1000000} + now.tv_nsec / 1000;
}

[[noreturn]] void become(const std::vector<std::string> &command, const signal_desk &signals, int error_fd,
                         int report) {
  std::vector<char *> argv;
  argv.reserve(command.size() + 1);
  for (const std::string &argument : command) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  if (error_fd < 0 || dup2(error_fd, STDERR_FILENO) >= 0) {
    signals.give_back();
    (void)execvp(argv[0], argv.data());
  }
  const int error = errno;
  (void)!write(report, &error, sizeof error);
  _exit(kExitNoCommand);
}

}  // namespace

bool child_end::succeeded() const {
  return start_error == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

int child_end::exit_status() const {
  if (start_error != 0) return start_error == ENOENT || start_error == ENOTDIR ? kExitNoCommand : kExitNotExecutable;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void child::start(const std::vector<std::string> &command, int error_fd) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  start_error_ = unique_fd(report[0]);
  const unique_fd write_end(report[1]);
  started_ = now();
  started_us_ = steady_microseconds();
  pid_ = fork();
  if (pid_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (pid_ == 0) become(command, signals_, error_fd, write_end.get());
  signal_desk::catch_up(pid_);
}

child_end child::wait() {
  child_end end;
  for (;;) {
    const siginfo_t signal = signals_.next();
    if (signal.si_signo == SIGCHLD) {
      if (reap(end)) return end;
    } else if (is_passed_on(signal, pid_)) {
      (void)kill(pid_, signal.si_signo);
    }
  }
}

// True when the command has ended.
bool child::reap(child_end &end) {
  for (;;) {
    const pid_t pid = wait4(pid_, &end.status, WUNTRACED | WNOHANG, &end.use);
    if (pid < 0 && errno == EINTR) continue;
    if (pid <= 0) return false;
    if (!WIFSTOPPED(end.status)) break;
    signals_.stop_as(WSTOPSIG(end.status));
  }
  end.started = started_;
  end.ended = now();
  end.microseconds = steady_microseconds() - started_us_;
  // Written before the command's process ended, or never.
  if (read(start_error_.get(), &end.start_error, sizeof end.start_error) != sizeof end.start_error) end.start_error = 0;
  return true;
}

int end_as(const child_end &end) {
  if (end.start_error == 0 && WIFSIGNALED(end.status)) die_of(WTERMSIG(end.status));
  return end.exit_status();
}

}  // namespace vosk
