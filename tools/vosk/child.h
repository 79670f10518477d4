// Runs a command as a shell would, in this program's place: the same descriptors, process group and signals.
#ifndef TOOLS_VOSK_CHILD_H
#define TOOLS_VOSK_CHILD_H

#include <sys/resource.h>

#include <string>
#include <vector>

#include "child_signals.h"
#include "exit_status.h"
#include "reader/moment.h"
#include "reader/safe_file.h"

namespace vosk {

struct child_end {
  int start_error = 0;  // errno where it could not be started: nothing of what follows counts then
  int status = 0;       // as waitpid gives it
  moment started, ended;
  std::int64_t microseconds = 0;  // from start to end, whatever was done to the clock
  rusage use{};                   // of the command and of those of its children that it waited for

  bool succeeded() const;
  int exit_status() const;  // as a shell gives it
};

class child {
 public:
  explicit child(bool pipe_ignored) : signals_(pipe_ignored) {}

  // Starts the command, with `error_fd`, if there is one, as its standard error. Throws std::system_error.
  void start(const std::vector<std::string> &command, int error_fd = -1);

  // Waits for its end, passes signals on, and stops where it stops.
  child_end wait();

  const signal_desk &signals() const noexcept { return signals_; }

  // The descriptor that wait() needs.
  int descriptor() const noexcept { return start_error_.get(); }

 private:
  bool reap(child_end &end);

  signal_desk signals_;
  pid_t pid_ = -1;
  unique_fd start_error_;  // says why the command could not be started; nothing if it could
  moment started_;
  std::int64_t started_us_ = 0;
};

// Ends this program as its command ended: returns the exit status, or dies of the command's signal.
int end_as(const child_end &end);

}  // namespace vosk

#endif
