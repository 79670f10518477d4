#include "child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace vosk {

namespace {

constexpr std::size_t kMostErrors = 4096;

// A file in memory that takes this much and no more.
unique_fd bounded_memory() {
  unique_fd fd(memfd_create("errors", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (fd.valid() && (ftruncate(fd.get(), kMostErrors) != 0 || fcntl(fd.get(), F_ADD_SEALS, F_SEAL_GROW) != 0))
    return unique_fd();
  return fd;
}

std::vector<char *> pointers(const std::vector<std::string> &texts) {
  std::vector<char *> out;
  out.reserve(texts.size() + 1);
  for (const std::string &text : texts) out.push_back(const_cast<char *>(text.c_str()));
  out.push_back(nullptr);
  return out;
}

}  // namespace

std::string program_path(const std::string &name) {
  for (const char *directory : {"/usr/bin/", "/bin/", "/usr/local/bin/", "/run/current-system/sw/bin/"}) {
    std::string path = directory + name;
    if (access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

child::child(const std::vector<std::string> &arguments, int input)
    : errors_(bounded_memory()), name_(arguments.front().substr(arguments.front().rfind('/') + 1)) {
  int pipe_ends[2];
  if (!errors_.valid() || pipe2(pipe_ends, O_CLOEXEC) != 0) return;
  unique_fd read_end(pipe_ends[0]);
  const unique_fd write_end(pipe_ends[1]);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  sigset_t reset;
  (void)sigemptyset(&reset);
  (void)sigaddset(&reset, SIGPIPE);
  if (posix_spawn_file_actions_init(&actions) != 0) return;
  (void)posix_spawn_file_actions_adddup2(&actions, input, 0);
  (void)posix_spawn_file_actions_adddup2(&actions, write_end.get(), 1);
  (void)posix_spawn_file_actions_adddup2(&actions, errors_.get(), 2);
  (void)posix_spawnattr_init(&attributes);
  (void)posix_spawnattr_setsigdefault(&attributes, &reset);
  (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  const std::vector<std::string> environment{"PATH=/usr/bin:/bin", "LC_ALL=C", "TZ=UTC"};
  if (posix_spawn(&pid_, arguments.front().c_str(), &actions, &attributes, pointers(arguments).data(),
                  pointers(environment).data()) == 0)
    output_ = std::move(read_end);
  else
    pid_ = -1;
  (void)posix_spawnattr_destroy(&attributes);
  (void)posix_spawn_file_actions_destroy(&actions);
}

child::~child() {
  (void)finish();
}

std::string child::finish() {
  if (pid_ < 0) return "cannot be started";
  // A reader that read to the end has seen it close its output; what then is still there has nothing more to say.
  output_ = unique_fd();
  int status = 0;
  pid_t ended = 0;
  for (int i = 0; i < 200 && ended == 0; ++i) {
    ended = waitpid(pid_, &status, WNOHANG);
    if (ended == 0) (void)usleep(5000);
  }
  if (ended == 0) (void)kill(pid_, SIGKILL);
  while (ended == 0 || (ended < 0 && errno == EINTR)) ended = waitpid(pid_, &status, 0);
  pid_ = -1;
  return complaint(status);
}

std::string child::complaint(int status) const {
  std::array<char, kMostErrors> buffer{};
  const ssize_t n = pread(errors_.get(), buffer.data(), buffer.size(), 0);
  std::string text(buffer.data(), n > 0 ? static_cast<std::size_t>(n) : 0);
  text.resize(std::min(text.find('\0'), text.size()));
  text.erase(0, text.find_first_not_of('\n'));
  text.resize(std::min(text.find('\n'), text.size()));
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return text;
  if (text.empty())
    text = name_ + (WIFEXITED(status) ? " ended with status " + std::to_string(WEXITSTATUS(status))
                                      : " ended by signal " + std::to_string(WTERMSIG(status)));
  return text;
}

}  // namespace vosk
