// The report command under the name that the library's messages use: vosk report.
#include "run.h"

int main(int argc, char **argv) {
  return vosk::run("vkstkrpt", argc, argv);
}
