// Runs commands of the shell, keeps what they print, and finds in it what a test wants to know.
#pragma once

#include <string>
#include <vector>

namespace vk::test {

struct shell_result {
  int status = -1;     // exit status; 128 and more for a signal
  std::string output;  // standard output and standard error
};

// Runs `command` in `directory` without a standard input.
shell_result run_shell(const std::string &directory, const std::string &command);

// What the first parenthesis of an extended regular expression covers, at each place where the expression matches.
std::vector<std::string> all_groups(const std::string &text, const std::string &expression);
// At the first such place; empty where there is none.
std::string first_group(const std::string &text, const std::string &expression);

}  // namespace vk::test
