#include "crowd.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "measure.h"
#include "qx_vosk.h"

namespace bench {
namespace {

void make_pipe(std::array<int, 2> &ends) {
  if (pipe(ends.data()) != 0) std::abort();
}

[[noreturn]] void work_when_told(int gate, int reports, const std::function<void()> &work) {
  const auto report = [&] {
    if (write(reports, "", 1) != 1) std::abort();
  };
  if (vk_init_1(VK_STACK_INHERIT) != VK_INHERIT_SUCCESS) std::abort();
  report();
  char never;
  if (read(gate, &never, 1) != 0) std::abort();
  work();
  report();
  _exit(0);
}

}  // namespace

crowd::crowd(int processes, const std::function<void()> &work) {
  make_pipe(gate_);
  for (int i = 0; i < processes; ++i) {
    std::array<int, 2> reports{};
    make_pipe(reports);
    const pid_t process = fork();
    if (process == 0) {
      (void)close(gate_[1]);
      work_when_told(gate_[0], reports[1], work);
    }
    (void)close(reports[1]);
    workers_.push_back({process, reports[0]});
  }
  wait_for_reports();
}

void crowd::run() {
  (void)close(gate_[1]);
  wait_for_reports();
}

crowd::~crowd() {
  for (const worker &w : workers_) {
    int status = 0;
    if (waitpid(w.process, &status, 0) != w.process || status != 0) std::abort();
    (void)close(w.reports);
  }
  (void)close(gate_[0]);
}

// A process that fails ends without its report.
void crowd::wait_for_reports() const {
  for (const worker &w : workers_) {
    char reported;
    if (read(w.reports, &reported, 1) != 1) std::abort();
  }
}

}  // namespace bench
