// Telling whole records from leftovers.
#ifndef LIB_VK_PUSH_STACK_RECORD_CHECK_H
#define LIB_VK_PUSH_STACK_RECORD_CHECK_H

#include <cstddef>
#include <span>

namespace vk {

// The bytes that the record at the start of `bytes` occupies, or 0 where no whole record starts: its length, the zero
// words, identifier and time, and the fields up to its end must agree with each other. A record has no checksum, but it
// says most things twice; the fields matter most where it has no identifier, since a leftover byte in front of cleared
// space is a length in front of zeros, too.
std::size_t whole_record_size(std::span<const unsigned char> bytes) noexcept;

}  // namespace vk

#endif
