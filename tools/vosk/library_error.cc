#include "library_error.h"

#include <string_view>

#include "include/qx_cu.h"
#include "reader/escape.h"

// A library with the five routines that libqx_vosk needs may stand in for libqx_cu; it need not have this one.
#pragma weak cu_get_error_1

namespace vosk {

std::string library_text(int code) {
  cu_error_t error{};
  if (cu_get_error_1 != nullptr && cu_get_error_1(&error) == code && error.text != nullptr && *error.text != '\0')
    return error.text;
  return "libqx_vosk returned " + std::to_string(code) + ".";
}

std::string one_line(const std::string &text) {
  std::string line;
  bool blank = false;
  for (const char c : text) {
    if (std::string_view(" \t\n").find(c) != std::string_view::npos) {
      blank = !line.empty();
      continue;
    }
    if (blank) line += ' ';
    blank = false;
    line += c;
  }
  return escaped(line);
}

std::string first_sentence(const std::string &text) {
  const std::string line = one_line(text);
  const std::size_t end = line.find(". ");
  return end == std::string::npos ? line : line.substr(0, end + 1);
}

}  // namespace vosk
