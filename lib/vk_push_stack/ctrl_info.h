// Reading and writing a stack file's header.
#ifndef LIB_VK_PUSH_STACK_CTRL_INFO_H
#define LIB_VK_PUSH_STACK_CTRL_INFO_H

#include <sys/types.h>

#include <cstdint>

#include "lib/vk_push_stack/stack_file.h"

namespace vk {

// A stack file as read: what the header says, and of which version it is.
struct stack_header {
  std::uint32_t version;
  stack_file::control control;
};

// How room is made in a file that has wrapped: by the standard rule, or by whole records.
enum class reclaim_rule { standard, whole };

// A stack file's bytes by their offsets, as far as records can lie: one of the standard rule may run up to 4 bytes past
// the file size. What lies behind the file's end is zero.
struct stack_image {
  unsigned char bytes[stack_file::kLargest + 4];
  std::size_t end;
};

// Another process is creating the file: it is empty, or still begins with the reservation's text line.
inline constexpr int kStackUnfinished = 1;

// Whether a read of the version, and what it returned, show such a file.
bool is_unfinished(std::uint32_t version, ssize_t count) noexcept;

// Reads and checks the header. Returns 0, -4 (descriptor), -5 (null block), -26 (corrupt) or -99 (foreign version; the
// block is filled, unchecked); while `may_wait` also kStackUnfinished, untraced. Under whole records the recording
// position may be as far behind the file size as the standard rule may have left it. Where there is an `image`, the
// read of the control information goes on behind it, so that seeing all records costs no call.
int vk_get_stack_ctrl_info(int trace_on, const char *trace_path, int fd, stack_header *header, bool may_wait,
                           reclaim_rule rule, stack_image *image = nullptr) noexcept;

}  // namespace vk

#endif
