/* A common-utilities library with no more than what libqx_vosk needs: for messages without inserts. */
#include <qx_cu.h>
#include <stdio.h>
#include <string.h>

int cu_set_error_1(int id, int zero, const char *catalogue, int set, int number, const char *default_text, ...) {
  (void)zero, (void)catalogue, (void)set, (void)number, (void)default_text;
  return id;
}

int cu_set_no_error_1(void) {
  return 0;
}

int cu_set_error_args_1(const char *default_message, va_list args, cu_arg_t **out, int *count) {
  (void)default_message, (void)args;
  *out = NULL;
  *count = 0;
  return 0;
}

int cu_rel_error_args_1(cu_arg_t *args, int count) {
  (void)args, (void)count;
  return 0;
}

int cu_get_proc_info_1(cu_proc_info_t *record, int pid) {
  char path[32], command[64] = "";
  FILE *file;
  snprintf(path, sizeof path, "/proc/%d/comm", pid);
  file = fopen(path, "r");
  if (file == NULL) return 0;
  if (fgets(command, sizeof command, file) != NULL) command[strcspn(command, "\n")] = '\0';
  fclose(file);
  record->pid = pid;
  memcpy(record->command, command, sizeof command);
  return 1;
}
