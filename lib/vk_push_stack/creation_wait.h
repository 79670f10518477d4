// Waiting for a stack file that another process is just creating.
#ifndef LIB_VK_PUSH_STACK_CREATION_WAIT_H
#define LIB_VK_PUSH_STACK_CREATION_WAIT_H

#include <ctime>

namespace vk {

// The patience of one push: half a second in all.
class creation_wait {
 public:
  bool may_wait() const noexcept { return !over_; }
  // Returns when the file no longer looks unfinished, or cannot be looked at, or the time is over. It neither locks nor
  // traces: the creator is not held up, and an abandoned file does not fill the trace.
  void until_finished(const char *path) noexcept;

 private:
  void pause() noexcept;

  timespec start_ = {};
  bool started_ = false, over_ = false;
};

}  // namespace vk

#endif
