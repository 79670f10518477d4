// Whether there is a trace file, and its creation.
#include <sys/auxv.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qx_vosk.h"
#include "utils/errno_map.h"
#include "utils/paths.h"

namespace {

constexpr int kFileExists = 1, kFileMissing = 2, kTracingOff = 3;
constexpr std::int64_t kTraceFileSize = 16384, kTraceFileMinimum = 8192;

constexpr vk::errno_code kStatus[] = {
    {ENOENT, kFileMissing},    {EOVERFLOW, kFileExists},  // too large for the status call, but there
    {EACCES, VOSK_DIR_ACCESS}, {ENOTDIR, VOSK_DIR_MISSING},       {ESTALE, VOSK_STALE_FS},
    {ELOOP, VOSK_LINK_LOOP},   {ENAMETOOLONG, VOSK_NAME_TOO_LONG}};

}  // namespace

int vk_is_debug_file_set(char *path_out) {
  if (path_out == nullptr) return VOSK_INV_PARAM1;
  const char *value = getenv("VOSKDEBUG");
  if (value == nullptr) return kTracingOff;
  // A process with raised privileges writes to no file that its caller names.
  if (getauxval(AT_SECURE) != 0) return kTracingOff;
  char path[vk::kPathSize];
  if (!vk::copy_path(path, value)) return VOSK_NAME_TOO_LONG;

  struct stat status;
  int result = kFileExists;
  if (stat(path, &status) != 0)
    result = vk::code_for(kStatus, errno);
  else if (S_ISDIR(status.st_mode))
    return VOSK_IS_DIR;
  if (result > 0) std::memcpy(path_out, path, std::strlen(path) + 1);
  return result;
}

int vk_create_debug_file(const char *path) {
  std::int64_t reserved_size = 0;
  // The reservation itself is never traced: there is no file yet to trace it to.
  return vk_allocate_file(0, nullptr, path, kTraceFileSize, kTraceFileMinimum, &reserved_size);
}
