#include "utils/file_size_guard.h"

#include <ctime>

namespace vk {

static sigset_t only_sigxfsz() noexcept {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGXFSZ);
  return set;
}

void file_size_guard::hold() noexcept {
  sigset_t pending = {};
  (void)sigpending(&pending);
  was_pending_ = sigismember(&pending, SIGXFSZ) == 1;
  const sigset_t set = only_sigxfsz();
  held_ = pthread_sigmask(SIG_BLOCK, &set, &former_mask_) == 0;
}

void file_size_guard::release() noexcept {
  const int saved_errno = errno;
  if (!was_pending_) {
    const sigset_t set = only_sigxfsz();
    const timespec at_once = {};
    (void)sigtimedwait(&set, nullptr, &at_once);
  }
  (void)pthread_sigmask(SIG_SETMASK, &former_mask_, nullptr);
  errno = saved_errno;
}

}  // namespace vk
