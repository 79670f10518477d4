#include "header_check.h"

#include <algorithm>
#include <utility>

#include "verify.h"

namespace vosk {

namespace {

constexpr std::size_t kVersionAt = 0, kInitAt = 4, kRecordingAt = 8, kEarliestAt = 12, kSizeAt = 16, kWrapAt = 20;
constexpr std::int64_t kInit = layout::kHeaderSize;
constexpr std::int64_t kLastPosition = layout::kMaxFileSize + static_cast<std::int64_t>(layout::kOverrun);
// Reclamation clears 4 bytes less than a record has, so the last 4 of a cleared record stay.
constexpr std::int64_t kLeftOver = 4;
constexpr std::int64_t kMostNeed = layout::kMostNeed;

bool in_range(std::int64_t value, std::int64_t low, std::int64_t high) {
  return low <= value && value <= high;
}

std::string range(std::int64_t low, std::int64_t high) {
  return std::to_string(low) + " to " + std::to_string(high);
}

bool size_agrees(byte_span bytes, const stack_header &header) {
  const auto length = static_cast<std::int64_t>(bytes.size());
  return in_range(length, header.file_size, header.file_size + static_cast<std::int64_t>(layout::kOverrun));
}

class checker {
 public:
  checker(byte_span bytes, const stack_header &header, const std::vector<record> &records)
      : bytes_(bytes),
        header_(header),
        records_(records),
        recording_(header.recording_position),
        earliest_(header.earliest_record) {}

  header_check run() {
    check_simple_fields();
    const bool recording_in_range = in_range(recording_, kInit, kLastPosition);
    const bool earliest_in_range = in_range(earliest_, kInit, layout::kMaxFileSize);
    if (!recording_in_range) fault(kRecordingAt, "recording position", recording_, range(kInit, kLastPosition));
    if (!earliest_in_range) fault(kEarliestAt, "earliest record offset", earliest_, range(kInit, layout::kMaxFileSize));
    result_.position_trusted = recording_in_range;
    result_.wrapped = header_.wrapped == 1 || (header_.wrapped != 0 && !records_fill_the_start());
    if (result_.wrapped)
      check_wrapped(recording_in_range, earliest_in_range);
    else
      check_never_wrapped(recording_in_range, earliest_in_range);
    return std::move(result_);
  }

 private:
  void fault(std::size_t at, const char *field, std::int64_t value, std::string allowed) {
    result_.damages.push_back({at, field, std::to_string(value), std::move(allowed)});
  }

  void check_simple_fields() {
    if (header_.version != 0) fault(kVersionAt, "version", header_.version, "0");
    if (header_.init_offset != kInit) fault(kInitAt, "init offset", header_.init_offset, std::to_string(kInit));
    if (header_.wrapped > 1) fault(kWrapAt, "wrap indicator", header_.wrapped, "0 or 1");
    if (!in_range(header_.file_size, layout::kMinFileSize, layout::kMaxFileSize))
      fault(kSizeAt, "file size", header_.file_size, range(layout::kMinFileSize, layout::kMaxFileSize));
    else if (!size_agrees(bytes_, header_))
      fault(kSizeAt, "file size", header_.file_size,
            "up to 4 less than the " + std::to_string(bytes_.size()) + " bytes that the file has");
  }

  // --- Never wrapped: records follow each other from the header to the recording position ---

  void check_never_wrapped(bool recording_in_range, bool earliest_in_range) {
    if (wrap_was_begun()) {
      result_.wrapped = true;
      count_uncleared();
      return;
    }
    const std::int64_t last_end = records_.empty() ? kInit : end_of(records_.back());
    if (recording_in_range && recording_ < last_end && !is_unlinked(records_.back())) {
      if (newest() != nullptr && !records_fill_the_start()) {
        fault(kWrapAt, "wrap indicator", header_.wrapped, "1, as records lie behind the recording position");
        result_.wrapped = true;
        check_wrapped(recording_in_range, earliest_in_range);
        return;
      }
      fault(kRecordingAt, "recording position", recording_, std::to_string(last_end));
      result_.position_trusted = false;
    }
    if (earliest_in_range && earliest_ != kInit)
      fault(kEarliestAt, "earliest record offset", earliest_, std::to_string(kInit));
    std::int64_t at = kInit;
    for (const record &r : records_) {
      check_gap(at, static_cast<std::int64_t>(r.offset));
      at = end_of(r);
    }
    if (recording_in_range) check_gap(at, std::min(recording_, length()));
  }

