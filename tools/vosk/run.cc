#include "run.h"

#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <exception>
#include <new>

#include "arguments.h"
#include "exit_status.h"
#include "output.h"

namespace vosk {

namespace {

// A file opened later must not take the place of a standard stream that the caller closed. Written to, these fail as
// closed ones do, and for other programs they are closed.
void occupy_standard_descriptors() {
  for (int fd = 0; fd <= 2; ++fd)
    if (fcntl(fd, F_GETFD) < 0) (void)!open("/dev/null", (fd == 0 ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
}

}  // namespace

int run(const char *program, int argc, char **argv, verb_runner verb) {
  occupy_standard_descriptors();
  (void)std::setlocale(LC_ALL, "");
  const bool pipe_ignored = std::signal(SIGPIPE, SIG_IGN) == SIG_IGN;
  set_program_name(program);
  try {
    invocation what;
    what.program = program;
    what.pipe_ignored = pipe_ignored;
    if (const auto status = parse_arguments(argc, argv, what)) return *status;
    return verb(what);
  } catch (const usage_error &error) {
    complain(error.what());
    return kExitUsage;
  } catch (const std::bad_alloc &) {
    complain("out of memory");
  } catch (const std::exception &error) {
    complain(std::string("unexpected failure: ") + error.what());
  }
  return kExitFailure;
}

}  // namespace vosk
