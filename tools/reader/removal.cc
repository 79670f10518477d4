#include "removal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>

namespace vosk {

namespace {

bool same_file(const file_facts &a, const file_facts &b) {
  return a.inode == b.inode && a.device == b.device;
}

bool is_as_seen(const file_facts &now, const file_facts &seen) {
  return same_file(now, seen) && now.size == seen.size && now.modified == seen.modified;
}

// Whether `name` stands for the open file.
bool names(int dir, const std::string &name, int fd) {
  struct stat by_name {
  }, open_file{};
  return fstatat(dir, name.c_str(), &by_name, AT_SYMLINK_NOFOLLOW) == 0 && fstat(fd, &open_file) == 0 &&
         by_name.st_dev == open_file.st_dev && by_name.st_ino == open_file.st_ino;
}

struct flock whole_file(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  return lock;
}

removal_result refuse_lock(int fd, int error) {
  if (error != EACCES && error != EAGAIN) return {removal::failed, "it cannot be locked: " + error_text(error)};
  struct flock other = whole_file(F_WRLCK);
  if (fcntl(fd, F_GETLK, &other) != 0 || other.l_type == F_UNLCK || other.l_pid <= 0)
    return {removal::locked, "it is locked"};
  return {removal::locked, "it is locked by process " + std::to_string(other.l_pid)};
}

// The file under another name of the directory, so that whoever comes now makes a new one instead of opening this.
class put_aside {
 public:
  put_aside(int dir, const std::string &name) : dir_(dir), name_(name), aside_("~" + name) {
    if (aside_.size() <= NAME_MAX) return;
    // The longest name there can be: its end tells what the file is, so another takes the place of its first character.
    aside_ = name;
    aside_[0] = name[0] == '~' ? '+' : '~';
  }

  bool done() { return move(name_, aside_); }
  bool undone() { return move(aside_, name_); }
  const std::string &aside() const { return aside_; }

 private:
  bool move(const std::string &from, const std::string &to) {
    return renameat2(dir_, from.c_str(), dir_, to.c_str(), RENAME_NOREPLACE) == 0;
  }

  int dir_;
  const std::string &name_;
  std::string aside_;
};

// The lease is held: as long as it is not being broken nobody has opened the file since.
removal_result remove_leased(int dir, const std::string &name, int fd) {
  put_aside moved(dir, name);
  if (!moved.done()) {
    const int error = errno;
    return {error == ENOENT ? removal::gone : removal::failed, error_text(error)};
  }
  const auto put_back = [&](removal what, const char *reason) -> removal_result {
    if (moved.undone()) return {what, reason};
    return {what, std::string(reason) + "; it is now " + moved.aside()};
  };
  if (!names(dir, moved.aside(), fd)) return put_back(removal::changed, "another file has its name");
  if (fcntl(fd, F_GETLEASE) != F_WRLCK) return put_back(removal::in_use, "a process opens it");
  if (unlinkat(dir, moved.aside().c_str(), 0) == 0) return {removal::removed, ""};
  const int error = errno;
  return put_back(removal::failed, error_text(error).c_str());
}

}  // namespace

removal_result remove_unused(int dir, const std::string &name, const file_facts &seen, bool really) {
  const opened_file file = open_regular(dir, name.c_str(), O_RDWR);
  if (file.result == outcome::missing) return {removal::gone, "it is gone"};
  if (file.result == outcome::skipped) return {removal::changed, "it is " + file.reason + " now"};
  if (file.result == outcome::failed) return {removal::failed, file.reason};

  const int fd = file.fd.get();  // closing it gives up lock and lease
  struct flock lock = whole_file(F_WRLCK);
  if (fcntl(fd, F_SETLK, &lock) != 0) return refuse_lock(fd, errno);
  if (fcntl(fd, F_SETLEASE, F_WRLCK) != 0) {
    const int error = errno;
    if (error == EAGAIN) return {removal::in_use, "a process has it open"};
    return {removal::failed, "whether it is open cannot be told: " + error_text(error)};
  }
  file_facts now;
  if (!facts_of(fd, now)) return {removal::failed, error_text(errno)};
  if (!is_as_seen(now, seen)) return {removal::changed, "it was written meanwhile"};
  if (!names(dir, name, fd)) return {removal::changed, "another file has its name"};
  return really ? remove_leased(dir, name, fd) : removal_result{removal::removed, ""};
}

}  // namespace vosk
