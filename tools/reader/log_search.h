// The recordings that the System Log holds: one of them by its identifier, or all.
#ifndef TOOLS_READER_LOG_SEARCH_H
#define TOOLS_READER_LOG_SEARCH_H

#include <string>
#include <string_view>
#include <vector>

#include "log_record.h"
#include "log_source.h"

namespace vosk {

// One line that holds a recording.
struct log_place {
  std::string source;
  std::uint64_t line = 0;
};

struct log_findings {
  std::vector<log_record> records;  // each recording once, however many lines hold it
  std::vector<log_place> places;    // the first lines that do, of one identifier
  std::vector<log_outcome> sources;
  bool too_many = false;  // there are more recordings than can be held; these are the first of them

  bool all_read() const noexcept;  // what was named or usual could be read to its end
};

log_findings find_log_records(const std::vector<std::string> &sources, std::string_view eid);

// What is in `all` of one identifier.
log_findings recordings_of(const log_findings &all, std::string_view eid);

// What the recordings of one search may take in memory; each has about 1 KiB at most.
inline constexpr std::size_t kMostLogBytes = 256u << 20;

log_findings all_log_records(const std::vector<std::string> &sources, std::size_t most_bytes = kMostLogBytes);

}  // namespace vosk

#endif
