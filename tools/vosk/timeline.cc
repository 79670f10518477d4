#include "timeline.h"

#include <algorithm>
#include <queue>

namespace vosk {

namespace {

// A file whose records have been taken up to `next`. A record without a time goes with the one before it, and one that
// the clock put back does not hold up those of other files.
struct track {
  const stack_file *file;
  std::size_t order;
  std::size_t next = 0;
  moment reached{};

  const record &head() const { return file->contents.records[next]; }
  moment key() const { return std::max(reached, made_at(head()).value_or(reached)); }
};

struct later {
  bool operator()(const track &a, const track &b) const {
    return a.key() != b.key() ? a.key() > b.key() : a.order > b.order;
  }
};

// Nothing follows from what has not happened yet, but clocks differ.
std::int64_t microseconds_to_its_cause(const record &r) {
  const auto cause = decode_identifier(identifier_text(r.associated));
  if (!r.id || !cause) return 0;
  const moment caused{cause->seconds, static_cast<std::int32_t>(cause->microseconds.value_or(0))};
  return std::max<std::int64_t>(microseconds_between(*made_at(r), caused), 0);
}

}  // namespace

std::optional<moment> made_at(const record &r) {
  if (!r.id) return std::nullopt;
  return moment{r.id->seconds, static_cast<std::int32_t>(r.id->microseconds.value_or(0))};
}

std::vector<timed_record> timeline(const std::vector<stack_file> &files) {
  std::priority_queue<track, std::vector<track>, later> tracks;
  std::size_t total = 0;
  for (const stack_file &file : files) {
    total += file.contents.records.size();
    if (!file.contents.records.empty()) tracks.push({&file, tracks.size()});
  }
  std::vector<timed_record> line;
  line.reserve(total);
  while (!tracks.empty()) {
    track from = tracks.top();
    tracks.pop();
    const record &r = from.head();
    timed_record taken{{&from.file->path, &r}, made_at(r)};
    const record *before = from.next > 0 ? &from.file->contents.records[from.next - 1] : nullptr;
    if (before != nullptr && made_later(*before, r))
      taken.clock_went_back = microseconds_between(*taken.at, *made_at(*before));
    taken.cause_is_later = microseconds_to_its_cause(r);
    line.push_back(taken);
    from.reached = from.key();
    if (++from.next < from.file->contents.records.size()) tracks.push(from);
  }
  return line;
}

}  // namespace vosk
