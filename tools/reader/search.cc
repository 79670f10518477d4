#include "search.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace vosk {

namespace {

constexpr int kDepth = 8;

outcome outcome_of(int error) {
  return error == ENOENT ? outcome::missing : outcome::failed;
}

// A quick look, without lock and checks: what it finds is then read as every stack is.
bool file_holds(int dir, const char *name, std::string_view text) {
  const unique_fd fd(openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  std::array<char, layout::kReadLimit> bytes;
  if (!fd.valid()) return false;
  const ssize_t size = ::read(fd.get(), bytes.data(), bytes.size());
  // Whether one of the stacks in an archive holds it is seen when they are read.
  if (size > 0 && is_archive(fd.get())) return true;
  return size > 0 && memmem(bytes.data(), static_cast<std::size_t>(size), text.data(), text.size()) != nullptr;
}

bool holds(const stack_file &file, std::string_view text) {
  const std::vector<unsigned char> &bytes = file.contents.bytes;
  return memmem(bytes.data(), bytes.size(), text.data(), text.size()) != nullptr;
}

bool is_regular(int dir, const directory_entry &entry) {
  if (entry.type != DT_UNKNOWN) return entry.type == DT_REG;
  struct stat st {};
  return fstatat(dir, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

record_search::record_search(std::string_view eid)
    : eid_(eid), inode_(field_value(eid.substr(std::min<std::size_t>(eid.size(), 1), 6)).value_or(0)) {}

bool record_search::is_sibling(const stack_file &file) const {
  const std::string_view eid = eid_;
  const auto same_origin = [&](const record &r) {
    return r.eid.substr(0, 7) == eid.substr(0, 7) && r.eid.substr(17, 25) == eid.substr(17);
  };
  return std::any_of(file.contents.records.begin(), file.contents.records.end(), same_origin);
}

void record_search::read(int dir, const char *name, const std::string &path, kept when, std::string_view text) {
  const auto known = [&](const std::string &other) {
    return std::any_of(files_.begin(), files_.end(), [&](const stack_file &file) { return file.path == other; });
  };
  if (known(path)) return;
  reader_.add_file(dir, name, path);
  collection got = reader_.take();
  if (when == kept::always) refused_.insert(refused_.end(), got.refused.begin(), got.refused.end());
  for (stack_file &file : got.stacks) {
    if (file.packed && (known(file.path) || !holds(file, text))) continue;
    files_.push_back(std::move(file));
    const stack_file &added = files_.back();
    if (when == kept::always || (when == kept::as_sibling && is_sibling(added))) candidates_.push_back(&added);
    for (const record &r : added.contents.records)
      if (identifier_text(r.eid) == eid_) found_.push_back({&added, &r});
  }
}

outcome record_search::look_by_inode(const std::string &dir) {
  unique_fd fd = open_directory(AT_FDCWD, dir.c_str(), true);
  if (!fd.valid()) return outcome_of(errno);
  DIR *const stream = fdopendir(fd.get());
  if (stream == nullptr) return outcome_of(errno);
  (void)fd.release();
  while (const dirent *entry = readdir(stream)) {
    ++searched_;
    if ((entry->d_ino & kInodeMask) != inode_ || entry->d_type == DT_DIR) continue;
    std::string path = dir;
    path.append("/").append(entry->d_name);
    read(dirfd(stream), entry->d_name, path, kept::always, {});
  }
  (void)closedir(stream);
  return outcome::read;
}

outcome record_search::look(const std::string &dir, std::string_view text, kept when) {
  const auto look_at = [&](int fd, const directory_entry &entry, const std::string &path) {
    if (!is_regular(fd, entry)) return;
    ++searched_;
    if (file_holds(fd, entry.name.c_str(), text)) read(fd, entry.name.c_str(), path, when, text);
  };
  if (walk_directory(dir, kDepth, look_at)) return outcome::read;
  if (errno != ENOTDIR) return outcome_of(errno);
  look_at(AT_FDCWD, {dir, DT_UNKNOWN, 0}, dir);
  return outcome::read;
}

outcome record_search::look_by_content(const std::string &dir) {
  return look(dir, eid_, kept::if_found);
}

outcome record_search::look_for_siblings(const std::string &dir) {
  const std::string_view eid = eid_;
  return look(dir, eid.substr(0, 7), kept::as_sibling);
}

bool same_record(const found_record &a, const found_record &b) noexcept {
  if (a.what->size != b.what->size) return false;
  return std::memcmp(a.file->contents.bytes.data() + a.what->offset, b.file->contents.bytes.data() + b.what->offset,
                     a.what->size) == 0;
}

}  // namespace vosk
