#include "originator.h"

#include <charconv>
#include <cstdlib>
#include <ctime>
#include <string>

#include "processes.h"

namespace vosk {

namespace {

// The name has whole seconds, and clock ticks are rounded.
constexpr std::int64_t kSlack = 2;

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
  const auto start = start_of_process(name.pid);
  return start && *start <= name.made.seconds + kSlack;
}

}  // namespace vosk
