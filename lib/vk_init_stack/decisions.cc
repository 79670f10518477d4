#include "lib/vk_init_stack/decisions.h"

#include <cstdlib>

#include "lib/variables.h"
#include "lib/vk_init_stack/env_values.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {

int vk_create_env(int trace_on, const char *trace_path, const char *proc_name, int pid, int mode) noexcept {
  const tracer trace(trace_on, trace_path, "vk_create_env");
  const char *stack = getenv(kVoskStack);
  if (is_set(stack)) {
    VK_TRACE(trace,
             "Attempting to CREATE VOSK Environment\nNoticed that %s is set to %s\n"
             "Assuming VOSK Environment exists - returning %s(%d) to caller\n",
             kVoskStack, stack, vk_name(VK_ENV_EXIST), VK_ENV_EXIST);
    return VK_ENV_EXIST;
  }
  for (const char *name : {kVoskOrig, kVoskPid}) {
    if (!is_set(getenv(name))) continue;
    VK_TRACE(trace,
             "Attempting to CREATE VOSK Environment\nNoticed that %s is set when %s is not set\n"
             "Assuming a corrupted environment - returning %s(%d) to the caller\n",
             name, kVoskStack, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
    return VK_ENV_CORRUPT;
  }
  const int result = vk_set_env_values(trace_on, trace_path, kNewEnvironment, proc_name, pid, mode);
  if (result == VK_SUCCESS)
    VK_TRACE(trace, "Successful completion - Returning %s(%d) to caller\n", vk_name(VK_SUCCESS), VK_SUCCESS);
  else
    VK_TRACE(trace, "Cannot establish environment - vk_set_env_values retcode is %d\nReturning %d to caller", result,
             result);
  return result;
}

int vk_inherit_env(int trace_on, const char *trace_path, const char *proc_name, int pid, int mode) noexcept {
  const tracer trace(trace_on, trace_path, "vk_inherit_env");
  if (!is_set(getenv(kVoskStack))) {
    VK_TRACE(trace,
             "Attempting to INHERIT VOSK Environment\nNoticed that %s is not set\n"
             "Assuming no VOSK Environment exists - returning %s(%d) to caller\n",
             kVoskStack, vk_name(VK_NO_VK_ENVIR), VK_NO_VK_ENVIR);
    return VK_NO_VK_ENVIR;
  }
  for (const char *name : {kVoskOrig, kVoskPid}) {
    if (is_set(getenv(name))) continue;
    VK_TRACE(trace,
             "Attempting to INHERIT VOSK Environment\nNoticed that %s is not set when %s has been set\n"
             "Assuming a corrupted environment - returning %s(%d) to the caller\n",
             name, kVoskStack, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
    return VK_ENV_CORRUPT;
  }
  if (decimal(printable(getenv(kVoskPid))) == pid) {
    VK_TRACE(trace,
             "Attempting to INHERIT VOSK Environment\nProcess already appears to own current VOSK Environment\n"
             "Assuming environment exists - returning %s(%d) to the caller\n",
             vk_name(VK_ENV_EXIST), VK_ENV_EXIST);
    return VK_ENV_EXIST;
  }
  const int result = vk_set_env_values(trace_on, trace_path, kInheritedEnvironment, proc_name, pid, mode);
  if (result != VK_SUCCESS) return result;
  VK_TRACE(trace, "VOSK Environment successfully inherited\nReturning %s(%d) to caller\n", vk_name(VK_INHERIT_SUCCESS),
           VK_INHERIT_SUCCESS);
  return VK_INHERIT_SUCCESS;
}

}  // namespace vk
