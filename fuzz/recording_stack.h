// The Error Stack of this process, for the targets that push.
#ifndef FUZZ_RECORDING_STACK_H
#define FUZZ_RECORDING_STACK_H

#include "fuzz/target.h"

namespace fuzz {

// A file in memory that this process owns as its stack; VOSKRECLAIM is `reclaim`, or left alone where that is null.
inline memory_file &recording_stack(const char *reclaim) {
  static memory_file file("stack");
  static const bool once = [reclaim] {
    const std::string pid = std::to_string(getpid());
    setenv("VOSKSTACK", file.path(), 1);
    setenv("VOSKORIG", pid.c_str(), 1);
    setenv("VOSKPID", pid.c_str(), 1);
    setenv("VOSKADDR", "z/../....................", 1);
    setenv("VOSKPNAME", "fuzz", 1);
    if (reclaim != nullptr) setenv("VOSKRECLAIM", reclaim, 1);
    unsetenv("VOSKDEBUG");
    return true;
  }();
  (void)once;
  return file;
}

}  // namespace fuzz

#endif
