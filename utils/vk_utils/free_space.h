// The five-percent rule.
#ifndef UTILS_VK_UTILS_FREE_SPACE_H
#define UTILS_VK_UTILS_FREE_SPACE_H

#include <sys/statfs.h>

#include <cerrno>
#include <cstdint>

namespace vk {

// A file system's fill, in blocks. The rule holds while `used` is not above `limit`.
struct free_space {
  std::uint64_t used, limit;
  std::int64_t block_size;
  bool rule_holds() const noexcept { return used <= limit; }
};

// Reads the figures of the file system that `path` lies in; false with errno set on failure. A block size below 1
// counts as a failure, too.
inline bool read_free_space(const char *path, free_space &space) noexcept {
  struct statfs figures;
  if (statfs(path, &figures) != 0) return false;
  if (figures.f_bsize < 1) {
    errno = EINVAL;
    return false;
  }
  const std::uint64_t blocks = figures.f_blocks;
  const auto reserve = static_cast<std::uint64_t>(static_cast<double>(blocks) * 0.05);
  space = {blocks - figures.f_bavail, blocks - reserve, figures.f_bsize};
  return true;
}

// `size` less two blocks, the step in which reservations shrink; the lowest number instead of an overflow.
inline std::int64_t two_blocks_less(std::int64_t size, std::int64_t block_size) noexcept {
  std::int64_t step, result;
  if (__builtin_mul_overflow(block_size, std::int64_t{2}, &step) || __builtin_sub_overflow(size, step, &result))
    return INT64_MIN;
  return result;
}

}  // namespace vk

#endif
