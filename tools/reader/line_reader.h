// The lines of a file, a pipe or a program's output, in memory that does not grow with them.
#ifndef TOOLS_READER_LINE_READER_H
#define TOOLS_READER_LINE_READER_H

#include <cstdint>
#include <functional>
#include <string_view>

namespace vosk {

// Of a longer line only the start is handed on.
inline constexpr std::size_t kMostOfALine = 1 << 16;

enum class lines_end {
  read,     // to the end
  stopped,  // `take` wanted no more
  silent,   // nothing came for so long
  failed,   // errno says why
};

// Hands each line to `take`, without its line feed (and the carriage return before it); `cut` where it was longer.
// `patience` is how many milliseconds may pass without anything to read, -1 for any. Of a file that grows no more than
// `most` bytes are read, however fast it does.
lines_end read_lines(int fd, int patience, const std::function<bool(std::string_view line, bool cut)> &take,
                     std::uint64_t most = UINT64_MAX);

}  // namespace vosk

#endif
