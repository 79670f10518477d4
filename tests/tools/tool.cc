#include "tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>

#include "support/files.h"

namespace tool {

namespace {

[[noreturn]] void become(const std::vector<std::string> &arguments, const options &how, const int (&in)[2],
                         const int (&out)[2], const int (&err)[2]) {
  const int target = how.out_file.empty() ? out[1] : open(how.out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (dup2(in[0], 0) < 0 || dup2(target, 1) < 0 || dup2(err[1], 2) < 0) _exit(126);
  std::map<std::string, std::string> variables{{"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}, {"PATH", "/usr/bin:/bin"}};
  for (const auto &[name, value] : how.environment) variables[name] = value;
  std::vector<std::string> environment;
  for (const auto &[name, value] : variables) environment.push_back(name + "=" + value);
  std::vector<char *> argv, envp;
  for (const std::string &a : arguments) argv.push_back(const_cast<char *>(a.c_str()));
  for (const std::string &e : environment) envp.push_back(const_cast<char *>(e.c_str()));
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  if (how.powerless && geteuid() == 0 &&
      (prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) != 0 || prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) != 0))
    _exit(126);
  const std::string program = std::string(QX_BINARY_DIR "/bin/") + arguments.at(0);
  execve(program.c_str(), argv.data(), envp.data());
  _exit(127);
}

// Feeds the input and collects both outputs until they end. False when the time is over.
bool exchange(const options &how, int in, int out, int err, result &r) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(how.timeout);
  std::size_t written = 0;
  (void)fcntl(in, F_SETFL, O_NONBLOCK);
  if (how.input.empty()) {
    (void)close(in);
    in = -1;
  }
  while (out >= 0 || err >= 0) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    if (left <= 0) return false;
    pollfd fds[] = {{in, POLLOUT, 0}, {out, POLLIN, 0}, {err, POLLIN, 0}};
    if (poll(fds, 3, static_cast<int>(left)) <= 0) continue;
    if (in >= 0 && fds[0].revents != 0) {
      const ssize_t n = write(in, how.input.data() + written, how.input.size() - written);
      if (n > 0) written += static_cast<std::size_t>(n);
      if ((n < 0 && errno != EAGAIN) || written == how.input.size()) {
        (void)close(in);
        in = -1;
      }
    }
    const auto take = [](int &fd, const pollfd &seen, std::string &text) {
      if (fd < 0 || seen.revents == 0) return;
      char buffer[65536];
      const ssize_t n = read(fd, buffer, sizeof buffer);
      if (n > 0) {
        text.append(buffer, static_cast<std::size_t>(n));
      } else {
        (void)close(fd);
        fd = -1;
      }
    };
    take(out, fds[1], r.out);
    take(err, fds[2], r.err);
  }
  if (in >= 0) (void)close(in);
  return true;
}

}  // namespace

options options::with(std::map<std::string, std::string> environment) {
  options how;
  how.environment = std::move(environment);
  return how;
}

options options::to(std::string out_file) {
  options how;
  how.out_file = std::move(out_file);
  return how;
}

options options::without_power() {
  options how;
  how.powerless = true;
  return how;
}

result run(const std::vector<std::string> &arguments, const options &how) {
  (void)std::signal(SIGPIPE, SIG_IGN);
  result r;
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return r;
  const pid_t child = fork();
  if (child == 0) become(arguments, how, in, out, err);
  (void)close(in[0]);
  (void)close(out[1]);
  (void)close(err[1]);
  if (!exchange(how, in[1], out[0], err[0], r)) (void)kill(child, SIGKILL);
  int status = 0;
  (void)waitpid(child, &status, 0);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  return r;
}

double milliseconds_of(const std::vector<std::string> &arguments, const std::function<void(const result &)> &check) {
  const auto of_children = [] {
    rusage usage{};
    EXPECT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    const auto milliseconds = [](const timeval &t) {
      return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
    };
    return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
  };
  double best = 1e9;
  for (int i = 0; i < 7; ++i) {
    const double before = of_children();
    check(run(arguments));
    best = std::min(best, of_children() - before);
  }
  return best;
}

void write_stack(const std::string &path, const builder::bytes &bytes) {
  EXPECT_TRUE(files::write(path, {reinterpret_cast<const char *>(bytes.data()), bytes.size()}));
}

std::uint64_t inode_of(const std::string &path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  return st.st_ino;
}

}  // namespace tool
