#include "lib/vk_push_stack/whole_records.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lib/variables.h"
#include "lib/vk_push_stack/record_ring.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

using stack_file::control;

// Of free space that is not zero. A file of whole records has two such runs at most, at its end and at its start.
constexpr std::size_t kMostClearings = 3;

class whole_reclaimer {
 public:
  whole_reclaimer(const tracer &trace, int fd, control &c, stack_image &image) noexcept
      : trace_(trace), fd_(fd), control_(c), bytes_(image.bytes), records_(image, c) {}

  int run(std::size_t need) noexcept;

 private:
  std::size_t giving_way(std::size_t target, std::size_t need, bool wraps) const noexcept;
  void trace_cleared(std::size_t kept) const noexcept;
  int lead_away(std::size_t earliest, std::size_t position) noexcept;
  int clear_free_space(std::size_t first_kept) noexcept;
  int write_at(std::size_t offset, const void *bytes, std::size_t size) const noexcept;

  const tracer &trace_;
  const int fd_;
  control &control_;
  unsigned char *const bytes_;
  const record_ring records_;
};

int whole_reclaimer::write_at(std::size_t offset, const void *bytes, std::size_t size) const noexcept {
  if (lseek(fd_, static_cast<off_t>(offset), SEEK_SET) == -1) {
    VK_TRACE(trace_, "Cannot lseek to position %d in stack - error code %d\nReturning %s(%d)\n", low32(offset), errno,
             vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  errno = 0;
  if (write(fd_, bytes, size) != static_cast<ssize_t>(size)) {
    VK_TRACE(trace_, "Failure in fclear at offset %d in file - error code %d\nReturning %s(%d)\n", low32(offset), errno,
             vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  return VOSK_SUCCESS;
}

// How many of the oldest records have to go: all up to the last one that is in the way. Where the new record does not
// fit behind the newest one, those that lie there go, too: they would no longer be the oldest of the ring.
std::size_t whole_reclaimer::giving_way(std::size_t target, std::size_t need, bool wraps) const noexcept {
  std::size_t count = 0;
  for (std::size_t i = 0; i < records_.count(); ++i) {
    const extent &record = records_[i];
    const bool overlaps = record.begin < target + need && target < record.end;
    if (overlaps || (wraps && record.begin >= records_.position())) count = i + 1;
  }
  return count;
}

void whole_reclaimer::trace_cleared(std::size_t kept) const noexcept {
  std::size_t cleared = 0;
  for (std::size_t i = 0; i < kept; ++i) {
    const extent &record = records_[i];
    cleared += record.end - record.begin;
    VK_TRACE(trace_, "Clearing record of size %d at offset %d in file\n",
             low32(record.end - record.begin - stack_file::kPrefixSize), low32(record.begin));
    VK_TRACE(trace_, "%d bytes now cleared for new record\n", low32(cleared));
  }
}

// Writes the control information with the earliest record and position given, where that changes them.
int whole_reclaimer::lead_away(std::size_t earliest, std::size_t position) noexcept {
  const control former = control_;
  control_.earliest_record = low32(earliest);
  control_.recording_position = low32(position);
  control_.wrapped = 1;
  if (control_.earliest_record == former.earliest_record && control_.recording_position == former.recording_position)
    return VOSK_SUCCESS;
  return write_at(stack_file::kControlAt, &control_, sizeof control_);
}

// Zeroes whatever is not a record that stays.
int whole_reclaimer::clear_free_space(std::size_t first_kept) noexcept {
  extent kept[kMostRecords];
  extent *const last = std::copy(records_.begin() + first_kept, records_.end(), kept);
  std::sort(kept, last, [](const extent &a, const extent &b) { return a.begin < b.begin; });

  extent runs[kMostRecords + 1];
  std::size_t count = 0, at = stack_file::kHeaderSize;
  for (const extent *record = kept; record <= last; ++record) {
    extent run = {at, record != last ? record->begin : records_.limit()};
    while (run.begin < run.end && bytes_[run.begin] == 0) ++run.begin;
    while (run.begin < run.end && bytes_[run.end - 1] == 0) --run.end;
    if (run.begin < run.end) {
      std::memset(bytes_ + run.begin, 0, run.end - run.begin);
      runs[count++] = run;
    }
    if (record != last) at = record->end;
  }
  // What the standard rule left may lie in many places. Beyond the writes that are allowed the records between them
  // are written over with what they are.
  if (count > kMostClearings) {
    runs[kMostClearings - 1].end = runs[count - 1].end;
    count = kMostClearings;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const int result = write_at(runs[i].begin, bytes_ + runs[i].begin, runs[i].end - runs[i].begin);
    if (result != VOSK_SUCCESS) return result;
  }
  return VOSK_SUCCESS;
}

// The order of the writes is what a killed push leaves behind: first the header leads away from the records that give
// way, so that neither the earliest offset nor a record in front of the recording position is in bytes that get
// cleared; then these are cleared; then the record is written into free space; and the last header, both the caller's,
// leads to it. After each of them the header is valid and leads to every record that stays. What else a killed push
// leaves, records half cleared or one that nothing leads to, the next one clears.
int whole_reclaimer::run(std::size_t need) noexcept {
  const auto size = static_cast<std::size_t>(control_.file_size);
  const std::size_t position = records_.position();
  const bool wraps = position + need > size;
  if (wraps) {
    VK_TRACE(trace_, "%s", "Not enough room at end of stack, wrap to start\n");
  } else {
    VK_TRACE(trace_, "%s", "Enough room at end of stack to write record\n");
    // A first wrap of the standard rule that was refused has left cleared bytes at the start, but no wrap indicator.
    if (control_.wrapped == 0 && records_.linked() && control_.earliest_record <= control_.recording_position) {
      VK_TRACE(trace_, "%s", "File not wrapped - no records to clear\n");
      return VOSK_SUCCESS;
    }
  }
  const std::size_t target = wraps ? static_cast<std::size_t>(control_.init_offset) : position;
  if (target + need > size) {
    VK_TRACE(trace_, "fclear to position %d in file would corrupt the file - \nReturning %s(%d)\n",
             low32(target + need), vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  const std::size_t first_kept = giving_way(target, need, wraps);
  trace_cleared(first_kept);
  // Until the record is there, the header leads to those that stay and to the end of the newest; that one may be a
  // record of the standard rule that runs past the file size.
  const bool some_stay = first_kept < records_.count();
  int result = some_stay ? lead_away(records_[first_kept].begin, std::min(position, size)) : lead_away(target, target);
  if (result == VOSK_SUCCESS) result = clear_free_space(first_kept);
  if (result != VOSK_SUCCESS) return result;
  control_.recording_position = low32(target);
  VK_TRACE(trace_, "Space cleared\nwrite offset %d, earliest rec offset %d\nReturning %s(%d)\n",
           control_.recording_position, control_.earliest_record, vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
  return VOSK_SUCCESS;
}

}  // namespace

reclaim_rule chosen_rule() noexcept {
  const char *rule = getenv(kVoskReclaim);
  return rule != nullptr && std::strcmp(rule, "whole") == 0 ? reclaim_rule::whole : reclaim_rule::standard;
}

int clear_whole_records(int trace_on, const char *trace_path, int fd, stack_header *header, stack_image *image,
                        std::uint32_t length) noexcept {
  const tracer trace(trace_on, trace_path, "vk_clear_records");
  return whole_reclaimer(trace, fd, header->control, *image).run(length + stack_file::kPrefixSize);
}

}  // namespace vk
