#include <cstdlib>
#include <cstring>

#include "lib/variables.h"
#include "lib/vk_init_stack/env_values.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

int not_set(const tracer &trace, const char *name) noexcept {
  VK_TRACE(trace, "Cannot obtain value of environment variable %s\nAssuming environment\nReturning %s(%d) to caller\n",
           name, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
  return VK_ENV_FAILED;
}

int verify_number(const tracer &trace, const char *name, const char *text, int meant) noexcept {
  const int value = decimal(text);
  if (value != meant) {
    VK_TRACE(trace,
             "Attempted to set %s environment variable to %d value\n%s has been set to value %d\n"
             "Assuming environment not set\nReturning %s(%d) to caller\n",
             name, meant, name, value, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return VK_ENV_FAILED;
  }
  VK_TRACE(trace, "%s variable successfully set to %d\n", name, value);
  return VK_SUCCESS;
}

int verify_owner(const tracer &trace, int pid) noexcept {
  const char *text = getenv(kVoskPid);
  if (!is_set(text)) {
    // Alone among the four this text says "not set"; the others lack the words on purpose.
    VK_TRACE(trace,
             "Cannot obtain value of environment variable %s\nAssuming environment not set\n"
             "Returning %s(%d) to caller\n",
             kVoskPid, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return VK_ENV_FAILED;
  }
  return verify_number(trace, kVoskPid, text, pid);
}

int verify_originator(const tracer &trace, int pid) noexcept {
  const char *text = getenv(kVoskOrig);
  return is_set(text) ? verify_number(trace, kVoskOrig, text, pid) : not_set(trace, kVoskOrig);
}

// The type character is not compared.
int verify_address(const tracer &trace, const char *addr_text, char addr_type) noexcept {
  const char *text = getenv(kVoskAddr);
  if (!is_set(text)) return not_set(trace, kVoskAddr);
  if (std::strncmp(text, addr_text, std::strlen(addr_text)) != 0) {
    VK_TRACE(trace,
             "Attempted to set %s environment variable to %s%c value\n%s has been set to value %s\n"
             "Assuming environment not set\nReturning %s(%d) to caller\n",
             kVoskAddr, addr_text, addr_type, kVoskAddr, text, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return VK_ENV_FAILED;
  }
  VK_TRACE(trace, "%s variable successfully set to %s%c\n", kVoskAddr, addr_text, addr_type);
  return VK_SUCCESS;
}

int verify_name(const tracer &trace, const char *proc_name) noexcept {
  const char *text = getenv(kVoskPname);
  if (!is_set(text)) return not_set(trace, kVoskPname);
  if (std::strncmp(text, proc_name, std::strlen(proc_name)) != 0) {
    VK_TRACE(trace,
             "Attempted to set %s environment variable to %s value\n%s has been set to value %s\n"
             "Assuming environment not set\nReturning %s(%d) to caller\n",
             kVoskPname, proc_name, kVoskPname, text, vk_name(VK_ENV_FAILED), VK_ENV_FAILED);
    return VK_ENV_FAILED;
  }
  VK_TRACE(trace, "%s variable successfully set to %s\n", kVoskPname, proc_name);
  return VK_SUCCESS;
}

}  // namespace

// The path of the stack file is not read back.
int vk_verify_env_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name,
                         const char *addr_text, char addr_type, int pid) noexcept {
  const tracer trace(trace_on, trace_path, "vk_set_env_values");
  int result = VK_SUCCESS;
  if ((mask & kSetPid) != 0) result = verify_owner(trace, pid);
  if (result == VK_SUCCESS && (mask & kSetOrig) != 0) result = verify_originator(trace, pid);
  if (result == VK_SUCCESS && (mask & kSetAddr) != 0) result = verify_address(trace, addr_text, addr_type);
  if (result == VK_SUCCESS && (mask & kSetPname) != 0) result = verify_name(trace, proc_name);
  return result;
}

}  // namespace vk
