// Formats a message text that has been checked, with the arguments that it takes.

#ifndef LIBQX_CU_MESSAGE_H
#define LIBQX_CU_MESSAGE_H

#include <cstddef>

#include "arguments.h"

namespace vk {

// Formats `text`, whose conversions must be valid and take the arguments in `values`, to `buffer`, as printf would with
// errno `error`. What does not fit is cut; the zero byte always fits. A null string argument is empty.
void format_message(char *buffer, std::size_t size, const char *text, const argument_value *values, int error) noexcept;

}  // namespace vk

#endif
