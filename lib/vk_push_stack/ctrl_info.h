// Reading and writing a stack file's header.
#ifndef LIB_VK_PUSH_STACK_CTRL_INFO_H
#define LIB_VK_PUSH_STACK_CTRL_INFO_H

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

// Another process is creating the file: it is empty, or still begins with the reservation's text line.
inline constexpr int kStackUnfinished = 1;

// Reads and checks the header. Returns 0, -4 (descriptor), -5 (null block), -26 (corrupt) or -99 (foreign version; the
// block is filled, unchecked); while `may_wait` also kStackUnfinished, untraced. Under
// whole records the recording position may be as far behind the file size as the standard rule may have left it.
int vk_get_stack_ctrl_info(int trace_on, const char *trace_path, int fd, stack_header *header, bool may_wait,
                           reclaim_rule rule) noexcept;

}  // namespace vk

#endif
