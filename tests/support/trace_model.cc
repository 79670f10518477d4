#include "support/trace_model.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace trace_model {

namespace {

constexpr int kCorrupt = -26;
constexpr std::size_t kHeader = 36;
constexpr std::size_t kWindow = 1024;
constexpr std::string_view kEndMarker = "[END OF FINAL ENTRY]\n";
constexpr std::string_view kRecycleMarker("[FILE RECYCLES HERE]\n\0", 22);
constexpr long long kLargest = 0x7fffffff;

// Up to five characters behind the key, as a decimal; the header text ends at a zero byte.
std::optional<long long> field(const std::string &header, const char *key) {
  std::string text = header.c_str();
  std::size_t at = text.find(key);
  if (at == std::string::npos) return std::nullopt;
  return std::strtoll(text.substr(at + 6, 5).c_str(), nullptr, 10);
}

void put(std::string &bytes, long long offset, std::string_view what) {
  auto at = static_cast<std::size_t>(offset);
  if (bytes.size() < at + what.size()) bytes.resize(at + what.size(), '\0');
  bytes.replace(at, what.size(), what);
}

std::string header_text(long long offset, long long wraps, long long size) {
  char text[64];
  std::snprintf(text, sizeof text, "VKTFO=%-5lld VKTFW=%-5lld VKTFS=%-5lld\n", offset, wraps, size);
  return text;
}

}  // namespace

std::string fresh(int size) {
  std::string bytes = header_text(36, 0, size);
  bytes.resize(static_cast<std::size_t>(size), '\0');
  return bytes;
}

std::string entry(std::int64_t seconds, std::string_view routine, int pid, int thread, std::string_view message) {
  char time[64];
  std::time_t when = seconds;
  std::string out = std::string("\001") + ctime_r(&when, time) + "\tVOSK Routine: " + std::string(routine) +
                    "\n\tCalled by PID " + std::to_string(pid) + " Thread " + std::to_string(thread) + "\n";
  message = message.substr(0, std::min<std::size_t>(254, message.find('\0')));
  while (!message.empty()) {
    std::size_t length = std::min<std::size_t>(72, message.size());
    std::size_t newline = message.find('\n');
    bool line = newline != std::string_view::npos && newline <= length;
    if (line) length = newline;
    out += "\t" + std::string(message.substr(0, length)) + "\n";
    message.remove_prefix(length + (line ? 1 : 0));
  }
  return out;
}

int append(std::string &bytes, std::string_view entry) {
  if (bytes.size() < kHeader) return kCorrupt;
  const std::string header = bytes.substr(0, kHeader);
  const auto offset = field(header, "VKTFO="), wrap = field(header, "VKTFW="), size = field(header, "VKTFS=");
  if (!offset || !wrap || !size) return kCorrupt;
  long long next = *offset, wraps = *wrap;
  if (*size <= next + static_cast<long long>(entry.size()) + 23) {
    if (next < 0) return kCorrupt;  // no such position
    put(bytes, next, kRecycleMarker);
    const long long behind = next + static_cast<long long>(kRecycleMarker.size()), zeros = *size - next - 23;
    if (behind + zeros < 0 || behind + zeros > kLargest) return kCorrupt;
    if (zeros == -1) return kCorrupt;  // the length that is handed back looks like a failure
    if (zeros > 0) put(bytes, behind, std::string(static_cast<std::size_t>(zeros), '\0'));
    next = kHeader;
    ++wraps;
  }
  if (next < 0) return kCorrupt;
  put(bytes, next, entry);
  next += static_cast<long long>(entry.size());
  put(bytes, next, kEndMarker);
  if (wraps != 0) {
    const auto behind = static_cast<std::size_t>(next) + kEndMarker.size();
    const std::string window = bytes.substr(std::min(behind, bytes.size()), kWindow);
    const std::size_t mark = window.substr(0, window.find('\0')).find('\001');
    if (mark != std::string::npos) put(bytes, static_cast<long long>(behind), std::string(mark, '\0'));
  }
  const std::string rewritten = header_text(next, wraps, *size);
  put(bytes, 0, rewritten.substr(0, kHeader));
  return rewritten.size() == kHeader ? 0 : kCorrupt;
}

}  // namespace trace_model
