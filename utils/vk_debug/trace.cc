#include "utils/vk_debug/trace.h"

#include <cerrno>

#include "qx_vosk.h"

namespace vk {

int decide_tracing(char (&trace_path)[kPathSize]) noexcept {
  trace_path[0] = '\0';
  const int state = vk_is_debug_file_set(trace_path);
  if (state == 2) return vk_create_debug_file(trace_path) == VOSK_SUCCESS ? 1 : 0;
  return state == 1 ? 1 : 0;
}

void tracer::write(const char *format, ...) const noexcept {
  const int saved_errno = errno;
  va_list args;
  va_start(args, format);
  (void)vdebug(path_, routine_, format, args);
  va_end(args);
  errno = saved_errno;
}

}  // namespace vk
