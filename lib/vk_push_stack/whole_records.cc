#include "lib/vk_push_stack/whole_records.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "lib/variables.h"
#include "lib/vk_push_stack/record_check.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

using stack_file::control;

// A record of the standard rule may run up to 4 bytes past the file size.
constexpr std::size_t kImageSize = stack_file::kLargest + 4;
// More whole records than fit: one has at least 137 bytes.
constexpr std::size_t kMostRecords = kImageSize / 137 + 1;

struct extent {
  std::size_t begin, end;
};

bool all_zero(const unsigned char *from, const unsigned char *to) noexcept {
  return std::all_of(from, to, [](unsigned char byte) { return byte == 0; });
}

// The whole records of a file, oldest first: those from the recording position on, then those in front of it.
class ring {
 public:
  ring(const unsigned char *image, std::size_t size, const control &c) noexcept
      : image_(image),
        size_(size),
        first_(static_cast<std::size_t>(c.init_offset)),
        position_(static_cast<std::size_t>(c.recording_position)),
        earliest_(static_cast<std::size_t>(c.earliest_record)) {
    if (!follow_chain()) search();
  }

  std::size_t position() const noexcept { return position_; }
  std::size_t count() const noexcept { return count_; }
  const extent &oldest(std::size_t i) const noexcept { return records_[i]; }

 private:
  // Adds the records that follow each other from `at` on; returns where they end.
  std::size_t take_run(std::size_t at, std::size_t end) noexcept {
    while (at < end && count_ < kMostRecords) {
      const std::size_t length = whole_record_size({image_ + at, end - at});
      if (length == 0) break;
      records_[count_++] = {at, at + length};
      at += length;
    }
    return at;
  }

  // The usual case: every record leads to the next, and there is nothing between them.
  bool follow_chain() noexcept {
    if (position_ > size_ || earliest_ > size_ || first_ > position_) return false;
    std::size_t newer_part = first_;
    if (earliest_ >= position_) {
      if (take_run(earliest_, size_) == earliest_ && earliest_ != size_) return false;
    } else {
      newer_part = earliest_;
    }
    const std::size_t tail = count_ == 0 ? position_ : records_[count_ - 1].end;
    const std::size_t gap_end = count_ == 0 ? position_ : earliest_;
    return all_zero(image_ + stack_file::kHeaderSize, image_ + newer_part) &&
           all_zero(image_ + position_, image_ + gap_end) && all_zero(image_ + tail, image_ + size_) &&
           take_run(newer_part, position_) == position_;
  }

  // After the standard rule, or a push that was killed, neither the earliest offset nor the lengths lead from record to
  // record: every offset is tried.
  void search() noexcept {
    count_ = 0;
    std::size_t at = stack_file::kHeaderSize;
    while (at < size_ && count_ < kMostRecords) {
      const std::size_t length = whole_record_size({image_ + at, size_ - at});
      if (length != 0) records_[count_++] = {at, at + length};
      at += length != 0 ? length : 1;
    }
    // A position inside a record is one that was written without its record; the record stays.
    for (std::size_t i = 0; i < count_; ++i)
      if (records_[i].begin < position_ && position_ < records_[i].end) position_ = records_[i].end;
    const auto newer =
        std::find_if(records_, records_ + count_, [this](const extent &r) { return r.begin >= position_; });
    std::rotate(records_, newer, records_ + count_);
  }

  const unsigned char *const image_;
  const std::size_t size_, first_;
  std::size_t position_;
  const std::size_t earliest_;
  std::size_t count_ = 0;
  extent records_[kMostRecords];
};

class whole_reclaimer {
 public:
  whole_reclaimer(const tracer &trace, int fd, control &c) noexcept : trace_(trace), fd_(fd), control_(c) {}

  int run(std::size_t need) noexcept;

