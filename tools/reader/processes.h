// The processes of this node, as far as they can use a stack.
#ifndef TOOLS_READER_PROCESSES_H
#define TOOLS_READER_PROCESSES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "moment.h"

namespace vosk {

// When a process was started, in seconds since the epoch by the clock as it goes now.
std::optional<std::int64_t> start_of_process(int pid);

struct running_process {
  int pid = 0;
  std::vector<int> ids;  // one for each PID namespace that it is in, `pid` first
  std::int64_t started = 0;
  std::vector<std::string> stacks;  // the file names of the stacks that its environment named when it was started
};

// One look at /proc. What cannot be read of a process counts as what keeps files.
class process_table {
 public:
  // Nothing, with a reason, where /proc does not show the processes.
  static std::optional<process_table> read(std::string &why);

  // A process that has this id, in whatever namespace, and was there at that time already; null if there is none.
  const running_process *with_id(int pid, std::int64_t seconds) const;

  // A process that was started with this stack in its environment; null if there is none.
  const running_process *user_of(std::string_view stack_name) const;

  // How many environments could not be read: those of other users' processes, for anybody but the superuser.
  std::size_t unreadable() const noexcept { return unreadable_; }

 private:
  std::vector<running_process> processes_;
  std::size_t unreadable_ = 0;
  std::int64_t slack_ = 0;  // seconds by which a start can be told too late
};

}  // namespace vosk

#endif
