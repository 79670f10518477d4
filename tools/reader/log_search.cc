#include "log_search.h"

#include <algorithm>
#include <unordered_map>

namespace vosk {

namespace {

constexpr std::size_t kMostPlaces = 16;

std::size_t bytes_of(const log_record &r) {
  return sizeof r + r.source.size() + r.eid.size() + r.reference.size() + r.detail_file.size() + 2 * r.location.size() +
         r.message.size() + r.process.size() + r.host.size();
}

// Of all that makes two recordings one: anybody can log any number of lines with one identifier.
std::size_t key_of(const log_record &r) {
  std::size_t key = 0;
  for (const std::string *text : {&r.eid, &r.reference, &r.detail_file, &r.location, &r.message})
    key = key * 31 + std::hash<std::string>()(*text);
  return key;
}

// Keeps each recording once.
class recordings {
 public:
  recordings(log_findings &found, std::size_t most_bytes) : found_(found), most_(most_bytes) {}

  // False if no more can be held.
  bool add(log_record &&r) {
    const std::size_t key = key_of(r);
    const auto [first, last] = known_.equal_range(key);
    const bool held =
        std::any_of(first, last, [&](const auto &entry) { return same_recording(found_.records[entry.second], r); });
    if (held) return true;
    bytes_ += bytes_of(r);
    if (bytes_ > most_) {
      found_.too_many = true;
      return false;
    }
    known_.emplace(key, found_.records.size());
    found_.records.push_back(std::move(r));
    return true;
  }

 private:
  log_findings &found_;
  std::unordered_multimap<std::size_t, std::size_t> known_;
  std::size_t most_, bytes_ = 0;
};

}  // namespace

bool log_findings::all_read() const noexcept {
  return std::all_of(sources.begin(), sources.end(),
                     [](const log_outcome &source) { return source.result == outcome::read; });
}

log_findings find_log_records(const std::vector<std::string> &sources, std::string_view eid) {
  log_findings found;
  recordings kept(found, kMostLogBytes);
  found.sources = for_each_log_line(sources, [&](const log_line &line) {
    auto r = parse_log_record(line);
    if (!r || r->eid != eid) return true;
    if (found.places.size() < kMostPlaces) found.places.push_back({r->source, r->line});
    return kept.add(*std::move(r));
  });
  return found;
}

log_findings recordings_of(const log_findings &all, std::string_view eid) {
  log_findings found;
  found.sources = all.sources;
  found.too_many = all.too_many;
  for (const log_record &r : all.records) {
    if (r.eid != eid) continue;
    found.records.push_back(r);
    found.places.push_back({r.source, r.line});
  }
  return found;
}

log_findings all_log_records(const std::vector<std::string> &sources, std::size_t most_bytes) {
  log_findings found;
  recordings kept(found, most_bytes);
  found.sources = for_each_log_line(sources, [&](const log_line &line) {
    auto r = parse_log_record(line);
    return !r || kept.add(*std::move(r));
  });
  return found;
}

}  // namespace vosk
