#include "reclamation.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "header_check.h"

namespace vosk {

namespace {

constexpr std::int64_t kSmallBody = 160;
// Where a file of a foreign version ends for a recording.
constexpr std::int32_t kForeignEnd = layout::kMaxFileSize + static_cast<std::int32_t>(layout::kOverrun);
constexpr char kInvalid[] = "the header is not valid";

// What a recording reads at `offset`: bytes behind the end count as zero.
std::int64_t length_at(byte_span bytes, std::int64_t offset) {
  unsigned char field[4] = {};
  for (std::int64_t i = 0; i < 4; ++i)
    if (std::cmp_less(offset + i, bytes.size())) field[i] = bytes[static_cast<std::size_t>(offset + i)];
  return load_u32(field, 0);
}

// The same steps as a recording's, for the room that it asks for: 4 bytes less than a record occupies.
push_outlook play(std::vector<unsigned char> bytes, const stack_header &header) {
  const std::int64_t need = kSmallBody + 4, recording = header.recording_position, earliest = header.earliest_record;
  const bool wraps = need > header.file_size - recording, clears = wraps || header.wrapped == 1;
  const std::int64_t written_at = wraps ? header.init_offset : recording;
  std::int64_t offset = wraps ? header.init_offset : earliest;
  // Of a foreign version nothing in the header was checked.
  if (written_at < 0 || (clears && offset < 0)) return {obstacle::header, kInvalid};
  if (!clears) return {};
  const std::int64_t size = header.version == 0 ? header.file_size : std::min(header.file_size, kForeignEnd);
  std::int64_t cleared = wraps ? 0 : std::max<std::int64_t>(earliest - recording, 0);
  while (cleared <= need) {
    const std::int64_t length = length_at(bytes, offset);
    if (length == 0) return {};
    const std::int64_t step = length + 4, next = offset + step;
    if (next > size)
      return {obstacle::reclamation, "reclamation reads " + std::to_string(length) + " at offset " +
                                         std::to_string(offset) +
                                         " as a record's length, which leads past the end of the file"};
    // `next` is not beyond the file size; the file itself can be shorter.
    const auto end = std::min<std::int64_t>(next, static_cast<std::int64_t>(bytes.size()));
    std::fill(bytes.begin() + offset, bytes.begin() + end, 0);
    cleared += step;
    offset = next;
  }
  return {};
}

}  // namespace

push_outlook next_push(const stack &file) {
  if (file.kind == file_kind::reserved) return {obstacle::no_header, "the file has no header yet"};
  stack_header header = file.header;
  if (header_is_usable(header)) return play(file.bytes, header);
  // A record may run up to 4 bytes past the end. In a file of the full size the position behind it is one that the
  // standard rule does not accept any more.
  const auto past = header.recording_position - layout::kMaxFileSize;
  if (past > 0 && std::cmp_less_equal(past, layout::kOverrun)) {
    header.recording_position = layout::kMaxFileSize;
    if (header_is_usable(header))
      return {obstacle::reclamation, "the last record ran past the end of the file, so the recording position is " +
                                         std::to_string(file.header.recording_position)};
  }
  return {obstacle::header, kInvalid};
}

}  // namespace vosk