  // The writer that had to wrap first was stopped between its record and the header.
  bool wrap_was_begun() const {
    return records_.size() > 1 && !records_fill_the_start() && record_from(kInit) != nullptr &&
           made_later(records_.front(), records_.back()) && recording_ > header_.file_size - kMostNeed;
  }

  void check_gap(std::int64_t from, std::int64_t to) {
    if (from >= to) return;
    if (from == kInit && is_refused_wrap(to)) {
      result_.unreadable += nonzero(from, to);
      return;
    }
    result_.unreadable += static_cast<std::size_t>(to - from);
    result_.damages.push_back({static_cast<std::size_t>(from), "records",
                               std::to_string(to - from) + " bytes without a record that verifies",
                               "records without gaps"});
  }

  // The first push that has to wrap clears the oldest records; if it then is refused, or was stopped, the header stays.
  bool is_refused_wrap(std::int64_t to) const {
    return recording_ > header_.file_size - kMostNeed &&
           to - kInit >= static_cast<std::int64_t>(layout::kBodyMin) + 8 && zero(kInit, kInit + layout::kBodyMin + 4);
  }

  // --- Wrapped ---

  void check_wrapped(bool recording_in_range, bool earliest_in_range) {
    if (recording_in_range && !is_wrapped_position()) {
      fault(kRecordingAt, "recording position", recording_, "the end of a record");
      result_.position_trusted = false;
    } else if (recording_in_range && never_came_round()) {
      fault(kWrapAt, "wrap indicator", header_.wrapped, "0, as nothing lies behind the recording position");
      result_.wrapped = false;
    }
    if (earliest_in_range && recording_in_range && result_.position_trusted) check_wrapped_earliest();
    count_uncleared();
  }

  // The newest record ends at the recording position, unless reclamation has cleared it and all others from the start.
  bool is_wrapped_position() const {
    if (recording_ > header_.file_size + static_cast<std::int64_t>(layout::kOverrun) && size_agrees(bytes_, header_))
      return false;
    if (newest() != nullptr) return true;
    const bool cleared = records_.empty() || end_of(records_.front()) > recording_;
    if (!cleared || !zero(kInit, kInit + 8)) return false;
    return zero(recording_ - 8, recording_ - kLeftOver) || in_range(earliest_, kInit + 1, recording_ - 1);
  }

  // A wrap begins where the next record does not fit; what lay there is cleared only shortly before it is written over.
  bool never_came_round() const {
    return earliest_ == kInit && records_fill_the_start() && recording_ < header_.file_size - 4 * kMostNeed &&
           zero(recording_, length());
  }

  // Clearing moves the earliest offset to the end of what it cleared, or back to the start where it found nothing more.
  void check_wrapped_earliest() {
    if (earliest_ == kInit) return;
    const record *inside = record_around(earliest_);
    const bool inside_newest = inside != nullptr && inside == newest();
    std::string allowed;
    if (earliest_ > header_.file_size && size_agrees(bytes_, header_)) {
      allowed = "at most the file size";
    } else if (earliest_ >= recording_ - 3) {
      const record *unlinked = record_from(recording_);
      const std::int64_t written_to = unlinked != nullptr ? end_of(*unlinked) : recording_;
      if (!zero(written_to, earliest_)) allowed = "the end of the room cleared behind the recording position";
    } else if (!zero(kInit, kInit + 8) || !(zero(earliest_ - kLeftOver, earliest_) || inside_newest)) {
      allowed = std::to_string(kInit) + ", or behind the recording position";
    }
    if (allowed.empty() && inside != nullptr && !inside_newest) allowed = "not inside a record";
    if (allowed.empty() && inside == nullptr) allowed = start_of_what_is_left();
    if (!allowed.empty()) fault(kEarliestAt, "earliest record offset", earliest_, std::move(allowed));
  }

