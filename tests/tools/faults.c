/* Loaded before the C library into a tool: makes the calls fail that QX_FAULTS names, one in a line:
 *
 *   CALL|NTH|WHAT|WHERE
 *
 * The NTH call, or with "2+" the second and all later ones, of those whose path, or whose descriptor's path, holds
 * WHERE. WHAT: a number, which becomes errno; "short", of a read or write that does a single byte; "end", of a read or
 * listing that finds nothing more, or of a poll whose time is over; "untyped", of a directory's entries and of the
 * first address; "nfs" or "overlay", of a file system; or "run COMMAND", which runs before the call is made. fcntl goes
 * by the name of its command. The tool's own children are not concerned. */
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <linux/magic.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

enum { kMost = 8, kShort = -1, kEnd = -2, kUntyped = -3, kOfNfs = -4, kOfLayers = -5 };

struct rule {
  const char *call, *what, *where;
  int nth, and_later, seen;
};
static struct rule rules[kMost];
static int count;

__attribute__((constructor)) static void read_rules(void) {
  const char *const value = getenv("QX_FAULTS");
  char *rest = strdup(value != NULL ? value : "");
  for (char *line; count < kMost && (line = strsep(&rest, "\n")) != NULL && *line != '\0'; ++count) {
    struct rule *r = &rules[count];
    r->call = strsep(&line, "|");
    const char *const nth = strsep(&line, "|");
    r->what = strsep(&line, "|");
    r->where = line;
    if (nth == NULL || r->what == NULL || line == NULL) abort();
    r->nth = atoi(nth);
    r->and_later = strchr(nth, '+') != NULL;
  }
  unsetenv("LD_PRELOAD");
  unsetenv("QX_FAULTS");
}

/* An errno, or one of the words. */
static int number_of(const char *what) {
  static const char *const kWords[] = {"short", "end", "untyped", "nfs", "overlay"};
  for (int i = 0; i < (int)(sizeof kWords / sizeof *kWords); ++i)
    if (strcmp(what, kWords[i]) == 0) return -1 - i;
  return atoi(what);
}

/* What becomes of a call: 0 to make it, an errno, or one of the above. */
static int planned(const char *call, const char *where) {
  const int saved = errno;
  int result = 0;
  for (int i = 0; i < count; ++i) {
    struct rule *r = &rules[i];
    if (strcmp(r->call, call) != 0 || strstr(where, r->where) == NULL) continue;
    ++r->seen;
    if (r->seen != r->nth && (!r->and_later || r->seen < r->nth)) continue;
    if (strncmp(r->what, "run ", 4) == 0)
      result = system(r->what + 4) == 0 ? result : EIO;
    else
      result = number_of(r->what);
  }
  errno = saved;
  return result;
}

static const char *path_of(int fd, char *buffer, size_t size) {
  char link[32];
  (void)snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  const long length = syscall(SYS_readlinkat, AT_FDCWD, link, buffer, size - 1);
  buffer[length > 0 ? length : 0] = '\0';
  return buffer;
}

static int planned_fd(const char *call, int fd) {
  char buffer[4096];
  return count > 0 ? planned(call, path_of(fd, buffer, sizeof buffer)) : 0;
}

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

/* `name`, which fails with `failed` where that is planned for `plan`. */
#define FAILING(type, name, parameters, arguments, plan, failed) \
  __attribute__((visibility("default"))) type name parameters {  \
    const int result = (plan);                                   \
    if (result != 0) {                                           \
      errno = result;                                            \
      return failed;                                             \
    }                                                            \
    return NEXT(name) arguments;                                 \
  }

FAILING(int, access, (const char *path, int mode), (path, mode), planned("access", path), -1)
FAILING(int, faccessat, (int dir, const char *path, int mode, int flags), (dir, path, mode, flags),
        planned("faccessat", path), -1)
FAILING(int, stat, (const char *path, struct stat *st), (path, st), planned("stat", path), -1)
FAILING(int, lstat, (const char *path, struct stat *st), (path, st), planned("lstat", path), -1)
FAILING(int, fstat, (int fd, struct stat *st), (fd, st), planned_fd("fstat", fd), -1)
FAILING(int, fstatat, (int dir, const char *path, struct stat *st, int flags), (dir, path, st, flags),
        planned("fstatat", path), -1)
