// The text of one trace entry.
#ifndef UTILS_VK_DEBUG_TRACE_ENTRY_H
#define UTILS_VK_DEBUG_TRACE_ENTRY_H

#include <cstdarg>
#include <cstddef>

namespace vk {

inline constexpr std::size_t kEntrySize = 1024;

// Writes the entry for a message of `routine`, made now by this thread, to `entry`. Returns its length; the entry ends
// with a zero byte that is not counted.
[[gnu::format(printf, 3, 0)]] std::size_t format_trace_entry(char (&entry)[kEntrySize], const char *routine,
                                                             const char *format, va_list args) noexcept;

}  // namespace vk

#endif
