// The layout of a VOSK Error Stack file, in the byte order of the machine; there is no magic number.
//
// A 24-byte header: the version, then the control information, which is read and written as one block. Behind it
// records in a circle, each a prefix of 8 bytes (the length of its body, and zero) and the body.
#ifndef LIB_VK_PUSH_STACK_STACK_FILE_H
#define LIB_VK_PUSH_STACK_STACK_FILE_H

#include <cstddef>
#include <cstdint>

namespace vk::stack_file {

inline constexpr std::uint32_t kVersion1 = 0;  // VOSK_STACK_VERSION_1
inline constexpr int kVersionAt = 0, kControlAt = 4, kHeaderSize = 24;
inline constexpr std::size_t kPrefixSize = 8, kRecordMax = 1024;
inline constexpr std::int32_t kSmallest = 8192, kLargest = 16384;

struct control {
  std::int32_t init_offset;         // where the first record stands
  std::int32_t recording_position;  // where the next record goes
  std::int32_t earliest_record;     // the oldest record still present
  std::int32_t file_size;
  std::uint8_t wrapped;  // 1 once writing has started again at the first record
  std::uint8_t reserved[3];
};
static_assert(sizeof(control) == 20 && offsetof(control, file_size) == 12 && offsetof(control, wrapped) == 16);
static_assert(kControlAt + sizeof(control) == kHeaderSize);

// Other versions that are told from damage: they are read and written as if valid.
constexpr bool is_foreign_version(std::uint32_t version) noexcept {
  return version != 0 && version <= 56 && version % 8 == 0;
}

}  // namespace vk::stack_file

#endif
