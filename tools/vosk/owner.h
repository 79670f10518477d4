// The process that owns the environment this program was started with.
#ifndef TOOLS_VOSK_OWNER_H
#define TOOLS_VOSK_OWNER_H

#include <sys/types.h>

#include <cstdlib>

#include "reader/number.h"

namespace vosk {

// What VOSKPID says; 0 where it names no process.
inline pid_t owner_of_environment() {
  const char *const value = std::getenv("VOSKPID");
  pid_t id = 0;
  return value != nullptr && parse_number(value, id) && id > 0 ? id : 0;
}

}  // namespace vosk

#endif
