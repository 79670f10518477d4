#include "stack.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "header_check.h"
#include "survey.h"
#include "verify.h"

namespace vosk {

namespace {

// The reservation of a file writes this line; the first recording writes the header over it.
constexpr std::string_view kReservedStart = "VKTFO=36    VKTFW=0     VKTFS=";
constexpr std::size_t kReservedSize = 36;

bool only_reserved(byte_span bytes) {
  return bytes.size() >= kReservedSize && characters(bytes, 0, kReservedStart.size()) == kReservedStart &&
         zero_bytes(bytes, kReservedSize, bytes.size() - kReservedSize);
}

// The first record of the older part. After a wrap it lies behind the recording position; where that cannot be trusted
// it is the one whose predecessor is newer by most.
std::vector<record>::iterator oldest(std::vector<record> &records, const stack_header &header, bool position_trusted) {
  if (position_trusted)
    return std::find_if(records.begin(), records.end(),
                        [&](const record &r) { return std::cmp_greater_equal(r.offset, header.recording_position); });
  auto found = records.begin();
  std::int64_t widest = 0;
  for (auto at = records.begin(); at + 1 != records.end(); ++at) {
    if (!made_later(*at, *(at + 1)) || at->id->seconds - (at + 1)->id->seconds < widest) continue;
    widest = at->id->seconds - (at + 1)->id->seconds;
    found = at + 1;
  }
  return found;
}

// A record whose writer was stopped before it wrote the header is the newest one: it lies right at the recording
// position, or, where that push had to wrap, at the start.
bool is_unlinked(std::vector<record>::const_iterator first, const std::vector<record> &records,
                 const stack_header &header, bool position_trusted) {
  if (!position_trusted) return false;
  if (first == records.begin())
    return header.recording_position > std::int64_t{header.file_size} - layout::kMostNeed &&
           made_later(*first, records.back());
  return std::cmp_equal(first->offset, header.recording_position) && made_later(*first, *(first - 1));
}

void order_by_age(std::vector<record> &records, const stack_header &header, bool position_trusted) {
  if (records.empty()) return;
  auto first = oldest(records, header, position_trusted);
  if (first == records.end()) first = records.begin();
  std::rotate(records.begin(), is_unlinked(first, records, header, position_trusted) ? first + 1 : first,
              records.end());
}

void find_inode(stack &result) {
  for (const record &r : result.records)
    if (r.id) result.inode = r.id->inode;
}

}  // namespace

stack_header load_header(byte_span bytes) noexcept {
  stack_header header;
  header.version = load_u32(bytes, 0);
  header.init_offset = load<std::int32_t>(bytes, 4);
  header.recording_position = load<std::int32_t>(bytes, 8);
  header.earliest_record = load<std::int32_t>(bytes, 12);
  header.file_size = load<std::int32_t>(bytes, 16);
  header.wrapped = bytes[20];
  return header;
}

stack read_stack(std::vector<unsigned char> bytes, std::optional<std::uint64_t> inode) {
  stack result;
  result.bytes = std::move(bytes);
  if (result.bytes.size() < layout::kHeaderSize) return result;
  if (only_reserved(result.bytes)) {
    result.kind = file_kind::reserved;
    return result;
  }
  result.header = load_header(result.bytes);
  survey found = survey_records(result.bytes, result.header, inode);
  if (found.records.empty() && found.damages.empty() && !looks_like_header(result.bytes, result.header)) return result;

  result.kind = file_kind::stack;
  header_check checked = check_header(result.bytes, result.header, found.records);
  result.wrapped = checked.wrapped;
  result.unreadable = checked.unreadable;
  result.damages = std::move(checked.damages);
  result.damages.insert(result.damages.end(), found.damages.begin(), found.damages.end());
  std::stable_sort(result.damages.begin(), result.damages.end(),
                   [](const damage &a, const damage &b) { return a.offset < b.offset; });
  result.records = std::move(found.records);
  if (result.wrapped) order_by_age(result.records, result.header, checked.position_trusted);
  find_inode(result);
  return result;
}

}  // namespace vosk
