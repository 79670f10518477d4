// Several processes that do the same at once.
#ifndef BENCH_CROWD_H
#define BENCH_CROWD_H

#include <sys/types.h>

#include <array>
#include <functional>
#include <vector>

namespace bench {

// Each has inherited the environment and waits; none starts in front of the others.
class crowd {
 public:
  crowd(int processes, const std::function<void()> &work);
  crowd(const crowd &) = delete;
  crowd &operator=(const crowd &) = delete;
  ~crowd();

  // Lets them go; returns when the last one has done its work.
  void run();

 private:
  struct worker {
    pid_t process;
    int reports;  // a byte when it is ready, and one when it is done
  };
  void wait_for_reports() const;

  std::array<int, 2> gate_{};  // closed by run()
  std::vector<worker> workers_;
};

}  // namespace bench

#endif