  // Where only cleared room separates the earliest offset from the next record, it has to stand right before it.
  std::string start_of_what_is_left() const {
    for (const record &r : records_) {
      const auto start = static_cast<std::int64_t>(r.offset);
      if (start < earliest_) continue;
      if (start - earliest_ <= kLeftOver || !zero(earliest_, start - kLeftOver)) return {};
      return std::to_string(start - kLeftOver) + " or " + std::to_string(start);
    }
    return {};
  }

  void count_uncleared() {
    std::int64_t at = kInit;
    for (const record &r : records_) {
      result_.unreadable += nonzero(at, static_cast<std::int64_t>(r.offset));
      at = end_of(r);
    }
    result_.unreadable += nonzero(at, length());
  }

  // --- Where things are ---

  std::int64_t length() const { return static_cast<std::int64_t>(bytes_.size()); }
  static std::int64_t end_of(const record &r) { return static_cast<std::int64_t>(r.end()); }

  // Bytes outside the file count as zero.
  byte_span part(std::int64_t from, std::int64_t to) const {
    from = std::clamp<std::int64_t>(from, 0, length());
    to = std::clamp<std::int64_t>(to, from, length());
    return bytes_.subspan(static_cast<std::size_t>(from), static_cast<std::size_t>(to - from));
  }
  std::size_t nonzero(std::int64_t from, std::int64_t to) const {
    const byte_span bytes = part(from, to);
    return static_cast<std::size_t>(std::count_if(bytes.begin(), bytes.end(), [](unsigned char b) { return b != 0; }));
  }
  bool zero(std::int64_t from, std::int64_t to) const { return nonzero(from, to) == 0; }

  template <class Match>
  const record *find(Match match) const {
    const auto found = std::find_if(records_.begin(), records_.end(), match);
    return found == records_.end() ? nullptr : &*found;
  }
  const record *newest() const {
    return find([&](const record &r) { return end_of(r) == recording_; });
  }
  const record *record_from(std::int64_t at) const {
    return find([&](const record &r) { return static_cast<std::int64_t>(r.offset) == at; });
  }
  const record *record_around(std::int64_t at) const {
    return find([&](const record &r) { return static_cast<std::int64_t>(r.offset) < at && at < end_of(r); });
  }

  // Written, but its writer was stopped before it wrote the header.
  bool is_unlinked(const record &r) const { return static_cast<std::int64_t>(r.offset) == recording_; }

  bool records_fill_the_start() const {
    std::int64_t at = kInit;
    for (const record &r : records_) {
      if (static_cast<std::int64_t>(r.offset) != at) return false;
      at = end_of(r);
    }
    return true;
  }

  byte_span bytes_;
  const stack_header &header_;
  const std::vector<record> &records_;
  std::int64_t recording_, earliest_;
  header_check result_;
};

}  // namespace

header_check check_header(byte_span bytes, const stack_header &header, const std::vector<record> &records) {
  return checker(bytes, header, records).run();
}

bool looks_like_header(byte_span bytes, const stack_header &header) {
  const bool fields[] = {
      header.version == 0,
      header.init_offset == kInit,
      in_range(header.recording_position, kInit, kLastPosition),
      in_range(header.earliest_record, kInit, layout::kMaxFileSize),
      in_range(header.file_size, layout::kMinFileSize, layout::kMaxFileSize) && size_agrees(bytes, header),
      header.wrapped <= 1};
  return std::count(std::begin(fields), std::end(fields), false) <= 1;
}

bool header_is_usable(const stack_header &header) {
  if (header.version != 0) return header.version % 8 == 0 && header.version <= 56;
  const auto position = [](std::int64_t value) { return in_range(value, kInit, layout::kMaxFileSize); };
  return in_range(header.file_size, layout::kMinFileSize, layout::kMaxFileSize) &&
         position(header.recording_position) && position(header.earliest_record) && position(header.init_offset) &&
         header.wrapped <= 1;
}

}  // namespace vosk
