// The command line.
#ifndef TOOLS_VOSK_ARGUMENTS_H
#define TOOLS_VOSK_ARGUMENTS_H

#include <optional>

#include "options.h"

namespace vosk {

// Reads the command line into `out`. Where it asks for nothing further (help, version, a usage error), prints what
// there is to say and returns the exit status.
std::optional<int> parse_arguments(int argc, char **argv, invocation &out);

}  // namespace vosk

#endif
