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
#include "verbs.h"

namespace vosk {

namespace {

// A file opened later must not take the place of a standard stream that the caller closed. Written to, these fail as
// closed ones do.
void occupy_standard_descriptors() {
  for (int fd = 0; fd <= 2; ++fd)
    if (fcntl(fd, F_GETFD) < 0) (void)!open("/dev/null", fd == 0 ? O_WRONLY : O_RDONLY);
}

struct run_verb {
  const common_options &common;
  int operator()(const std::monostate & /*none*/) const { return kExitUsage; }
  int operator()(const annotate_options &options) const { return annotate(common, options); }
  int operator()(const detail_options &options) const { return detail(common, options); }
  int operator()(const list_options &options) const { return list(common, options); }
  int operator()(const report_options &options) const { return report(common, options); }
  int operator()(const show_options &options) const { return show(common, options); }
  int operator()(const trace_options &options) const { return trace(common, options); }
  int operator()(const verify_options &options) const { return verify(common, options); }
};

}  // namespace

int run(const char *program, int argc, char **argv) {
  occupy_standard_descriptors();
  (void)std::setlocale(LC_ALL, "");
  (void)std::signal(SIGPIPE, SIG_IGN);
  set_program_name(program);
  try {
    invocation what;
    what.program = program;
    if (const auto status = parse_arguments(argc, argv, what)) return *status;
    return std::visit(run_verb{what.common}, what.verb);
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
