#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "lib/variables.h"
#include "lib/vk_init_stack/env_values.h"
#include "qx_cu.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

constexpr unsigned int kAllVariables = 0x1F;
constexpr std::size_t kAddressText = 26;

enum variable { kStack, kOrig, kPid, kAddr, kPname, kVariables };
constexpr std::size_t kBufferSizes[kVariables] = {4097, 4096, 4096, 4096, 4096};

// The assignment texts, one for each selected variable, until they are handed to the environment.
class assignments {
 public:
  bool allocate(unsigned int mask) noexcept {
    for (unsigned int i = 0; i < kVariables; ++i) {
      if ((mask & (1u << i)) == 0) continue;
      buffers_[i] = static_cast<char *>(calloc(kBufferSizes[i], 1));
      // What was obtained before is not released, on purpose: the process is out of memory anyway.
      if (buffers_[i] == nullptr) return false;
    }
    return true;
  }
  void release_all() noexcept {
    for (char *&buffer : buffers_) {
      free(buffer);
      buffer = nullptr;
    }
  }
  char *get(variable which) const noexcept { return buffers_[which]; }
  void release(variable which) noexcept {
    free(buffers_[which]);
    buffers_[which] = nullptr;
  }
  void handed_over(variable which) noexcept { buffers_[which] = nullptr; }

 private:
  char *buffers_[kVariables] = {};
};

class setter {
 public:
  setter(int trace_on, const char *trace_path, int pid, int mode) noexcept
      : trace_on_(trace_on),
        trace_path_(trace_path),
        trace_(trace_on, trace_path, "vk_set_env_values"),
        pid_(pid),
        display_(mode == kDisplayOnly) {}

  int run(unsigned int mask, const char *proc_name) noexcept;

 private:
  int set_stack(const char *name) noexcept;
  int set_number(variable which, const char *variable_name) noexcept;
  int set_address() noexcept;
  int set_name(const char *name) noexcept;
  int output(variable which) noexcept;
  int failed() noexcept {
    buffers_.release_all();
    return VK_ENV_FAILED;
  }

  const int trace_on_;
  const char *const trace_path_;
  const tracer trace_;
  const int pid_;
  const bool display_;
  assignments buffers_;
  char addr_text_[kAddressText] = {};
  char addr_type_ = '\0';
};

