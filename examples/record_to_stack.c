/*
 * record_to_stack FILE: tries to read FILE, and records the failure in the VOSK Error Stack.
 *
 * Where the program was started by one that has an environment, VK_STACK_CREAT inherits that one, and the record goes
 * into the stack of the whole process tree.
 */
#include <errno.h>
#include <qx_vosk.h>
#include <stdio.h>
#include <string.h>

#define SOURCE_VERSION "1.0"

static void record_failed_open(const char *path, int error) {
  vk_eid_t eid = "";
  const int result =
      vk_push_stack_1(&eid, NULL, "record_to_stack", "examples", __FILE__, SOURCE_VERSION, __LINE__, 0, strerror(error),
                      NULL, /* details: a text; or a file to copy */
                      "examples.cat", 1, 1, "The file %1$s cannot be read: %2$s.", path, strerror(error));
  if (eid[0] != '\0')
    vk_display_fid_1(eid); /* "2615-000 IDENTIFIER" on standard error */
  else
    fprintf(stderr, "the failure could not be recorded (result %d)\n", result);
}

int main(int argc, char **argv) {
  FILE *file;
  int environment;
  if (argc != 2) {
    fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  environment = vk_init_1(VK_STACK_CREAT); /* once, early */
  if (environment != VK_SUCCESS && environment != VK_INHERIT_SUCCESS)
    fprintf(stderr, "no VOSK Environment (result %d): failures of this run are not recorded\n", environment);

  file = fopen(argv[1], "r");
  if (file == NULL) {
    record_failed_open(argv[1], errno);
    return 1;
  }
  fclose(file);
  return 0;
}
