#include "run.h"

int main(int argc, char **argv) {
  return vosk::run("vosk", argc, argv);
}
