// The lines of the System Log, wherever it is kept: syslog files, rotated and compressed ones too, the journal,
// standard input.
#ifndef TOOLS_READER_LOG_SOURCE_H
#define TOOLS_READER_LOG_SOURCE_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "safe_file.h"

namespace vosk {

// One line as it stands in its source; of the journal an entry as a JSON object. Valid during the call only.
struct log_line {
  const std::string &source;  // a path, "journal" or "standard input"
  std::uint64_t number;       // from 1
  std::string_view text;
  bool cut;  // it was longer than can be held
};

// What became of a source. Lines are handed on until it fails, so there can be some of a source that could not be read.
struct log_outcome {
  std::string source;
  outcome result = outcome::failed;
  std::string reason;  // unless `result` is read
  std::uint64_t lines = 0;
};

// False ends the reading.
using take_log_line = std::function<bool(const log_line &)>;

// Reads the lines of all sources, one source after the other. A name is
//   FILE     a log, plain or compressed, or a file of the journal; also a FIFO; of a collection its logs
//   DIR      the usual syslog files in it
//   -        standard input
//   journal  the journal, through journalctl
//   auto     the journal and, unless it is kept from start to start, the usual syslog files under /var/log
//   none     nothing
// Of the journal only entries are read that came through syslog with the facility of records.
std::vector<log_outcome> for_each_log_line(const std::vector<std::string> &names, const take_log_line &take);

}  // namespace vosk

#endif
