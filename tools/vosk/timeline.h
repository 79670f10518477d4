// The records of all files on one line of time.
#ifndef TOOLS_VOSK_TIMELINE_H
#define TOOLS_VOSK_TIMELINE_H

#include <cstdint>
#include <optional>
#include <vector>

#include "reader/collection.h"
#include "reader/moment.h"
#include "record_text.h"

namespace vosk {

struct timed_record {
  placed_record where;
  std::optional<moment> at;          // nothing for a record without an identifier
  std::int64_t clock_went_back = 0;  // microseconds since the record before it in its file
  std::int64_t cause_is_later = 0;   // microseconds from the record to the one that it follows from
};

// Merges the files by time. Within a file the order is the one of the file, whatever its clock did.
std::vector<timed_record> timeline(const std::vector<stack_file> &files);

std::optional<moment> made_at(const record &r);

}  // namespace vosk

#endif
