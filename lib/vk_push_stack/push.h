// The recording that both entry points share.
#ifndef LIB_VK_PUSH_STACK_PUSH_H
#define LIB_VK_PUSH_STACK_PUSH_H

#include <cstdarg>

#include "lib/vk_push_stack/incident.h"

namespace vk {

// Records the incident for process `pid`; `args` are the default message's arguments. Returns what the entry points
// return.
int push(int pid, const incident &in, va_list args) noexcept;

}  // namespace vk

#endif
