// Building one incident record.
#ifndef LIB_VK_PUSH_STACK_RECORD_H
#define LIB_VK_PUSH_STACK_RECORD_H

#include <cstdint>

#include "lib/vk_push_stack/incident.h"
#include "lib/vk_push_stack/stack_file.h"
#include "qx_cu.h"

namespace vk {

// What a record holds beside the caller's description.
struct record_context {
  const char *eid;        // 43 bytes, zero when there is no identifier
  std::uint32_t seconds;  // of the identifier
  const char *process_name;
  std::int32_t pid, parent;  // parent is 0 in the process that established the environment
  std::uint32_t thread;
  const cu_arg_t *args;  // the message's arguments
  std::int32_t arg_count;
  const char *detail;  // the details, or the name of the copy of the detail file
};

// Builds the record in `buffer`, up to the length of its body, which it stores. Returns 0, or -38 when it was cut.
int vk_format_stack_rec(const incident &in, const incident_flags &flags, const record_context &context,
                        unsigned char (&buffer)[stack_file::kRecordMax], std::uint32_t *length) noexcept;

}  // namespace vk

#endif
