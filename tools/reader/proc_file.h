// The files that the kernel shows of a process under /proc.
#ifndef TOOLS_READER_PROC_FILE_H
#define TOOLS_READER_PROC_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vosk {

// At most the first `limit` bytes of /proc/PID/`name`; nothing where it cannot be read.
std::optional<std::string> proc_file(int pid, const char *name, std::size_t limit = 4096);

// What /proc/PID/stat says, by the numbers that proc(5) gives its fields; those before kState are left empty. Nothing
// where `text` is no such line.
enum stat_field : std::size_t {
  kState = 3,
  kParent = 4,
  kThreads = 20,
  kStart = 22,
  kCode = 26,
  kStack = 28,
  kData = 45,
  kArguments = 48,
  kEnvironment = 50,
};
std::vector<std::string_view> stat_fields(std::string_view text);

// The parts of `text` that one or more of the separators keep apart.
std::vector<std::string_view> split(std::string_view text, std::string_view separators);

}  // namespace vosk

#endif
