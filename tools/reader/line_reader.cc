#include "line_reader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace vosk {

namespace {

constexpr std::size_t kBlock = 1 << 18;

using take_text = std::function<bool(std::string_view line, bool cut)>;

class line_splitter {
 public:
  explicit line_splitter(const take_text &take) : take_(take), buffer_(kMostOfALine + kBlock) {}

  char *room() { return buffer_.data() + held_; }
  static constexpr std::size_t room_size() { return kBlock; }

  // Takes `size` bytes that were put into the room. False if no more is wanted.
  bool take(std::size_t size) {
    const char *at = buffer_.data(), *const end = at + held_ + size;
    const char *unseen = buffer_.data() + held_;  // what lies before was searched already
    while (const void *found = std::memchr(unseen, '\n', static_cast<std::size_t>(end - unseen))) {
      const char *const line_feed = static_cast<const char *>(found);
      if (!hand_on({at, static_cast<std::size_t>(line_feed - at)})) return false;
      at = unseen = line_feed + 1;
    }
    held_ = static_cast<std::size_t>(end - at);
    if (held_ > kMostOfALine) {
      held_ = kMostOfALine;
      cut_ = true;
    }
    std::memmove(buffer_.data(), at, held_);
    return true;
  }

  bool take_rest() { return held_ == 0 || hand_on({buffer_.data(), held_}); }

 private:
  bool hand_on(std::string_view line) {
    const bool cut = std::exchange(cut_, false) || line.size() > kMostOfALine;
    if (cut)
      line = line.substr(0, kMostOfALine);
    else if (line.ends_with('\r'))
      line.remove_suffix(1);
    return take_(line, cut);
  }

  const take_text &take_;
  std::vector<char> buffer_;
  std::size_t held_ = 0;  // bytes of a line whose end is still to come
  bool cut_ = false;      // and it is longer than that
};

// False if nothing came in time.
bool wait_for(int fd, int patience) {
  if (patience < 0) return true;
  pollfd wanted{fd, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&wanted, 1, patience);
  } while (ready < 0 && errno == EINTR);
  return ready != 0;
}

}  // namespace

lines_end read_lines(int fd, int patience, const take_text &take, std::uint64_t most) {
  line_splitter lines(take);
  for (;;) {
    if (!wait_for(fd, patience)) return lines_end::silent;
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(most, line_splitter::room_size()));
    const ssize_t n = read(fd, lines.room(), size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return lines_end::failed;
    if (n == 0) return lines.take_rest() ? lines_end::read : lines_end::stopped;
    if (!lines.take(static_cast<std::size_t>(n))) return lines_end::stopped;
    most -= static_cast<std::uint64_t>(n);
  }
}

}  // namespace vosk