FAILING(int, statx, (int dir, const char *path, int flags, unsigned mask, struct statx *st),
        (dir, path, flags, mask, st), *path != '\0' ? planned("statx", path) : planned_fd("statx", dir), -1)
FAILING(off_t, lseek, (int fd, off_t at, int whence), (fd, at, whence), planned_fd("lseek", fd), -1)
FAILING(int, ftruncate, (int fd, off_t size), (fd, size), planned_fd("ftruncate", fd), -1)
FAILING(int, fsync, (int fd), (fd), planned_fd("fsync", fd), -1)
FAILING(int, dup, (int fd), (fd), planned_fd("dup", fd), -1)
FAILING(DIR *, fdopendir, (int fd), (fd), planned_fd("fdopendir", fd), NULL)
FAILING(int, pipe2, (int ends[2], int flags), (ends, flags), planned("pipe2", ""), -1)
FAILING(int, memfd_create, (const char *name, unsigned flags), (name, flags), planned("memfd_create", name), -1)
FAILING(pid_t, fork, (void), (), planned("fork", ""), -1)
FAILING(int, renameat2, (int dir, const char *from, int to_dir, const char *to, unsigned flags),
        (dir, from, to_dir, to, flags), planned("renameat2", from), -1)
FAILING(int, unlinkat, (int dir, const char *path, int flags), (dir, path, flags), planned("unlinkat", path), -1)
FAILING(int, posix_spawn_file_actions_init, (posix_spawn_file_actions_t * actions), (actions),
        planned("posix_spawn_file_actions_init", ""), result)
FAILING(int, dup2, (int from, int to), (from, to), planned_fd("dup2", from), -1)
FAILING(int, socketpair, (int domain, int type, int protocol, int ends[2]), (domain, type, protocol, ends),
        planned("socketpair", ""), -1)
FAILING(void *, mmap, (void *at, size_t size, int access, int flags, int fd, off_t offset),
        (at, size, access, flags, fd, offset), planned("mmap", ""), MAP_FAILED)
FAILING(int, socket, (int domain, int type, int protocol), (domain, type, protocol), planned("socket", ""), -1)
FAILING(int, connect, (int fd, const struct sockaddr *address, socklen_t size), (fd, address, size),
        planned("connect", ""), -1)
FAILING(int, statvfs, (const char *path, struct statvfs *fs), (path, fs), planned("statvfs", path), -1)
FAILING(int, inotify_init1, (int flags), (flags), planned("inotify_init1", ""), -1)
FAILING(int, inotify_add_watch, (int fd, const char *path, uint32_t events), (fd, path, events),
        planned("inotify_add_watch", path), -1)
FAILING(pid_t, wait4, (pid_t pid, int *status, int options, struct rusage *use), (pid, status, options, use),
        planned("wait4", ""), -1)
FAILING(int, kill, (pid_t pid, int number), (pid, number), planned("kill", ""), -1)
FAILING(int, sigtimedwait, (const sigset_t *set, siginfo_t *signal, const struct timespec *time), (set, signal, time),
        planned("sigtimedwait", ""), -1)
FAILING(pid_t, waitpid, (pid_t pid, int *status, int options), (pid, status, options), planned("waitpid", ""), -1)

__attribute__((visibility("default"))) int open(const char *path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = va_arg(list, mode_t);
  va_end(list);
  errno = planned("open", path);
  return errno != 0 ? -1 : NEXT(open)(path, flags, mode);
}

__attribute__((visibility("default"))) int openat(int dir, const char *path, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = va_arg(list, mode_t);
  va_end(list);
  errno = planned("openat", path);
  return errno != 0 ? -1 : NEXT(openat)(dir, path, flags, mode);
}

__attribute__((visibility("default"))) int fcntl(int fd, int command, ...) {
  static const struct {
    int command;
    const char *name;
  } kNames[] = {{F_DUPFD_CLOEXEC, "F_DUPFD_CLOEXEC"}, {F_SETLK, "F_SETLK"},       {F_GETLK, "F_GETLK"},
                {F_SETLEASE, "F_SETLEASE"},           {F_GETLEASE, "F_GETLEASE"}, {F_ADD_SEALS, "F_ADD_SEALS"}};
  va_list list;
  va_start(list, command);
  void *const argument = va_arg(list, void *);
  va_end(list);
  int result = 0;
  for (size_t i = 0; i < sizeof kNames / sizeof *kNames; ++i)
    if (kNames[i].command == command) result = planned_fd(kNames[i].name, fd);
  if (result != 0) {
    errno = result;
    return -1;
  }
  return NEXT(fcntl)(fd, command, argument);
}

