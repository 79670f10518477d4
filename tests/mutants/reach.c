/*
 * Linked into the libraries of the mapping build, whose functions announce themselves: marks each one's address in the
 * file LIBRARY.reach beside the library, so that it is known afterwards which tests got where. A shared mapping: marks
 * of a process that was killed count, too.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

enum { kMarks = 1 << 20 };
extern const char __ehdr_start[] __attribute__((visibility("hidden"))); /* where this library begins */
static unsigned char *marks;

void __cyg_profile_func_enter(void *function, void *site) __attribute__((visibility("hidden")));
void __cyg_profile_func_exit(void *function, void *site) __attribute__((visibility("hidden")));

__attribute__((constructor, no_instrument_function)) static void open_marks(void) {
  Dl_info info;
  char path[PATH_MAX];
  if (dladdr(__ehdr_start, &info) == 0 || info.dli_fname == NULL) return;
  (void)snprintf(path, sizeof path, "%s.reach", info.dli_fname);
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd == -1) return;
  void *const map = mmap(NULL, kMarks, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  (void)close(fd);
  if (map != MAP_FAILED) marks = map;
}

__attribute__((no_instrument_function)) void __cyg_profile_func_enter(void *function, void *site) {
  (void)site;
  const unsigned long offset = (unsigned long)((const char *)function - __ehdr_start);
  if (marks != NULL && offset < kMarks && marks[offset] == 0) marks[offset] = 1;
}

__attribute__((no_instrument_function)) void __cyg_profile_func_exit(void *function, void *site) {
  (void)function;
  (void)site;
}
