// Whether the library would take the next recording into a stack file.
#ifndef TOOLS_READER_RECLAMATION_H
#define TOOLS_READER_RECLAMATION_H

#include <string>

#include "stack.h"

namespace vosk {

// What stands in the way of the next recording.
enum class obstacle {
  none,
  no_header,    // the file was reserved and never initialised
  header,       // the header is damaged
  reclamation,  // the standard rule cannot make room any more; whole-record reclamation can
};

struct push_outlook {
  obstacle stopped_by = obstacle::none;
  std::string reason;  // in words, where there is an obstacle

  bool taken() const noexcept { return stopped_by == obstacle::none; }
};

// Plays the standard reclamation for a small record on a copy of the file's bytes. What a recording meets beyond the
// file's contents (permissions, a lock, a full disk) is not looked at.
push_outlook next_push(const stack &file);

}  // namespace vosk

#endif
