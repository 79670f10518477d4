#include "message_format.h"

#include "options.h"
#include "reader/escape.h"
#include "utils/conversions.h"

namespace vosk {

namespace {

bool takes_a_string(const vk::conversion &c) {
  using vk::field_number;
  return c.type == vk::arg_type::string_type && c.width.where != field_number::in_argument &&
         c.precision.where != field_number::in_argument;
}

}  // namespace

std::string as_format(const std::string &text) {
  std::string format;
  for (const char c : text) format.append(c == '%' ? 2 : 1, c);
  return format;
}

void check_format(const std::string &format, std::size_t arguments) {
  if (arguments > kMostArguments)
    throw usage_error("--arg can be given at most " + std::to_string(kMostArguments) + " times");
  vk::conversion_scanner scanner(format.c_str());
  vk::conversion c;
  vk::scan_result result = scanner.next(c);
  for (; result == vk::scan_result::found; result = scanner.next(c))
    if (c.specifier != '%' && !takes_a_string(c))
      throw usage_error("--format takes strings only: %s, %N$s and %%, not " + escaped({c.begin, c.end}));
  const vk::format_arguments wanted = vk::arguments_of(format.c_str());
  if (result == vk::scan_result::broken || !wanted.valid)
    throw usage_error("--format has a conversion that is not %s, %N$s or %%, or leaves an argument out");
  if (static_cast<std::size_t>(wanted.count) != arguments)
    throw usage_error("--format takes " + std::to_string(wanted.count) + " arguments, and --arg is given " +
                      std::to_string(arguments) + " times");
}

}  // namespace vosk
