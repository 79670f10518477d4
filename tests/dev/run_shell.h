// Runs commands of the shell and keeps what they print.
#pragma once

#include <string>

namespace vk::test {

struct shell_result {
  int status = -1;     // exit status; 128 and more for a signal
  std::string output;  // standard output and standard error
};

// Runs `command` in `directory` without a standard input.
shell_result run_shell(const std::string &directory, const std::string &command);

}  // namespace vk::test
