/*
 * A libqx_cu as somebody else might have it: the five routines that libqx_vosk calls, by which an administrator's own
 * way of reporting is served. This one prints. packages_in_root.sh puts it in the place of ours.
 */
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

int cu_set_error_1(int id, int zero, const char *catalogue, int set, int number, const char *default_text, ...) {
  const int saved_errno = errno;
  va_list inserts;
  (void)zero;
  fprintf(stderr, "another libqx_cu: %d, %s %d.%d: ", id, catalogue != NULL ? catalogue : "", set, number);
  va_start(inserts, default_text);
  vfprintf(stderr, default_text != NULL ? default_text : "", inserts);
  va_end(inserts);
  errno = saved_errno;
  return id;
}

int cu_set_no_error_1(void) {
  return 0;
}

int cu_set_error_args_1(const char *default_message, va_list args, void **out, int *count) {
  (void)default_message;
  (void)args;
  if (out == NULL || count == NULL) return -1;
  *out = NULL;
  *count = 0;
  return 0;
}

int cu_rel_error_args_1(void *args, int count) {
  (void)args;
  (void)count;
  return 0;
}

int cu_get_proc_info_1(void *record, int pid) {
  struct {
    int pid;
    char command[64];
  } *const found = record;
  char path[32];
  FILE *file;
  snprintf(path, sizeof path, "/proc/%d/comm", pid);
  file = fopen(path, "r");
  if (file == NULL) return 0;
  found->pid = pid;
  if (fscanf(file, "%63[^\n]", found->command) != 1) found->command[0] = '\0';
  fclose(file);
  return 1;
}
