// What the recording verbs and the doctor say, and record all the same, where the platform's calls fail.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "syslog/private_log.h"
#include "tools/faults.h"

using testing::HasSubstr;

namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/job.1.20261121.120000";

class Faults : public testing::Test {
 protected:
  // A process with an environment on a node with a System Log.
  void SetUp() override {
    const std::string trouble = private_log::cover_dev();
    if (!trouble.empty()) CANNOT_RUN_HERE(trouble);
    log_.emplace();
    for (const char *name : kNames) unsetenv(name);
    ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "job", getpid(), 0), 0);
    for (const char *name : kNames) environment_[name] = getenv(name);
    environment_["VOSKSTACK"] = kStack;
  }

  void expect_all(const std::vector<faults::row> &rows) const {
    for (const faults::row &row : rows) faults::expect(row, environment_);
  }

  static constexpr const char *kNames[] = {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
  std::optional<private_log::Listener> log_;
  std::map<std::string, std::string> environment_;
};

}  // namespace

TEST_F(Faults, OfDetailsCostNoRecord) {
  const std::string push = "push --json --detail-file /dev/zero message", recorded = R"("recorded":true)";
  expect_all({
      {"no memory to keep them", push, "memfd_create|1|24|detail", 0, "cannot keep the details: Too many open files"},
      {"no room to keep them", push, "write|1|28|detail", 0, "cannot keep the details: No space left on device"},
      {"no memory, and the record", push, "memfd_create|1|24|detail", 0, recorded},
      {"their writing is interrupted", push, "write|1|4|detail", 0, "the details are kept to their first 16 MiB"},
      {"their reading is interrupted", push, "read|1|4|/dev/zero", 0, "the details are kept to their first 16 MiB"},
      {"their reading fails", push, "read|1|5|/dev/zero", 0, "cannot read the details: Input/output error"},
      {"they cannot be opened", push, "open|1|24|/dev/zero", 0, "cannot read the details: Too many open files"},
  });
}

TEST_F(Faults, OfTheSystemLogAreNamed) {
  const std::string push = "push --road log message";
  expect_all({
      {"no sockets", push, "socket|1+|24|", 1, "No System Log daemon listens on /dev/log."},
      {"nobody listens", push, "connect|1+|111|", 1, "No System Log daemon listens on /dev/log."},
      {"it has much to do", push, "connect|1|11|", 0, ""},
      {"no sockets for the first test", push, "socket|1|24|", 1, "No System Log daemon listens on /dev/log."},
  });
}

TEST_F(Faults, OfWhatTheLibraryPrintsAreNamed) {
  const std::string create = "env create --name job 1", cannot = "cannot read what the library prints: ";
  expect_all({
      {"no descriptor", create, "F_DUPFD_CLOEXEC|1|24|", 1, cannot + "Too many open files"},
      {"no pipe", create, "pipe2|1|24|", 1, cannot + "Too many open files"},
      {"the pipe cannot be put in its place", create, "dup2|1|16|pipe", 1, cannot + "Device or resource busy"},
      {"the pipe cannot be read", create, "read|1|5|pipe", 1, cannot + "Input/output error"},
  });
}

