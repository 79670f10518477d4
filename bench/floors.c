#define _GNU_SOURCE
#include "floors.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/time.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

static const char zeros[1024];
static char bytes[1024];
static char block[24];

#define DONE(call) \
  do {             \
    if (call) {    \
    }              \
  } while (0)

/* No system call, but a walk through the environment that a road cannot do without, either: what it looks up, and in
   which order, is fixed as its system calls are. */
static void look_up(const char *name) {
  DONE(getenv(name) != NULL);
}

static void test_environment(void) {
  static const char *const names[] = {"VOSKDEBUG", "VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
  size_t i;
  for (i = 0; i < sizeof names / sizeof names[0]; ++i) look_up(names[i]);
}

/* Whether to trace, whether there is an environment, and what it says. */
static void find_stack(const char *directory, const char *stack) {
  struct stat status;
  DONE(getpid());
  look_up("VOSKDEBUG");
  test_environment();
  look_up("VOSKSTACK");
  look_up("VOSKPID");
  look_up("VOSKORIG");
  DONE(stat(directory, &status));
  DONE(stat(stack, &status));
}

static int open_and_lock(const char *stack) {
  const int fd = open(stack, O_RDWR);
  DONE(lockf(fd, F_LOCK, 0));
  return fd;
}

static void identify_and_read_header(const char *stack, int fd, int inherited) {
  look_up("VOSKPNAME");
  if (inherited) DONE(getppid());
  floor_stack_identifier(stack);
  lseek(fd, 0, SEEK_SET);
  DONE(read(fd, block, 4));
  DONE(read(fd, block + 4, 20));
}

static int open_existing(const char *directory, const char *stack, int inherited) {
  int fd;
  find_stack(directory, stack);
  fd = open_and_lock(stack);
  identify_and_read_header(stack, fd, inherited);
  return fd;
}

static void write_and_leave(int fd, int position, size_t record) {
  lseek(fd, position, SEEK_SET);
  DONE(write(fd, bytes, record));
  position += (int)record;
  memcpy(block + 8, &position, sizeof position);
  lseek(fd, 4, SEEK_SET);
  DONE(write(fd, block + 4, 20));
  DONE(lockf(fd, F_ULOCK, 0));
  close(fd);
}

static int position_of(void) {
  int position;
  memcpy(&position, block + 8, sizeof position);
  return position;
}

void floor_push(const char *directory, const char *stack, size_t record, int inherited) {
  const int fd = open_existing(directory, stack, inherited);
  write_and_leave(fd, position_of(), record);
}

void floor_wrapped_push(const char *directory, const char *stack, size_t record, size_t cleared) {
  const int fd = open_existing(directory, stack, 0);
  unsigned int length;
  lseek(fd, 24, SEEK_SET);
  DONE(read(fd, &length, sizeof length));
  lseek(fd, 24, SEEK_SET);
  lseek(fd, 0, SEEK_CUR);
  DONE(write(fd, zeros, cleared));
  write_and_leave(fd, 24, record);
}

void floor_reserve(const char *directory, const char *file) {
  struct statfs space;
  int fd, i;
  DONE(statfs(directory, &space));
  fd = open(file, O_RDWR | O_CREAT | O_EXCL | O_TRUNC, 0666);
  DONE(lockf(fd, F_LOCK, 0));
  DONE(fchmod(fd, 0666));
  lseek(fd, 0, SEEK_CUR);
  for (i = 0; i < 16; ++i) DONE(write(fd, zeros, sizeof zeros));
  lseek(fd, 0, SEEK_SET);
  DONE(write(fd, bytes, 36));
  DONE(statfs(file, &space));
  DONE(lockf(fd, F_ULOCK, 0));
  close(fd);
}

void floor_first_push(const char *directory, const char *stack, size_t record) {
  int fd;
  find_stack(directory, stack);
  floor_reserve(directory, stack);
  fd = open_and_lock(stack);
  DONE(write(fd, zeros, 4));
  DONE(write(fd, bytes, 20));
  identify_and_read_header(stack, fd, 0);
  write_and_leave(fd, 24, record);
}

void floor_log(void) {
  look_up("VOSKDEBUG");
  floor_syslog_identifier();
  openlog("bench", LOG_PID | LOG_NDELAY, LOG_DAEMON);
  syslog(LOG_ERR, "%s",
         "(Recorded using libqx_vosk.a cv 2):::Error ID: 822....J3M.f/Ezh..1U.0....................:::Reference ID: "
         ":::Template ID: 0:::Details File: :::Location: product,bench.cc,1.0,17                       :::an order 5");
  closelog();
}

void floor_stack_identifier(const char *stack) {
  struct stat status;
  struct timeval now;
  gettimeofday(&now, NULL);
  look_up("VOSKADDR");
  DONE(stat(stack, &status));
}

void floor_syslog_identifier(void) {
  struct timeval now;
  gettimeofday(&now, NULL);
  look_up("VOSKADDR");
}

void floor_decode(void) {
  struct ifreq list[64];
  struct ifconf query;
  char text[46];
  size_t i;
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  memset(list, 0, sizeof list);
  query.ifc_len = sizeof list;
  query.ifc_req = list;
  DONE(ioctl(fd, SIOCGIFCONF, &query));
  for (i = 0; i < (size_t)query.ifc_len / sizeof list[0]; ++i) {
    struct ifreq asked = list[i];
    struct sockaddr_in address;
    DONE(ioctl(fd, SIOCGIFFLAGS, &asked));
    memcpy(&address, &list[i].ifr_addr, sizeof address);
    DONE(inet_ntoa(address.sin_addr));
  }
  DONE(inet_ntop(AF_INET, bytes, text, sizeof text) != NULL);
  fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void floor_decode_with_search(const char *directory) {
  DIR *opened;
  struct dirent entry, *found;
  floor_decode();
  opened = opendir(directory);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  while (readdir_r(opened, &entry, &found) == 0 && found != NULL) {
  }
#pragma GCC diagnostic pop
  closedir(opened);
}

void floor_trace_line(const char *trace, size_t entry, size_t remains) {
  struct timeval now;
  char text[26];
  int fd;
  gettimeofday(&now, NULL);
  DONE(ctime_r(&now.tv_sec, text) != NULL);
  DONE(getpid());
  fd = open(trace, O_RDWR);
  lseek(fd, 0, SEEK_SET);
  DONE(lockf(fd, F_LOCK, 0));
  DONE(read(fd, bytes, 36));
  lseek(fd, 36, SEEK_SET);
  DONE(write(fd, zeros, entry));
  lseek(fd, 0, SEEK_CUR);
  DONE(write(fd, zeros, 21));
  if (remains != 0) { /* of an older entry, in a file that was recycled */
    const off_t behind = lseek(fd, 0, SEEK_CUR);
    DONE(read(fd, bytes, sizeof bytes));
    lseek(fd, behind, SEEK_SET);
    lseek(fd, 0, SEEK_CUR);
    DONE(write(fd, zeros, remains));
  }
  lseek(fd, 0, SEEK_SET);
  DONE(write(fd, bytes, 36));
  lseek(fd, 0, SEEK_SET);
  DONE(lockf(fd, F_ULOCK, 0));
  close(fd);
}

void floor_traced_push(const char *directory, const char *stack, size_t record, const char *trace,
                       const size_t *entries, size_t count) {
  struct stat status;
  size_t i;
  DONE(stat(trace, &status)); /* by the push, and by its environment test */
  DONE(stat(trace, &status));
  floor_push(directory, stack, record, 0);
  for (i = 0; i < count; ++i) floor_trace_line(trace, entries[i], 0);
}

void floor_environment_test(void) {
  DONE(getpid());
  test_environment();
}

void floor_base64(long value) {
  volatile long kept = a64l(l64a(value)); /* a result that nobody reads would not be computed */
  (void)kept;
}

void floor_detail_copy(const char *input, const char *directory, const char *output) {
  struct stat status;
  struct timeval now;
  struct tm local;
  ssize_t count;
  int in, out;
  DONE(stat("/var/adm/vosk", &status));
  DONE(stat(input, &status));
  DONE(stat("/var/adm/vosk", &status));
  DONE(stat(directory, &status));
  look_up("VOSKPNAME");
  gettimeofday(&now, NULL);
  DONE(localtime_r(&now.tv_sec, &local) != NULL);
  DONE(getpid());
  DONE(stat(directory, &status));
  DONE(stat(output, &status));
  out = open(output, O_WRONLY | O_CREAT | O_EXCL | O_APPEND, 0644);
  DONE(fstatat(AT_FDCWD, input, &status, 0));
  in = open(input, O_RDONLY);
  while ((count = read(in, bytes, sizeof bytes)) > 0) DONE(write(out, bytes, (size_t)count));
  close(in);
  close(out);
}
