// The values that follow a message text in a call.

#ifndef LIBQX_CU_ARGUMENTS_H
#define LIBQX_CU_ARGUMENTS_H

#include <cstdarg>
#include <cstdint>

#include "utils/conversions.h"

namespace vk {

// One argument as it was passed; its arg_type says which member holds it. All integers are in `integer`, sign-extended
// where their type is signed.
union argument_value {
  std::intmax_t integer;
  double real;
  long double long_real;
  const char *string;
  const void *pointer;
};

// Takes the arguments of a valid list from `args`, in order.
void read_arguments(const format_arguments &list, std::va_list args, argument_value *values) noexcept;

}  // namespace vk

#endif
