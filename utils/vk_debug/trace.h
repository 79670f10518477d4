// One line per trace point.
#ifndef UTILS_VK_DEBUG_TRACE_H
#define UTILS_VK_DEBUG_TRACE_H

#include <cstdarg>

#include "utils/paths.h"

namespace vk {

// What vk_debug does, for a list of arguments.
[[gnu::format(printf, 3, 0)]] int vdebug(const char *trace_path, const char *routine, const char *format,
                                         va_list args) noexcept;

// Decides whether the calling entry point traces: looks at VOSKDEBUG and creates the file where it is missing. Returns
// 1 when tracing is on, else 0. `trace_path` is an empty text unless VOSKDEBUG names something usable.
int decide_tracing(char (&trace_path)[kPathSize]) noexcept;

// The trace of one routine. Only 1 turns it on. errno survives a line. Writing is cold: where nothing is traced, the
// code of the lines lies out of the way.
class tracer {
 public:
  constexpr tracer(int trace_on, const char *path, const char *routine) noexcept
      : path_(trace_on == 1 ? path : nullptr), routine_(routine) {}
  constexpr bool on() const noexcept { return path_ != nullptr; }
  [[gnu::cold, gnu::format(printf, 2, 3)]] void write(const char *format, ...) const noexcept;

 private:
  const char *path_, *routine_;
};

// 64-bit values are printed by their low 32 bits, pointers too.
template <typename T>
constexpr int low32(T value) noexcept {
  return static_cast<int>(static_cast<unsigned int>(value));
}
inline unsigned int low32_of_address(const void *pointer) noexcept {
  return static_cast<unsigned int>(reinterpret_cast<unsigned long>(pointer));
}

}  // namespace vk

// The arguments are evaluated only while the trace is on.
#define VK_TRACE(trace, ...) ((trace).on() ? (trace).write(__VA_ARGS__) : void())

#endif
