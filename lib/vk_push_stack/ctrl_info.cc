#include "lib/vk_push_stack/ctrl_info.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_debug/trace_file.h"

namespace vk {
namespace {

using stack_file::control;

int corrupt_seek(const tracer &trace, int position, int err) noexcept {
  VK_TRACE(trace, "Cannot lseek to position %d in stack - error code %d\nReturning %s(%d)\n", position, err,
           vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
  return VOSK_FILE_CORRUPT;
}

int corrupt_read(const tracer &trace, int position, int err) noexcept {
  VK_TRACE(trace, "Cannot read from position %d in stack - error code %d\nReturning %s(%d)\n", position, err,
           vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
  return VOSK_FILE_CORRUPT;
}

int foreign(const tracer &trace, std::uint32_t version, const control &c) noexcept {
  VK_TRACE(trace,
           "Stack file version: UNKNOWN (0x%x)\nInit offset: %d bytes, Recording position: %d bytes\n"
           "Earliest rec offset: %d bytes, File size: %d bytes\nReturning %s(%d)\n",
           version, c.init_offset, c.recording_position, c.earliest_record, c.file_size, vosk_name(VOSK_UNSUPPORTED),
           VOSK_UNSUPPORTED);
  return VOSK_UNSUPPORTED;
}

constexpr bool outside(std::int32_t value, std::int32_t lowest, std::int32_t highest = stack_file::kLargest) noexcept {
  return value < lowest || value > highest;
}

// Of a file whose size is in range. The standard rule lets a record run up to 4 bytes past it, and then refuses the
// file.
constexpr std::int32_t highest_position(const control &c, reclaim_rule rule) noexcept {
  return rule == reclaim_rule::whole ? c.file_size + 4 : stack_file::kLargest;
}

// The messages print 8192 and 16384 as the bounds of every field, although positions may be as low as 24; that is
// meant.
#define VK_OUT_OF_RANGE(trace, what, value)                                                                           \
  VK_TRACE(trace, what " %d is beyond accpetable range of %d and %d\nAssuming file is corrupted\nReturning %s(%d)\n", \
           value, stack_file::kSmallest, stack_file::kLargest, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT)

// Positions are checked against fixed bounds only, never against the file size or each other.
bool is_sound(const tracer &trace, const control &c, reclaim_rule rule) noexcept {
  if (outside(c.file_size, stack_file::kSmallest)) {
    VK_OUT_OF_RANGE(trace, "File size", c.file_size);
  } else if (outside(c.recording_position, stack_file::kHeaderSize, highest_position(c, rule))) {
    VK_OUT_OF_RANGE(trace, "Current recording position", c.recording_position);
  } else if (outside(c.earliest_record, stack_file::kHeaderSize)) {
    VK_OUT_OF_RANGE(trace, "Earliest record location", c.earliest_record);
  } else if (outside(c.init_offset, stack_file::kHeaderSize)) {
    VK_OUT_OF_RANGE(trace, "Initial record offset", c.init_offset);
  } else if (c.wrapped > 1) {
    VK_TRACE(trace,
             "File wrap indicator 0x%x is not one of 0x%x or 0x%x\nAssuming file is corrupted\nReturning %s(%d)\n",
             unsigned{c.wrapped}, 1u, 0u, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
  } else {
    return true;
  }
  return false;
}

ssize_t read_control(int fd, control &c, stack_image *image) noexcept {
  if (image == nullptr) return read(fd, &c, sizeof c);
  *image = {};
  std::size_t end = stack_file::kControlAt;
  const ssize_t first = read(fd, image->bytes + end, sizeof image->bytes - end);
  std::memcpy(&c, image->bytes + end, sizeof c);
  // A short read would hide records; a sound file ends no earlier than it says.
  const std::int32_t expected = std::min(c.file_size, stack_file::kLargest);
  for (ssize_t count = first; count > 0; count = read(fd, image->bytes + end, sizeof image->bytes - end)) {
    end += static_cast<std::size_t>(count);
    if (low32(end) >= expected) break;
  }
  image->end = end;
  return first;
}

}  // namespace

bool is_unfinished(std::uint32_t version, ssize_t count) noexcept {
  std::uint32_t text_line;
  std::memcpy(&text_line, kOffsetKey, sizeof text_line);
  return count == 0 || version == text_line;
}

int vk_get_stack_ctrl_info(int trace_on, const char *trace_path, int fd, stack_header *header, bool may_wait,
                           reclaim_rule rule, stack_image *image) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_stack_ctrl_info");
  if (fd < 0) {
    VK_TRACE(trace, "Invalid VOSK Error Stack file descriptor %d\n", fd);
    return VOSK_INV_PARAM3;
  }
  if (header == nullptr) {
    VK_TRACE(trace, "Invalid buffer address 0x%x\n", 0u);
    return VOSK_INV_PARAM4;
  }
  *header = {};  // a short read is no error: what is missing counts as zero
  if (lseek(fd, stack_file::kVersionAt, SEEK_SET) == -1) return corrupt_seek(trace, stack_file::kVersionAt, errno);
  const ssize_t count = read(fd, &header->version, sizeof header->version);
  if (count == -1) return corrupt_read(trace, stack_file::kVersionAt, errno);
  if (may_wait && is_unfinished(header->version, count)) return kStackUnfinished;
  if (read_control(fd, header->control, image) == -1) return corrupt_read(trace, stack_file::kControlAt, errno);

  const std::uint32_t version = header->version;
  const control &c = header->control;
  if (stack_file::is_foreign_version(version)) return foreign(trace, version, c);
  if (version != stack_file::kVersion1) {
    VK_TRACE(trace, "Stack version 0x%x is not a supported version\nAssuming file is corrupted\nReturning %s(%d)\n",
             version, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  if (!is_sound(trace, c, rule)) return VOSK_FILE_CORRUPT;
  VK_TRACE(trace,
           "Stack file version: VOSK_STACK_VERSION_1 (0x%x)\nInit offset: %d bytes, Recording position: %d bytes\n"
           "Earliest rec offset: %d bytes, File size: %d bytes, Wrapped: %d\nReturning %s(%d)\n",
           version, c.init_offset, c.recording_position, c.earliest_record, c.file_size, int{c.wrapped},
           vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace vk
