// Running programs: one at a time, to its end or its time limit, and nothing of it left behind.
#ifndef QX_TESTS_MUTANTS_PROGRAM_H
#define QX_TESTS_MUTANTS_PROGRAM_H

#include <string>
#include <vector>

namespace mutants {

struct Program {
  std::vector<std::string> command, environment;  // "NAME=value", beside what is inherited
  std::string directory;
};

struct Outcome {
  int status;  // of exit; 128 + N after signal N
  bool timed_out;
  double seconds;
};

// Standard output and error go to `log`.
Outcome run(const Program &program, double seconds, const std::string &log = "/dev/null");

// In a child process: mounts `library_directory` over `place`, for this process and its children alone, and adopts the
// children that a test leaves behind. Throws std::runtime_error where it may not.
void enter_with_libraries(const std::string &library_directory, const std::string &place);

}  // namespace mutants

#endif