/* How many bytes of `size` a call may do; -1 where it fails. */
static ssize_t planned_size(const char *call, int fd, size_t size) {
  const int result = planned_fd(call, fd);
  if (result == kShort && size > 0) return 1;
  if (result == kEnd) return 0;
  if (result <= 0) return (ssize_t)size;
  errno = result;
  return -1;
}

__attribute__((visibility("default"))) ssize_t read(int fd, void *bytes, size_t size) {
  const ssize_t allowed = planned_size("read", fd, size);
  return allowed <= 0 ? allowed : NEXT(read)(fd, bytes, (size_t)allowed);
}

__attribute__((visibility("default"))) ssize_t pread(int fd, void *bytes, size_t size, off_t at) {
  const ssize_t allowed = planned_size("pread", fd, size);
  return allowed <= 0 ? allowed : NEXT(pread)(fd, bytes, (size_t)allowed, at);
}

__attribute__((visibility("default"))) int poll(struct pollfd *fds, nfds_t n, int timeout) {
  const int result = planned("poll", "");
  if (result > 0) errno = result;
  if (result == kEnd) return 0;
  return result != 0 ? -1 : NEXT(poll)(fds, n, timeout);
}

/* What the compiler makes of a call whose sizes it checks. */
int __open_2(const char *path, int flags);
int __openat_2(int dir, const char *path, int flags);
ssize_t __read_chk(int fd, void *bytes, size_t size, size_t room);
ssize_t __pread_chk(int fd, void *bytes, size_t size, off_t at, size_t room);

__attribute__((visibility("default"))) int __open_2(const char *path, int flags) {
  return open(path, flags);
}

__attribute__((visibility("default"))) int __openat_2(int dir, const char *path, int flags) {
  return openat(dir, path, flags);
}

__attribute__((visibility("default"))) ssize_t __read_chk(int fd, void *bytes, size_t size, size_t room) {
  return size <= room ? read(fd, bytes, size) : -1;
}

__attribute__((visibility("default"))) ssize_t __pread_chk(int fd, void *bytes, size_t size, off_t at, size_t room) {
  return size <= room ? pread(fd, bytes, size, at) : -1;
}

__attribute__((visibility("default"))) ssize_t write(int fd, const void *bytes, size_t size) {
  const ssize_t allowed = planned_size("write", fd, size);
  return allowed <= 0 ? allowed : NEXT(write)(fd, bytes, (size_t)allowed);
}

__attribute__((visibility("default"))) struct dirent *readdir(DIR *stream) {
  const int result = planned_fd("readdir", dirfd(stream));
  if (result > 0) errno = result;
  if (result > 0 || result == kEnd) return NULL;
  struct dirent *const entry = NEXT(readdir)(stream);
  if (entry != NULL && result == kUntyped) entry->d_type = DT_UNKNOWN;
  return entry;
}

__attribute__((visibility("default"))) int getifaddrs(struct ifaddrs **list) {
  const int result = planned("getifaddrs", "");
  if (result > 0) errno = result;
  if (result > 0) return -1;
  const int done = NEXT(getifaddrs)(list);
  if (done == 0 && result == kUntyped) (*list)->ifa_addr = NULL;
  return done;
}

__attribute__((visibility("default"))) int statfs(const char *path, struct statfs *fs) {
  const int result = planned("statfs", path);
  if (result > 0) errno = result;
  if (result > 0) return -1;
  const int done = NEXT(statfs)(path, fs);
  if (result == kOfNfs) fs->f_type = NFS_SUPER_MAGIC;
  if (result == kOfLayers) fs->f_type = OVERLAYFS_SUPER_MAGIC;
  return done;
}

__attribute__((visibility("default"))) int ioctl(int fd, unsigned long request, ...) {
  va_list list;
  va_start(list, request);
  void *const argument = va_arg(list, void *);
  va_end(list);
  errno = planned("ioctl", "");
  return errno != 0 ? -1 : NEXT(ioctl)(fd, request, argument);
}
