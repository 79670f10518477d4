// A stack file's bytes read into header, records and damage.
//
// The format has no checksum, but records repeat themselves, so every offset is tried and every record that verifies is
// shown: zero words before and at the start of the body, an identifier whose first character, i-node field, terminator
// and seconds agree with the file and with the stored time (or an identifier and a time that are zero), and fields that
// end at the length. Neither the earliest offset nor the chain of lengths is followed: after a wrap both can be wrong
// in a file that nothing has damaged.
#ifndef TOOLS_READER_STACK_H
#define TOOLS_READER_STACK_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "layout.h"
#include "record.h"

namespace vosk {

struct stack_header {
  std::uint32_t version = 0;
  std::int32_t init_offset = 0, recording_position = 0, earliest_record = 0, file_size = 0;
  std::uint8_t wrapped = 0;
};

// The header at the start of `bytes`, which has at least layout::kHeaderSize bytes.
stack_header load_header(byte_span bytes) noexcept;

// Something that no writer leaves.
struct damage {
  std::size_t offset = 0;
  std::string field, value, allowed;
};

enum class file_kind {
  stack,
  reserved,  // made by a first recording that has not written its header yet, or was stopped before it could
  other,     // anything else
};

struct stack {
  stack() = default;
  stack(stack &&) = default;
  stack &operator=(stack &&) = default;

  file_kind kind = file_kind::other;
  std::vector<unsigned char> bytes;  // the records point into it
  stack_header header;
  bool wrapped = false;         // as the records show it, where the header is damaged
  std::vector<record> records;  // the oldest first
  std::vector<damage> damages;  // by offset
  std::size_t unreadable = 0;   // bytes that belong to no record and are not cleared either
  std::uint64_t inode = 0;      // the one that the identifiers name; 0 if none does
};

// Reads a whole file. `inode` is the file's own i-node number where that is known; a copied file has another one than
// its identifiers name.
stack read_stack(std::vector<unsigned char> bytes, std::optional<std::uint64_t> inode);

}  // namespace vosk

#endif
