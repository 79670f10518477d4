// Copies of detail files: a caller's file may be gone or changed when somebody reads the record that cites it.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/errno_map.h"
#include "utils/file_size_guard.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

constexpr std::size_t kChunk = 1024;

constexpr errno_code kOpenOutput[] = {{ENOSPC, VOSK_NO_SPACE},
                                      {ENFILE, VOSK_NO_RESOURCE},
                                      {EMFILE, VOSK_NO_RESOURCE},
                                      {EDQUOT, VOSK_NO_RESOURCE},
                                      {EROFS, VOSK_PERM_DENIED}};
constexpr errno_code kOpenInput[] = {
    {ENFILE, VOSK_NO_RESOURCE}, {EMFILE, VOSK_NO_RESOURCE}, {EDQUOT, VOSK_NO_RESOURCE}, {ENOSPC, VOSK_NO_SPACE}};
constexpr errno_code kWriteCopy[] = {{ENOSPC, VOSK_NO_SPACE}, {EDQUOT, VOSK_NO_SPACE}, {EFBIG, VOSK_NO_SPACE}};

int no_command_name(const tracer &trace) noexcept {
  VK_TRACE(trace,
           "Cannot obtain command name from envionment value %s\nAssuming corrupted VOSK Environment\n"
           "Returning %s(%d) to the caller",
           "VOSKPNAME", vosk_name(VOSK_INV_ENV), VOSK_INV_ENV);
  return VOSK_INV_ENV;
}

int vk_get_dump_file_name(int trace_on, const char *trace_path, char *name) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_dump_file_name");
  const char *command = getenv("VOSKPNAME");
  if (!is_set(command)) return no_command_name(trace);
  timeval now = {};
  (void)gettimeofday(&now, nullptr);
  tm local = {};
  (void)localtime_r(&now.tv_sec, &local);
  // A name that is cut here passes no test: no file system takes thousands of characters without a slash.
  (void)std::snprintf(name, kPathSize, "%s/%s.%d.%4d%.2d%.2d.%.2d%.2d%.2d", kDumpDirectory, command,
                      static_cast<int>(getpid()), local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                      local.tm_min, local.tm_sec);

  const int result = vk_test_for_file(trace_on, trace_path, name);
  // A name with a slash would make a file outside of the directory.
  if (result == VOSK_FILE_MISSING) return std::strchr(command, '/') == nullptr ? VOSK_SUCCESS : no_command_name(trace);
  if (result == VOSK_SUCCESS) {
    VK_TRACE(trace, "Dump file \"%s\" already exists, cannot recreated it\nReturning %s(%d) to the caller\n", name,
             vosk_name(VOSK_FILE_EXIST), VOSK_FILE_EXIST);
    return VOSK_FILE_EXIST;
  }
  VK_TRACE(trace, "Unexpected failure testing for the file \"%s\"\nRetruning %d to the caller\n", name, result);
  return result;
}

// Closes both descriptors at the end of the input; after a failure they are the caller's to close.
int vk_copy_file(int trace_on, const char *trace_path, int input, int output) noexcept {
  const tracer trace(trace_on, trace_path, "vk_copy_file");
  char chunk[kChunk];
  for (unsigned int iteration = 0;; ++iteration) {
    const ssize_t count = read(input, chunk, sizeof chunk);
    if (count == -1) {
      VK_TRACE(trace, "Error reading input from file - Iteration %d - Error Code %d\nReturning %s(%d) to caller\n",
               low32(iteration), errno, vosk_name(VOSK_IO_ERROR), VOSK_IO_ERROR);
      return VOSK_IO_ERROR;
    }
    if (count == 0) {
      (void)close(input);
      (void)close(output);
      VK_TRACE(trace, "Successfully copied files\nReturning %s(%d) to caller\n", vosk_name(VOSK_SUCCESS), VOSK_SUCCESS);
      return VOSK_SUCCESS;
    }
    errno = 0;
    if (write(output, chunk, static_cast<std::size_t>(count)) != count) {
      const int err = errno;
      VK_TRACE(trace, "Error copying data - Iteration %d - Error Code %d\n", low32(iteration), err);
      return code_for(kWriteCopy, err);
    }
  }
}

