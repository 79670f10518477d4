#include "archive_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace vosk {

namespace {

namespace format = archive_format;

volatile std::sig_atomic_t came = 0;

void note_signal(int number) {
  came = number;
}

void put_text(format::header &block, format::field where, std::string_view text) {
  std::memcpy(block.data() + where.at, text.data(), std::min(text.size(), where.size));
}

// Octal digits and a zero byte; false if the number has too many.
bool put_number(format::header &block, format::field where, std::uint64_t number) {
  char text[32];
  const int length = std::snprintf(text, sizeof text, "%0*llo", static_cast<int>(where.size - 1),
                                   static_cast<unsigned long long>(number));
  if (static_cast<std::size_t>(length) >= where.size) return false;
  put_text(block, where, {text, static_cast<std::size_t>(length)});
  return true;
}

// "LENGTH KEYWORD=VALUE\n", where the length counts its own digits, too.
std::string attribute(const std::string &keyword, const std::string &value) {
  const std::string rest = " " + keyword + "=" + value + "\n";
  std::size_t length = rest.size();
  while (length != rest.size() + std::to_string(length).size()) length = rest.size() + std::to_string(length).size();
  return std::to_string(length) + rest;
}

}  // namespace

void stop_on_signals() {
  (void)std::signal(SIGXFSZ, SIG_IGN);  // at the limit of a file's size writing fails
  struct sigaction action {};
  action.sa_handler = note_signal;
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    struct sigaction before {};
    (void)sigaction(number, nullptr, &before);
    // What was ignored stays so, as under nohup.
    if (before.sa_handler != SIG_IGN) (void)sigaction(number, &action, nullptr);
  }
}

void end_by_signal() {
  if (came == 0) return;
  (void)std::signal(came, SIG_DFL);
  (void)std::raise(came);
}

bool archive_writer::put(std::string_view bytes) {
  while (error_ == 0 && !bytes.empty()) {
    if (came != 0) {
      error_ = EINTR;
      break;
    }
    const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
    if (n >= 0)
      bytes.remove_prefix(static_cast<std::size_t>(n));
    else if (errno != EINTR)
      error_ = errno;
  }
  return error_ == 0;
}

bool archive_writer::fill(std::int64_t count) {
  static constexpr char kZeros[16 * format::kBlock] = {};
  for (; count > 0; count -= static_cast<std::int64_t>(sizeof kZeros))
    if (!put({kZeros, static_cast<std::size_t>(std::min<std::int64_t>(count, sizeof kZeros))})) return false;
  return error_ == 0;
}

bool archive_writer::put_header(std::string_view name, std::int64_t size, uid_t owner, moment modified, char type) {
  format::header block{};
  put_text(block, format::kName, name);
  (void)put_number(block, format::kMode, 0644);
  if (!put_number(block, format::kUser, owner)) (void)put_number(block, format::kUser, 65534);
  (void)put_number(block, format::kGroup, 0);
  (void)put_number(block, format::kSize, static_cast<std::uint64_t>(size));
  (void)put_number(block, format::kTime, static_cast<std::uint64_t>(std::max<std::int64_t>(modified.seconds, 0)));
  put_text(block, format::kType, {&type, 1});
  put_text(block, format::kMagic, {"ustar\0", 6});
  put_text(block, format::kVersion, "00");
  (void)put_number(block, {format::kSum.at, format::kSum.size - 1}, format::sum_of(block));
  block[format::kSum.at + 7] = ' ';
  return put({reinterpret_cast<const char *>(block.data()), block.size()});
}

bool archive_writer::begin(std::string_view name, std::int64_t size, uid_t owner, moment modified) {
  if (name.size() > format::kName.size) {
    const std::string attributes = attribute("path", std::string(name));
    const auto length = static_cast<std::int64_t>(attributes.size());
    if (!put_header("attributes", length, owner, modified, format::kExtended) || !put(attributes) ||
        !fill(format::padded(length) - length))
      return false;
  }
  left_ = size;
  padding_ = format::padded(size) - size;
  return put_header(name.substr(0, format::kName.size), size, owner, modified, format::kRegular);
}

bool archive_writer::write(std::string_view piece) {
  piece =
      piece.substr(0, static_cast<std::size_t>(std::min<std::int64_t>(left_, static_cast<std::int64_t>(piece.size()))));
  left_ -= static_cast<std::int64_t>(piece.size());
  return put(piece);
}

bool archive_writer::end() {
  const std::int64_t missing = left_ + padding_;
  left_ = padding_ = 0;
  return fill(missing);
}

bool archive_writer::finish() {
  return fill(2 * static_cast<std::int64_t>(format::kBlock));
}

}  // namespace vosk
