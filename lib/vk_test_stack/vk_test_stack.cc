#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "lib/report.h"
#include "lib/variables.h"
#include "lib/vk_test_stack/test_environment.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

constexpr int kStatusNoEnvironment = 1, kCorruptEnvironment = 25;

// Reads the variables one by one and remembers, for the trace, what was read. Every outcome is preceded by that.
class test {
 public:
  test(int trace_on, const char *trace_path, int pid) noexcept : trace_(trace_on, trace_path, "vk_test_stack") {
    if (!trace_.on()) return;
    char text[64];
    (void)std::snprintf(text, sizeof text, "Checking for env established by PID %d\n", pid);
    settings_.append(text);
  }

  // The value of variable `name`, null unless it is set. `label` is what the trace calls it.
  const char *read(const char *name, const char *label) noexcept {
    const char *value = getenv(name);
    if (trace_.on()) {
      settings_.append(label);
      settings_.append(" is set to \"");
      settings_.append(value != nullptr ? value : "NULL");
      settings_.append("\"\n");
    }
    return is_set(value) ? value : nullptr;
  }

  // The trace of an outcome, which the settings read so far precede.
  const tracer &outcome() const noexcept {
    VK_TRACE(trace_, "Environment value settings:\n%s", settings_.c_str());
    return trace_;
  }

 private:
  const tracer trace_;
  text_builder<256> settings_;
};

int corrupt() noexcept {
  return report(VK_ENV_CORRUPT, kCorruptEnvironment);
}

int no_environment() noexcept {
  return report(VK_NO_VK_ENVIR, kStatusNoEnvironment);
}

int log_use_only(const tracer &trace) noexcept {
  VK_TRACE(trace,
           "Environment set for Nelos Error Log use only\nIndicating that not VOSK Error Stack Env exists\n"
           "Returning %s(%d) to the caller\n",
           vk_name(VK_NO_VK_ENVIR), VK_NO_VK_ENVIR);
  return no_environment();
}

// A complete environment lacks `name`.
int incomplete(const tracer &trace, const char *name) noexcept {
  VK_TRACE(trace, "Found corrupted VOSK Env: %s not set, but either %s, %s, or %s is\nReturning %s(%d) to caller\n",
           name, kVoskStack, kVoskOrig, kVoskPid, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
  return corrupt();
}

// Contradictions between the stack's path and its originator or owner. The texts about the owner name the two sides in
// reverse, on purpose.
int originator_differs(const tracer &trace, bool stack_set) noexcept {
  if (stack_set)
    VK_TRACE(trace, "Found corrupted VOSK Env: %s set but %s is not\nReturning %s(%d) to caller\n", kVoskStack,
             kVoskOrig, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
  else
    VK_TRACE(trace, "Found corrupted VOSK Env: %s not set but %s is\nReturning %s(%d) to caller\n", kVoskStack,
             kVoskOrig, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
  return corrupt();
}

int owner_differs(const tracer &trace, bool stack_set) noexcept {
  if (stack_set)
    VK_TRACE(trace, "Found corrupted VOSK Env: %s set, but %s and %s are not\nReturning %s(%d) to caller\n", kVoskPid,
             kVoskStack, kVoskOrig, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
  else
    VK_TRACE(trace, "Found corrupted VOSK Env: %s not set, but either %s or %s is\nReturning %s(%d) to caller\n",
             kVoskPid, kVoskStack, kVoskOrig, vk_name(VK_ENV_CORRUPT), VK_ENV_CORRUPT);
  return corrupt();
}

}  // namespace

int test_environment(int trace_on, const char *trace_path, int pid) noexcept {
  test t(trace_on, trace_path, pid);
  const bool stack_set = t.read(kVoskStack, kVoskStack) != nullptr;
  const bool originator_set = t.read(kVoskOrig, kVoskOrig) != nullptr;
  if (originator_set != stack_set) return originator_differs(t.outcome(), stack_set);
  const char *const owner = t.read(kVoskPid, kVoskPid);
  if ((owner != nullptr) != stack_set) return owner_differs(t.outcome(), stack_set);
  const bool address_set = t.read(kVoskAddr, kVoskAddr) != nullptr;
  if (address_set != stack_set) return stack_set ? incomplete(t.outcome(), kVoskAddr) : log_use_only(t.outcome());
  const bool name_set = t.read(kVoskPname, kVoskAddr) != nullptr;  // labelled as the address, on purpose
  if (name_set != stack_set) return stack_set ? incomplete(t.outcome(), kVoskPname) : log_use_only(t.outcome());

  const tracer &trace = t.outcome();
  if (owner == nullptr) {
    VK_TRACE(trace, "No VOSK Environment detected\nReturning %s(%d) to the caller\n", vk_name(VK_NO_VK_ENVIR),
             VK_NO_VK_ENVIR);
    return no_environment();
  }
  if (decimal(owner) != pid) {
    VK_TRACE(trace,
             "VOSK Environment variables exist, but process %d hasn't inherited the VOSK Environment\n"
             "Returning %s(%d) to the caller\n",
             pid, vk_name(VK_NO_VK_ENVIR), VK_NO_VK_ENVIR);
    return no_environment();
  }
  VK_TRACE(trace, "VOSK Environment exists for process %d\nReturning %s(%d) to the caller\n", pid, vk_name(VK_SUCCESS),
           VK_SUCCESS);
  return cu_set_no_error_1();
}

}  // namespace vk

int vk_test_stack_main_1(int pid) {
  char trace_path[vk::kPathSize];
  const int trace_on = vk::decide_tracing(trace_path);
  return vk::test_environment(trace_on, trace_path, pid);
}

int vk_test_stack_1(void) {
  return vk_test_stack_main_1(getpid());
}
