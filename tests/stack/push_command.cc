// A command that records an incident for the process that runs it: push_command cmd|own. Prints the result and, where
// there is one, the identifier.
#include <qx_vosk.h>

#include <cstdio>
#include <cstring>

int main(int argc, char **argv) {
  vk_eid_t fid = "";
  const bool for_parent = argc > 1 && std::strcmp(argv[1], "cmd") == 0;
  const auto push = for_parent ? vk_push_stack_cmd_1 : vk_push_stack_1;
  const int result = push(&fid, nullptr, "command", "store", "command.c", "1.0", 7, 0, "by a command", nullptr,
                          "store.cat", 1, 2, "command of %s failed", "a service");
  std::printf("%d %s\n", result, fid);
  return 0;
}
