// The variables of an environment, as the library computes them for another process.
#ifndef TOOLS_VOSK_ENVIRONMENT_VALUES_H
#define TOOLS_VOSK_ENVIRONMENT_VALUES_H

#include <string>
#include <utility>
#include <vector>

namespace vosk {

struct environment_values {
  int code = 0;  // the library's result
  std::string text;
  std::vector<std::pair<std::string, std::string>> variables;  // all that belong to the result, or none
};

// Throws std::runtime_error where the library's answer cannot be had or is not what belongs to its result.
environment_values values_for(int option_code, const std::string &name, int process);

// "export NAME='VALUE'" lines for a POSIX shell.
std::string export_commands(const environment_values &values);

}  // namespace vosk

#endif
