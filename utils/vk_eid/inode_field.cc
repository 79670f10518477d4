// The i-node of a stack file, and the search for the file that has it.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/errno_map.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"
#include "utils/vk_utils/base64.h"

namespace vk {
namespace {

// As many bits as six digits hold.
constexpr std::uint64_t kInodeBits = 0xFFFFFFFFF;
constexpr std::size_t kNameBytes = kNameSlot - 1;

// The encoder and the search answer the same errno differently, on purpose.
constexpr errno_code kStatus[] = {{EACCES, VOSK_FILE_ACCESS}, {ENOENT, VOSK_FILE_MISSING}, {ENOTDIR, VOSK_DIR_MISSING}};

// The reentrant reader is deprecated in favour of one that is safe only within one thread.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
dirent *next_entry(DIR *directory, dirent &entry) noexcept {
  std::memset(&entry, 0, sizeof entry);
  dirent *found = nullptr;
  return readdir_r(directory, &entry, &found) == 0 ? found : nullptr;
}
#pragma GCC diagnostic pop

// Returns how many names, at most `list_size`, have the i-node `target`.
int search(DIR *directory, std::uint64_t target, char *list, int list_size) noexcept {
  dirent entry;
  static_assert(sizeof entry == 280);
  int matches = 0;
  while (matches < list_size) {
    const dirent *found = next_entry(directory, entry);
    if (found == nullptr) break;
    if ((found->d_ino & kInodeBits) != target) continue;
    char *slot = list + static_cast<std::size_t>(matches) * kNameSlot;
    std::memset(slot, 0, kNameBytes);
    std::memcpy(slot, found->d_name, strnlen(found->d_name, kNameBytes));
    ++matches;
  }
  return matches;
}

}  // namespace

int vk_get_base_64_inode(int trace_on, const char *trace_path, const char *file, char *inode64rep) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_base_64_inode");
  if (!is_set(file)) {
    VK_TRACE(trace, "Called with a NULL string for a file name\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (inode64rep == nullptr) {
    VK_TRACE(trace, "Called with a NULL pointer for inode64rep\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  struct stat status;
  if (stat(file, &status) != 0) {
    const int err = errno;
    VK_TRACE(trace, "Error trying to get status of file %s\nErrno is %d\n", file, err);
    return code_for(kStatus, err);
  }
  put_field(status.st_ino, inode64rep, kLocationDigits);
  VK_TRACE(trace, "File %s i-node is %d\nBase-64 representation is %s\nReturning %s(%d) to the caller\n", file,
           low32(status.st_ino), inode64rep, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

int vk_conv_base_64_inode(int trace_on, const char *trace_path, const char *directory, const char *inode64rep,
                          char *list, int list_size) noexcept {
  const tracer trace(trace_on, trace_path, "vk_conv_base_64_inode");
  if (!is_set(directory)) {
    VK_TRACE(trace,
             "Called with a NULL value for directory - cannot locate file without it\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (!is_set(inode64rep)) {
    VK_TRACE(trace,
             "Called with a NULL value for inode64rep - cannot convert to file name\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  if (list == nullptr || list_size < 1) {
    VK_TRACE(trace, "Called with a NULL pointer for file name list\nReturning %s(%d) to caller\n",
             vosk_name(VOSK_INV_PARAM5), VOSK_INV_PARAM5);
    return VOSK_INV_PARAM5;
  }
  const std::uint64_t target = vk_a64l(inode64rep);
  DIR *opened = opendir(directory);
  if (opened == nullptr) {
    const int err = errno;
    VK_TRACE(trace, "Unable to open the directory %s - errno is %d\n", directory, err);
    return code_for(kSearchDirectory, err);
  }
  const int matches = search(opened, target, list, list_size);
  (void)closedir(opened);
  if (matches == 0) {
    VK_TRACE(trace,
             "Cannot locate the base-64 i-node %s (decimal %d) in directory %s\nReturning %s(%d) to the caller\n",
             inode64rep, low32(target), directory, vosk_name(VOSK_FILE_MISSING), VOSK_FILE_MISSING);
    return VOSK_FILE_MISSING;
  }
  VK_TRACE(trace,
           "%d matches to base-64 i-node %s (decimal %d) found in directory %s\nFirst match: %.255s\n"
           "Returning %s(%d) to the caller\n",
           matches, inode64rep, low32(target), directory, list, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
