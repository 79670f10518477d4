// What the command line asks of vosk run.
#ifndef TOOLS_VOSK_OPTIONS_RUN_H
#define TOOLS_VOSK_OPTIONS_RUN_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace vosk {

struct run_options {
  std::vector<std::string> command;
  std::vector<std::string> misplaced;  // words that are neither options nor behind "--"
  std::string cause, id_file;
  std::optional<std::size_t> stderr_tail;  // how many bytes to keep
  bool pipe_ignored = false;               // SIGPIPE was, when the program was started
};

}  // namespace vosk

#endif
