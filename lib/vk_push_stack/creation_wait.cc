#include "lib/vk_push_stack/creation_wait.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

#include "lib/vk_push_stack/ctrl_info.h"

namespace vk {
namespace {

// O_NONBLOCK, so that whatever has taken the file's place meanwhile cannot hold the caller up.
bool looks_unfinished(const char *path) noexcept {
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd == -1) return false;
  std::uint32_t version = 0;
  const ssize_t count = read(fd, &version, sizeof version);
  (void)close(fd);
  return is_unfinished(version, count);
}

}  // namespace

void creation_wait::until_finished(const char *path) noexcept {
  do pause();
  while (!over_ && looks_unfinished(path));
}

void creation_wait::pause() noexcept {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  if (!started_) {
    start_ = now;
    started_ = true;
  }
  constexpr timespec kPause = {0, 1'000'000};
  constexpr std::int64_t kLongest = 500'000'000;
  (void)nanosleep(&kPause, nullptr);
  over_ = (now.tv_sec - start_.tv_sec) * std::int64_t{1'000'000'000} + (now.tv_nsec - start_.tv_nsec) >= kLongest;
}

}  // namespace vk
