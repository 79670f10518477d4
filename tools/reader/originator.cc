#include "originator.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <ctime>
#include <string>

#include "safe_file.h"

namespace vosk {

namespace {

// The name has whole seconds, and clock ticks are rounded.
constexpr std::int64_t kSlack = 2;

std::string small_text(const std::string &path) {
  const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  char text[4096];
  const ssize_t size = fd.valid() ? read(fd.get(), text, sizeof text) : 0;
  return {text, static_cast<std::size_t>(size > 0 ? size : 0)};
}

// When a process was started, in seconds since the epoch.
std::optional<std::int64_t> start_of(int pid) {
  // The command name, in parentheses, may hold anything; behind it the 20th field is the start, in ticks since the
  // boot.
  const std::string text = small_text("/proc/" + std::to_string(pid) + "/stat");
  std::size_t at = text.rfind(')');
  for (int field = 0; field < 20 && at != std::string::npos; ++field) at = text.find(' ', at + 1);
  if (at == std::string::npos) return std::nullopt;
  const long long ticks = std::strtoll(text.c_str() + at, nullptr, 10);
  timespec now{}, since_boot{};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  (void)clock_gettime(CLOCK_BOOTTIME, &since_boot);
  return now.tv_sec - since_boot.tv_sec + ticks / sysconf(_SC_CLK_TCK);
}

// Takes the last part of `text` that a '.' separates.
std::string_view take_last(std::string_view &text) {
  const std::size_t dot = text.rfind('.');
  if (dot == std::string_view::npos) return {};
  const std::string_view last = text.substr(dot + 1);
  text = text.substr(0, dot);
  return last;
}

}  // namespace

std::optional<stack_name> parse_stack_name(std::string_view path) {
  std::string_view rest = path.substr(path.rfind('/') + 1);
  const std::string time(take_last(rest)), date(take_last(rest));
  const std::string_view pid = take_last(rest);
  std::tm tm{};
  const std::string text = date + "." + time;
  const char *const end = strptime(text.c_str(), "%Y%m%d.%H%M%S", &tm);
  stack_name name;
  const auto number = std::from_chars(pid.data(), pid.data() + pid.size(), name.pid);
  if (end == nullptr || *end != '\0' || date.size() != 8 || time.size() != 6 || pid.empty() ||
      number.ec != std::errc() || number.ptr != pid.data() + pid.size() || name.pid <= 0)
    return std::nullopt;
  tm.tm_isdst = -1;
  name.made = {std::mktime(&tm), 0};
  return name;
}

bool is_alive(const stack_name &name) {
  const auto start = start_of(name.pid);
  return start && *start <= name.made.seconds + kSlack;
}

}  // namespace vosk
