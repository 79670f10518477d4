#include "lib/vk_push_stack/stack_access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "lib/report.h"
#include "lib/vk_push_stack/stack_file.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/vk_utils/allocate_file.h"

namespace vk {
namespace {

constexpr open_result refused(int code) noexcept {
  return {-1, code};
}

open_result open_file(const tracer &trace, const char *path) noexcept {
  const int fd = open(path, O_RDWR);
  if (fd != -1) return {fd, 0};
  const int err = errno;
  VK_TRACE(trace, "Failed to open file %s with perms 0x%x - error code %d\nReturning %s(%d) to caller\n", path,
           unsigned{O_RDWR}, err, vk_name(VK_STACK_ACCESS), VK_STACK_ACCESS);
  return refused(report(VK_STACK_ACCESS, 38, path, err));
}

bool lock(const tracer &trace, const char *path, int fd, int &err) noexcept {
  if (lockf(fd, F_LOCK, 0) == 0) return true;
  err = errno;
  VK_TRACE(trace, "Failure to lock file %s - error code %d\n", path, err);
  return false;
}

int report_reservation(int result, const char *path) noexcept {
  switch (result) {
    case VOSK_LOCK_FAILED:
      return report(kLockFailed, 37, path);
    case VOSK_NO_SPACE:
      return report(kNoSpace, 36, kStackDirectory, int{stack_file::kSmallest});
    case VOSK_PERM_DENIED:
      return report(VK_STACK_ACCESS, 35, path);
    case VOSK_STALE_FS:
    case VOSK_DIR_MISSING:
    case VOSK_DIR_ACCESS:
      return report(kDirectoryFailed, 29, kStackDirectory);
    case VOSK_INV_PARAM3:
      return report(VK_UNEXPECTED, 30, "vk_push_stack_1");
    default:
      return report(VK_UNEXPECTED, 30, "vk_allocate_file");
  }
}

bool write_field(const tracer &trace, int fd, const void *field, std::size_t size, int &err) noexcept {
  errno = 0;
  const ssize_t written = write(fd, field, size);
  if (written == static_cast<ssize_t>(size)) return true;
  err = errno;
  // "Retruning" stands in this text alone of its kind, on purpose.
  VK_TRACE(trace,
           "Write Failure - Attempted to write %d bytes, return code %d error code %d\nRetruning %s(%d) to caller\n",
           low32(size), low32(written), err, vk_name(VK_IO_FAILED), VK_IO_FAILED);
  return false;
}

bool write_header(const tracer &trace, int fd, const stack_file::control &control, int &err) noexcept {
  const std::uint32_t version = stack_file::kVersion1;
  return write_field(trace, fd, &version, sizeof version, err) && write_field(trace, fd, &control, sizeof control, err);
}

}  // namespace

open_result open_stack(const tracer &trace, const char *path) noexcept {
  const open_result opened = open_file(trace, path);
  if (opened.fd == -1) return opened;
  int err = 0;
  if (lock(trace, path, opened.fd, err)) return opened;
  (void)close(opened.fd);
  return refused(report(kLockFailed, 40, path, err));
}

open_result create_stack(int trace_on, const char *trace_path, const tracer &trace, const char *path) noexcept {
  std::int64_t size = 0;
  const int result = allocate_file(trace_on, trace_path, path, stack_file::kLargest, stack_file::kSmallest, &size);
  if (result != VOSK_SUCCESS) return refused(report_reservation(result, path));
  if (size == 0) return open_stack(trace, path);  // another process came first

  VK_TRACE(trace, "%s", "Setting ctrl info\n");
  const stack_file::control control = {stack_file::kHeaderSize,
                                       stack_file::kHeaderSize,
                                       stack_file::kHeaderSize,
                                       static_cast<std::int32_t>(size),
                                       0,
                                       {}};
  const open_result opened = open_file(trace, path);
  if (opened.fd == -1) return opened;
  int err = 0;
  if (!lock(trace, path, opened.fd, err)) {
    (void)close(opened.fd);
    // Another message than for an existing file, on purpose.
    return refused(report(kLockFailed, 37, path));
  }
  if (write_header(trace, opened.fd, control, err)) return opened;
  leave_stack(opened.fd);
  return refused(report(VK_IO_FAILED, 39, path, err));
}

bool lock_again(const tracer &trace, const char *path, int fd, int &code) noexcept {
  (void)lseek(fd, 0, SEEK_SET);  // the lock counts from here
  int err = 0;
  if (lock(trace, path, fd, err)) return true;
  (void)close(fd);
  code = report(kLockFailed, 40, path, err);
  return false;
}

void unlock_stack(int fd) noexcept {
  (void)lseek(fd, 0, SEEK_SET);
  (void)lockf(fd, F_ULOCK, 0);
}

bool is_removed(int fd) noexcept {
  struct stat status;
  return fstat(fd, &status) == 0 && status.st_nlink == 0;
}

void leave_stack(int fd) noexcept {
  (void)lockf(fd, F_ULOCK, 0);
  (void)close(fd);
}

}  // namespace vk
