#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "qx_vosk.h"
#include "utils/file_size_guard.h"
#include "utils/vk_utils/clear_bytes.h"

namespace vk {

// The end of the zeroed run stays within the first 2 GiB of the file.
static constexpr std::uint64_t kLastByte = 0x7fffffff;

int clear_bytes(int fd, std::int64_t length) noexcept {
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  const off_t position = lseek(fd, 0, SEEK_CUR);
  if (position == -1) {
    if (errno == ESPIPE) errno = EINVAL;
    return -1;
  }
  // Before the sign of the length is looked at: one that leads before the start of the file wraps around.
  if (static_cast<std::uint64_t>(position) + static_cast<std::uint64_t>(length) > kLastByte) {
    errno = EFBIG;
    return -1;
  }
  static constexpr char kZeros[1024] = {};
  for (std::int64_t left = length; left > 0;) {
    const ssize_t written = write(fd, kZeros, static_cast<std::size_t>(std::min<std::int64_t>(left, sizeof kZeros)));
    if (written == -1 && errno == EINTR) continue;
    if (written <= 0) {
      if (written == 0) errno = EIO;  // no progress would go on for ever
      return -1;
    }
    left -= written;
  }
  return static_cast<int>(length);
}

}  // namespace vk

int fclear(int fd, std::int64_t length) {
  const vk::file_size_guard guard(vk::kFixedFileReach);
  return vk::clear_bytes(fd, length);
}