// Prints one assignment, or hands it to the environment, which owns it from then on.
int setter::output(variable which) noexcept {
  char *const text = buffers_.get(which);
  if (display_) {
    VK_TRACE(trace_, "Envir Value \"%s\" printed\n", text);
    std::printf("%s\n", text);
    buffers_.release(which);
    return VK_SUCCESS;
  }
  if (putenv(text) != 0) {
    VK_TRACE(trace_,
             "Attempting to set VOSK Environment\nCannot set process environment: %s\nReturning %s(%d) to caller\n",
             text, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return failed();
  }
  buffers_.handed_over(which);
  return VK_SUCCESS;
}

int setter::set_stack(const char *name) noexcept {
  timeval now = {};
  (void)gettimeofday(&now, nullptr);
  tm t = {};
  (void)localtime_r(&now.tv_sec, &t);
  char *const buffer = buffers_.get(kStack);
  const std::size_t size = kBufferSizes[kStack];
  const int length = std::snprintf(buffer, size, "%s/%s.%d.%4d%.2d%.2d.%.2d%.2d%.2d", kStackDirectory, name, pid_,
                                   t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  int test = vk_test_for_file(trace_on_, trace_path_, buffer);
  // A path that does not fit behind its variable's name is never cut and then used; the test refuses longer ones.
  // A length below 0, of a name of gigabytes, is a large one here.
  const bool fits = static_cast<unsigned int>(length) < size - sizeof kVoskStack;
  if (!fits && test == VOSK_FILE_MISSING) test = VOSK_FAILURE;
  if (test != VOSK_FILE_MISSING)
    VK_TRACE(trace_,
             "Attempting to set VOSK Environment\nFailure in verifying presence of stack file by vk_test_for_file: %d\n"
             "Name used: %s\n",
             test, buffer);
  int refusal = VK_SUCCESS;
  if (test == VOSK_SUCCESS) refusal = kStackFileExists;
  if (test == VOSK_DIR_ACCESS || test == VOSK_DIR_MISSING || test == VOSK_FILE_ACCESS) refusal = kStackDirectoryFailed;
  if (test == VOSK_FAILURE) refusal = VK_UNEXPECTED;
  if (refusal != VK_SUCCESS) {
    buffers_.release_all();
    return refusal;
  }
  (void)std::snprintf(buffer, size, "%s=%s/%s.%d.%4d%.2d%.2d.%.2d%.2d%.2d", kVoskStack, kStackDirectory, name, pid_,
                      t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  return output(kStack);
}

int setter::set_number(variable which, const char *variable_name) noexcept {
  (void)std::snprintf(buffers_.get(which), kBufferSizes[which], "%s=%d", variable_name, pid_);
  return output(which);
}

int setter::set_address() noexcept {
  if (vk_get_ipaddr(trace_on_, trace_path_, addr_text_, &addr_type_) != VOSK_SUCCESS) {
    VK_TRACE(trace_,
             "Unable to obtain IP address information\nCannot set up VOSK Environment for process\n"
             "Returning %s(%d) to caller",
             vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return failed();
  }
  (void)std::snprintf(buffers_.get(kAddr), kBufferSizes[kAddr], "%s=%s%c", kVoskAddr, addr_text_, addr_type_);
  return output(kAddr);
}

int setter::set_name(const char *name) noexcept {
  char buffer[kPathSize];
  (void)std::snprintf(buffers_.get(kPname), kBufferSizes[kPname], "%s=%s", kVoskPname, base_name(buffer, name));
  return output(kPname);
}

int setter::run(unsigned int mask, const char *proc_name) noexcept {
  if (display_)
    VK_TRACE(trace_, "Called to calculate VOSK Environment values - variable selection mask 0x%x\n", mask);
  else
    VK_TRACE(trace_, "Called to set up VOSK Environment values - variable selection mask 0x%x\n", mask);
  if ((mask & ~kAllVariables) != 0) return VK_UNEXPECTED;
  if (!buffers_.allocate(mask)) {
    VK_TRACE(trace_, "Attempting to set VOSK Environment\nMemory allocation failure - Returning %s(%d) to the caller\n",
             vk_name(VK_NO_MEMORY), VK_NO_MEMORY);
    return VK_NO_MEMORY;
  }
  cu_proc_info_t process = {};
  if (cu_get_proc_info_1(&process, pid_) != 1) {
    VK_TRACE(trace_, "Unable to obtain process table information - getprocs errno is %d\nReturning %s(%d) to caller\n",
             errno, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return VK_ENV_FAILED;  // here, too, without releasing the buffers
  }
  process.command[sizeof process.command - 1] = '\0';
  const char *const name = text_or(proc_name, process.command);

  int result = VK_SUCCESS;
  if ((mask & kSetStack) != 0) result = set_stack(name);
  if (result == VK_SUCCESS && (mask & kSetOrig) != 0) result = set_number(kOrig, kVoskOrig);
  if (result == VK_SUCCESS && (mask & kSetPid) != 0) result = set_number(kPid, kVoskPid);
  if (result == VK_SUCCESS && (mask & kSetAddr) != 0) result = set_address();
  if (result == VK_SUCCESS && (mask & kSetPname) != 0) result = set_name(name);
  if (result != VK_SUCCESS) return result;
  // The reading back is for the trace only; its result changes nothing.
  if (!display_ && trace_.on())
    (void)vk_verify_env_values(trace_on_, trace_path_, mask, name, addr_text_, addr_type_, pid_);
  return VK_SUCCESS;
}

}  // namespace

int vk_set_env_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name, int pid,
                      int mode) noexcept {
  // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): the assignment texts belong to the environment now
  return setter(trace_on, trace_path, pid, mode).run(mask, proc_name);
}

}  // namespace vk
