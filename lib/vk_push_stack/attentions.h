// What a caller is told about an incident that was recorded.
#ifndef LIB_VK_PUSH_STACK_ATTENTIONS_H
#define LIB_VK_PUSH_STACK_ATTENTIONS_H

#include "lib/vk_push_stack/incident.h"

namespace vk {

// Raises the attentions that apply; returns the last one, or the result of reporting no error.
int raise_attentions(const incident &in, const incident_flags &flags) noexcept;

}  // namespace vk

#endif
