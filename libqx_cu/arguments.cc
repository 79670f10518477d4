#include "arguments.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "qx_cu.h"

namespace vk {

// A va_list that is passed on by reference; as a parameter it may be an array, and every routine would need its own
// copy.
struct argument_source {
  std::va_list list;
};

template <typename T>
static std::intmax_t take_integer(argument_source &source) noexcept {
  return static_cast<std::intmax_t>(va_arg(source.list, T));
}

static void take(argument_source &source, arg_type type, argument_value &value) noexcept {
  switch (type) {
    case arg_type::int_type:
    case arg_type::character_type:
      value.integer = take_integer<int>(source);
      break;
    case arg_type::unsigned_type:
      value.integer = take_integer<unsigned>(source);
      break;
    case arg_type::long_type:
      value.integer = take_integer<long>(source);
      break;
    case arg_type::unsigned_long_type:
      value.integer = take_integer<unsigned long>(source);
      break;
    case arg_type::long_long_type:
      value.integer = take_integer<long long>(source);
      break;
    case arg_type::unsigned_long_long_type:
      value.integer = take_integer<unsigned long long>(source);
      break;
    case arg_type::intmax_type:
      value.integer = take_integer<std::intmax_t>(source);
      break;
    case arg_type::uintmax_type:
      value.integer = take_integer<std::uintmax_t>(source);
      break;
    case arg_type::ptrdiff_type:
      value.integer = take_integer<std::ptrdiff_t>(source);
      break;
    case arg_type::unsigned_ptrdiff_type:
      value.integer = take_integer<std::make_unsigned_t<std::ptrdiff_t>>(source);
      break;
    case arg_type::ssize_type:
      value.integer = take_integer<ssize_t>(source);
      break;
    case arg_type::size_type:
      value.integer = take_integer<std::size_t>(source);
      break;
    case arg_type::double_type:
      value.real = va_arg(source.list, double);
      break;
    case arg_type::long_double_type:
      value.long_real = va_arg(source.list, long double);
      break;
    case arg_type::string_type:
      value.string = va_arg(source.list, const char *);
      break;
    default:  // a pointer: no argument of a valid list is without a type
      value.pointer = va_arg(source.list, const void *);
      break;
  }
}

void read_arguments(const format_arguments &list, std::va_list args, argument_value *values) noexcept {
  argument_source source;
  va_copy(source.list, args);
  for (int i = 0; i < list.count; ++i) take(source, list.types[i], values[i]);
  va_end(source.list);
}

// The public form of one argument. %hhd of 300 is stored as passed: the length modifier belongs to the text.
static cu_arg_t public_form(arg_type type, const argument_value &value) noexcept {
  cu_arg_t arg{};
  switch (type) {
    case arg_type::int_type:
      arg.type = CU_ARG_INT;
      arg.value.i64 = value.integer;
      break;
    case arg_type::unsigned_type:
      arg.type = CU_ARG_UINT;
      arg.value.u64 = static_cast<std::uint64_t>(value.integer);
      break;
    case arg_type::character_type:
      arg.type = CU_ARG_CHAR;
      arg.value.i64 = value.integer;
      break;
    case arg_type::long_type:
    case arg_type::long_long_type:
    case arg_type::intmax_type:
    case arg_type::ptrdiff_type:
    case arg_type::ssize_type:
      arg.type = CU_ARG_LONG;
      arg.value.i64 = value.integer;
      break;
    case arg_type::string_type:
      arg.type = CU_ARG_STRING;
      arg.value.string = value.string;
      break;
    case arg_type::double_type:
      arg.type = CU_ARG_DOUBLE;
      arg.value.real = value.real;
      break;
    case arg_type::long_double_type:
      arg.type = CU_ARG_DOUBLE;
      arg.value.real = static_cast<double>(value.long_real);
      break;
    case arg_type::pointer_type:
      arg.type = CU_ARG_POINTER;
      arg.value.pointer = value.pointer;
      break;
    default:  // the unsigned forms wider than int
      arg.type = CU_ARG_ULONG;
      arg.value.u64 = static_cast<std::uint64_t>(value.integer);
      break;
  }
  return arg;
}

}  // namespace vk

extern "C" int cu_set_error_args_1(const char *default_message, va_list args, cu_arg_t **out, int *count) {
  if (out == nullptr || count == nullptr) return -1;
  *out = nullptr;
  *count = 0;
  if (default_message == nullptr) return 0;
  const vk::format_arguments list = vk::arguments_of(default_message);
  *count = list.count;
  if (!list.valid) return -1;
  if (list.count == 0) return 0;

  vk::argument_value values[vk::kMaxArguments];
  vk::read_arguments(list, args, values);
  auto *array = static_cast<cu_arg_t *>(std::calloc(static_cast<std::size_t>(list.count), sizeof(cu_arg_t)));
  if (array == nullptr) return -1;
  for (int i = 0; i < list.count; ++i) array[i] = vk::public_form(list.types[i], values[i]);
  *out = array;
  return 0;
}

extern "C" int cu_rel_error_args_1(cu_arg_t *args, [[maybe_unused]] int count) {
  std::free(args);
  return 0;
}
