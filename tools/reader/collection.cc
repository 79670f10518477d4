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
bool walk(const unique_fd &fd, const std::string &path, int depth, const visit_entry &visit,
          const enter_directory &enter) {
  if (enter) enter(path);
  std::vector<directory_entry> entries;
  if (!list_directory(fd.get(), entries)) return false;
  for (const directory_entry &entry : entries) {
    const std::string entry_path = path.ends_with('/') ? path + entry.name : path + '/' + entry.name;
    if (depth > 0 && is_directory(fd.get(), entry)) {
      const unique_fd inner = open_directory(fd.get(), entry.name.c_str(), false);
      if (inner.valid() && walk(inner, entry_path, depth - 1, visit, enter)) continue;
    }
    visit(fd.get(), entry, entry_path);
  }
  return true;
}

// Whoever may record can put files there: an archive has no business in it.
bool is_in_node_directory(std::string_view path) {
  return path.substr(0, path.rfind('/')) == kStackDirectory;
}

// A file that a collection holds beside its stacks, in a collection that was unpacked.
bool is_of_unpacked_collection(int dir, std::string_view path) {
  if (dir == AT_FDCWD) return false;  // it was named
  const auto is_there = [&](const std::string &name) {
    return faccessat(dir, (name + kManifestName).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
  };
  const archive_member place{std::string(path), 0, 0, 0, {}};
  if (place.base_name() == kManifestName) return true;
  return (place.is_in("dumps") || place.is_in("logs")) && is_there("../");
}

// What a collection holds besides stacks.
bool is_beside_stacks(const archive_member &member) {
  return member.is_in("dumps") || member.is_in("logs") || member.base_name() == kManifestName;
}

}  // namespace

std::vector<std::string> logs_of_collections(const std::string &path) {
  std::vector<std::string> logs;
  const auto look_at = [&](int dir, const directory_entry &entry, const std::string &entry_path) {
    const archive_member place{entry_path, 0, 0, 0, {}};
    const opened_file file = open_regular(dir, entry.name.c_str());
    if (file.result != outcome::read) return;
    if (is_archive(file.fd.get()) || (place.is_in("logs") && is_of_unpacked_collection(dir, entry_path)))
      logs.push_back(entry_path);
  };
  if (!walk_directory(path, kDepth, look_at)) look_at(AT_FDCWD, {path, 0, 0}, path);
  return logs;
}

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

bool walk_directory(const std::string &top, int depth, const visit_entry &visit, const enter_directory &enter) {
  const unique_fd fd = open_directory(AT_FDCWD, top.c_str(), true);
  return fd.valid() && walk(fd, top, depth, visit, enter);
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

void collector::add_member(int fd, const std::string &archive, const archive_member &member) {
  const std::string path = archive + "/" + member.name;
  const auto refuse = [&](std::string reason, bool failed) {
    found_.refused.push_back({path, std::move(reason), failed, false, std::nullopt});
  };
  if (std::cmp_greater(member.size, layout::kReadLimit)) {
    refuse("larger than a stack can be: " + std::to_string(member.size) + " bytes", false);
    return;
  }
  std::vector<unsigned char> bytes;
  if (!read_member(fd, member, bytes)) {
    refuse(error_text(errno), true);
    return;
  }
  file_facts facts;  // it has no i-node; its identifiers name the one that it had
  facts.owner = member.owner;
  facts.size = member.size;
  facts.modified = member.modified;
  stack_file found{path, facts, true, read_stack(std::move(bytes), std::nullopt), packed_place{archive, member}};
  if (found.contents.kind == file_kind::other)
    refuse(member.size == 0 ? "empty" : "no stack: neither its header nor any record in it verifies", false);
  else
    found_.stacks.push_back(std::move(found));
}

// False if the file is no archive.
bool collector::add_archive(int dir, const char *name, const std::string &path) {
  const opened_file file = open_regular(dir, name);
  if (file.result != outcome::read || !is_archive(file.fd.get())) return false;
  const archive_contents contents = list_archive(file.fd.get());
  for (const archive_member &member : contents.members)
    if (!is_beside_stacks(member)) add_member(file.fd.get(), path, member);
  if (!contents.damage.empty()) found_.refused.push_back({path, contents.damage, true, false, std::nullopt});
  return true;
}

void collector::add_packed(const packed_place &place) {
  const opened_file file = open_regular(AT_FDCWD, place.archive.c_str());
  if (file.result == outcome::read) add_member(file.fd.get(), place.archive, place.member);
}

void collector::add_file(int dir, const char *name, const std::string &path) {
  if (!is_in_node_directory(path) && add_archive(dir, name, path)) return;
  file_bytes file = read_small_file(dir, name, layout::kReadLimit, patience_);
  if (file.result == outcome::skipped && is_of_unpacked_collection(dir, path)) return;
  if (file.result != outcome::read) {
    found_.refused.push_back(
        {path, file.reason, file.result == outcome::failed, file.result == outcome::missing, file.facts.birth});
    return;
  }
  const std::size_t size = file.bytes.size();
  stack_file found{path, file.facts, file.steady, read_stack(std::move(file.bytes), file.facts.inode), std::nullopt};
  if (found.contents.kind == file_kind::other) {
    if (is_of_unpacked_collection(dir, path)) return;
    const std::string reason = size == 0 ? "empty" : "no stack: neither its header nor any record in it verifies";
    found_.refused.push_back({path, reason, false, false, file.facts.birth});
    return;
  }
  found_.stacks.push_back(std::move(found));
}

}  // namespace vosk
