// The tools' common main.
#ifndef TOOLS_VOSK_RUN_H
#define TOOLS_VOSK_RUN_H

namespace vosk {

// Runs the program named `program` ("vosk" or "vkstkrpt") and returns its exit status.
int run(const char *program, int argc, char **argv);

}  // namespace vosk

#endif
