// Writing past the process's file size limit must fail, not kill the caller.
#ifndef UTILS_FILE_SIZE_GUARD_H
#define UTILS_FILE_SIZE_GUARD_H

#include <signal.h>
#include <sys/resource.h>

#include <cerrno>

namespace vk {

// No fixed-size file of the library reaches beyond this; a copied detail file may.
inline constexpr rlim_t kFixedFileReach = 0x80000000;
inline constexpr rlim_t kAnyReach = RLIM_INFINITY;

// While it lives, SIGXFSZ is held back from this thread where the file size limit is below `reach`; one that came
// meanwhile is taken away before the mask is restored. Costs one getrlimit where there is no such limit.
class file_size_guard {
 public:
  explicit file_size_guard(rlim_t reach) noexcept {
    rlimit limit;
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur >= reach) return;
    hold();
  }
  file_size_guard(const file_size_guard &) = delete;
  file_size_guard &operator=(const file_size_guard &) = delete;
  ~file_size_guard() {
    if (held_) release();
  }

 private:
  void hold() noexcept;
  void release() noexcept;

  bool held_ = false;
  bool was_pending_ = false;
  sigset_t former_mask_;
};

}  // namespace vk

#endif
