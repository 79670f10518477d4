// orderd BATCH-FILE DIRECTORY: the service of the demo. Lets a worker write a batch, and when the worker fails, records
// its own incident beside the worker's, tells the System Log, and runs a command that looks at the spool.
#include <fcntl.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "story.h"

namespace fs = std::filesystem;

static fs::path neighbour(const char *program) {
  return fs::read_symlink("/proc/self/exe").parent_path() / program;
}

static int exit_status(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs the worker and reads the identifier that it hands up where it fails.
static int run_spooler(const char *batch, const char *directory, vk_eid_t &cause) {
  const std::string program = neighbour("spooler");
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return -1;
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    (void)fcntl(ends[1], F_SETFD, 0);
    execl(program.c_str(), "spooler", batch, directory, std::to_string(ends[1]).c_str(), nullptr);
    _exit(127);
  }
  (void)close(ends[1]);
  vk_eid_t received = "";
  if (read(ends[0], received, sizeof received) == static_cast<ssize_t>(sizeof received))
    std::memcpy(cause, received, sizeof received);
  (void)close(ends[0]);
  return exit_status(child);
}

// Runs the command with VOSKDEBUG set: the library writes down what the command's one call does.
static int run_spoolcheck(const char *batch, const char *directory, const vk_eid_t &cause) {
  const std::string program = neighbour("spoolcheck");
  const std::string trace = std::string(directory) + "/spoolcheck.trace";
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    (void)setenv("VOSKDEBUG", trace.c_str(), 1);
    execl(program.c_str(), "spoolcheck", batch, directory, cause, nullptr);
    _exit(127);
  }
  return exit_status(child);
}

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fputs("usage: orderd BATCH-FILE DIRECTORY\n", stderr);
    return 2;
  }
  const char *const batch = argv[1];
  const char *const directory = argv[2];

  if (const int result = vk_init_1(VK_STACK_CREAT); result != VK_SUCCESS) {
    demo::say("vk_init_1 gave %d", result);
    return 2;
  }
  demo::say("established an environment, VOSKSTACK is %s", std::getenv("VOSKSTACK"));

  vk_eid_t cause = "";
  const int spooler = run_spooler(batch, directory, cause);
  if (spooler == 0) return 0;
  demo::say("spooler ended with status %d and handed up %s", spooler, cause);

  vk_eid_t own = "";
  int result = vk_push_stack_1(&own, cause, "orders", "orders", __FILE__, "1.0", __LINE__, 0,
                               "the orders stay at the counter", nullptr, "orders.cat", 1, 31,
                               "batch %d was not taken over: the spooler ended with status %d", demo::kBatch, spooler);
  if (!demo::recorded(result, "vk_push_stack_1")) return 2;
  demo::say("recorded as %s, following from %s", own, cause);
  demo::remember(directory, "orderd", own);

  vk_eid_t logged = "";
  const std::string journal = std::string(directory) + "/spooler.log";
  result = vk_log_error_1(&logged, own, "orderd", "orders", __FILE__, "1.0", __LINE__, 0, VOSK_ERROR, 0, nullptr, 0,
                          journal.c_str(), "orders have come to a stop at batch %d", demo::kBatch);
  if (!demo::recorded(result, "vk_log_error_1")) return 2;
  demo::say("told the System Log as %s", logged);
  demo::remember(directory, "log", logged);

  const int check = run_spoolcheck(batch, directory, own);
  demo::say("spoolcheck ended with status %d", check);
  return check == 1 ? 1 : 2;
}
