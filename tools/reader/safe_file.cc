#include "safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

namespace vosk {

namespace {

constexpr std::int64_t kPatiencePerFile = 100, kPause = 4;  // milliseconds
constexpr int kReadings = 5;

moment moment_of(const statx_timestamp &at) {
  return {at.tv_sec, static_cast<std::int32_t>(at.tv_nsec / 1000)};
}

const char *type_name(unsigned mode) {
  switch (mode & S_IFMT) {
    case S_IFLNK:
      return "a symbolic link";
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a FIFO";
    case S_IFSOCK:
      return "a socket";
    case S_IFBLK:
    case S_IFCHR:
      return "a device";
    default:
      return "not a regular file";
  }
}

bool facts_of(int fd, file_facts &facts, unsigned &mode) {
  struct statx st {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &st) != 0) return false;
  facts.inode = st.stx_ino;
  facts.device = static_cast<std::uint64_t>(st.stx_dev_major) << 32 | st.stx_dev_minor;
  facts.owner = st.stx_uid;
  facts.size = static_cast<std::int64_t>(st.stx_size);
  facts.modified = moment_of(st.stx_mtime);
  if ((st.stx_mask & STATX_BTIME) != 0) facts.birth = moment_of(st.stx_btime);
  mode = st.stx_mode;
  return true;
}

// Opens what `path_fd` stands for. It has been seen to be a regular file, and cannot have been exchanged.
int reopen(int path_fd, int dir, const char *name, int access) {
  const int flags = access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  char link[64];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", path_fd);
  const int fd = open(link, flags);
  if (fd >= 0 || errno != ENOENT) return fd;
  return openat(dir, name, flags | O_NOFOLLOW);  // no /proc: the caller compares what was opened
}

// False on a read error. Reads no more than `bytes` can hold.
bool read_all(int fd, std::vector<unsigned char> &bytes, std::size_t limit) {
  bytes.resize(limit);
  std::size_t size = 0;
  while (size < limit) {
    const ssize_t n = pread(fd, bytes.data() + size, limit - size, static_cast<off_t>(size));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    size += static_cast<std::size_t>(n);
  }
  bytes.resize(size);
  return true;
}

bool read_until_equal(int fd, std::vector<unsigned char> &bytes, std::size_t limit, bool &steady) {
  std::vector<unsigned char> before;
  if (!read_all(fd, before, limit)) return false;
  for (int i = 0; i < kReadings; ++i) {
    if (!read_all(fd, bytes, limit)) return false;
    if (bytes == before) return true;
    before.swap(bytes);
  }
  steady = false;
  return true;
}

std::int64_t milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

unique_fd &unique_fd::operator=(unique_fd &&other) noexcept {
  const unique_fd before(std::exchange(fd_, other.release()));  // closes it
  return *this;
}

unique_fd::~unique_fd() {
  if (fd_ >= 0) (void)close(fd_);
}

std::string error_text(int error) {
  const char *text = strerrordesc_np(error);
  return text != nullptr ? text : "error " + std::to_string(error);
}

bool facts_of(int fd, file_facts &facts) {
  unsigned mode = 0;
  return facts_of(fd, facts, mode);
}

opened_file open_regular(int dir, const char *name, int access) {
  opened_file file;
  const auto refuse = [&](int error) {
    file.result = error == ENOENT || error == ENOTDIR ? outcome::missing : outcome::failed;
    file.reason = error_text(error);
    return std::move(file);
  };
  // Opening a device or a FIFO can already have effects, so look at it through a descriptor that cannot have any.
  const unique_fd path_fd(openat(dir, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
  if (!path_fd.valid()) return refuse(errno);
  unsigned mode = 0;
  if (!facts_of(path_fd.get(), file.facts, mode)) return refuse(errno);
  if (!S_ISREG(mode)) {
    file.result = outcome::skipped;
    file.reason = type_name(mode);
    return file;
  }
  file.fd = unique_fd(reopen(path_fd.get(), dir, name, access));
  if (!file.fd.valid()) return refuse(errno);
  const file_facts seen = file.facts;
  if (!facts_of(file.fd.get(), file.facts, mode)) return refuse(errno);
  if (seen.inode != file.facts.inode || seen.device != file.facts.device) return refuse(ESTALE);
  file.result = outcome::read;
  return file;
}

bool lock_patience::lock(int fd) {
  struct flock whole {};
  whole.l_type = F_RDLCK;
  whole.l_whence = SEEK_SET;
  const std::int64_t start = milliseconds();
  for (;;) {
    if (fcntl(fd, F_SETLK, &whole) == 0) return true;
    const std::int64_t waited = milliseconds() - start;
    const bool held_by_others = errno == EACCES || errno == EAGAIN || errno == EINTR;
    if (!held_by_others || waited >= kPatiencePerFile || waited >= left_) {
      left_ -= waited;
      return false;
    }
    const timespec pause{0, kPause * 1000000};
    (void)nanosleep(&pause, nullptr);
  }
}

file_bytes read_small_file(int dir, const char *name, std::size_t limit, lock_patience &patience) {
  file_bytes file;
  opened_file opened = open_regular(dir, name);
  file.result = opened.result;
  file.reason = std::move(opened.reason);
  file.facts = opened.facts;
  if (file.result != outcome::read) return file;
  const auto too_large = [&](std::int64_t size) {
    file.result = outcome::skipped;
    file.reason = "larger than a stack can be: " + std::to_string(size) + " bytes";
    file.bytes.clear();
    return std::move(file);
  };
  if (std::cmp_greater(opened.facts.size, limit)) return too_large(opened.facts.size);

  const int fd = opened.fd.get();
  const bool locked = patience.lock(fd);  // closing the descriptor releases it
  const bool read =
      locked ? read_all(fd, file.bytes, limit + 1) : read_until_equal(fd, file.bytes, limit + 1, file.steady);
  if (!read) {
    file.result = outcome::failed;
    file.reason = error_text(errno);
  } else if (file.bytes.size() > limit) {
    return too_large(static_cast<std::int64_t>(file.bytes.size()));
  }
  return file;
}

}  // namespace vosk
