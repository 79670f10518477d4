// The layout of a stack file, as far as a reader needs it. All numbers are in the byte order of this machine.
#ifndef TOOLS_READER_LAYOUT_H
#define TOOLS_READER_LAYOUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace vosk {

using byte_span = std::span<const unsigned char>;

namespace layout {

inline constexpr std::size_t kHeaderSize = 24;  // also the first record's offset
inline constexpr std::int32_t kMinFileSize = 8192, kMaxFileSize = 16384;
// A record may run up to 4 bytes past the file size.
inline constexpr std::size_t kOverrun = 4;
// Nothing larger than this is read: what a writer can leave, and 4 bytes that show that there is more.
inline constexpr std::size_t kReadLimit = 16392;

inline constexpr std::size_t kPrefixSize = 8;
inline constexpr std::size_t kBodyMax = 1016;  // a longer record is cut
// No body is shorter: all fixed fields, nine terminators, and the three texts that are never empty.
inline constexpr std::size_t kBodyMin = 132;

// Offsets from the record's start.
inline constexpr std::size_t kLengthAt = 0, kPrefixZeroAt = 4, kBodyZeroAt = 8, kIdentifierAt = 12, kAssociatedAt = 55,
                             kTimeAt = 98, kFieldsAt = 102;
inline constexpr std::size_t kIdentifierSize = 43;  // with its terminator

// The room that a push of the longest record asks for; it wraps where less is left.
inline constexpr std::int32_t kMostNeed = kBodyMax + 4;

inline constexpr std::uint32_t kStringArgument = 5;

}  // namespace layout

// The number of type `T` at `offset`, which must lie wholly in `bytes`.
template <class T>
T load(byte_span bytes, std::size_t offset) noexcept {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

inline std::uint32_t load_u32(byte_span bytes, std::size_t offset) noexcept {
  return load<std::uint32_t>(bytes, offset);
}

}  // namespace vosk

#endif
