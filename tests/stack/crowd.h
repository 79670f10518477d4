// Processes that push at the same time, in rounds: all start together, and the caller looks at each round's results.
#ifndef TESTS_STACK_CROWD_H
#define TESTS_STACK_CROWD_H

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <cstdlib>
#include <functional>
#include <vector>

#include "stack/stack_test.h"

namespace stack_test {

class Crowd {
 public:
  static constexpr int kMostProcesses = 32, kMostPushes = 16;
  struct Result {
    int code;
    vk_eid_t fid;
  };
  // What one process did in one round.
  struct Share {
    pid_t pid;
    Result results[kMostPushes];
  };

  explicit Crowd(int processes) : processes_(processes) {
    void *memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    shared_ = static_cast<Shared *>(memory);
    pthread_barrierattr_t attributes;
    pthread_barrierattr_init(&attributes);
    pthread_barrierattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_barrier_init(&shared_->start, &attributes, static_cast<unsigned>(processes) + 1);
    pthread_barrier_init(&shared_->end, &attributes, static_cast<unsigned>(processes) + 1);
  }
  ~Crowd() { munmap(shared_, sizeof(Shared)); }
  Crowd(const Crowd &) = delete;
  Crowd &operator=(const Crowd &) = delete;

  // In every round each process makes `pushes` calls of `push_one`, each with its own environment; then `look` is given
  // what came of it. False where a process died.
  bool run(int rounds, int pushes, const std::function<int(int round, int process, int push, vk_eid_t *fid)> &push_one,
           const std::function<void(int round, const std::vector<Share> &shares)> &look) {
    std::vector<pid_t> children;
    const std::string originator = std::to_string(getpid());
    for (int process = 0; process < processes_; ++process) {
      const pid_t child = fork();
      if (child == 0) {
        alarm(kSeconds);  // should the others be gone
        setenv("VOSKORIG", originator.c_str(), 1);
        setenv("VOSKPID", std::to_string(getpid()).c_str(), 1);
        Share &share = shared_->shares[process];
        share.pid = getpid();
        for (int round = 0; round < rounds; ++round) {
          pthread_barrier_wait(&shared_->start);
          for (int i = 0; i < pushes; ++i) share.results[i].code = push_one(round, process, i, &share.results[i].fid);
          pthread_barrier_wait(&shared_->end);
        }
        _exit(0);
      }
      children.push_back(child);
    }
    alarm(kSeconds);
    for (int round = 0; round < rounds; ++round) {
      pthread_barrier_wait(&shared_->start);
      pthread_barrier_wait(&shared_->end);
      look(round, std::vector<Share>(shared_->shares, shared_->shares + processes_));
    }
    alarm(0);
    bool good = true;
    for (pid_t child : children) {
      int status = -1;
      good = waitpid(child, &status, 0) == child && status == 0 && good;
    }
    return good;
  }

 private:
  static constexpr unsigned kSeconds = 110;
  struct Shared {
    pthread_barrier_t start, end;
    Share shares[kMostProcesses];
  };
  const int processes_;
  Shared *shared_;
};

}  // namespace stack_test

#endif
