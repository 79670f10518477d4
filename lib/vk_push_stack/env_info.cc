#include "lib/vk_push_stack/env_info.h"

#include <sys/auxv.h>

#include <cstdlib>
#include <cstring>

#include "lib/variables.h"
#include "qx_vosk.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

bool lies_in_stack_directory(const char *path) noexcept {
  constexpr std::size_t kLength = sizeof kStackDirectory - 1;
  if (std::strncmp(path, kStackDirectory, kLength) != 0 || path[kLength] != '/') return false;
  const char *name = path + kLength + 1;
  return *name != '\0' && std::strchr(name, '/') == nullptr && std::strcmp(name, ".") != 0 &&
         std::strcmp(name, "..") != 0;
}

// A process with raised privileges takes only a plain name directly in the stack directory from its environment.
bool is_trusted(const char *path) noexcept {
  return lies_in_stack_directory(path) || getauxval(AT_SECURE) == 0;
}

}  // namespace

int vk_get_env_info(int trace_on, const char *trace_path, char *stack_filename, int *env_owner,
                    int *env_orig) noexcept {
  const tracer trace(trace_on, trace_path, "vk_get_env_info");
  if (stack_filename == nullptr) {
    VK_TRACE(trace, "stack_filename invalid (0x%x), returning %s(%d)\n", 0u, vosk_name(VOSK_INV_PARAM3),
             VOSK_INV_PARAM3);
    return VOSK_INV_PARAM3;
  }
  if (env_owner == nullptr) {
    VK_TRACE(trace, "env_owner ptr invalid (0x%x), returning %s(%d)\n", 0u, vosk_name(VOSK_INV_PARAM4),
             VOSK_INV_PARAM4);
    return VOSK_INV_PARAM4;
  }
  if (env_orig == nullptr) {
    VK_TRACE(trace, "env_orig ptr invalid (0x%x), returning %s(%d)\n", 0u, vosk_name(VOSK_INV_PARAM5), VOSK_INV_PARAM5);
    return VOSK_INV_PARAM5;
  }
  const auto missing = [&](const char *name) {
    VK_TRACE(trace, "Cannot get %s environ value, returning %s(%d)\n", name, vosk_name(VOSK_INV_ENV), VOSK_INV_ENV);
    return VOSK_INV_ENV;
  };
  const char *path = getenv(kVoskStack);
  if (path == nullptr || !is_trusted(path)) return missing(kVoskStack);
  const char *owner = getenv(kVoskPid);
  if (owner == nullptr) return missing(kVoskPid);
  *env_owner = decimal(owner);
  const char *originator = getenv(kVoskOrig);
  if (originator == nullptr) return missing(kVoskOrig);
  *env_orig = decimal(originator);

  const int result = vk_test_for_file(trace_on, trace_path, path);
  switch (result) {
    case VOSK_SUCCESS:
    case VOSK_FILE_MISSING:
      VK_TRACE(trace, "VOSK Error Stack File: %s\nExists: %s\nReturning %d to caller\n", path,
               result == VOSK_SUCCESS ? "yes" : "no", result);
      [[fallthrough]];
    case VOSK_IS_DIR:
    case VOSK_FILE_ACCESS:
      std::memcpy(stack_filename, path, std::strlen(path) + 1);  // the test refuses 4096 bytes and more
      break;
    default:
      break;
  }
  return result;
}

}  // namespace vk
