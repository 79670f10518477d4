// qx_demo [--here]: watches a real failure travel through three processes: a worker that a full file system stops, the
// service that waited for it, and a command that the service runs. Then reads back what they recorded.
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "private_node.h"
#include "show.h"

namespace fs = std::filesystem;

static constexpr int kRefused = 77;  // says "cannot be shown here" to those who run this as a test

static void heading(const char *text) {
  std::printf("\n%s\n", text);
  (void)std::fflush(stdout);  // before the next program writes
}

static int run(const std::vector<std::string> &arguments) {
  std::vector<char *> argv;
  for (const std::string &argument : arguments) argv.push_back(const_cast<char *>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child == 0) {
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Where the programs of the demo work, and what stops them.
struct stage {
  std::string directory;                  // journal, trace, list of identifiers
  std::string batch;                      // the file that the worker writes
  std::unique_ptr<demo::log_socket> log;  // absent on the machine itself
};

static stage private_stage(const std::string &build) {
  const std::string covered = demo::enter_private_node({build, fs::current_path()});
  std::printf("  a mount namespace of our own, with a fresh file system on %s:\n", covered.c_str());
  std::printf("  /var/adm/vosk/stacks and /var/adm/vosk/dumps are made in there, nothing outside is touched\n");
  stage place{"/var/adm/vosk/demo", "/var/adm/vosk/demo/spool/batch-7", std::make_unique<demo::log_socket>()};
  demo::mount_small_file_system("/var/adm/vosk/demo/spool", "64k");
  std::printf("  the spool is a file system of 64 KiB; /dev/log is a socket that we listen to\n");
  return place;
}

static stage stage_on_this_machine() {
  std::printf("  this machine itself: records go to /var/adm/vosk and to its System Log, and stay there\n");
  for (const char *directory : {"/var/adm/vosk/stacks", "/var/adm/vosk/dumps"}) {
    if (fs::is_directory(directory)) continue;
    fs::create_directories(directory);
    fs::permissions(directory, fs::perms::all | fs::perms::sticky_bit);
    std::printf("  made %s\n", directory);
  }
  std::string directory = fs::temp_directory_path() / "qx_demo.XXXXXX";
  if (mkdtemp(directory.data()) == nullptr) throw std::runtime_error(directory + ": " + std::strerror(errno));
  fs::create_symlink("/dev/full", directory + "/batch-7");
  std::printf("  the spool file is /dev/full; journal and trace are in %s\n", directory.c_str());
  return {directory, directory + "/batch-7", nullptr};
}

// Runs the tool that reads what was recorded.
static void read_back(const fs::path &programs, const std::vector<std::string> &arguments) {
  std::vector<std::string> command = {programs / "vosk"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.push_back("--no-pager");
  if (run(command) != 0) throw std::runtime_error("vosk " + arguments.front() + " could not read what was recorded");
}

static void show(bool here) {
  const fs::path programs = fs::read_symlink("/proc/self/exe").parent_path();
  // What the caller's own environment says would make us its heirs.
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG"})
    (void)unsetenv(name);

  heading("A node for the demo");
  const stage place = here ? stage_on_this_machine() : private_stage(programs.parent_path());

  heading("A service, its worker and a command meet a full file system");
  if (run({programs / "demo/orderd", place.batch, place.directory}) != 1)
    throw std::runtime_error("the service did not end as it should");

  heading("What the identifiers say");
  std::string stack;
  const std::vector<demo::noted_record> records = demo::noted_records(place.directory);
  if (records.empty()) throw std::runtime_error("nothing was recorded");
  for (const demo::noted_record &record : records) {
    const std::string name = demo::show_decoded(record);
    if (!name.empty()) stack = "/var/adm/vosk/stacks/" + name;
  }

  heading("The records in the stack file: vosk report");
  read_back(programs, {"report", stack});
  heading("The records in full: vosk report -v");
  read_back(programs, {"report", "-v", stack});
  heading("The file that the worker's record cites: vosk detail");
  read_back(programs, {"detail", records.front().identifier});

  heading("What was sent to the System Log");
  if (place.log == nullptr)
    std::printf("  (look for \"libqx_vosk\" in this machine's log)\n");
  else
    for (const std::string &message : place.log->messages()) std::printf("  %s\n", demo::visible(message).c_str());

  heading("What the library did in the command's one call (VOSKDEBUG)");
  demo::show_file(place.directory + "/spoolcheck.trace", 200);

  heading("The whole incident, from its first cause on: vosk trace");
  read_back(programs, {"trace", records.back().identifier});
}

int main(int argc, char **argv) {
  const bool here = argc == 2 && std::strcmp(argv[1], "--here") == 0;
  if (argc > 1 && !here) {
    std::fputs("usage: qx_demo [--here]\n", stderr);
    return 2;
  }
  try {
    show(here);
    return EXIT_SUCCESS;
  } catch (const demo::namespaces_refused &refused) {
    std::fprintf(stderr,
                 "\nqx_demo: a private node is refused here (%s).\n"
                 "With --here the demo uses this machine's own /var/adm/vosk and System Log.\n",
                 refused.what());
    return kRefused;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "qx_demo: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
