// One process of a chain, for the tests of inheritance: does what its arguments say and prints the results.
//
//   init N     vk_init_1(N), its result and the reported text
//   test       vk_test_stack_1(), likewise
//   vars       the library's variables
//   pid        the process id
//   fork       the rest is done by a forked child
//   exec       the rest is done by this program, started anew in a child
//   fork-exec  ... in a grandchild whose parent did nothing but fork
#include <qx_cu.h>
#include <qx_vosk.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/leaks.h"

extern char **environ;

static void print_result(const char *what, int result) {
  cu_error_t error;
  const int id = cu_get_error_1(&error);
  std::string text = error.text;
  std::replace(text.begin(), text.end(), '\n', '|');
  std::printf("%s = %d, error %d %s %d/%d %s\n", what, result, id, error.catalogue, error.set, error.number,
              text.c_str());
}

static int wait_for(pid_t child) {
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

static void start_anew(std::vector<char *> rest, char *program) {
  rest.insert(rest.begin(), program);
  rest.push_back(nullptr);
  execv("/proc/self/exe", rest.data());
  std::perror("execv");
  _exit(1);
}

int main(int argc, char **argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string action = argv[i];
    const std::vector<char *> rest(argv + i + 1, argv + argc);
    if (action == "init" && i + 1 < argc) {
      const int option = std::atoi(argv[++i]);
      const leaks::OnPurpose replaced;  // a forked child's values take the place of its parent's
      print_result(("init " + std::to_string(option)).c_str(), vk_init_1(option));
    } else if (action == "test") {
      print_result("test", vk_test_stack_1());
    } else if (action == "vars") {
      for (char **entry = environ; *entry != nullptr; ++entry)
        if (std::strncmp(*entry, "VOSK", 4) == 0) std::puts(*entry);
    } else if (action == "pid") {
      std::printf("pid %d\n", static_cast<int>(getpid()));
    } else if (action == "fork" || action == "exec" || action == "fork-exec") {
      std::fflush(stdout);
      const pid_t child = fork();
      if (child != 0) return wait_for(child);
      if (action == "fork-exec") {
        const pid_t grandchild = fork();
        if (grandchild != 0) _exit(wait_for(grandchild));
      }
      if (action != "fork") start_anew(rest, argv[0]);
    } else {
      std::fprintf(stderr, "no action %s\n", argv[i]);
      return 2;
    }
  }
  return std::fflush(stdout) == 0 ? 0 : 1;
}
