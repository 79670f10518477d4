/* Counts are written when a program returns from main. Linked into the tools of a coverage build, this writes them also
 * where a tool ends by _exit() or by a signal that it sends itself, and where a test ends it by SIGTERM. */
#include <signal.h>
#include <stddef.h>

void __gcov_dump(void);
void __gcov_reset(void);

/* What the linker's --wrap makes of the C library's routines. */
_Noreturn void __real__exit(int status);
_Noreturn void __wrap__exit(int status);
int __real_raise(int number);
int __wrap_raise(int number);

void __wrap__exit(int status) {
  __gcov_dump();
  __real__exit(status);
}

int __wrap_raise(int number) {
  __gcov_dump();
  __gcov_reset(); /* it may be a stop, after which the counting goes on */
  return __real_raise(number);
}

static void write_and_end(int number) {
  __gcov_dump();
  (void)__real_raise(number); /* comes when this returns, and finds the default action */
}

__attribute__((constructor)) static void keep_counts(void) {
  struct sigaction ending = {.sa_handler = write_and_end, .sa_flags = (int)SA_RESETHAND}, before;
  if (sigaction(SIGTERM, NULL, &before) == 0 && before.sa_handler == SIG_DFL) (void)sigaction(SIGTERM, &ending, NULL);
}
