// Making room for a record.
#ifndef LIB_VK_PUSH_STACK_RECLAMATION_H
#define LIB_VK_PUSH_STACK_RECLAMATION_H

#include <cstdint>

#include "lib/vk_push_stack/ctrl_info.h"

namespace vk {

// Decides where a record with a body of `length` bytes goes, clears older records there once the file has wrapped, and
// updates positions and wrap byte in `header`, which the caller writes back. Returns 0, -4 (descriptor), -5 (null
// header) or -26; then the header is to be discarded.
int vk_clear_records(int trace_on, const char *trace_path, int fd, stack_header *header, std::uint32_t length) noexcept;

}  // namespace vk

#endif
