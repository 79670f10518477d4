#include "conversions.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace vk {

static bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Reads a decimal number of digits at `at`, keeping anything beyond the limits at kMaxFieldNumber + 1.
static int read_number(const char *&at) noexcept {
  int number = 0;
  for (; is_digit(*at); ++at)
    if (number <= kMaxFieldNumber) number = number * 10 + (*at - '0');
  return number <= kMaxFieldNumber ? number : kMaxFieldNumber + 1;
}

// The types that a specifier takes, by length modifier: none, hh, h, l, ll, j, t, z, L.
struct specifier_row {
  const char *flags;
  arg_type types[9];
};

// What printf defines, and no more: %hs, %Ld and "% s" are unknown. So a blank behind the '%' of an already formatted
// text ("50% of") is never taken for a string's conversion.
static constexpr specifier_row kSigned = {
    "-+ 0'",
    {arg_type::int_type, arg_type::int_type, arg_type::int_type, arg_type::long_type, arg_type::long_long_type,
     arg_type::intmax_type, arg_type::ptrdiff_type, arg_type::ssize_type, arg_type::none}};
static constexpr specifier_row kUnsigned = {
    "-0'",
    {arg_type::unsigned_type, arg_type::unsigned_type, arg_type::unsigned_type, arg_type::unsigned_long_type,
     arg_type::unsigned_long_long_type, arg_type::uintmax_type, arg_type::unsigned_ptrdiff_type, arg_type::size_type,
     arg_type::none}};
static constexpr specifier_row kBits = {
    "-#0",
    {arg_type::unsigned_type, arg_type::unsigned_type, arg_type::unsigned_type, arg_type::unsigned_long_type,
     arg_type::unsigned_long_long_type, arg_type::uintmax_type, arg_type::unsigned_ptrdiff_type, arg_type::size_type,
     arg_type::none}};
static constexpr specifier_row kReal = {
    "-+ #0'",
    {arg_type::double_type, arg_type::none, arg_type::none, arg_type::double_type, arg_type::none, arg_type::none,
     arg_type::none, arg_type::none, arg_type::long_double_type}};
static constexpr specifier_row kExponent = {
    "-+ #0",
    {arg_type::double_type, arg_type::none, arg_type::none, arg_type::double_type, arg_type::none, arg_type::none,
     arg_type::none, arg_type::none, arg_type::long_double_type}};
static constexpr specifier_row kCharacter = {"-", {arg_type::character_type}};
static constexpr specifier_row kString = {"-", {arg_type::string_type}};
static constexpr specifier_row kPointer = {"-", {arg_type::pointer_type}};

static const specifier_row *row_of(char specifier) noexcept {
  switch (specifier) {
    case 'd':
    case 'i':
      return &kSigned;
    case 'u':
      return &kUnsigned;
    case 'o':
    case 'x':
    case 'X':
      return &kBits;
    case 'f':
    case 'F':
    case 'g':
    case 'G':
      return &kReal;
    case 'e':
    case 'E':
    case 'a':
    case 'A':
      return &kExponent;
    case 'c':
      return &kCharacter;
    case 's':
      return &kString;
    case 'p':
      return &kPointer;
    default:
      return nullptr;
  }
}

static std::size_t index_of_length(const char (&length)[3]) noexcept {
  switch (length[0]) {
    case 'h':
      return length[1] != '\0' ? 1 : 2;
    case 'l':
      return length[1] != '\0' ? 4 : 3;
    case 'j':
      return 5;
    case 't':
      return 6;
    case 'z':
      return 7;
    case 'L':
      return 8;
    default:
      return 0;
  }
}

static bool only_of(const char *allowed, const char *flags) noexcept {
  return *flags == '\0' || flags[std::strspn(flags, allowed)] == '\0';
}

static arg_type type_of(const conversion &c) noexcept {
  const specifier_row *row = row_of(c.specifier);
  return row != nullptr && only_of(row->flags, c.flags) ? row->types[index_of_length(c.length)] : arg_type::none;
}

static bool is_flag(char c) noexcept {
  return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\'';
}

static void read_flags(const char *&at, char (&flags)[8]) noexcept {
  std::size_t count = 0;
  for (; is_flag(*at); ++at)
    if (std::strchr(flags, *at) == nullptr) flags[count++] = *at;
}

