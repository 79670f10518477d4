#include "support/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace files {

bool in_ci() {
  const char *value = std::getenv("CI");
  return value != nullptr && *value != '\0';
}

std::optional<std::string> read(const std::string &path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  std::string bytes;
  char buffer[65536];
  ssize_t count = 0;
  while ((count = ::read(fd, buffer, sizeof buffer)) > 0) bytes.append(buffer, static_cast<std::size_t>(count));
  close(fd);
  if (count < 0) return std::nullopt;
  return bytes;
}

bool write(const std::string &path, std::string_view bytes) {
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  while (!bytes.empty()) {
    ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count <= 0) break;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return close(fd) == 0 && bytes.empty();
}

std::vector<std::string> list(const std::string &directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto &entry : std::filesystem::directory_iterator(directory, error)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool exists(const std::string &path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

std::map<int, std::string> descriptors() {
  std::map<int, std::string> found;
  DIR *directory = opendir("/proc/self/fd");
  if (directory == nullptr) return found;
  while (struct dirent *entry = readdir(directory)) {
    int fd = std::atoi(entry->d_name);
    if (entry->d_name[0] == '.' || fd == dirfd(directory)) continue;
    char target[PATH_MAX];
    ssize_t length = readlinkat(dirfd(directory), entry->d_name, target, sizeof target);
    found[fd] = length < 0 ? "?" : std::string(target, static_cast<std::size_t>(length));
  }
  closedir(directory);
  return found;
}

bool locked(const std::string &path) {
  int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  // A lock of the open file description meets every lock of a process, this one's own included.
  struct flock lock;
  std::memset(&lock, 0, sizeof lock);
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  bool held = fcntl(fd, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  close(fd);
  return held;
}

std::string difference(std::string_view expected, std::string_view actual) {
  if (expected == actual) return "";
  std::size_t common = std::min(expected.size(), actual.size());
  std::size_t at = 0;
  while (at < common && expected[at] == actual[at]) ++at;
  auto hex = [at](std::string_view bytes) {
    std::string out;
    for (std::size_t i = at; i < std::min(at + 16, bytes.size()); ++i) {
      char text[8];
      std::snprintf(text, sizeof text, " %02x", static_cast<unsigned char>(bytes[i]));
      out += text;
    }
    return out.empty() ? " (end)" : out;
  };
  return "first difference at byte " + std::to_string(at) + ", expected" + hex(expected) + ", found" + hex(actual) +
         "; sizes " + std::to_string(expected.size()) + " and " + std::to_string(actual.size());
}

TemporaryDirectory::TemporaryDirectory() {
  char pattern[] = "/tmp/qx-test-XXXXXX";
  if (mkdtemp(pattern) == nullptr) {
    std::perror("mkdtemp");
    std::abort();
  }
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code error;
  std::filesystem::remove_all(path_, error);
}

namespace {

template <class Integer>
std::string bytes_of(Integer value) {
  char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  return std::string(bytes, sizeof value);
}

}  // namespace

std::string u32(std::uint32_t value) {
  return bytes_of(value);
}
std::string i32(std::int32_t value) {
  return bytes_of(value);
}
std::string u64(std::uint64_t value) {
  return bytes_of(value);
}

}  // namespace files
