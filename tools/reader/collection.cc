#include "collection.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vosk {

namespace {

constexpr int kDepth = 8;  // copies of several nodes lie in directories of their own

bool is_directory(int dir, const directory_entry &entry) {
  if (entry.type != DT_UNKNOWN) return entry.type == DT_DIR;
  struct stat st {};
  return fstatat(dir, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// As deep as `depth` says, no deeper.
// NOLINTNEXTLINE(misc-no-recursion)
bool walk(const unique_fd &fd, const std::string &path, int depth, const visit_entry &visit) {
  std::vector<directory_entry> entries;
  if (!list_directory(fd.get(), entries)) return false;
  for (const directory_entry &entry : entries) {
    const std::string entry_path = path.ends_with('/') ? path + entry.name : path + '/' + entry.name;
    if (depth > 0 && is_directory(fd.get(), entry)) {
      const unique_fd inner = open_directory(fd.get(), entry.name.c_str(), false);
      if (inner.valid() && walk(inner, entry_path, depth - 1, visit)) continue;
    }
    visit(fd.get(), entry, entry_path);
  }
  return true;
}

}  // namespace

unique_fd open_directory(int dir, const char *name, bool follow) {
  return unique_fd(openat(dir, name, O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW)));
}

bool list_directory(int fd, std::vector<directory_entry> &entries) {
  const int copy = dup(fd);  // closedir closes it
  if (copy < 0) return false;
  DIR *const stream = fdopendir(copy);
  if (stream == nullptr) {
    const int error = errno;
    (void)close(copy);
    errno = error;
    return false;
  }
  errno = 0;
  while (const dirent *entry = readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") entries.push_back({std::string(name), entry->d_type, entry->d_ino});
  }
  const int error = errno;
  (void)closedir(stream);
  std::sort(entries.begin(), entries.end(), [](const auto &a, const auto &b) { return a.name < b.name; });
  errno = error;
  return error == 0;
}

bool walk_directory(const std::string &top, int depth, const visit_entry &visit) {
  const unique_fd fd = open_directory(AT_FDCWD, top.c_str(), true);
  return fd.valid() && walk(fd, top, depth, visit);
}

void collector::add(const std::string &path) {
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    const int depth = path == kStackDirectory ? 0 : kDepth;
    const auto add_entry = [&](int dir, const directory_entry &entry, const std::string &entry_path) {
      add_file(dir, entry.name.c_str(), entry_path);
    };
    if (!walk_directory(path, depth, add_entry))
      found_.refused.push_back({path, error_text(errno), true, errno == ENOENT, std::nullopt});
    return;
  }
  add_file(AT_FDCWD, path.c_str(), path);
}

void collector::add_file(int dir, const char *name, const std::string &path) {
  file_bytes file = read_small_file(dir, name, layout::kReadLimit, patience_);
  if (file.result != outcome::read) {
    found_.refused.push_back(
        {path, file.reason, file.result == outcome::failed, file.result == outcome::missing, file.facts.birth});
    return;
  }
  const std::size_t size = file.bytes.size();
  stack_file found{path, file.facts, file.steady, read_stack(std::move(file.bytes), file.facts.inode)};
  if (found.contents.kind == file_kind::other) {
    const std::string reason = size == 0 ? "empty" : "no stack: neither its header nor any record in it verifies";
    found_.refused.push_back({path, reason, false, false, file.facts.birth});
    return;
  }
  found_.stacks.push_back(std::move(found));
}

}  // namespace vosk
