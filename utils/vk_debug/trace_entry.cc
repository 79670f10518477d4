#include "utils/vk_debug/trace_entry.h"

#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "utils/text.h"

namespace vk {
namespace {

constexpr std::size_t kMessageSize = 256, kMessageLimit = 255, kLineWidth = 72;
constexpr char kStartOfEntry[] = "\001";

// Appends to the entry what fits, always leaving room for the zero byte.
class entry_text {
 public:
  explicit entry_text(char (&entry)[kEntrySize]) noexcept : entry_(entry) { entry_[0] = '\0'; }
  void append(std::string_view text) noexcept {
    const std::size_t n = std::min(text.size(), kEntrySize - 1 - used_);
    std::memcpy(entry_ + used_, text.data(), n);
    used_ += n;
    entry_[used_] = '\0';
  }
  void append(int number) noexcept {
    char digits[kDecimalSize];
    append({digits, static_cast<std::size_t>(put_decimal(digits, number) - digits)});
  }
  std::size_t size() const noexcept { return used_; }

 private:
  char *entry_;
  std::size_t used_ = 0;
};

void put_preamble(entry_text &entry, const char *routine) noexcept {
  timeval now = {};
  (void)gettimeofday(&now, nullptr);
  char time_text[26];
  // ctime_r refuses years beyond 9999; such a clock is shown as its seconds.
  if (ctime_r(&now.tv_sec, time_text) == nullptr)
    (void)std::snprintf(time_text, sizeof time_text, "%ld\n", static_cast<long>(now.tv_sec));
  entry.append(kStartOfEntry);
  entry.append(time_text);
  entry.append("\tVOSK Routine: ");
  entry.append(routine);
  entry.append("\n\tCalled by PID ");
  entry.append(static_cast<int>(getpid()));
  entry.append(" Thread ");
  entry.append(static_cast<int>(static_cast<unsigned int>(pthread_self())));
  entry.append("\n");
}

// Every line of the message begins with a tab, ends with a line feed and is at most 72 characters long.
void fold(entry_text &entry, const char *message) noexcept {
  std::size_t left = std::strlen(message);
  for (const char *p = message; left != 0;) {
    const std::size_t n = std::min(left, kLineWidth);
    const void *newline = std::memchr(p, '\n', std::min(left, n + 1));
    entry.append("\t");
    std::size_t taken = n;
    if (newline != nullptr) {
      taken = static_cast<std::size_t>(static_cast<const char *>(newline) - p) + 1;
      entry.append({p, taken});
    } else {
      entry.append({p, n});
      entry.append("\n");
    }
    p += taken;
    left -= taken;
  }
}

}  // namespace

std::size_t format_trace_entry(char (&entry)[kEntrySize], const char *routine, const char *format,
                               va_list args) noexcept {
  entry_text text(entry);
  put_preamble(text, routine);
  char message[kMessageSize] = {};
  (void)std::vsnprintf(message, kMessageLimit, format, args);  // what came before a value that cannot be shown stays
  fold(text, message);
  return text.size();
}

}  // namespace vk
