// Standard output of the tools: buffered, through a pager on a terminal, coloured where that is wanted.
#ifndef TOOLS_VOSK_OUTPUT_H
#define TOOLS_VOSK_OUTPUT_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "options.h"

namespace vosk {

enum class style { time, process, identifier, note, damage };

class output {
 public:
  // `paged`: the command prints and ends, so a pager makes sense.
  output(const common_options &options, bool paged);
  ~output();
  output(const output &) = delete;
  output &operator=(const output &) = delete;

  void write(std::string_view text);
  void line(std::string_view text) {
    write(text);
    write("\n");
  }
  void flush();

  // True if what is written ends on a terminal, through a pager or not.
  bool terminal() const noexcept { return terminal_; }

  // True if characters beyond ASCII can be shown.
  bool utf8() const noexcept { return utf8_; }

  // Nobody reads any more: whatever is written from here on is dropped.
  bool closed() const noexcept { return state_ == state::reader_gone; }

  // Writes what is left and waits for the pager. False, with a message on standard error, if anything was lost on the
  // way.
  bool finish();

  // A text of a file, made harmless unless --raw; on one line, or with its line feeds and tabs.
  std::string safe(std::string_view text) const;
  std::string safe_lines(std::string_view text) const;

  std::string painted(style what, std::string_view text) const;

 private:
  enum class state { open, reader_gone, failed };

  void start_pager();

  state state_ = state::open;
  bool raw_, terminal_, colour_, utf8_;
  int fd_ = 1, error_ = 0;
  pid_t pager_ = -1;
  std::string buffer_;
};

// Prints "PROGRAM: text" on standard error. `text` has no control characters.
void complain(const std::string &text);
void set_program_name(const std::string &name);

}  // namespace vosk

#endif
