// What the programs of the demo share: how they tell their story, and where they leave the identifiers of their
// records.
#pragma once

#include <qx_vosk.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace demo {

inline constexpr int kBatch = 7;

// Prints one line of the story, at once: several processes write to the same terminal.
[[gnu::format(printf, 1, 2)]] inline void say(const char *format, ...) {
  std::printf("  %s[%d]: ", program_invocation_short_name, static_cast<int>(getpid()));
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
  std::putchar('\n');
  (void)std::fflush(stdout);
}

// Notes the identifier of a record in the demo's list of them.
inline void remember(const std::string &directory, const char *what, const char *identifier) {
  if (std::FILE *list = std::fopen((directory + "/identifiers").c_str(), "ae")) {
    std::fprintf(list, "%s %s\n", what, identifier);
    (void)std::fclose(list);
  }
}

// A recording that gave anything but 0 was refused, or had something to complain of.
inline bool recorded(int result, const char *routine) {
  if (result == VK_SUCCESS) return true;
  say("%s gave %d", routine, result);
  return false;
}

}  // namespace demo
