// Opening, creating, locking and leaving a stack file.
#ifndef LIB_VK_PUSH_STACK_STACK_ACCESS_H
#define LIB_VK_PUSH_STACK_STACK_ACCESS_H

#include "utils/vk_debug/trace.h"

namespace vk {

// Codes of a recording that have a number only.
inline constexpr int kDirectoryFailed = 19, kLockFailed = 22, kControlFailed = 24, kIsDirectory = 25, kNoSpace = 40;

struct open_result {
  int fd;    // open and locked; -1 on failure
  int code;  // what was reported then
};

// Opens the existing stack file `path` and locks it.
open_result open_stack(const tracer &trace, const char *path) noexcept;

// Creates the stack file and writes its header. Where another process creates it meanwhile, that one writes the header,
// and the file is opened as an existing one.
open_result create_stack(int trace_on, const char *trace_path, const tracer &trace, const char *path) noexcept;

// Takes the lock again, which this process's closing of another descriptor of the file has dropped, or which was given
// back; false, reported in `code`, and the file closed, when it is refused.
bool lock_again(const tracer &trace, const char *path, int fd, int &code) noexcept;

// Gives the lock back; the file stays open.
void unlock_stack(int fd) noexcept;

// Whether the open file has no name any more.
bool is_removed(int fd) noexcept;

// Unlocks and closes; nobody asks for the results.
void leave_stack(int fd) noexcept;

}  // namespace vk

#endif
