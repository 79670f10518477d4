#include <cstdint>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/errno_map.h"
#include "utils/paths.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_utils/free_space.h"

namespace {

// ENOTDIR is missing on purpose, so this is not the table of the existence tests.
constexpr vk::errno_code kStatfs[] = {{ENOENT, VOSK_DIR_MISSING}, {EACCES, VOSK_DIR_ACCESS}, {ESTALE, VOSK_STALE_FS}};

// The extra block and the strict comparison are part of the rule.
bool fits(const vk::free_space &space, std::int64_t size) noexcept {
  return space.used + static_cast<std::uint64_t>(size / space.block_size) + 1 < space.limit;
}

// How many steps of two blocks, at least one, lead from `size`, which does not fit, to the next size worth trying. The
// sizes between are too large for what is free; passing over them keeps the number of steps small for any wish.
std::int64_t next_size(const vk::free_space &space, std::int64_t size) noexcept {
  const std::int64_t blocks = size / space.block_size;
  // So negative a size fails to fit only where the sum wraps around, and then every smaller one wraps too.
  if (blocks <= -2) return INT64_MIN;
  const std::uint64_t free_blocks = space.limit - space.used;
  if (blocks > 4 && free_blocks < static_cast<std::uint64_t>(blocks)) {
    const std::int64_t passed_over = (blocks - static_cast<std::int64_t>(free_blocks)) / 2 - 1;
    if (passed_over > 0) size -= passed_over * 2 * space.block_size;  // stays positive: fewer blocks than `size` has
  }
  return vk::two_blocks_less(size, space.block_size);
}

}  // namespace

int vk_determine_max_fsize(int trace_on, const char *trace_path, const char *path, std::int64_t wanted_size,
                           std::int64_t min_size, std::int64_t *granted_size) {
  if (path == nullptr) return VOSK_INV_PARAM3;
  if (granted_size == nullptr) return VOSK_INV_PARAM4;
  const vk::tracer trace(trace_on, trace_path, "vk_determine_max_fsize");

  char buffer[vk::kPathSize];
  const char *directory = vk::directory_of(buffer, path);
  vk::free_space space;
  if (directory == nullptr || !vk::read_free_space(directory, space)) {
    const int err = errno;
    VK_TRACE(trace, "statfs(%s) failed, error code %d\n", directory != nullptr ? directory : path, err);
    return vk::code_for(kStatfs, err);
  }
  if (!space.rule_holds()) {
    VK_TRACE(trace, "5%% space in %s not available, returning %s(%d)\n", directory, vk::vosk_name(VOSK_NO_SPACE),
             VOSK_NO_SPACE);
    return VOSK_NO_SPACE;
  }
  // The wanted size is tried even when it is not above the minimum; the minimum itself is never tried after it.
  std::int64_t candidate = wanted_size;
  do {
    if (fits(space, candidate)) {
      *granted_size = candidate;
      VK_TRACE(trace, "Requested %d bytes, able to get %d bytes\n", vk::low32(wanted_size), vk::low32(candidate));
      return VOSK_SUCCESS;
    }
    candidate = next_size(space, candidate);
  } while (min_size < candidate);
  VK_TRACE(trace, "Cannot reserve %d bytes, returning %s(%d)\n", vk::low32(min_size), vk::vosk_name(VOSK_NO_SPACE),
           VOSK_NO_SPACE);
  return VOSK_NO_SPACE;
}
