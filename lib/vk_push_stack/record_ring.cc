#include "lib/vk_push_stack/record_ring.h"

#include <algorithm>

#include "lib/vk_push_stack/record_check.h"

namespace vk {
namespace {

bool all_zero(const unsigned char *from, const unsigned char *to) noexcept {
  return std::all_of(from, to, [](unsigned char byte) { return byte == 0; });
}

}  // namespace

record_ring::record_ring(const stack_image &image, const stack_file::control &control) noexcept
    : bytes_(image.bytes),
      size_(static_cast<std::size_t>(control.file_size)),
      limit_(std::min(size_ + 4, image.end)),
      first_(static_cast<std::size_t>(control.init_offset)),
      earliest_(static_cast<std::size_t>(control.earliest_record)),
      wrapped_(control.wrapped == 1),
      position_(static_cast<std::size_t>(control.recording_position)) {
  linked_ = follow_links();
  if (linked_ && !may_hide_older_records()) return;
  if (!linked_) {
    count_ = 0;
    (void)take_run(earliest_, limit_, true);
  }
  search();
}

// Adds the records that follow each other from `at` on; returns where they end.
std::size_t record_ring::take_run(std::size_t at, std::size_t end, bool only_intact) noexcept {
  while (at < end && count_ < kMostRecords) {
    const checked_record found = check(at, end);
    if (found.size == 0 || (only_intact && !found.intact)) break;
    records_[count_++] = {at, at + found.size};
    at += found.size;
  }
  return at;
}

// Takes the records that the header leads to. False where they end before the recording position.
bool record_ring::follow_links() noexcept {
  if (earliest_ > limit_) return false;
  std::size_t newer = earliest_;
  // Equal offsets are those of a full ring, or of a file without records.
  if (earliest_ > position_ || (earliest_ == position_ && wrapped_)) {
    const std::size_t tail = take_run(earliest_, limit_);
    if (tail == earliest_ || !all_zero(bytes_ + tail, bytes_ + limit_)) return false;
    newer = first_;
  }
  if (newer > position_) return false;
  // A push that made the last record of the standard rule the newest one of its header says the file size.
  const std::size_t tail = take_run(newer, position_ == size_ ? limit_ : std::min(position_, limit_));
  if (tail < position_) return false;
  position_ = tail;
  return true;
}

// The standard rule resets the earliest offset to the start of the file, while records that are older than the ones
// there lie behind the recording position. Whatever else lies beside linked records is what a killed push was clearing
// or writing.
bool record_ring::may_hide_older_records() const noexcept {
  return wrapped_ && earliest_ == stack_file::kHeaderSize && !all_zero(bytes_ + position_, bytes_ + limit_);
}

// Whether an intact record starts inside one that is not: then the length of that one is wrong.
bool record_ring::covers_another(std::size_t at, std::size_t size) const noexcept {
  for (std::size_t inside = at; ++inside < at + size;)
    if (check(inside, limit_).intact) return true;
  return false;
}

// After the standard rule neither the earliest offset nor the lengths lead from record to record: every offset is
// tried. What the header does lead to comes first, so that nothing in front of it is taken for a record that covers it;
// here it is one run of records.
void record_ring::search() noexcept {
  extent linked[kMostRecords];
  const extent *next = linked;
  const extent *const last = std::copy(records_, records_ + count_, linked);
  count_ = 0;
  for (std::size_t at = stack_file::kHeaderSize; at < limit_ && count_ < kMostRecords;) {
    const std::size_t limit = next != last ? next->begin : limit_;
    if (at == limit) {
      records_[count_++] = *next;
      at = next++->end;
      continue;
    }
    const checked_record found = check(at, limit);
    if (found.size == 0 || (!found.intact && covers_another(at, found.size))) {
      ++at;
      continue;
    }
    records_[count_++] = {at, at + found.size};
    at += found.size;
  }
  // A position inside a record is one in front of its end; the record stays.
  for (const extent &record : *this)
    if (record.begin < position_) position_ = std::max(position_, record.end);
  extent *const records_end = records_ + count_;
  std::rotate(records_, std::find_if(records_, records_end, [this](const extent &r) { return r.begin >= position_; }),
              records_end);
}

}  // namespace vk
