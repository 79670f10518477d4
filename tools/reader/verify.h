// The checks that make a record one.
#ifndef TOOLS_READER_VERIFY_H
#define TOOLS_READER_VERIFY_H

#include <algorithm>

#include "record.h"

namespace vosk {

// Each takes an offset with at least layout::kFieldsAt bytes behind it.

inline bool zero_bytes(byte_span bytes, std::size_t at, std::size_t count) noexcept {
  const byte_span part = bytes.subspan(at, count);
  return std::all_of(part.begin(), part.end(), [](unsigned char b) { return b == 0; });
}

inline std::string_view characters(byte_span bytes, std::size_t at, std::size_t count) noexcept {
  return {reinterpret_cast<const char *>(bytes.data()) + at, count};
}

inline constexpr char kStackHeaderCharacter = '7';  // version 2, stack: what a push writes

inline std::string_view inode_characters(byte_span bytes, std::size_t at) noexcept {
  return characters(bytes, at + layout::kIdentifierAt + 1, 6);
}

// The seconds that the identifier encodes, of which the record repeats the low 32 bits.
inline bool seconds_agree(byte_span bytes, std::size_t at) noexcept {
  const auto seconds = field_value(characters(bytes, at + layout::kIdentifierAt + 7, 6));
  return seconds && *seconds != 0 && static_cast<std::uint32_t>(*seconds) == load_u32(bytes, at + layout::kTimeAt);
}

inline bool terminated(byte_span bytes, std::size_t at) noexcept {
  return bytes[at + layout::kIdentifierAt + kIdentifierLength] == 0;
}

// Both zero words and everything of the identifier but its i-node.
inline bool head_is_identified(byte_span bytes, std::size_t at) noexcept {
  return bytes[at + layout::kIdentifierAt] == kStackHeaderCharacter &&
         load<std::uint64_t>(bytes, at + layout::kPrefixZeroAt) == 0 && terminated(bytes, at) &&
         field_value(inode_characters(bytes, at)).has_value() && seconds_agree(bytes, at);
}

inline bool plausible_length(std::uint32_t length) noexcept {
  return length >= layout::kBodyMin && length <= layout::kBodyMax;
}

// The head of a record that was made without an identifier.
inline bool head_is_unidentified(byte_span bytes, std::size_t at) noexcept {
  return plausible_length(load_u32(bytes, at)) && load<std::uint64_t>(bytes, at + layout::kPrefixZeroAt) == 0 &&
         zero_bytes(bytes, at + layout::kIdentifierAt, layout::kIdentifierSize) &&
         load_u32(bytes, at + layout::kTimeAt) == 0;
}

// Reads the record at `at` if its length is plausible and its fields end there.
inline bool whole_record(byte_span bytes, std::size_t at, record &out) {
  const std::uint32_t length = load_u32(bytes, at);
  if (!plausible_length(length) || at + layout::kPrefixSize + length > bytes.size()) return false;
  if (read_fields(bytes.subspan(at + layout::kPrefixSize, length), out).where != fields_end::at_the_limit) return false;
  read_head(bytes, at, out);
  out.size = layout::kPrefixSize + length;
  return true;
}

}  // namespace vosk

#endif
