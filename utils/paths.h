// Path buffers, and the parts of a path.
#ifndef UTILS_PATHS_H
#define UTILS_PATHS_H

#include <libgen.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace vk {

inline constexpr std::size_t kPathSize = 4096;
inline constexpr char kStackDirectory[] = "/var/adm/vosk/stacks";
inline constexpr char kDumpDirectory[] = "/var/adm/vosk/dumps";

// Copies `path` to `buffer`. A path that does not fit is never cut and then used: false, with errno as the kernel sets
// it.
inline bool copy_path(char (&buffer)[kPathSize], const char *path) noexcept {
  const std::size_t length = strnlen(path, kPathSize);
  if (length == kPathSize) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(buffer, path, length + 1);
  return true;
}

// The directory part of `path`, which lies in `buffer` or is constant; null, with errno set, for an over-long path.
inline const char *directory_of(char (&buffer)[kPathSize], const char *path) noexcept {
  return copy_path(buffer, path) ? dirname(buffer) : nullptr;
}

// The last component of `name`, which lies in `buffer` or is constant. Of a name longer than the buffer the end is what
// counts.
inline const char *base_name(char (&buffer)[kPathSize], const char *name) noexcept {
  const std::size_t length = std::strlen(name);
  if (length >= kPathSize) name += length - (kPathSize - 1);
  std::memcpy(buffer, name, std::strlen(name) + 1);
  return basename(buffer);
}

}  // namespace vk

#endif
