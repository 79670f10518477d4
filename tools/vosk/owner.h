// The process that owns the environment this program was started with.
#ifndef TOOLS_VOSK_OWNER_H
#define TOOLS_VOSK_OWNER_H

#include <sys/types.h>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace vosk {

// What VOSKPID says; 0 where it names no process.
inline pid_t owner_of_environment() {
  const char *const value = std::getenv("VOSKPID");
  const std::string_view text = value != nullptr ? value : "";
  pid_t id = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), id);
  return read.ec == std::errc() && read.ptr == text.data() + text.size() && id > 0 ? id : 0;
}

}  // namespace vosk

#endif