TEST_F(Faults, OfARunCostNoRecordWhereTheCommandRan) {
  const files::TemporaryDirectory dir;
  const std::string run = "run --stderr-tail=1K -- ls /no-such-file", wrong = "ls: exit status 2; recorded as 7",
                    seen = "ls: cannot access '/no-such-file': No such file or directory", stopping = dir / "stopping";
  ASSERT_TRUE(files::write(stopping, "(sleep 0.2; kill -CONT $$) & kill -STOP $$; wait; exit 3"));
  expect_all({
      {"no pipe for its end", "run -- true", "pipe2|1|24|", 125, "vosk: pipe: Too many open files"},
      {"no process", "run -- true", "fork|1|11|", 125, "vosk: fork: Resource temporarily unavailable"},
      {"no pipe for its errors", run, "pipe2|1|24|", 125, "vosk: pipe: Too many open files"},
      {"no socket", run, "socketpair|1|24|", 125, "vosk: socketpair: Too many open files"},
      {"no memory", run, "mmap|1|12|", 125, "vosk: mmap: Cannot allocate memory"},
      {"no process that passes them on", run, "fork|1|11|", 125, "vosk: fork: Resource temporarily unavailable"},
      {"no pipe in the place of standard error", run, "dup2|1|16|pipe", 126, "Device or resource busy"},
      {"no details", run, "memfd_create|1|24|detail", 2, "cannot keep the details: Too many open files"},
      {"no details, and the record", run, "memfd_create|1|24|detail", 2, wrong},
      {"the passing on waits", run, "write|1|11|", 2, seen},
      {"the passing on is interrupted", run, "write|1|4|", 2, seen},
      {"the passing on is piecewise", run, "write|1+|short|", 2, ""},
      {"nobody reads what is passed on", run, "write|1|5|", 2, wrong},
      {"its waiting is interrupted", run, "poll|1|4|", 2, seen},
      {"its reading is interrupted", run, "read|1|4|pipe", 2, seen},
      {"its reading fails", run, "read|1|5|pipe", 2, wrong},
      {"it looks late", run, "poll|1|run sleep 0.3|", 2, seen},
      {"it looks late, and cannot tell how much waits", run, "poll|1|run sleep 0.3|\nioctl|1|25|", 2, wrong},
      {"it looks late, and its reading fails", run, "poll|1|run sleep 0.3|\nread|1|5|pipe", 2, wrong},
      {"its waiting for the command is interrupted", "run -- false", "wait4|1|4|", 1, "false: exit status 1"},
      {"a stop of the command cannot be told", "run -- sh " + stopping, "wait4|1|10|", 3, "sh: exit status 3"},
  });
}

TEST_F(Faults, OfTheNodeAreFoundByTheDoctor) {
  tool::write_stack(kStack, builder::never_wrapped_file());
  ASSERT_EQ(chmod(kStack.c_str(), 0666), 0);
  for (const char *path : {sandbox::kStacks, sandbox::kDumps}) ASSERT_EQ(chmod(path, 01777), 0);
  expect_all({
      {"a network file system", "doctor", "statfs|1+|nfs|stacks", 0, "note network: "},
      {"a layered file system", "doctor", "statfs|1+|overlay|stacks", 0, "note layered: "},
      {"a file system that cannot be looked at", "doctor", "statfs|1+|5|\nstatvfs|1+|5|", 0, "-- no fault found"},
      {"no processes", "doctor", "open|1+|2|/stat", 1, "fault proc_missing: "},
      {"no name spaces", "doctor", "stat|1|2|/proc/self/ns/pid", 0, "-- no fault found"},
      {"no addresses", "doctor", "getifaddrs|1+|12|", 1, "fault no_address: "},
      {"an address without a family", "doctor", "getifaddrs|1+|untyped|", 0, "-- no fault found"},
      {"a directory that cannot be looked at", "doctor", "lstat|1|13|stacks", 1, "fault directory_denied: "},
      {"a stack that cannot be looked at", "doctor", "lstat|1|13|job.", 1, "fault stack_denied: "},
      {"a stack that cannot be written", "doctor", "faccessat|1|13|job.", 1, "fault stack_denied: this user cannot"},
      {"a stack that cannot be opened", "doctor", "openat|1|13|job.", 0, "-- no fault found"},
      {"a lock that cannot be asked for", "doctor", "F_GETLK|1+|37|job.", 1,
       "fault lock_held: a process of another namespace holds the lock"},
      {"a read-only file system", "doctor", "faccessat|1|30|stacks", 1, "make it writable: in a unit, ReadWritePaths="},
      {"an access list", "doctor", "faccessat|1|13|stacks", 1, "look for access lists and security modules"},
  });
}
