// spoolcheck BATCH-FILE DIRECTORY IDENTIFIER: a command that a service runs to learn whether its spool takes anything
// at all. It has no environment of its own: what it finds, it records for the process that ran it, as following from
// the incident IDENTIFIER.
#include <fcntl.h>

#include <cstring>

#include "story.h"

int main(int argc, char **argv) {
  if (argc != 4) {
    std::fputs("usage: spoolcheck BATCH-FILE DIRECTORY IDENTIFIER\n", stderr);
    return 2;
  }
  vk_eid_t cause = "";
  std::strncpy(cause, argv[3], sizeof cause - 1);

  const int fd = open(argv[1], O_WRONLY | O_APPEND | O_CLOEXEC);
  if (fd >= 0 && write(fd, "x", 1) == 1) {
    (void)close(fd);
    return 0;
  }
  const int err = errno;
  if (fd >= 0) (void)close(fd);
  demo::say("not one byte more fits in: %s", std::strerror(err));

  vk_eid_t id = "";
  const int result =
      vk_push_stack_cmd_1(&id, cause, "spool", "orders", __FILE__, "1.0", __LINE__, 0, "one byte was tried", nullptr,
                          "orders.cat", 1, 40, "spool file %s takes nothing more: %s", argv[1], std::strerror(err));
  if (!demo::recorded(result, "vk_push_stack_cmd_1")) return 2;
  demo::say("recorded for process %d as %s", static_cast<int>(getppid()), id);
  demo::remember(argv[2], "spoolcheck", id);
  return 1;
}
