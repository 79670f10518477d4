// From errno to a result code, as tables.
#ifndef UTILS_ERRNO_MAP_H
#define UTILS_ERRNO_MAP_H

#include <cerrno>
#include <span>

#include "qx_vosk.h"

namespace vk {

struct errno_code {
  int err;
  int code;
};

constexpr int code_for(std::span<const errno_code> map, int err) {
  for (const errno_code &row : map)
    if (row.err == err) return row.code;
  return VOSK_FAILURE;
}

// Shared by the existence tests and the i-node search, whose rows are the same.
inline constexpr errno_code kSearchDirectory[] = {
    {EACCES, VOSK_DIR_ACCESS}, {ENOENT, VOSK_DIR_MISSING}, {ENOTDIR, VOSK_DIR_MISSING}};

}  // namespace vk

#endif
