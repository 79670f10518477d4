// The tools' common main.
#ifndef TOOLS_VOSK_RUN_H
#define TOOLS_VOSK_RUN_H

#include "options.h"

namespace vosk {

// Does what the command line asks for and returns the exit status.
using verb_runner = int (*)(const invocation &what);

// Runs the program named `program` ("vosk" or "vkstkrpt") and returns its exit status.
int run(const char *program, int argc, char **argv, verb_runner verb);

}  // namespace vosk

#endif
