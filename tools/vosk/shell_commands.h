// What a program prints for the eval of a POSIX shell.
#ifndef TOOLS_VOSK_SHELL_COMMANDS_H
#define TOOLS_VOSK_SHELL_COMMANDS_H

#include <string>

namespace vosk {

// Makes the eval fail with this status, and change nothing.
inline std::string failing_commands(int status) {
  return "(exit " + std::to_string(status) + ")\n";
}

}  // namespace vosk

#endif
