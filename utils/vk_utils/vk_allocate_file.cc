// Creating a file with its space reserved.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/errno_map.h"
#include "utils/file_size_guard.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_debug/trace_file.h"
#include "utils/vk_utils/allocate_file.h"
#include "utils/vk_utils/clear_bytes.h"
#include "utils/vk_utils/free_space.h"

namespace {

constexpr int kOpenFlags = O_RDWR | O_CREAT | O_EXCL | O_TRUNC;
static_assert(kOpenFlags == 0x2c2);
constexpr mode_t kMode = 0666;
constexpr unsigned int kTracedMode = 0x9f6;  // not the mode used; the trace shows it all the same

// The smallest file worth having; the retries end here and not at the caller's minimum.
constexpr std::int64_t kFloor = 8192;

constexpr vk::errno_code kCreate[] = {{EACCES, VOSK_PERM_DENIED}, {EROFS, VOSK_PERM_DENIED}, {ENFILE, VOSK_NO_RESOURCE},
                                      {EMFILE, VOSK_NO_RESOURCE}, {EFBIG, VOSK_NO_RESOURCE}, {EDQUOT, VOSK_NO_RESOURCE},
                                      {ENOSPC, VOSK_NO_SPACE}};

// Every failure after the creation leaves no file behind.
void undo(int fd, const char *path) noexcept {
  (void)lockf(fd, F_ULOCK, 0);  // also after a refused lock
  (void)close(fd);
  (void)unlink(path);
}

// Writes the header line of a trace file, cut to its 36 bytes when the size has more than five digits. Nothing is
// checked: a caller that wants another header writes over it.
void stamp(int fd, int reserved_size) noexcept {
  char text[vk::kTraceHeaderTextSize];
  (void)vk::format_trace_header(text, {static_cast<int>(vk::kTraceHeaderSize), 0, reserved_size});
  (void)lseek(fd, 0, SEEK_SET);
  if (write(fd, text, vk::kTraceHeaderSize) == -1) return;
}

enum class outcome { kept, refused, too_large };

// Reserves `granted` bytes in the new, open file. `kept` and `refused` have their result in `result`; `too_large` means
// that the reservation broke the five-percent rule and the file is gone, with the figures of that moment in `space`.
outcome reserve(const vk::tracer &trace, int fd, const char *path, std::int64_t granted, int &reserved, int &result,
                vk::free_space &space) noexcept {
  const auto refuse = [&](int code) {
    undo(fd, path);
    result = code;
    return outcome::refused;
  };
  if (lockf(fd, F_LOCK, 0) != 0) {
    VK_TRACE(trace, "Cannot lock file %s - error %d\n", path, errno);
    return refuse(VOSK_LOCK_FAILED);
  }
  if (fchmod(fd, kMode) != 0) {  // the umask does not narrow it
    VK_TRACE(trace, "Cannot force permissions on file %s - error %d\n", path, errno);
    return refuse(VOSK_PERM_DENIED);
  }
  reserved = vk::clear_bytes(fd, granted);
  if (reserved != granted && reserved < kFloor) {
    VK_TRACE(trace, "Not enough space for fclear(%s,%d) - error %d\n", path, vk::low32(granted), errno);
    return refuse(VOSK_NO_SPACE);
  }
  stamp(fd, reserved);
  if (!vk::read_free_space(path, space)) {
    VK_TRACE(trace, "statfs(%s) failed - error %d\n", path, errno);
    return refuse(VOSK_FAILURE);
  }
  if (!space.rule_holds()) {
    VK_TRACE(trace, "%s", "Didn't leave 5% space - trying again\n");
    undo(fd, path);
    return outcome::too_large;
  }
  (void)lockf(fd, F_ULOCK, 0);
  (void)close(fd);
  result = VOSK_SUCCESS;
  return outcome::kept;
}

}  // namespace

int vk::allocate_file(int trace_on, const char *trace_path, const char *path, std::int64_t wanted_size,
                      std::int64_t min_size, std::int64_t *reserved_size) noexcept {
  if (path == nullptr) return VOSK_INV_PARAM3;
  const vk::tracer trace(trace_on, trace_path, "vk_allocate_file");

  for (std::int64_t request = wanted_size;;) {
    std::int64_t granted = 0;
    int result = vk_determine_max_fsize(trace_on, trace_path, path, request, min_size, &granted);
    if (result != VOSK_SUCCESS) return result;

    const int fd = open(path, kOpenFlags, kMode);
    if (fd == -1) {
      const int err = errno;
      VK_TRACE(trace, "Can't open %s mode 0x%x perm 0x%x- error %d\n", path, static_cast<unsigned int>(kOpenFlags),
               kTracedMode, err);
      if (err == EINTR) continue;
      // An existing file counts as reserved, on purpose: of two racing creators the second succeeds too.
      if (err == EEXIST) return VOSK_SUCCESS;
      return vk::code_for(kCreate, err);
    }
    int reserved = 0;
    vk::free_space space;
    const outcome made = reserve(trace, fd, path, granted, reserved, result, space);
    if (made == outcome::refused) return result;
    if (made == outcome::kept) {
      if (reserved_size != nullptr) *reserved_size = reserved;
      VK_TRACE(trace, "%s reserved (%d bytes) - returning %s(%d)\n", path, reserved, vk::vosk_name(result), result);
      return result;
    }
    request = vk::two_blocks_less(reserved, space.block_size);
    if (request <= kFloor) {
      VK_TRACE(trace, "%s", "Minimum space not available\n");
      return VOSK_NO_SPACE;
    }
  }
}

int vk_allocate_file(int trace_on, const char *trace_path, const char *path, std::int64_t wanted_size,
                     std::int64_t min_size, std::int64_t *reserved_size) {
  const vk::file_size_guard guard(vk::kFixedFileReach);
  return vk::allocate_file(trace_on, trace_path, path, wanted_size, min_size, reserved_size);
}
