// The processes of the story: a parent establishes an environment; a forked child and an executed grandchild inherit
// it; a command records for the parent. Each records to the Error Stack and to the System Log, citing what came before.
//
//   story_process parent ROUNDS
//   story_process grandchild CITED       started by the child
//   story_process command CITED          started by the parent
//
// Prints one line for each identifier ("identifier WHO ROAD PID EVENT-TYPE BEFORE AFTER EID CITED", CITED being "-" for
// none, the times in seconds) and, since the trace file overwrites itself, after each call what is new in it: "routine
// NAME" or "trace problem ...". Exits with 1 where a call has an unexpected result.
#include <qx_vosk.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "support/leaks.h"
#include "support/trace_file.h"

namespace {

constexpr char kCatalogue[] = "story.cat", kVersion[] = "1.0", kProduct[] = "story";
std::string program;

// A result that was not expected ends the whole story.
void expect(const char *what, int result, int expected) {
  if (result == expected) return;
  std::printf("%s = %d, expected %d\n", what, result, expected);
  std::fflush(stdout);
  _exit(1);
}

// The clock that identifiers are made with; time() may lag behind it.
long long now() {
  timeval time;
  gettimeofday(&time, nullptr);
  return time.tv_sec;
}

void look_at_the_trace() {
  static std::set<std::string> known;
  const trace_file::Trace trace = trace_file::read(std::getenv("VOSKDEBUG"));
  if (!trace.problem.empty()) std::printf("trace problem %s\n", trace.problem.c_str());
  for (const trace_file::Entry &entry : trace.entries)
    if (known.insert(entry.routine).second) std::printf("routine %s\n", entry.routine.c_str());
}

void init(int option, int expected) {
  const leaks::OnPurpose replaced;  // a forked child's values take the place of its parent's
  expect("vk_init_1", vk_init_1(option), expected);
  look_at_the_trace();
  expect("vk_test_stack_1", vk_test_stack_1(), 0);
  look_at_the_trace();
}

std::string announced(const char *who, const char *road, int type, long long before, const char *eid,
                      const std::string &cited) {
  std::printf("identifier %s %s %d %d %lld %lld %s %s\n", who, road, static_cast<int>(getpid()), type, before, now(),
              eid, cited.empty() ? "-" : cited.c_str());
  look_at_the_trace();
  // The trace shows outputs that the call does not set as they lie here.
  unsigned int on_node = 0, version = 0, location = 0, templ = 0, facility = 0, priority = 0, ipv6 = 0;
  timeval time = {};
  char names[256] = "", address[16] = "";
  expect("vk_decode_eid_2",
         vk_decode_eid_2(1, std::getenv("VOSKDEBUG"), eid, &on_node, &version, &location, names, 1, &templ, &facility,
                         &priority, &time, address, &ipv6),
         0);
  look_at_the_trace();
  expect("vk_display_fid_main_1", vk_display_fid_main_1(eid, 0), 0);
  look_at_the_trace();
  return eid;
}

using Push = decltype(vk_push_stack_1);

std::string push(const char *who, const std::string &cited, Push *routine = vk_push_stack_1) {
  vk_eid_t eid, assoc = {};
  std::strncpy(assoc, cited.c_str(), sizeof assoc - 1);
  const long long before = now();
  expect("the push",
         routine(&eid, assoc, who, kProduct, "story.cc", kVersion, 1, 0, "details", nullptr, kCatalogue, 1, 1,
                 "%1$s of %2$d", who, 1),
         0);
  return announced(who, "stack", -1, before, eid, cited);
}

std::string log(const char *who, int type, const std::string &cited) {
  vk_eid_t eid;
  const long long before = now();
  expect("vk_log_error_1",
         vk_log_error_1(&eid, cited.c_str(), who, kProduct, "story.cc", kVersion, 1, 0, type, 0, "details", 7, nullptr,
                        "%s tells", who),
         0);
  return announced(who, "log", type, before, eid, cited);
}

void wait_for(pid_t child) {
  int status = 0;
  if (waitpid(child, &status, 0) != child || status != 0) expect("a child", status, 0);
}

// This program, started anew in a child.
void start(const char *role, const std::string &cited) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    execl("/proc/self/exe", program.c_str(), role, cited.c_str(), static_cast<char *>(nullptr));
    _exit(127);
  }
  wait_for(child);
}

void parent(int rounds) {
  init(VK_STACK_CREAT, 0);
  std::printf("stack %s\n", std::getenv("VOSKSTACK"));
  std::string cited;
  for (int round = 0; round < rounds; ++round) {
    cited = log("parent", VOSK_ERROR, push("parent", cited));
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
      expect("vk_test_stack_1 of the child", vk_test_stack_1(), 15);
      init(VK_STACK_INHERIT, VK_INHERIT_SUCCESS);
      start("grandchild", log("child", VOSK_PERF, push("child", cited)));
      std::fflush(stdout);
      _exit(0);
    }
    wait_for(child);
    start("command", cited);
  }
}

}  // namespace

int main(int argc, char **argv) {
  program = argv[0];
  const std::string role = argc == 3 ? argv[1] : "";
  if (role == "parent") {
    parent(std::atoi(argv[2]));
  } else if (role == "grandchild") {
    init(VK_STACK_INHERIT, VK_INHERIT_SUCCESS);
    log("grandchild", VOSK_STATE, push("grandchild", argv[2]));
  } else if (role == "command") {
    push("command", argv[2], vk_push_stack_cmd_1);
  } else {
    std::fprintf(stderr, "usage: story_process ROLE ARGUMENT\n");
    return 2;
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
