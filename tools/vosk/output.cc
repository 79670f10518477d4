#include "output.h"

#include <fcntl.h>
#include <langinfo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "reader/escape.h"
#include "reader/safe_file.h"

namespace vosk {

namespace {

constexpr std::size_t kBufferSize = 1 << 16;

// Under which of its names the program was started.
std::string &program_name() {
  static std::string name = "vosk";
  return name;
}

bool is_set(const char *name) {
  const char *const value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

bool terminal_has_colours() {
  const char *const term = std::getenv("TERM");
  return term != nullptr && std::strcmp(term, "dumb") != 0;
}

// For the superuser a pager that can start other programs is no good: only less, in its secure mode.
const char *chosen_pager() {
  const char *pager = std::getenv("VOSK_PAGER");
  if (pager == nullptr) pager = std::getenv("PAGER");
  if (pager == nullptr) return "less";
  if (*pager == '\0' || std::strcmp(pager, "cat") == 0) return nullptr;
  return geteuid() == 0 ? "less" : pager;
}

// The pager of this program, for the handler.
volatile sig_atomic_t pager_of_all = -1, pipe_to_pager = -1;

// An interrupt goes to the pager, too, which may take it as the end of a search. Whoever started us must not have the
// terminal back before the pager has ended.
void wait_and_end(int signal_number) {
  (void)close(pipe_to_pager);
  while (waitpid(pager_of_all, nullptr, 0) < 0 && errno == EINTR) {
  }
  (void)std::signal(signal_number, SIG_DFL);
  (void)std::raise(signal_number);
}

[[noreturn]] void become_pager(const char *pager, int input, int report) {
  if (dup2(input, 0) == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    (void)setenv("LESS", "FRX", 0);
    if (geteuid() == 0) {
      (void)setenv("LESSSECURE", "1", 1);
      execlp(pager, pager, static_cast<char *>(nullptr));
    } else {
      execl("/bin/sh", "sh", "-c", pager, static_cast<char *>(nullptr));
    }
  }
  const int error = errno;
  (void)!write(report, &error, sizeof error);
  _exit(127);
}

}  // namespace

output::output(const common_options &options, bool paged)
    : raw_(options.raw), terminal_(isatty(1) != 0), utf8_(std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0) {
  colour_ = options.color == "always" ||
            (options.color == "auto" && terminal_ && !is_set("NO_COLOR") && terminal_has_colours());
  if (options.json) colour_ = false;
  if (paged && terminal_ && !options.json && !options.no_pager) start_pager();
}

output::~output() {
  (void)finish();
}

void output::start_pager() {
  const char *const pager = chosen_pager();
  int text[2], report[2];
  if (pager == nullptr || pipe2(text, O_CLOEXEC) != 0) return;
  if (pipe2(report, O_CLOEXEC) != 0) {
    (void)close(text[0]);
    (void)close(text[1]);
    return;
  }
  const pid_t child = fork();
  if (child == 0) become_pager(pager, text[0], report[1]);
  (void)close(text[0]);
  (void)close(report[1]);
  int error = 0;  // the pipe says nothing when the pager has started
  const bool started = child > 0 && read(report[0], &error, sizeof error) == 0;
  (void)close(report[0]);
  if (started) {
    fd_ = text[1];
    pager_ = child;
    pager_of_all = child;
    pipe_to_pager = fd_;
    (void)std::signal(SIGINT, wait_and_end);
    return;
  }
  (void)close(text[1]);
  if (child > 0) (void)waitpid(child, nullptr, 0);
}

void output::write(std::string_view text) {
  if (state_ != state::open) return;
  buffer_ += text;
  if (buffer_.size() >= kBufferSize) flush();
}

void output::flush() {
  std::string_view rest = buffer_;
  while (state_ == state::open && !rest.empty()) {
    const ssize_t n = ::write(fd_, rest.data(), rest.size());
    if (n >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(n));
    } else if (errno == EPIPE) {
      state_ = state::reader_gone;
    } else if (errno != EINTR) {
      state_ = state::failed;
      error_ = errno;
    }
  }
  buffer_.clear();
}

bool output::finish() {
  flush();
  if (pager_ > 0) {
    (void)close(fd_);
    while (waitpid(pager_, nullptr, 0) < 0 && errno == EINTR) {
    }
    (void)std::signal(SIGINT, SIG_DFL);
    pager_ = -1;
    fd_ = 1;
  }
  if (state_ != state::failed) return true;
  if (error_ != 0) complain("cannot write the output: " + error_text(error_));
  error_ = 0;
  return false;
}

std::string output::safe(std::string_view text) const {
  return raw_ ? std::string(text) : escaped(text, keep::nothing, utf8_);
}

std::string output::safe_lines(std::string_view text) const {
  return raw_ ? std::string(text) : escaped(text, keep::lines, utf8_);
}

std::string output::painted(style what, std::string_view text) const {
  static constexpr const char *kCodes[] = {"2", "1", "33", "36", "31"};  // in the order of the styles
  if (!colour_ || text.empty()) return std::string(text);
  return std::string("\x1b[") + kCodes[static_cast<std::size_t>(what)] + "m" + std::string(text) + "\x1b[0m";
}

void set_program_name(const std::string &name) {
  program_name() = name;
}

void complain(const std::string &text) {
  const std::string line = program_name() + ": " + text + "\n";
  (void)!::write(2, line.data(), line.size());
}

}  // namespace vosk