static void read_length(const char *&at, char (&length)[3]) noexcept {
  const char c = *at;
  if (c != 'h' && c != 'l' && c != 'j' && c != 'z' && c != 't' && c != 'L') return;
  length[0] = c;
  ++at;
  if ((length[0] == 'h' || length[0] == 'l') && *at == length[0]) length[1] = *at++;
}

// Takes "n$" if it is there, which changes `position`: false if its number is no position.
bool conversion_scanner::position_prefix(int &position) noexcept {
  const char *at = at_;
  if (!is_digit(*at)) return true;
  const int number = read_number(at);
  if (*at != '$') return true;
  at_ = at + 1;
  position = number;
  return number >= 1 && number <= kMaxArguments;
}

// Settles which argument is meant: the one of `position`, or the next one if that is 0.
bool conversion_scanner::argument(int position, int &resolved) noexcept {
  const auto style = position == 0 ? plain : positional;
  if (style_ != undecided && style_ != style) return false;
  style_ = style;
  resolved = position == 0 ? ++plain_count_ : position;
  return resolved <= kMaxArguments;
}

bool conversion_scanner::width_or_precision(field_number &number) noexcept {
  if (*at_ != '*') {
    number.where = field_number::in_text;
    number.value = read_number(at_);
    return number.value <= kMaxFieldNumber;
  }
  ++at_;
  int position = 0;
  number.where = field_number::in_argument;
  return position_prefix(position) && argument(position, number.value);
}

bool conversion_scanner::parse(conversion &c) noexcept {
  c.begin = at_++;
  int position = 0;
  if (!position_prefix(position)) return false;
  read_flags(at_, c.flags);
  if ((*at_ == '*' || is_digit(*at_)) && !width_or_precision(c.width)) return false;
  if (*at_ == '.') {
    ++at_;
    if (!width_or_precision(c.precision)) return false;
  }
  read_length(at_, c.length);
  c.specifier = *at_;
  if (c.specifier == '\0') return false;
  c.end = ++at_;
  if (c.specifier == '%') return c.end - c.begin == 2;
  if (c.specifier == 'm') return position == 0 && c.length[0] == '\0' && only_of("-", c.flags);
  c.type = type_of(c);
  return c.type != arg_type::none && argument(position, c.position);
}

scan_result conversion_scanner::next(conversion &found) noexcept {
  const char *percent = std::strchr(at_, '%');
  if (percent == nullptr) {
    at_ += std::strlen(at_);
    return scan_result::finished;
  }
  at_ = percent;
  found = conversion{};
  if (parse(found)) return scan_result::found;
  at_ = percent;  // a further call gives the same answer
  return scan_result::broken;
}

// Notes that the argument at `position` is taken as `type`; false if it already is as another.
static bool note(format_arguments &list, int position, arg_type type) noexcept {
  arg_type &slot = list.types[position - 1];
  if (slot == arg_type::none)
    ++list.count;
  else if (slot != type)
    return false;
  slot = type;
  return true;
}

static bool note_number(format_arguments &list, const field_number &number) noexcept {
  return number.where != field_number::in_argument || note(list, number.value, arg_type::int_type);
}

format_arguments arguments_of(const char *format) noexcept {
  format_arguments list;
  conversion_scanner scanner(format);
  conversion c;
  scan_result result = scanner.next(c);
  for (; result == scan_result::found; result = scanner.next(c)) {
    if (c.specifier == 'm') list.uses_errno = true;
    if (!note_number(list, c.width) || !note_number(list, c.precision)) return list;
    if (c.position != 0 && !note(list, c.position, c.type)) return list;
  }
  if (result == scan_result::broken) return list;
  for (int i = 0; i < list.count; ++i)
    if (list.types[i] == arg_type::none) return list;
  list.valid = true;
  return list;
}

bool same_conversions(const char *a, const char *b) noexcept {
  const format_arguments of_a = arguments_of(a), of_b = arguments_of(b);
  return of_a.valid && of_b.valid && of_a.uses_errno == of_b.uses_errno && of_a.count == of_b.count &&
         std::equal(of_a.types, of_a.types + of_a.count, of_b.types);
}

}  // namespace vk
