#include "detail_source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace vosk {

namespace {

constexpr std::size_t kLargest = std::size_t{16} << 20;

[[noreturn]] void fail(const std::string &what) {
  throw std::runtime_error(what + ": " + error_text(errno));
}

unique_fd memory_file() {
  unique_fd fd(memfd_create("detail", MFD_CLOEXEC));
  if (!fd.valid()) fail("cannot keep the details");
  return fd;
}

void write_whole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(fd, text.data(), text.size());
    if (n < 0 && errno != EINTR) fail("cannot keep the details");
    if (n > 0) text.remove_prefix(static_cast<std::size_t>(n));
  }
}

// Copies until the end; false if there is more than is kept.
bool copy_stream(int from, int to) {
  std::vector<char> buffer(65536);
  for (std::size_t room = kLargest;;) {
    const ssize_t n = read(from, buffer.data(), buffer.size());
    if (n == 0) return true;
    if (n < 0 && errno != EINTR) fail("cannot read the details");
    if (n <= 0) continue;
    const auto size = static_cast<std::size_t>(n);
    write_whole(to, {buffer.data(), std::min(size, room)});
    if (size > room) return false;
    room -= size;
  }
}

// A pipe or a device: neither can be copied by its name, and some have no end.
bool is_stream(const std::string &name) {
  struct stat st {};
  return stat(name.c_str(), &st) == 0 && (S_ISFIFO(st.st_mode) || S_ISCHR(st.st_mode));
}

}  // namespace

detail_source::detail_source(unique_fd memory)
    : memory_(std::move(memory)), path_("/proc/self/fd/" + std::to_string(memory_.get())) {}

detail_source detail_source::of_text(const std::string &text) {
  detail_source source(memory_file());
  write_whole(source.memory_.get(), text);
  return source;
}

detail_source detail_source::of_file(const std::string &name) {
  const bool standard_input = name == "-";
  if (!standard_input && !is_stream(name)) return detail_source(name);
  const unique_fd opened(standard_input ? dup(0) : open(name.c_str(), O_RDONLY | O_CLOEXEC));
  if (!opened.valid()) fail("cannot read the details");
  detail_source source(memory_file());
  source.cut_ = !copy_stream(opened.get(), source.memory_.get());
  return source;
}

}  // namespace vosk
