// Messages as the library takes them: printf formats whose conversions are all for strings.
#ifndef TOOLS_VOSK_MESSAGE_FORMAT_H
#define TOOLS_VOSK_MESSAGE_FORMAT_H

#include <cstddef>
#include <string>

namespace vosk {

inline constexpr std::size_t kMostArguments = 16;

// The format that prints `text` as it is: with each '%' doubled.
std::string as_format(const std::string &text);

// Throws usage_error unless `format` has conversions for exactly `arguments` strings: "%s" or "%N$s", with flags, width
// and precision as numbers, and "%%".
void check_format(const std::string &format, std::size_t arguments);

}  // namespace vosk

#endif
