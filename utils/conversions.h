// Reads the conversions of a printf format without ever using it as one: for texts that come from catalogues or callers
// and have to be checked before anything is formatted with them.

#ifndef UTILS_CONVERSIONS_H
#define UTILS_CONVERSIONS_H

namespace vk {

inline constexpr int kMaxArguments = 64;       // positions beyond count as unknown conversions
inline constexpr int kMaxFieldNumber = 65535;  // so do wider fields and longer precisions

// The C types in which arguments are passed, after the default promotions.
enum class arg_type : unsigned char {
  none,
  int_type,
  unsigned_type,
  long_type,
  unsigned_long_type,
  long_long_type,
  unsigned_long_long_type,
  intmax_type,
  uintmax_type,
  ptrdiff_type,
  unsigned_ptrdiff_type,
  ssize_type,
  size_type,
  double_type,
  long_double_type,
  character_type,  // an int, too
  string_type,
  pointer_type,
};

// A field width or a precision.
struct field_number {
  enum { absent, in_text, in_argument } where = absent;
  int value = 0;  // the number itself, or the position of its argument
};

// One conversion. Positions count from 1, for plain conversions as well; 0 is no argument.
struct conversion {
  const char *begin = nullptr;  // its '%'
  const char *end = nullptr;    // the character behind it
  char flags[8] = "";           // each of "-+ #0'" at most once
  field_number width, precision;
  char length[3] = "";
  char specifier = '\0';  // '%' and 'm' take no argument
  arg_type type = arg_type::none;
  int position = 0;
};

enum class scan_result { found, finished, broken };

// Walks through a format, conversion by conversion. %n, wide characters, unknown letters and a change between plain and
// positional conversions are broken; the walk does not go on behind them.
class conversion_scanner {
 public:
  explicit conversion_scanner(const char *format) noexcept : at_(format) {}
  scan_result next(conversion &found) noexcept;

 private:
  bool position_prefix(int &position) noexcept;
  bool argument(int position, int &resolved) noexcept;
  bool width_or_precision(field_number &number) noexcept;
  bool parse(conversion &c) noexcept;

  const char *at_;
  enum { undecided, plain, positional } style_ = undecided;
  int plain_count_ = 0;
};

// The arguments that a format takes.
struct format_arguments {
  bool valid = false;       // false: broken, or a position is missing or used with two types
  bool uses_errno = false;  // %m
  int count = 0;            // arguments detected; when not valid, those before the fault
  arg_type types[kMaxArguments] = {};
};

format_arguments arguments_of(const char *format) noexcept;

// True if both formats are valid and take the same arguments: whatever is passed for one can be formatted with the
// other.
bool same_conversions(const char *a, const char *b) noexcept;

}  // namespace vk

#endif
