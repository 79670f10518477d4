#include "support/sandbox.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>

extern char **environ;

namespace sandbox {

namespace {

constexpr int kRefusedStatus = 76;
constexpr int kSkippedStatus = 77;
constexpr int kFailedStatus = 75;

std::string with_errno(const std::string &what) {
  return what + ": " + std::strerror(errno);
}

bool is_mount_point(const std::string &path) {
  struct stat here, above;
  return stat(path.c_str(), &here) == 0 && stat((path + "/..").c_str(), &above) == 0 && here.st_dev != above.st_dev;
}

// Lays an empty, writable file system over a directory and shows the old entries in it again, so that nothing outside
// of /var/adm/vosk disappears.
std::string cover(const std::string &directory) {
  int old = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (old < 0) return with_errno("open " + directory);
  std::vector<std::string> names = files::list(directory);
  if (mount("tmpfs", directory.c_str(), "tmpfs", 0, "mode=0755") != 0) {
    std::string problem = with_errno("mount tmpfs on " + directory);
    close(old);
    return problem;
  }
  for (const std::string &name : names) {
    std::string source = "/proc/self/fd/" + std::to_string(old) + "/" + name;
    std::string target = directory + "/" + name;
    struct stat status;
    if (fstatat(old, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
    std::error_code error;
    if (S_ISLNK(status.st_mode)) {
      std::filesystem::create_symlink(std::filesystem::read_symlink(source, error), target, error);
    } else if (S_ISDIR(status.st_mode)) {
      mkdir(target.c_str(), 0755);
      mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr);
    } else if (S_ISREG(status.st_mode)) {
      files::write(target, "");
      mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr);
    }
  }
  close(old);
  return "";
}

// Makes sure that /var/adm/vosk is there, by covering the nearest ancestor that exists.
std::string make_root() {
  if (std::filesystem::is_directory(kRoot)) return "";
  std::filesystem::path ancestor = std::filesystem::path(kRoot).parent_path();
  while (ancestor != "/" && !std::filesystem::is_directory(ancestor)) ancestor = ancestor.parent_path();
  if (ancestor == "/") return "there is no /var to mount on";
  std::string problem = cover(ancestor.string());
  if (!problem.empty()) return problem;
  std::error_code error;
  std::filesystem::create_directories(kRoot, error);
  return error ? "cannot make " + std::string(kRoot) + ": " + error.message() : "";
}

bool write_line(const char *path, const std::string &line) {
  return files::write(path, line);
}

// A user namespace where root is this user; only where we are not root already.
std::string become_root() {
  uid_t user = geteuid();
  gid_t group = getegid();
  if (unshare(CLONE_NEWUSER) != 0) return with_errno("unshare user namespace");
  write_line("/proc/self/setgroups", "deny");
  if (!write_line("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") ||
      !write_line("/proc/self/gid_map", "0 " + std::to_string(group) + " 1")) {
    return with_errno("map the user into its namespace");
  }
  return "";
}

bool make_private(const char *mount_point) {
  return mount(nullptr, mount_point, nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

// Below a chroot "/" may be no mount point, and the one that it lies on has no name: a child goes there, by "..", which
// only ends at a root that one is below of.
bool keep_mounts_private() {
  if (make_private("/")) return true;
  if (errno != EINVAL) return false;
  const pid_t child = fork();
  if (child < 0) return false;
  if (child == 0) {
    bool done = chdir("/") == 0 && chroot("/dev") == 0;
    for (int level = 0; done && level < 64; ++level) done = chdir("..") == 0;
    _exit(done && make_private(".") ? 0 : errno);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  errno = WIFEXITED(status) ? WEXITSTATUS(status) : EINTR;
  return errno == 0;
}

std::string private_mounts() {
  if (unshare(CLONE_NEWNS) != 0) return with_errno("unshare mount namespace");
  if (!keep_mounts_private()) return with_errno("make mounts private");
  return make_root();
}

// Runs a program with an optional text on its standard input; what it prints comes back. -1 where it did not start.
int run_program(const std::vector<std::string> &arguments, const std::string &input, std::string &output) {
  std::FILE *in = std::tmpfile();
  std::FILE *out = std::tmpfile();
  if (in == nullptr || out == nullptr) return -1;
  std::fwrite(input.data(), 1, input.size(), in);
  std::fflush(in);
  std::rewind(in);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in), 0);
  posix_spawn_file_actions_adddup2(&actions, fileno(out), 1);
  posix_spawn_file_actions_adddup2(&actions, fileno(out), 2);
  std::vector<char *> argv;
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = -1;
  int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = -1;
  if (error == 0) {
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) continue;
    std::rewind(out);
    char buffer[4096];
    std::size_t count = 0;
    while ((count = std::fread(buffer, 1, sizeof buffer, out)) > 0) output.append(buffer, count);
  } else {
    output = arguments[0] + ": " + std::strerror(error);
  }
  std::fclose(in);
  std::fclose(out);
  return status;
}

std::string private_network(const std::vector<std::string> &commands) {
  if (unshare(CLONE_NEWNET) != 0) return with_errno("unshare network namespace");
  if (commands.empty()) return "";
  std::string batch;
  for (const std::string &command : commands) batch += command + "\n";
  std::string output;
  std::string program = "ip";
  for (const char *place : {"/sbin/ip", "/usr/sbin/ip", "/bin/ip"}) {
    if (access(place, X_OK) == 0) {
      program = place;
      break;
    }
  }
  if (run_program({program, "-batch", "-"}, batch, output) != 0) return "ip (of package iproute2): " + output;
  return "";
}

std::string set_up(const Options &options) {
  if (geteuid() != 0) {
    if (options.user != 0) return "another user needs real root";
    std::string problem = become_root();
    if (!problem.empty()) return problem;
  }
  std::string problem = private_mounts();
  if (problem.empty()) problem = fresh(options);
  if (problem.empty() && options.network) problem = private_network(options.ip);
  if (problem.empty() && options.user != 0 && !drop_to(options.user)) problem = with_errno("change the user");
  return problem;
}

int parts_of_type(testing::TestPartResult::Type type, bool failures) {
  const testing::TestInfo *info = testing::UnitTest::GetInstance()->current_test_info();
  int found = 0;
  for (int i = 0; info != nullptr && i < info->result()->total_part_count(); ++i) {
    const testing::TestPartResult &part = info->result()->GetTestPartResult(i);
    if (failures ? part.failed() : part.type() == type) ++found;
  }
  return found;
}

int failure_count() {
  return parts_of_type(testing::TestPartResult::kNonFatalFailure, true);
}
int skip_count() {
  return parts_of_type(testing::TestPartResult::kSkip, false);
}

[[noreturn]] void child(int output, const Options *options, const std::function<void()> &body) {
  setpgid(0, 0);
  dup2(output, 1);
  dup2(output, 2);
  close(output);
  int status = 0;
  int failures_before = failure_count();
  int skips_before = skip_count();
  std::string problem = options == nullptr ? "" : set_up(*options);
  if (!problem.empty()) {
    std::printf("%s\n", problem.c_str());
    status = kRefusedStatus;
  } else {
    body();
    if (failure_count() > failures_before) {
      status = kFailedStatus;
    } else if (skip_count() > skips_before) {
      status = kSkippedStatus;
    }
  }
  std::fflush(nullptr);
  std::exit(status);  // not _exit: leak checks and coverage counters of the body are wanted
}

Outcome in_child(const Options *options, const std::function<void()> &body, int timeout) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {Outcome::kFailed, with_errno("pipe")};
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return {Outcome::kFailed, with_errno("fork")};
  if (pid == 0) {
    close(ends[0]);
    child(ends[1], options, body);
  }
  close(ends[1]);
  Outcome outcome;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
  bool late = false;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    struct pollfd wait = {ends[0], POLLIN, 0};
    int ready = left.count() <= 0 ? 0 : poll(&wait, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) {
      late = true;
      break;
    }
    char buffer[4096];
    ssize_t count = read(ends[0], buffer, sizeof buffer);
    if (count <= 0) break;
    outcome.text.append(buffer, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  if (late) kill(-pid, SIGKILL);
  int status = 0;
  while (waitpid(pid, &status, 0) == -1 && errno == EINTR) continue;
  if (late) {
    outcome.kind = Outcome::kFailed;
    outcome.text += "\nthe child did not end within " + std::to_string(timeout) + " seconds";
  } else if (WIFSIGNALED(status)) {
    outcome.kind = Outcome::kFailed;
    outcome.text += std::string("\nthe child was ended by signal ") + strsignal(WTERMSIG(status));
  } else if (WEXITSTATUS(status) == kRefusedStatus) {
    outcome.kind = Outcome::kRefused;
  } else if (WEXITSTATUS(status) == kSkippedStatus) {
    outcome.kind = Outcome::kSkipped;
  } else if (WEXITSTATUS(status) != 0) {
    outcome.kind = Outcome::kFailed;
    outcome.text += "\nthe child ended with status " + std::to_string(WEXITSTATUS(status));
  }
  return outcome;
}

constexpr const char *kInsideVariable = "QX_TEST_INSIDE_USER_NAMESPACE";
constexpr const char *kFilling = "/var/adm/vosk/filling";

}  // namespace

Outcome run(const Options &options, const std::function<void()> &body) {
  return in_child(&options, body, options.timeout);
}

Outcome run_child(const std::function<void()> &body, int timeout) {
  return in_child(nullptr, body, timeout);
}

std::string enter(const Options &options, char **argv) {
  if (geteuid() != 0 && std::getenv(kInsideVariable) == nullptr) {
    // A sanitizer's own thread would make unshare refuse, so the program starts anew as root of a user namespace.
    std::string output;
    std::vector<std::string> command = {"unshare", "--user", "--map-root-user", "--"};
    std::vector<std::string> probe = command;
    probe.push_back("true");
    if (run_program(probe, "", output) != 0) return "unshare user namespace: " + output;
    std::vector<char *> arguments;
    for (std::string &word : command) arguments.push_back(word.data());
    for (char **argument = argv; *argument != nullptr; ++argument) arguments.push_back(*argument);
    std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    arguments[command.size()] = self.data();
    arguments.push_back(nullptr);
    setenv(kInsideVariable, "1", 1);
    execvp(arguments[0], arguments.data());
    return with_errno("start unshare");
  }
  unsetenv(kInsideVariable);
  return set_up(options);
}

std::string fresh(const Options &options) {
  if (is_mount_point(kRoot) && umount2(kRoot, MNT_DETACH) != 0) return with_errno("unmount " + std::string(kRoot));
  std::string data = "mode=0777,size=" + options.size + ",nr_inodes=" + options.inodes;
  if (mount("tmpfs", kRoot, "tmpfs", 0, data.c_str()) != 0) {
    return with_errno("mount tmpfs (" + data + ") on " + std::string(kRoot));
  }
  if (options.directories) {
    for (const char *directory : {kStacks, kDumps}) {
      if (mkdir(directory, 0777) != 0 || chmod(directory, options.directory_mode) != 0) {
        return with_errno("make " + std::string(directory));
      }
    }
  }
  if (options.read_only && !remount(true)) return with_errno("remount read-only");
  return "";
}

bool remount(bool read_only) {
  return mount(nullptr, kRoot, nullptr, MS_REMOUNT | (read_only ? MS_RDONLY : 0), nullptr) == 0;
}

bool fill(unsigned long blocks_left) {
  struct statfs before;
  if (statfs(kRoot, &before) != 0 || before.f_bavail < blocks_left) return false;
  int fd = open(kFilling, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  off_t bytes = static_cast<off_t>((before.f_bavail - blocks_left) * static_cast<unsigned long>(before.f_bsize));
  bool done = bytes == 0 || posix_fallocate(fd, 0, bytes) == 0;
  close(fd);
  return done;
}

bool remove_filling() {
  return unlink(kFilling) == 0;
}

bool drop_to(uid_t user) {
  if (setgroups(0, nullptr) != 0 || setresgid(user, user, user) != 0 || setresuid(user, user, user) != 0) return false;
  // The change made /proc/self another user's; leak checks need it.
  prctl(PR_SET_DUMPABLE, 1);
  return true;
}

namespace network {

std::vector<std::string> loopback_down() {
  return {"addr add 127.0.0.1/8 dev lo"};
}

std::vector<std::string> loopback_up() {
  return {"link set lo up"};  // the kernel gives it 127.0.0.1
}

std::vector<std::string> two_loopback_addresses() {
  return {"link set lo up", "addr add 127.0.0.2/8 dev lo"};
}

std::vector<std::string> veth_down_behind_loopback(const std::string &address) {
  return {"link set lo up", "link add veth0 type veth peer name veth1", "addr add " + address + "/24 dev veth0"};
}

std::vector<std::string> veth_down_then_up(const std::string &down_address, const std::string &up_address) {
  return {"link add veth0 type veth peer name veth1",
          "link add veth2 type veth peer name veth3",
          "addr add " + down_address + "/24 dev veth0",
          "addr add " + up_address + "/24 dev veth2",
          "link set veth2 up",
          "link set veth3 up"};
}

}  // namespace network

}  // namespace sandbox
