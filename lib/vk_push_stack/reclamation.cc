#include "lib/vk_push_stack/reclamation.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_utils/clear_bytes.h"

namespace vk {
namespace {

// Where a file of a foreign version ends for reclamation, whatever its unchecked header says.
constexpr std::int64_t kForeignEnd = 16388;

class reclaimer {
 public:
  reclaimer(const tracer &trace, int fd, std::int64_t need, std::int64_t end) noexcept
      : trace_(trace), fd_(fd), need_(need), end_(end) {}

  // Clears from `offset` on until more than `need` bytes are free, `cleared` of which were before. Stores the offset of
  // the earliest record left.
  int run(std::int64_t offset, std::int64_t cleared, std::int64_t &earliest) const noexcept {
    for (;;) {
      std::uint32_t length = 0;  // bytes that cannot be read count as zero
      if (!seek(offset)) return VOSK_FILE_CORRUPT;
      if (read(fd_, &length, sizeof length) == -1) {
        VK_TRACE(trace_, "Cannot read from position %d in stack - error code %d\nReturning %s(%d)\n", low32(offset),
                 errno, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
        return VOSK_FILE_CORRUPT;
      }
      if (length == 0) {
        VK_TRACE(trace_, "No more records after offset %d\nReset earliest pointer to %d offset\n", low32(offset),
                 stack_file::kHeaderSize);
        earliest = stack_file::kHeaderSize;  // this number and not the init offset, on purpose
        return VOSK_SUCCESS;
      }
      if (!seek(offset)) return VOSK_FILE_CORRUPT;
      VK_TRACE(trace_, "Clearing record of size %d at offset %d in file\n", low32(length), low32(offset));
      // 4 less than the record occupies, on purpose: its last bytes may be taken for the next length.
      const std::int64_t step = std::int64_t{length} + 4;
      const std::int64_t next = offset + step;
      cleared += step;
      if (next > end_) {
        VK_TRACE(trace_, "fclear to position %d in file would corrupt the file - \nReturning %s(%d)\n", low32(next),
                 vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
        return VOSK_FILE_CORRUPT;
      }
      if (clear_bytes(fd_, step) == -1) {
        VK_TRACE(trace_, "Failure in fclear at offset %d in file - error code %d\nReturning %s(%d)\n", low32(offset),
                 errno, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
        return VOSK_FILE_CORRUPT;
      }
      VK_TRACE(trace_, "%d bytes now cleared for new record\n", low32(cleared));
      if (cleared > need_) {
        earliest = next;
        return VOSK_SUCCESS;
      }
      offset = next;
    }
  }

 private:
  bool seek(std::int64_t offset) const noexcept {
    if (lseek(fd_, offset, SEEK_SET) != -1) return true;
    VK_TRACE(trace_, "Cannot lseek to position %d in stack - error code %d\nReturning %s(%d)\n", low32(offset), errno,
             vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return false;
  }

  const tracer &trace_;
  const int fd_;
  const std::int64_t need_, end_;
};

}  // namespace

int vk_clear_records(int trace_on, const char *trace_path, int fd, stack_header *header,
                     std::uint32_t length) noexcept {
  const tracer trace(trace_on, trace_path, "vk_clear_records");
  if (fd < 0) {
    VK_TRACE(trace, "Invalid file descriptor %d - returning %s(%d)\n", fd, vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (header == nullptr) {
    VK_TRACE(trace, "Invalid ctrl info ptr 0x%x - returning %s(%d)\n", 0u, vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  stack_file::control &control = header->control;
  // 4 less than the record occupies, on purpose: a record may run up to 4 bytes past the file size.
  const std::int64_t need = std::int64_t{length} + 4;
  const std::int64_t position = control.recording_position, size = control.file_size;
  std::int64_t write_position = position, cleared = 0, start = control.earliest_record;
  if (need > size - position) {
    VK_TRACE(trace, "%s", "Not enough room at end of stack, wrap to start\n");
    write_position = start = control.init_offset;
    control.wrapped = 1;
  } else {
    VK_TRACE(trace, "%s", "Enough room at end of stack to write record\n");
    cleared = std::max<std::int64_t>(start - position, 0);
  }
  if (control.wrapped != 1) {
    VK_TRACE(trace, "%s", "File not wrapped - no records to clear\n");
    return VOSK_SUCCESS;
  }
  std::int64_t earliest = start;
  if (cleared <= need) {
    const std::int64_t end = header->version == stack_file::kVersion1 ? size : std::min(size, kForeignEnd);
    const int result = reclaimer(trace, fd, need, end).run(start, cleared, earliest);
    if (result != VOSK_SUCCESS) return result;
  }
  control.earliest_record = low32(earliest);
  control.recording_position = low32(write_position);
  VK_TRACE(trace, "Space cleared\nwrite offset %d, earliest rec offset %d\nReturning %s(%d)\n",
           control.recording_position, control.earliest_record, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
