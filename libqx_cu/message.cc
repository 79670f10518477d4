#include "message.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace vk {

namespace {

// The caller's buffer; it takes what fits.
class bounded_text {
 public:
  bounded_text(char *buffer, std::size_t size) noexcept : next_(buffer), room_(size - 1) { *next_ = '\0'; }
  bool full() const noexcept { return room_ == 0; }

  void put(const char *text, std::size_t length) noexcept {
    length = std::min(length, room_);
    std::memcpy(next_, text, length);
    advance(length);
  }

  // Formats one value with one conversion. The format is made here, of checked parts; it is no text of anybody's.
  template <typename T>
  void put_value(const char *format, int width, int precision, T value) noexcept {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(next_, room_ + 1, format, width, precision, value);
#pragma GCC diagnostic pop
    if (length > 0) advance(std::min(static_cast<std::size_t>(length), room_));
  }

 private:
  void advance(std::size_t length) noexcept {
    next_ += length;
    room_ -= length;
    *next_ = '\0';
  }

  char *next_;
  std::size_t room_;
};

// "%" flags "*.*" length specifier
struct single_format {
  char text[1 + sizeof(conversion::flags) + 3 + sizeof(conversion::length) + 2];

  explicit single_format(const conversion &c) noexcept {
    const char specifier = c.specifier == 'm' ? 's' : c.specifier;
    (void)std::snprintf(text, sizeof text, "%%%s*.*%s%c", c.flags, c.length, specifier);
  }
};

// A number from the text or from an argument; one from an argument is brought into the same limits.
int number_of(const field_number &number, const argument_value *values, int absent) noexcept {
  if (number.where == field_number::absent) return absent;
  if (number.where == field_number::in_text) return number.value;
  const std::intmax_t given = values[number.value - 1].integer;
  return static_cast<int>(std::clamp<std::intmax_t>(given, -kMaxFieldNumber, kMaxFieldNumber));
}

void put_conversion(bounded_text &out, const conversion &c, const argument_value *values, int error) noexcept {
  const single_format format(c);
  const int width = number_of(c.width, values, 0);
  const int precision = number_of(c.precision, values, -1);
  if (c.specifier == 'm') {
    char reason[256];
    out.put_value(format.text, width, precision, strerror_r(error, reason, sizeof reason));
    return;
  }
  const argument_value &value = values[c.position - 1];
  const auto put = [&](auto v) { out.put_value(format.text, width, precision, v); };
  switch (c.type) {
    case arg_type::int_type:
    case arg_type::character_type:
      put(static_cast<int>(value.integer));
      break;
    case arg_type::unsigned_type:
      put(static_cast<unsigned>(value.integer));
      break;
    case arg_type::long_type:
      put(static_cast<long>(value.integer));
      break;
    case arg_type::unsigned_long_type:
      put(static_cast<unsigned long>(value.integer));
      break;
    case arg_type::long_long_type:
      put(static_cast<long long>(value.integer));
      break;
    case arg_type::unsigned_long_long_type:
      put(static_cast<unsigned long long>(value.integer));
      break;
    case arg_type::intmax_type:
      put(value.integer);
      break;
    case arg_type::uintmax_type:
      put(static_cast<std::uintmax_t>(value.integer));
      break;
    case arg_type::ptrdiff_type:
    case arg_type::unsigned_ptrdiff_type:
      put(static_cast<std::ptrdiff_t>(value.integer));
      break;
    case arg_type::ssize_type:
    case arg_type::size_type:
      put(static_cast<std::size_t>(value.integer));
      break;
    case arg_type::double_type:
      put(value.real);
      break;
    case arg_type::long_double_type:
      put(value.long_real);
      break;
    case arg_type::string_type:
      put(value.string != nullptr ? value.string : "");
      break;
    default:  // a pointer: no argument of a valid list is without a type
      put(value.pointer);
      break;
  }
}

}  // namespace

void format_message(char *buffer, std::size_t size, const char *text, const argument_value *values,
                    int error) noexcept {
  bounded_text out(buffer, size);
  conversion_scanner scanner(text);
  conversion c;
  while (!out.full() && scanner.next(c) == scan_result::found) {
    out.put(text, static_cast<std::size_t>(c.begin - text));
    if (c.specifier == '%')
      out.put("%", 1);
    else
      put_conversion(out, c, values, error);
    text = c.end;
  }
  out.put(text, std::strlen(text));
}

}  // namespace vk