 private:
  int load() noexcept;
  int clear_free_runs(const ring &records, std::size_t first_kept) noexcept;
  int clear_run(std::size_t begin, std::size_t end) noexcept;
  int lead_away(std::size_t earliest, std::size_t position) noexcept;
  int failed_write(std::size_t offset) const noexcept {
    VK_TRACE(trace_, "Failure in fclear at offset %d in file - error code %d\nReturning %s(%d)\n", low32(offset), errno,
             vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  bool seek(std::size_t offset) const noexcept {
    if (lseek(fd_, static_cast<off_t>(offset), SEEK_SET) != -1) return true;
    VK_TRACE(trace_, "Cannot lseek to position %d in stack - error code %d\nReturning %s(%d)\n", low32(offset), errno,
             vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return false;
  }

  const tracer &trace_;
  const int fd_;
  control &control_;
  unsigned char image_[kImageSize];
};

// What the file does not hold counts as zero.
int whole_reclaimer::load() noexcept {
  const std::size_t size = static_cast<std::size_t>(control_.file_size) + 4;
  std::memset(image_, 0, sizeof image_);
  if (!seek(stack_file::kHeaderSize)) return VOSK_FILE_CORRUPT;
  if (read(fd_, image_ + stack_file::kHeaderSize, size - stack_file::kHeaderSize) == -1) {
    VK_TRACE(trace_, "Cannot read from position %d in stack - error code %d\nReturning %s(%d)\n",
             stack_file::kHeaderSize, errno, vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  return VOSK_SUCCESS;
}

// Writes the control information with the earliest record and position given, where that changes anything.
int whole_reclaimer::lead_away(std::size_t earliest, std::size_t position) noexcept {
  control changed = control_;
  changed.earliest_record = low32(earliest);
  changed.recording_position = low32(position);
  changed.wrapped = 1;
  const bool same =
      changed.earliest_record == control_.earliest_record && changed.recording_position == control_.recording_position;
  control_ = changed;
  if (same) return VOSK_SUCCESS;
  if (!seek(stack_file::kControlAt)) return VOSK_FILE_CORRUPT;
  errno = 0;
  if (write(fd_, &changed, sizeof changed) != static_cast<ssize_t>(sizeof changed))
    return failed_write(stack_file::kControlAt);
  return VOSK_SUCCESS;
}

// Zeroes what is left in a run of bytes that belong to no record.
int whole_reclaimer::clear_run(std::size_t begin, std::size_t end) noexcept {
  while (begin < end && image_[begin] == 0) ++begin;
  while (begin < end && image_[end - 1] == 0) --end;
  if (begin >= end) return VOSK_SUCCESS;
  std::memset(image_ + begin, 0, end - begin);
  if (!seek(begin)) return VOSK_FILE_CORRUPT;
  errno = 0;
  if (write(fd_, image_ + begin, end - begin) != static_cast<ssize_t>(end - begin)) return failed_write(begin);
  return VOSK_SUCCESS;
}

// Clears everything that is not a kept record.
int whole_reclaimer::clear_free_runs(const ring &records, std::size_t first_kept) noexcept {
  extent kept[kMostRecords];
  const std::size_t count = records.count() - first_kept;
  for (std::size_t i = 0; i < count; ++i) kept[i] = records.oldest(first_kept + i);
  std::sort(kept, kept + count, [](const extent &a, const extent &b) { return a.begin < b.begin; });
  std::size_t at = stack_file::kHeaderSize;
  for (std::size_t i = 0; i < count; ++i) {
    if (const int result = clear_run(at, kept[i].begin); result != VOSK_SUCCESS) return result;
    at = kept[i].end;
  }
  return clear_run(at, static_cast<std::size_t>(control_.file_size) + 4);
}

// The order of the writes is what a killed push leaves behind: first the header leads away from the records that give
// way, so that the earliest offset never points into cleared bytes; then these are cleared; then the record is written
// into free space; and the last header, the caller's, leads to it. After each of them the header is valid and every
// record that stays is linked.
int whole_reclaimer::run(std::size_t need) noexcept {
  const auto size = static_cast<std::size_t>(control_.file_size);
  const auto first = static_cast<std::size_t>(control_.init_offset);
  std::size_t position = static_cast<std::size_t>(control_.recording_position);
  if (position + need <= size && control_.wrapped == 0) {
    VK_TRACE(trace_, "%s", "Enough room at end of stack to write record\n");
    VK_TRACE(trace_, "%s", "File not wrapped - no records to clear\n");
    return VOSK_SUCCESS;
  }
  if (const int result = load(); result != VOSK_SUCCESS) return result;
  const ring records(image_, size + 4, control_);
  position = records.position();

  // Older records behind the position give way altogether where the new one does not fit behind it: they would no
  // longer be the oldest of the ring.
  const bool wraps = position + need > size;
  if (wraps)
    VK_TRACE(trace_, "%s", "Not enough room at end of stack, wrap to start\n");
  else
    VK_TRACE(trace_, "%s", "Enough room at end of stack to write record\n");
  const std::size_t target = wraps ? first : position;
  if (target + need > size) {
    VK_TRACE(trace_, "fclear to position %d in file would corrupt the file - \nReturning %s(%d)\n",
             low32(target + need), vosk_name(VOSK_FILE_CORRUPT), VOSK_FILE_CORRUPT);
    return VOSK_FILE_CORRUPT;
  }
  // Oldest first: all up to the last one that is in the way.
  std::size_t kept = 0, cleared = 0;
  for (std::size_t i = 0; i < records.count(); ++i) {
    const extent &record = records.oldest(i);
    const bool overlaps = record.begin < target + need && target < record.end;
    if (overlaps || (wraps && record.begin >= position)) kept = i + 1;
  }
  for (std::size_t i = 0; i < kept; ++i) {
    const extent &record = records.oldest(i);
    cleared += record.end - record.begin;
    VK_TRACE(trace_, "Clearing record of size %d at offset %d in file\n",
             low32(record.end - record.begin - stack_file::kPrefixSize), low32(record.begin));
    VK_TRACE(trace_, "%d bytes now cleared for new record\n", low32(cleared));
  }
  const bool some_stay = kept < records.count();
  const std::size_t earliest = some_stay ? records.oldest(kept).begin : target;
  // Where the record wraps, the former position still ends the records that stay.
  int result = lead_away(earliest, some_stay ? std::min(position, size) : target);
  if (result == VOSK_SUCCESS) result = clear_free_runs(records, kept);
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

int clear_whole_records(int trace_on, const char *trace_path, int fd, stack_header *header,
                        std::uint32_t length) noexcept {
  const tracer trace(trace_on, trace_path, "vk_clear_records");
  return whole_reclaimer(trace, fd, header->control).run(length + stack_file::kPrefixSize);
}

}  // namespace vk
