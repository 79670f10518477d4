// What the kernel says of a process.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "qx_cu.h"

namespace vk {

static int open_retry(const char *path) noexcept {
  int fd;
  do fd = open(path, O_RDONLY | O_CLOEXEC);
  while (fd < 0 && errno == EINTR);
  return fd;
}

static ssize_t read_retry(int fd, char *buffer, std::size_t size) noexcept {
  ssize_t length;
  do length = read(fd, buffer, size);
  while (length < 0 && errno == EINTR);
  return length;
}

}  // namespace vk

extern "C" int cu_get_proc_info_1(cu_proc_info_t *record, int pid) {
  if (record == nullptr) {
    errno = EINVAL;
    return 0;
  }
  // comm and not stat: there the name stands in parentheses that the name itself may hold, too.
  char path[32];
  (void)std::snprintf(path, sizeof path, "/proc/%d/comm", pid);
  const int fd = vk::open_retry(path);
  if (fd < 0) return 0;
  char command[sizeof record->command] = "";  // the kernel's names are shorter; one read gives the whole
  const ssize_t length = vk::read_retry(fd, command, sizeof command - 1);
  const int err = errno;
  (void)close(fd);
  if (length < 0) {
    errno = err;
    return 0;
  }
  // Only the last line feed is the kernel's; a name may hold others.
  if (length > 0 && command[length - 1] == '\n') command[length - 1] = '\0';
  record->pid = pid;
  std::memcpy(record->command, command, sizeof command);
  return 1;
}
