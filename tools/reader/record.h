// One incident record, taken apart field by field.
#ifndef TOOLS_READER_RECORD_H
#define TOOLS_READER_RECORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "identifier.h"
#include "layout.h"

namespace vosk {

// A message argument. `bits` holds the 8 bytes of every type but strings; it is absent in a cut record.
struct argument {
  std::uint32_t type = 0;
  std::optional<std::uint64_t> bits;
  std::optional<std::string_view> text;
};

// Fields that a cut record does not hold are absent. Texts and identifiers lie in the file's bytes.
struct record {
  std::size_t offset = 0;        // of its first byte in the file
  std::uint32_t length = 0;      // as stored: bytes of the body
  std::size_t size = 0;          // bytes that it occupies, as far as that can be told
  bool intact = true;            // false: identified beyond doubt, but its fields and its length disagree
  bool cut = false;              // the last text reaches the end of the 1024 bytes
  std::string_view eid;          // 43 bytes; all zero when none was made
  std::string_view associated;   // 43 bytes, any
  std::optional<identifier> id;  // `eid` taken apart
  std::uint32_t time = 0;        // low 32 bits of the seconds
  std::optional<std::string_view> process, source, version, product, catalogue, default_text, detail;
  std::optional<std::uint32_t> pid, parent, thread, line, set, number, argument_count;
  std::vector<argument> arguments;
  std::string_view rest;  // bytes at the end of a cut record that no field can be told for

  std::size_t end() const noexcept { return offset + size; }
};

enum class fields_end {
  at_the_limit,  // as in an intact record
  before_it,     // all fields read, bytes left over
  not_reached,   // a field runs past the limit
};

struct fields_result {
  fields_end where = fields_end::not_reached;
  std::size_t body_length = 0;  // bytes of the body that the fields take
};

// Reads the fields behind the time into `out`. `body` is the record's body from its first byte, at most 1016 bytes;
// where it has exactly 1016 a text without terminator ends it, and fields that found no room are absent.
fields_result read_fields(byte_span body, record &out);

// Sets what stands at fixed places: length, identifiers, time. `at` needs layout::kFieldsAt bytes.
void read_head(byte_span bytes, std::size_t at, record &out);

// True if the identifier of `a` was made after that of `b`; false where one of them has none.
bool made_later(const record &a, const record &b) noexcept;

// The text before the zero byte of an identifier field; what follows the zero byte does not count.
std::string_view identifier_text(std::string_view field) noexcept;

}  // namespace vosk

#endif
