// The layout of a trace file: a 36-byte header line, then entries written in a circle.
#ifndef UTILS_VK_DEBUG_TRACE_FILE_H
#define UTILS_VK_DEBUG_TRACE_FILE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace vk {

inline constexpr std::size_t kTraceHeaderSize = 36;
inline constexpr char kOffsetKey[] = "VKTFO=", kWrapKey[] = "VKTFW=", kSizeKey[] = "VKTFS=";

struct trace_header {
  int next_offset;  // where the next entry goes
  int wraps;        // how often writing has started again behind the header
  int file_size;
};

// A header with a value wider than five digits is longer than 36 characters.
inline constexpr std::size_t kTraceHeaderTextSize = 64;

// Writes the header line to `text` and returns its length.
inline std::size_t format_trace_header(char (&text)[kTraceHeaderTextSize], const trace_header &header) noexcept {
  const int length = std::snprintf(text, sizeof text, "%s%-5d %s%-5d %s%-5d\n", kOffsetKey, header.next_offset,
                                   kWrapKey, header.wraps, kSizeKey, header.file_size);
  return static_cast<std::size_t>(length);
}

}  // namespace vk

#endif
