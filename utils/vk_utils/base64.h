// The digits of identifiers.
#ifndef UTILS_VK_UTILS_BASE64_H
#define UTILS_VK_UTILS_BASE64_H

#include <cstddef>
#include <cstdint>

namespace vk {

// The digits 0 to 63. One shared string, reached through this pointer.
extern const char *const vk_digits;

// Writes `value` to the `width` characters of `field`, least significant digit first. The digit 0 is '.', so an
// encoding filled with '.' on the right and one of all digits are the same; what does not fit is dropped.
inline void put_field(std::uint64_t value, char *field, std::size_t width) noexcept {
  for (std::size_t i = 0; i < width; ++i) {
    field[i] = vk_digits[value & 63];
    value >>= 6;
  }
}

}  // namespace vk

#endif
