#include "number.h"

#include <charconv>
#include <system_error>

namespace vosk {

namespace {

template <class Number>
bool parse_whole(std::string_view text, Number &number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

}  // namespace

bool parse_number(std::string_view text, int &number) {
  return parse_whole(text, number);
}
bool parse_number(std::string_view text, unsigned &number) {
  return parse_whole(text, number);
}
bool parse_number(std::string_view text, long &number) {
  return parse_whole(text, number);
}
bool parse_number(std::string_view text, unsigned long long &number) {
  return parse_whole(text, number);
}

}  // namespace vosk
