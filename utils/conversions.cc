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

struct type_row {
  const char *specifiers, *length, *flags;
  arg_type type;
};

// What printf defines, and no more: %hs, %Ld and "% s" are unknown. So a blank behind the '%' of an already formatted
// text ("50% of") is never taken for a string's conversion.
static constexpr type_row kTypes[] = {
    {"di", "", "-+ 0'", arg_type::int_type},
    {"di", "hh", "-+ 0'", arg_type::int_type},
    {"di", "h", "-+ 0'", arg_type::int_type},
    {"di", "l", "-+ 0'", arg_type::long_type},
    {"di", "ll", "-+ 0'", arg_type::long_long_type},
    {"di", "j", "-+ 0'", arg_type::intmax_type},
    {"di", "t", "-+ 0'", arg_type::ptrdiff_type},
    {"di", "z", "-+ 0'", arg_type::ssize_type},
    {"u", "", "-0'", arg_type::unsigned_type},
    {"u", "hh", "-0'", arg_type::unsigned_type},
    {"u", "h", "-0'", arg_type::unsigned_type},
    {"u", "l", "-0'", arg_type::unsigned_long_type},
    {"u", "ll", "-0'", arg_type::unsigned_long_long_type},
    {"u", "j", "-0'", arg_type::uintmax_type},
    {"u", "t", "-0'", arg_type::unsigned_ptrdiff_type},
    {"u", "z", "-0'", arg_type::size_type},
    {"oxX", "", "-#0", arg_type::unsigned_type},
    {"oxX", "hh", "-#0", arg_type::unsigned_type},
    {"oxX", "h", "-#0", arg_type::unsigned_type},
    {"oxX", "l", "-#0", arg_type::unsigned_long_type},
    {"oxX", "ll", "-#0", arg_type::unsigned_long_long_type},
    {"oxX", "j", "-#0", arg_type::uintmax_type},
    {"oxX", "t", "-#0", arg_type::unsigned_ptrdiff_type},
    {"oxX", "z", "-#0", arg_type::size_type},
    {"fFgG", "", "-+ #0'", arg_type::double_type},
    {"fFgG", "l", "-+ #0'", arg_type::double_type},
    {"fFgG", "L", "-+ #0'", arg_type::long_double_type},
    {"eEaA", "", "-+ #0", arg_type::double_type},
    {"eEaA", "l", "-+ #0", arg_type::double_type},
    {"eEaA", "L", "-+ #0", arg_type::long_double_type},
    {"c", "", "-", arg_type::character_type},
    {"s", "", "-", arg_type::string_type},
    {"p", "", "-", arg_type::pointer_type},
};

static bool only_of(const char *allowed, const char *flags) noexcept {
  return flags[std::strspn(flags, allowed)] == '\0';
}

static arg_type type_of(const conversion &c) noexcept {
  for (const type_row &row : kTypes)
    if (std::strchr(row.specifiers, c.specifier) != nullptr && std::strcmp(row.length, c.length) == 0)
      return only_of(row.flags, c.flags) ? row.type : arg_type::none;
  return arg_type::none;
}

static void read_flags(const char *&at, char (&flags)[8]) noexcept {
  std::size_t count = 0;
  for (; *at != '\0' && std::strchr("-+ #0'", *at) != nullptr; ++at)
    if (std::strchr(flags, *at) == nullptr) flags[count++] = *at;
}

static void read_length(const char *&at, char (&length)[3]) noexcept {
  if (*at == '\0' || std::strchr("hljztL", *at) == nullptr) return;
  length[0] = *at++;
  if ((length[0] == 'h' || length[0] == 'l') && *at == length[0]) length[1] = *at++;
}

// Takes "n$" if it is there: false if its number is no position.
bool conversion_scanner::position_prefix(int &position) noexcept {
  position = 0;
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
