// Telling whole records from leftovers.
#ifndef LIB_VK_PUSH_STACK_RECORD_CHECK_H
#define LIB_VK_PUSH_STACK_RECORD_CHECK_H

#include <cstddef>
#include <span>

namespace vk {

// The body of a record of which only what is never missing is there: the source file, its version and the product have
// one character at least.
inline constexpr std::size_t kBodyMin = 132;

struct checked_record {
  std::size_t size;  // the bytes that it occupies, 0 where no whole record starts
  bool intact;       // its fields end where its length says
};

// Looks for a whole record at the start of `bytes`: its length, the zero words, identifier and time agree. A record has
// no checksum, but it says most things twice. One without an identifier must have its names, too: a byte that was left
// in front of cleared space is a length in front of zeros.
checked_record check_record(std::span<const unsigned char> bytes) noexcept;

}  // namespace vk

#endif
