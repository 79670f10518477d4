/* Counts are written when a program returns from main. Linked into the tools of a coverage build, this writes them also
 * where a tool ends by _exit() or by a signal that it sends itself, and where a test ends it by SIGTERM. No limit on
 * the size of files is in their way, and where the superuser ran first any user can add to them. */
#include <signal.h>
#include <stddef.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

void __gcov_dump(void);
void __gcov_reset(void);

/* What the linker's --wrap makes of the C library's routines. */
_Noreturn void __real__exit(int status);
_Noreturn void __wrap__exit(int status);
int __real_raise(int number);
int __wrap_raise(int number);

/* Runs before the counts are written at the end of main, too. */
__attribute__((destructor)) static void make_room(void) {
  struct rlimit size;
  if (getrlimit(RLIMIT_FSIZE, &size) == 0) {
    size.rlim_cur = size.rlim_max;
    (void)setrlimit(RLIMIT_FSIZE, &size);
  }
  (void)umask(0);
}

static void write_counts(void) {
  struct rlimit size;
  const int limited = getrlimit(RLIMIT_FSIZE, &size) == 0;
  const mode_t mask = umask(0);
  const uid_t user = geteuid();
  make_room();
  (void)!seteuid(0); /* where the superuser only plays another */
  __gcov_dump();
  (void)!seteuid(user);
  (void)umask(mask);
  if (limited) (void)setrlimit(RLIMIT_FSIZE, &size);
}

void __wrap__exit(int status) {
  write_counts();
  __real__exit(status);
}

int __wrap_raise(int number) {
  write_counts();
  __gcov_reset(); /* it may be a stop, after which the counting goes on */
  return __real_raise(number);
}

static void write_and_end(int number) {
  write_counts();
  (void)__real_raise(number); /* comes when this returns, and finds the default action */
}

__attribute__((constructor)) static void keep_counts(void) {
  struct sigaction ending = {.sa_handler = write_and_end, .sa_flags = (int)SA_RESETHAND}, before;
  if (sigaction(SIGTERM, NULL, &before) == 0 && before.sa_handler == SIG_DFL) (void)sigaction(SIGTERM, &ending, NULL);
}
