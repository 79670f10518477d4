// An entry of the journal as its own program prints it: one JSON object a line, with texts as strings or, where they
// are no plain text, as lists of bytes.
#ifndef TOOLS_READER_JOURNAL_ENTRY_H
#define TOOLS_READER_JOURNAL_ENTRY_H

#include <optional>
#include <string>
#include <string_view>

namespace vosk {

struct journal_entry {
  std::string message, process, host, pid;
};

// Nothing for a line that is no such object, or can not hold a message with `wanted` in it. Anything can be in a log:
// at a member that is neither text, number nor list of bytes the reading ends with what there is.
std::optional<journal_entry> parse_journal_entry(std::string_view line, std::string_view wanted);

}  // namespace vosk

#endif
