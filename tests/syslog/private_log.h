// A System Log of the test's own: a private /dev, for programs that run in a sandbox, and a listener at /dev/log.
#ifndef TESTS_SYSLOG_PRIVATE_LOG_H
#define TESTS_SYSLOG_PRIVATE_LOG_H

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "support/files.h"

namespace private_log {

// Lays a file system over /dev that shows what programs need there, once for the program. Only in a mount namespace of
// its own. Returns what went wrong, empty on success.
inline std::string cover_dev() {
  static bool done = false;
  if (done) return "";
  char directory[] = "/tmp/qx-dev-XXXXXX";
  const auto failed = [](const std::string &what) { return what + ": " + std::strerror(errno); };
  if (mkdtemp(directory) == nullptr) return failed("mkdtemp");
  const std::string dev = directory;
  if (mount("tmpfs", directory, "tmpfs", 0, "mode=0755") != 0) return failed("mount tmpfs");
  for (const char *name : {"null", "zero", "full", "random", "urandom", "tty"}) {
    const std::string from = std::string("/dev/") + name, to = dev + "/" + name;
    if (!files::exists(from)) continue;
    if (!files::write(to, "") || mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr) != 0)
      return failed("show " + from);
  }
  for (const char *name : {"fd", "stdin", "stdout", "stderr"}) {
    const std::string target = std::string("/proc/self/fd") + (std::strcmp(name, "fd") == 0       ? ""
                                                               : std::strcmp(name, "stdin") == 0  ? "/0"
                                                               : std::strcmp(name, "stdout") == 0 ? "/1"
                                                                                                  : "/2");
    if (symlink(target.c_str(), (dev + "/" + name).c_str()) != 0) return failed("symlink");
  }
  if (mount(directory, "/dev", nullptr, MS_BIND | MS_REC, nullptr) != 0) return failed("mount /dev");
  umount2(directory, MNT_DETACH);
  rmdir(directory);
  done = true;
  return "";
}

// Receives what programs send to /dev/log.
class Listener {
 public:
  Listener() {
    unlink("/dev/log");
    fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0) << std::strerror(errno);
  }
  ~Listener() {
    close(fd_);
    unlink("/dev/log");
  }
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;

  // The next datagram, none when there is none within the time.
  std::optional<std::string> next(int milliseconds = 0) {
    pollfd wait = {fd_, POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0) return std::nullopt;
    char buffer[65536];
    const ssize_t length = recv(fd_, buffer, sizeof buffer, MSG_DONTWAIT);
    if (length < 0) return std::nullopt;
    return std::string(buffer, static_cast<std::size_t>(length));
  }

 private:
  int fd_ = -1;
};

}  // namespace private_log

#endif
