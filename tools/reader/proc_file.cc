#include "proc_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "safe_file.h"

namespace vosk {

std::optional<std::string> proc_file(int pid, const char *name, std::size_t limit) {
  const std::string path = "/proc/" + std::to_string(pid) + "/" + name;
  const unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return std::nullopt;
  std::string text;
  char piece[16384];
  while (text.size() < limit) {
    const ssize_t size = read(fd.get(), piece, std::min(sizeof piece, limit - text.size()));
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return std::nullopt;
    if (size == 0) break;
    text.append(piece, static_cast<std::size_t>(size));
  }
  return text;
}

std::vector<std::string_view> stat_fields(std::string_view text) {
  // The command name, in parentheses, may hold anything; the state stands behind it.
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string_view::npos) return {};
  std::vector<std::string_view> fields = split(text.substr(name_end + 1), " \n");
  fields.insert(fields.begin(), kState, std::string_view());
  return fields;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(separators), text.size());
    if (end > 0) parts.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return parts;
}

}  // namespace vosk
