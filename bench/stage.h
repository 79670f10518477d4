// Where the benchmarks run: directories and sockets of their own, in a mount namespace that run.sh has made.
#ifndef BENCH_STAGE_H
#define BENCH_STAGE_H

#include <string>

namespace bench {

inline constexpr char kStacks[] = "/var/adm/vosk/stacks";
inline constexpr char kDumps[] = "/var/adm/vosk/dumps";

// Makes the directories and establishes an environment; returns the stack file's path.
std::string set_stage();

// A process that reads from the datagram socket `path` and drops what it reads, until it goes out of scope.
class drain {
 public:
  explicit drain(const char *path);
  drain(const drain &) = delete;
  drain &operator=(const drain &) = delete;
  ~drain();

 private:
  int reader_ = -1;
};

}  // namespace bench

#endif
