// Small bounded helpers for texts.
#ifndef UTILS_TEXT_H
#define UTILS_TEXT_H

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vk {

inline constexpr std::size_t kDecimalSize = 11;  // the longest int
inline constexpr std::int64_t kBeyondInt = std::int64_t{INT_MAX} + 1;

inline bool is_set(const char *text) noexcept {
  return text != nullptr && *text != '\0';
}

// `text`, or `substitute` where it is null or empty.
inline const char *text_or(const char *text, const char *substitute) noexcept {
  return is_set(text) ? text : substitute;
}

// For "%s": a null text is empty.
inline const char *printable(const char *text) noexcept {
  return text != nullptr ? text : "";
}

// A decimal as variables hold it: leading blanks and a sign, text behind it ignored, 0 without a digit, the nearest int
// when it is out of range.
inline int decimal(const char *text) noexcept {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  const bool negative = *text == '-';
  if (negative || *text == '+') ++text;
  std::int64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) value = std::min<std::int64_t>(value * 10 + (*text - '0'), kBeyondInt);
  return static_cast<int>(std::clamp<std::int64_t>(negative ? -value : value, INT_MIN, INT_MAX));
}

// Writes `value` in decimal to `out`, which has room for it, without a zero byte; returns the end.
inline char *put_decimal(char *out, int value) noexcept {
  return std::to_chars(out, out + kDecimalSize, value).ptr;
}

// A text assembled piece by piece in a buffer of N bytes, cut where it is full.
template <std::size_t N>
class text_builder {
 public:
  text_builder() noexcept { buffer_[0] = '\0'; }
  void append(std::string_view piece) noexcept {
    const std::size_t n = std::min(piece.size(), room());
    if (n != 0) std::memcpy(buffer_ + size_, piece.data(), n);
    size_ += n;
    buffer_[size_] = '\0';
  }
  // Appends as much of `piece` as leaves `reserved` characters free.
  void append_leaving(std::string_view piece, std::size_t reserved) noexcept {
    append({piece.data(), std::min(piece.size(), room() - std::min(room(), reserved))});
  }
  std::size_t room() const noexcept { return N - 1 - size_; }
  const char *c_str() const noexcept { return buffer_; }

 private:
  char buffer_[N];
  std::size_t size_ = 0;
};

}  // namespace vk

#endif
