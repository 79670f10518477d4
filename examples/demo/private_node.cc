#include "private_node.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

namespace fs = std::filesystem;

namespace demo {

static void require(bool done, const std::string &what) {
  if (!done) throw namespaces_refused(what + ": " + std::strerror(errno));
}

static void write_text(const char *path, const std::string &text) {
  const int fd = open(path, O_WRONLY | O_CLOEXEC);
  require(fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()), path);
  (void)close(fd);
}

static void unshare_mounts() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (uid == 0 && unshare(CLONE_NEWNS) == 0) return;
  // An ordinary user, or a root whose right to mount was taken away, may still be root of a user namespace.
  require(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "no mount namespace");
  write_text("/proc/self/setgroups", "deny");
  write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
  write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

static bool make_private(const char *mount_point) {
  return mount(nullptr, mount_point, nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// What is mounted from here on is seen by us only. Below a chroot "/" may be no mount point, and the one that it lies
// on has no name: a child of ours goes there, by "..", which only ends at a root that one is below of.
static void keep_mounts_private() {
  if (make_private("/")) return;
  require(errno == EINVAL, "private mounts");
  const pid_t child = fork();
  require(child >= 0, "private mounts");
  if (child == 0) {
    bool done = chdir("/") == 0 && chroot("/dev") == 0;
    for (int level = 0; done && level < 64; ++level) done = chdir("..") == 0;
    _exit(done && make_private(".") ? 0 : errno);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  errno = WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
  require(errno == 0, "private mounts");
}

// A file or directory that will be covered by a mount and shall be seen at its old place nevertheless.
class kept_path {
 public:
  explicit kept_path(std::string path) : path_(std::move(path)), fd_(open(path_.c_str(), O_PATH | O_CLOEXEC)) {
    require(fd_ >= 0, path_);
  }
  kept_path(kept_path &&other) noexcept : path_(std::move(other.path_)), fd_(std::exchange(other.fd_, -1)) {}
  kept_path(const kept_path &) = delete;
  kept_path &operator=(const kept_path &) = delete;
  ~kept_path() {
    if (fd_ >= 0) (void)close(fd_);
  }
  void show_again() const {
    const std::string kept = "/proc/self/fd/" + std::to_string(fd_);
    if (fs::is_directory(kept)) {
      fs::create_directories(path_);
    } else {
      fs::create_directories(fs::path(path_).parent_path());
      std::ofstream{path_};
    }
    require(mount(kept.c_str(), path_.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind " + path_);
  }

 private:
  std::string path_;
  int fd_;
};

static void cover(const std::string &directory, const std::string &options, const std::vector<std::string> &keep) {
  std::vector<kept_path> kept;
  for (const std::string &path : keep)
    if (fs::exists(path)) kept.emplace_back(path);
  require(mount("demo", directory.c_str(), "tmpfs", MS_NOSUID, options.c_str()) == 0, "mount on " + directory);
  for (const kept_path &path : kept) path.show_again();
}

static bool lies_below(const std::string &path, const std::string &directory) {
  return path.compare(0, directory.size() + 1, directory + "/") == 0;
}

std::string enter_private_node(const std::vector<std::string> &still_needed) {
  unshare_mounts();
  keep_mounts_private();

  fs::path covered = "/var/adm/vosk";
  while (!fs::exists(covered)) covered = covered.parent_path();
  if (covered == "/") throw namespaces_refused("there is no /var to mount a file system on");
  std::vector<std::string> below;
  for (const std::string &path : still_needed)
    if (lies_below(path, covered)) below.push_back(path);
  cover(covered, "mode=0755,size=64m", below);
  const char *const directories[] = {"/var/adm/vosk/stacks", "/var/adm/vosk/dumps"};
  for (const char *directory : directories) {
    fs::create_directories(directory);
    require(chmod(directory, 01777) == 0, directory);
  }

  // A socket can only be put at /dev/log where /dev is ours too; what programs use there stays.
  cover("/dev", "mode=0755,size=64k",
        {"/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty", "/dev/pts", "/dev/shm"});
  return covered;
}

void mount_small_file_system(const std::string &directory, const char *size) {
  fs::create_directories(directory);
  const std::string options = std::string("mode=1777,size=") + size;
  require(mount("spool", directory.c_str(), "tmpfs", MS_NOSUID, options.c_str()) == 0, "mount on " + directory);
}

log_socket::log_socket() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
    throw std::runtime_error(std::string("/dev/log: ") + std::strerror(errno));
}

log_socket::~log_socket() {
  (void)close(fd_);
}

std::vector<std::string> log_socket::messages() const {
  std::vector<std::string> all;
  char buffer[4096];
  ssize_t length = 0;
  while ((length = recv(fd_, buffer, sizeof buffer, 0)) > 0) all.emplace_back(buffer, static_cast<std::size_t>(length));
  return all;
}

}  // namespace demo
