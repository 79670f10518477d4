// The process that established a stack's environment, as far as it can still be told.
#ifndef TOOLS_READER_ORIGINATOR_H
#define TOOLS_READER_ORIGINATOR_H

#include <optional>
#include <string_view>

#include "moment.h"

namespace vosk {

// What a stack's name says: NAME.PID.YYYYMMDD.HHMMSS.
struct stack_name {
  int pid = 0;
  moment made;  // the name has the local time of its node
};

std::optional<stack_name> parse_stack_name(std::string_view path);

// True if the process still runs: it has the process id, and was started before the stack was named. A later process
// can have the same id.
bool is_alive(const stack_name &name);

}  // namespace vosk

#endif
