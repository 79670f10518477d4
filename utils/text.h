// Small bounded helpers for texts.
#ifndef UTILS_TEXT_H
#define UTILS_TEXT_H

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vk {

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
  const long value = std::strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

// A text assembled piece by piece in a buffer of N bytes, cut where it is full.
template <std::size_t N>
class text_builder {
 public:
  void append(std::string_view piece) noexcept {
    const std::size_t n = std::min(piece.size(), room());
    if (n != 0) std::memcpy(buffer_ + size_, piece.data(), n);
    size_ += n;
    buffer_[size_] = '\0';
  }
  // Appends as much of `piece` as leaves `reserved` characters free.
  void append_leaving(std::string_view piece, std::size_t reserved) noexcept {
    const std::size_t usable = room() > reserved ? room() - reserved : 0;
    append({piece.data(), std::min(piece.size(), usable)});
  }
  std::size_t room() const noexcept { return N - 1 - size_; }
  const char *c_str() const noexcept { return buffer_; }

 private:
  char buffer_[N] = {};
  std::size_t size_ = 0;
};

}  // namespace vk

#endif
