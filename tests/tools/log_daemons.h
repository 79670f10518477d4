// Real System Logs of a test's own, for programs that run in a sandbox: /var/log is empty and private, /dev/log is the
// daemon's.
//
//   const std::string problem = log_daemons::prepare();
//   if (!problem.empty()) CANNOT_RUN_HERE(problem);
//   log_daemons::Rsyslogd daemon;          // writes /var/log/syslog as Debian's does
//   if (!daemon.listens()) CANNOT_RUN_HERE("...");
#ifndef TESTS_TOOLS_LOG_DAEMONS_H
#define TESTS_TOOLS_LOG_DAEMONS_H

#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "support/sandbox.h"
#include "syslog/private_log.h"

extern char **environ;

namespace log_daemons {

// Once for the program: a private /dev, and empty directories at /var/log and /run. Returns what went wrong.
inline std::string prepare() {
  std::string problem = private_log::cover_dev();
  if (problem.empty() && mount("tmpfs", "/var/log", "tmpfs", 0, "mode=0755") != 0) problem = "mount /var/log";
  if (problem.empty() && mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") != 0) problem = "mount /run";
  return problem;
}

template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

class Daemon {
 public:
  ~Daemon() { stop(); }
  Daemon(const Daemon &) = delete;
  Daemon &operator=(const Daemon &) = delete;

  void stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 protected:
  explicit Daemon(const std::vector<std::string> &command) {
    std::vector<char *> arguments;
    for (const std::string &argument : command) arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    if (posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  pid_t pid_ = -1;
};

// Writes everything to /var/log/syslog in the traditional form.
class Rsyslogd : public Daemon {
 public:
  Rsyslogd() : Daemon({"/usr/sbin/rsyslogd", "-n", "-f", configuration(), "-i", directory() / "pid"}) {}
  bool listens() const {
    return pid_ > 0 && eventually([] { return files::exists("/dev/log"); });
  }
  static bool has(const std::string &text) {
    return eventually([&] { return files::read("/var/log/syslog").value_or("").find(text) != std::string::npos; });
  }

 private:
  static const files::TemporaryDirectory &directory() {
    static const files::TemporaryDirectory made;
    return made;
  }
  static std::string configuration() {
    (void)unlink("/dev/log");
    files::write(
        directory() / "conf",
        "module(load=\"imuxsock\" SysSock.Name=\"/dev/log\" SysSock.RateLimit.Interval=\"0\")\n"
        "global(workDirectory=\"" +
            directory().path() +
            "\" maxMessageSize=\"8k\")\n"
            "*.* action(type=\"omfile\" file=\"/var/log/syslog\" template=\"RSYSLOG_TraditionalFileFormat\")\n");
    return directory() / "conf";
  }
};

// Keeps the journal under /run, or, where /var/log/journal is there, under that.
class Journald : public Daemon {
 public:
  Journald() : Daemon({program()}) {}
  bool listens() const {
    return pid_ > 0 && eventually([] { return access("/run/systemd/journal/dev-log", W_OK) == 0; });
  }
  static bool has(const std::string &text) {
    return eventually([&] {
      return std::system(("/usr/bin/journalctl -q -o cat 2>/dev/null | grep -qF '" + text + "'").c_str()) == 0;
    });
  }

 private:
  static std::string program() {
    for (const char *directory :
         {"/run/systemd", "/run/systemd/journal", "/run/systemd/journald.conf.d", "/run/log", "/run/log/journal"})
      (void)mkdir(directory, 0755);
    // The kernel's messages and its auditing are the machine's and stay as they are.
    files::write("/run/systemd/journald.conf.d/test.conf", "[Journal]\nReadKMsg=no\nAudit=\n");
    (void)unlink("/dev/log");
    (void)!symlink("/run/systemd/journal/dev-log", "/dev/log");
    return "/usr/lib/systemd/systemd-journald";
  }
};

}  // namespace log_daemons

#endif
