#include "reclamation.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "header_check.h"

namespace vosk {

namespace {

constexpr std::int64_t kSmallBody = 160;

// What a recording reads at `offset`: bytes behind the end count as zero.
std::int64_t length_at(byte_span bytes, std::int64_t offset) {
  unsigned char field[4] = {};
  for (std::int64_t i = 0; i < 4; ++i)
    if (std::cmp_less(offset + i, bytes.size())) field[i] = bytes[static_cast<std::size_t>(offset + i)];
  return load_u32(field, 0);
}

// The same steps as a recording's, for the room that it asks for: 4 bytes less than a record occupies.
push_outlook play(std::vector<unsigned char> bytes, const stack_header &header) {
  const std::int64_t need = kSmallBody + 4, size = header.file_size, recording = header.recording_position,
                     earliest = header.earliest_record;
  const bool wraps = need > size - recording;
  if (!wraps && header.wrapped != 1) return {};
  std::int64_t cleared = wraps ? 0 : std::max<std::int64_t>(earliest - recording, 0);
  std::int64_t offset = wraps ? header.init_offset : earliest;
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
    if (offset < end) std::fill(bytes.begin() + offset, bytes.begin() + end, 0);
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
  return {obstacle::header, "the header is not valid"};
}

}  // namespace vosk
