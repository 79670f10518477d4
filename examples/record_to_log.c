/*
 * record_to_log DIRECTORY: tries to enter DIRECTORY, and records the failure in the System Log.
 *
 * This road needs no Error Stack. VK_LOG only sets what an identifier needs: the node's address and the process name.
 */
#include <errno.h>
#include <qx_vosk.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#define SOURCE_VERSION "1.0"

int main(int argc, char **argv) {
  vk_eid_t eid = "";
  const char *reason;
  if (argc != 2) {
    fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  vk_init_1(VK_LOG); /* without it the record is made all the same, but has no identifier */
  if (chdir(argv[1]) == 0) return 0;

  reason = strerror(errno);
  vk_log_error_1(&eid, NULL, "record_to_log", "examples", __FILE__, SOURCE_VERSION, __LINE__, 0, VOSK_ERROR, 0, reason,
                 (int64_t)strlen(reason), NULL, "Cannot enter the directory %s: %s", argv[1], reason);
  if (eid[0] != '\0') vk_display_fid_1(eid);
  return 1;
}
