// An incident that was recorded in the System Log, out of the line that holds it.
#ifndef TOOLS_READER_LOG_RECORD_H
#define TOOLS_READER_LOG_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "log_source.h"

namespace vosk {

// What begins every record in a line.
inline constexpr std::string_view kLogRecordStart = "(Recorded using libqx_vosk.a cv ";

// Texts that the line does not hold are empty. All of them are anybody's: who may log may log anything.
struct log_record {
  std::string source;      // where the line is
  std::uint64_t line = 0;  // and which one it is
  std::string eid;         // 42 characters; empty where none was made
  std::string reference;   // the identifier of the incident that it follows from
  std::optional<std::uint32_t> template_id;
  std::string detail_file;                 // the copy that it cites
  std::string location;                    // the whole of it
  std::string product, file, version;      // its parts, if it has just these
  std::optional<std::uint32_t> file_line;  // the last of them
  std::string message;
  std::string process, host;  // as the log has them
  std::optional<std::uint32_t> pid;
  bool complete = false;  // its line reaches the message
};

// The record in a line of any source.
std::optional<log_record> parse_log_record(const log_line &line);

// True if both lines hold one recording: a log can be kept in several places.
bool same_recording(const log_record &a, const log_record &b) noexcept;

}  // namespace vosk

#endif
