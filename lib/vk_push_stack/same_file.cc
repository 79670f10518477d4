#include "lib/vk_push_stack/same_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "utils/paths.h"

namespace vk {

static bool is_dangling_link(const char *path) noexcept {
  struct stat status;
  return fstatat(AT_FDCWD, path, &status, 0) != 0 && fstatat(AT_FDCWD, path, &status, AT_SYMLINK_NOFOLLOW) == 0;
}

bool same_file(const char *path, const char *other) noexcept {
  struct stat a, b;
  return fstatat(AT_FDCWD, path, &a, 0) == 0 && fstatat(AT_FDCWD, other, &b, 0) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

bool could_become_same_file(const char *path, const char *other) noexcept {
  // Wherever such a link leads: it may be to the other one.
  if (is_dangling_link(path) || is_dangling_link(other)) return true;
  char buffer[kPathSize], other_buffer[kPathSize];
  const char *directory = directory_of(buffer, path), *other_directory = directory_of(other_buffer, other);
  if (directory == nullptr || other_directory == nullptr || !same_file(directory, other_directory)) return false;
  return std::strcmp(base_name(buffer, path), base_name(other_buffer, other)) == 0;
}

}  // namespace vk
