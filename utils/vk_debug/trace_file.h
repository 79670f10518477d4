// The layout of a trace file: a 36-byte header line, then entries written in a circle.
#ifndef UTILS_VK_DEBUG_TRACE_FILE_H
#define UTILS_VK_DEBUG_TRACE_FILE_H

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "utils/text.h"

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

// One field of the header: the key, and the value in five characters or more.
inline char *put_header_field(char *out, std::string_view key, int value) noexcept {
  out = std::copy(key.begin(), key.end(), out);
  char *const filled = out + 5;
  out = put_decimal(out, value);
  while (out < filled) *out++ = ' ';
  return out;
}

// Writes the header line to `text` and returns its length.
inline std::size_t format_trace_header(char (&text)[kTraceHeaderTextSize], const trace_header &header) noexcept {
  char *out = put_header_field(text, kOffsetKey, header.next_offset);
  *out++ = ' ';
  out = put_header_field(out, kWrapKey, header.wraps);
  *out++ = ' ';
  out = put_header_field(out, kSizeKey, header.file_size);
  *out++ = '\n';
  return static_cast<std::size_t>(out - text);
}

}  // namespace vk

#endif
