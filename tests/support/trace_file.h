// Reads a debug trace file by its layout alone: header, entries, end marker, recycle marker.
//
//   trace_file::Trace trace = trace_file::read(path);
//   ASSERT_EQ(trace.problem, "");
//   EXPECT_THAT(trace.summaries(), testing::ElementsAre("fclear: Returning VOSK_SUCCESS(0) to caller"));
//   EXPECT_EQ(trace.entries[0].lines, trace_file::folded("a message of %d bytes ...\n", 300));
#ifndef QX_TESTS_SUPPORT_TRACE_FILE_H
#define QX_TESTS_SUPPORT_TRACE_FILE_H

#include <string>
#include <string_view>
#include <vector>

namespace trace_file {

struct Entry {
  std::size_t offset = 0;  // in the file
  std::string time;        // "Thu Jan  1 00:00:00 1970", without the newline
  std::string routine;
  int pid = 0;
  int thread = 0;
  std::vector<std::string> lines;  // of the message, as folded, without tab and newline
  std::string text;                // the whole entry, from its mark to its last newline

  std::string message() const;  // the lines joined by newlines
};

struct Trace {
  std::string problem;          // what is wrong with the file; the rest is as far as it could be read
  int next_offset = 0;          // VKTFO
  int wraps = 0;                // VKTFW
  int size = 0;                 // VKTFS
  bool end_marker = false;      // where VKTFO says; a fresh file has none
  bool recycle_marker = false;  // with its zero byte
  std::vector<Entry> entries;   // oldest first: what is left from before the last wrap, then what came since
  std::size_t older = 0;        // how many of them are from before the last wrap

  std::vector<std::string> summaries() const;                         // "routine: message" of each entry
  std::vector<std::string> messages(std::string_view routine) const;  // of one routine's entries
};

Trace parse(std::string_view bytes);
Trace read(const std::string &path);  // a file that cannot be read is a problem

// The lines that a message takes in the file: cut to 254 characters, folded at 72.
std::vector<std::string> folded(const char *format, ...) __attribute__((format(printf, 1, 2)));
// The same joined by newlines, to compare with Entry::message().
std::string folded_text(const char *format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace trace_file

#endif
