// Standard error of a command through a pipe, passed on at once, with its end kept.
#ifndef TOOLS_VOSK_CHILD_STDERR_H
#define TOOLS_VOSK_CHILD_STDERR_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "reader/safe_file.h"

namespace vosk {

// What reads the pipe is a process of its own, which stays until nobody can write to it any more. So a descendant of
// the command that keeps the pipe and writes late does not die of SIGPIPE, its words still arrive, and this program
// need not wait for it.
class stderr_tail {
 public:
  static constexpr std::size_t kDefault = 8192, kMax = 1 << 20;

  // Keeps the last `size` bytes. Throws std::system_error.
  explicit stderr_tail(std::size_t size);
  ~stderr_tail();
  stderr_tail(const stderr_tail &) = delete;
  stderr_tail &operator=(const stderr_tail &) = delete;

  int write_end() const noexcept { return write_end_.get(); }
  int descriptor() const noexcept { return control_.get(); }  // the one that take() needs
  void close_write_end() { write_end_ = unique_fd(); }

  struct excerpt {
    std::string bytes;        // the end of what was written
    std::uint64_t total = 0;  // how many bytes were written in all
  };

  // What had been written by now, all of which has been passed on, too; only what is there where a signal interrupts
  // the waiting for that. To be called once.
  excerpt take();

 private:
  struct ring;  // shared with the process that reads

  ring *ring_;
  std::size_t size_;
  unique_fd write_end_, control_;
};

}  // namespace vosk

#endif
