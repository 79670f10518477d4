/*
 * refer_to_cause COMMAND [ARG...]: runs a command that records its own failures, and records that the command failed,
 * with the identifier of the command's incident as the cause.
 *
 * The command prints its identifier on standard error as "2615-000 IDENTIFIER", as record_to_stack does; any other
 * channel between the two would serve as well.
 */
#define _POSIX_C_SOURCE 200809L /* fdopen, also with -std=c11 */

#include <qx_vosk.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#define SOURCE_VERSION "1.0"

/* Passes the command's standard error on and takes the first identifier from it. */
static void read_cause(FILE *errors, vk_eid_t cause) {
  char line[1024];
  while (fgets(line, sizeof line, errors) != NULL) {
    if (cause[0] == '\0' && sscanf(line, "2615-000 %42[./0-9A-Za-z]", cause) == 1 && strlen(cause) != VK_EID_SIZE - 1)
      memset(cause, 0, VK_EID_SIZE);
    fputs(line, stderr);
  }
}

int main(int argc, char **argv) {
  vk_eid_t cause = "", eid = "";
  int ends[2], status = 0;
  pid_t child;
  FILE *errors;
  if (argc < 2) {
    fprintf(stderr, "usage: %s COMMAND [ARG...]\n", argv[0]);
    return 2;
  }
  vk_init_1(VK_STACK_CREAT); /* the command inherits the variables and records into the same stack */
  if (pipe(ends) != 0 || (child = fork()) < 0) {
    perror(argv[0]);
    return 2;
  }
  if (child == 0) {
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    execvp(argv[1], argv + 1);
    perror(argv[1]);
    _exit(127);
  }
  close(ends[1]);
  errors = fdopen(ends[0], "r");
  if (errors != NULL) read_cause(errors, cause);
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return 0;

  vk_push_stack_1(&eid, cause, "refer_to_cause", "examples", __FILE__, SOURCE_VERSION, __LINE__, 0,
                  cause[0] != '\0' ? "the associated incident is the cause" : "the command recorded nothing", NULL,
                  "examples.cat", 1, 2, "The command %1$s failed with wait status %2$d.", argv[1], status);
  if (eid[0] != '\0') vk_display_fid_1(eid);
  return 1;
}