// What has no end to copy to is not opened, since a FIFO would hold the caller up. Of the devices the null one has an
// end.
bool has_an_end(const char *path) noexcept {
  struct stat status;
  if (fstatat(AT_FDCWD, path, &status, 0) != 0) return true;  // opening it says why
  return S_ISREG(status.st_mode) || (S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3));
}

int open_input(const char *path) noexcept {
  if (has_an_end(path)) return open(path, O_RDONLY);
  errno = EINVAL;
  return -1;
}

// Copies `input` to the new file `name`; no part of a copy is left behind by a failure.
int copy_to(int trace_on, const char *trace_path, const tracer &trace, const char *input, const char *name) noexcept {
  const int output_fd = open(name, O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0644);
  if (output_fd == -1) {
    const int err = errno;
    VK_TRACE(trace, "Cannot open output file \"%s\"\nError code %d\n", name, err);
    return code_for(kOpenOutput, err);
  }
  const int input_fd = open_input(input);
  if (input_fd == -1) {
    const int err = errno;
    VK_TRACE(trace, "Cannot open input file \"%s\"\nError code %d\n", input, err);
    (void)close(output_fd);
    (void)unlink(name);
    return code_for(kOpenInput, err);
  }
  VK_TRACE(trace, "Copying File \"%s\" to file \"%s\"\n", input, name);
  const int result = vk_copy_file(trace_on, trace_path, input_fd, output_fd);
  if (result == VOSK_SUCCESS) return result;
  (void)close(input_fd);
  (void)close(output_fd);
  (void)unlink(name);
  return result;
}

// `input` has passed its test, so it is shorter than a path buffer.
void cite(char *output, const char *name) noexcept {
  std::memcpy(output, name, std::strlen(name) + 1);
}

}  // namespace
}  // namespace vk

int vk_make_dump_file_copy(int trace_on, const char *trace_path, const char *input, char *output) {
  // The name in the trace differs from the routine's own on purpose.
  const vk::tracer trace(trace_on, trace_path, "vk_copy_dump_file");
  if (!vk::is_set(input)) {
    VK_TRACE(trace, "Called with invalid dump file input name\nReturning %s(%d) to the caller\n",
             vk::vosk_name(VOSK_INV_PARAM3), VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (output == nullptr) {
    VK_TRACE(trace, "Called with invalid pointer for dump output file name\nReturingin %s(%d) to caller\n",
             vk::vosk_name(VOSK_INV_PARAM4), VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  int result = vk_test_for_file(trace_on, trace_path, input);
  if (result != VOSK_SUCCESS) {
    VK_TRACE(trace,
             "Existence of file \"%s\" cannot be verified\nvk_test_for_file returned %d\n"
             "Passing same return code to caller\n",
             input, result);
    return result;
  }
  result = vk_test_for_dir(trace_on, trace_path, vk::kDumpDirectory);
  if (result != VOSK_SUCCESS) {
    // The input's name and not the directory's, on purpose.
    VK_TRACE(trace, "Existence of dump directory \"%s\" cannot be verified\nvk_test_for_dir returned %d\n", input,
             result);
    vk::cite(output, input);
    return result;
  }
  const vk::file_size_guard guard(vk::kAnyReach);
  char name[vk::kPathSize];
  result = vk::vk_get_dump_file_name(trace_on, trace_path, name);
  if (result == VOSK_SUCCESS) result = vk::copy_to(trace_on, trace_path, trace, input, name);
  if (result != VOSK_SUCCESS) {
    vk::cite(output, input);
    return result;
  }
  VK_TRACE(trace, "File \"%s\" successfully copied to \"%s\"\nReturning %s(%d) to the caller\n", input, name,
           vk::vosk_name(result), result);
  vk::cite(output, name);
  return result;
}
