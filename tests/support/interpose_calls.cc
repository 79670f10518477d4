// The platform calls as this program defines them. Each goes straight to the C library unless a Calls object records in
// the thread. Each is declared here under a C++ name of its own that stands for the C symbol, so that the attributes,
// inline versions and exception promises of the system's headers do not meet these definitions.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "support/interpose.h"
#include "support/interpose_engine.h"

using platform::armed_calls;
using platform::Engine;
using platform::quoted;
using platform::Recording;

#define PLATFORM_CALL(type, name, parameters)                                                   \
  extern "C" __attribute__((visibility("default"))) type call_##name parameters __asm__(#name); \
  type call_##name parameters

namespace {

// The C library's (or the sanitizer's) routine behind ours. No lock and no guard: two threads that look at the same
// time store the same value.
template <class Function>
Function *next(Function *&slot, const char *name) {
  Function *found = __atomic_load_n(&slot, __ATOMIC_RELAXED);
  if (found == nullptr) {
    found = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    __atomic_store_n(&slot, found, __ATOMIC_RELAXED);
  }
  return found;
}

#define NEXT(name)                           \
  static decltype(call_##name) *slot_##name; \
  auto *const real = next(slot_##name, #name)

std::string time_text(const time_t *clock) {
  return clock == nullptr ? "null" : std::to_string(*clock);
}

std::string lockf_command(int command) {
  switch (command) {
    case F_LOCK:
      return "F_LOCK";
    case F_ULOCK:
      return "F_ULOCK";
    case F_TLOCK:
      return "F_TLOCK";
    case F_TEST:
      return "F_TEST";
    default:
      return std::to_string(command);
  }
}

std::string whence_name(int whence) {
  switch (whence) {
    case SEEK_SET:
      return "SEEK_SET";
    case SEEK_CUR:
      return "SEEK_CUR";
    case SEEK_END:
      return "SEEK_END";
    default:
      return std::to_string(whence);
  }
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char *format, va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  int length = std::vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  if (length < 0) return "";
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

}  // namespace

// --- Files ---

PLATFORM_CALL(int, stat, (const char *path, struct stat *out)) {
  NEXT(stat);
  if (armed_calls == nullptr) return real(path, out);
  Recording recording("stat");
  recording.path(path);
  return recording.run(-1, [&](long long) {
    return Engine::stat_result(recording.calls(), recording.call(), out) ? 0 : real(path, out);
  });
}
PLATFORM_CALL(int, stat64, (const char *path, struct stat *out)) {
  return call_stat(path, out);
}

PLATFORM_CALL(int, fstat, (int fd, struct stat *out)) {
  NEXT(fstat);
  if (armed_calls == nullptr) return real(fd, out);
  Recording recording("fstat");
  recording.fd(fd);
  return recording.run(
      -1, [&](long long) { return Engine::stat_result(recording.calls(), recording.call(), out) ? 0 : real(fd, out); });
}
PLATFORM_CALL(int, fstat64, (int fd, struct stat *out)) {
  return call_fstat(fd, out);
}

PLATFORM_CALL(int, fstatat, (int directory, const char *path, struct stat *out, int flags)) {
  NEXT(fstatat);
  if (armed_calls == nullptr) return real(directory, path, out, flags);
  Recording recording("fstatat");
  recording.raw(directory == AT_FDCWD ? "AT_FDCWD" : std::to_string(directory)).path(path);
  recording.hex(static_cast<unsigned>(flags));
  return recording.run(-1, [&](long long) {
    return Engine::stat_result(recording.calls(), recording.call(), out) ? 0 : real(directory, path, out, flags);
  });
}
PLATFORM_CALL(int, fstatat64, (int directory, const char *path, struct stat *out, int flags)) {
  return call_fstatat(directory, path, out, flags);
}

PLATFORM_CALL(int, statfs, (const char *path, struct statfs *out)) {
  NEXT(statfs);
  if (armed_calls == nullptr) return real(path, out);
  Recording recording("statfs");
  recording.path(path);
  return recording.run(-1,
                       [&](long long) { return Engine::statfs_result(recording.calls(), out) ? 0 : real(path, out); });
}
PLATFORM_CALL(int, statfs64, (const char *path, struct statfs *out)) {
  return call_statfs(path, out);
}

namespace {

int recorded_open(const char *path, int flags, unsigned mode, int (*real)(const char *, int, ...)) {
  bool has_mode = (flags & (O_CREAT | __O_TMPFILE)) != 0;
  if (armed_calls == nullptr) return has_mode ? real(path, flags, mode) : real(path, flags);
  Recording recording("open");
  recording.path(path).hex(static_cast<unsigned>(flags));
  if (has_mode) recording.octal(mode);
  return recording.run(-1, [&](long long) { return has_mode ? real(path, flags, mode) : real(path, flags); });
}

unsigned open_mode(int flags, va_list arguments) {
  return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, unsigned) : 0;
}

}  // namespace

PLATFORM_CALL(int, open, (const char *path, int flags, ...)) {
  NEXT(open);
  va_list arguments;
  va_start(arguments, flags);
  unsigned mode = open_mode(flags, arguments);
  va_end(arguments);
  return recorded_open(path, flags, mode, real);
}
PLATFORM_CALL(int, open64, (const char *path, int flags, ...)) {
  NEXT(open64);
  va_list arguments;
  va_start(arguments, flags);
  unsigned mode = open_mode(flags, arguments);
  va_end(arguments);
  return recorded_open(path, flags, mode, real);
}

PLATFORM_CALL(off_t, lseek, (int fd, off_t offset, int whence)) {
  NEXT(lseek);
  if (armed_calls == nullptr) return real(fd, offset, whence);
  Recording recording("lseek");
  recording.fd(fd).number(offset).raw(whence_name(whence));
  return recording.run(off_t{-1}, [&](long long) { return real(fd, offset, whence); });
}
PLATFORM_CALL(off_t, lseek64, (int fd, off_t offset, int whence)) {
  return call_lseek(fd, offset, whence);
}

PLATFORM_CALL(ssize_t, read, (int fd, void *buffer, size_t length)) {
  NEXT(read);
  if (armed_calls == nullptr) return real(fd, buffer, length);
  Recording recording("read");
  recording.fd(fd).number(static_cast<long long>(length));
  return recording.run(ssize_t{-1}, [&](long long limit) {
    size_t count = limit >= 0 && static_cast<size_t>(limit) < length ? static_cast<size_t>(limit) : length;
    return real(fd, buffer, count);
  });
}

PLATFORM_CALL(ssize_t, write, (int fd, const void *buffer, size_t length)) {
  NEXT(write);
  if (armed_calls == nullptr) return real(fd, buffer, length);
  Recording recording("write");
  recording.fd(fd).number(static_cast<long long>(length));
  recording.data(std::string(static_cast<const char *>(buffer), length));
  return recording.run(ssize_t{-1}, [&](long long limit) {
    size_t count = limit >= 0 && static_cast<size_t>(limit) < length ? static_cast<size_t>(limit) : length;
    return real(fd, buffer, count);
  });
}

PLATFORM_CALL(int, close, (int fd)) {
  NEXT(close);
  if (armed_calls == nullptr) return real(fd);
  Recording recording("close");
  recording.fd(fd);
  return recording.run(-1, [&](long long) { return real(fd); });
}

PLATFORM_CALL(int, unlink, (const char *path)) {
  NEXT(unlink);
  if (armed_calls == nullptr) return real(path);
  Recording recording("unlink");
  recording.path(path);
  return recording.run(-1, [&](long long) { return real(path); });
}

PLATFORM_CALL(int, fchmod, (int fd, mode_t mode)) {
  NEXT(fchmod);
  if (armed_calls == nullptr) return real(fd, mode);
  Recording recording("fchmod");
  recording.fd(fd).octal(mode);
  return recording.run(-1, [&](long long) { return real(fd, mode); });
}

PLATFORM_CALL(int, lockf, (int fd, int command, off_t length)) {
  NEXT(lockf);
  if (armed_calls == nullptr) return real(fd, command, length);
  Recording recording("lockf");
  recording.fd(fd).raw(lockf_command(command)).number(length);
  return recording.run(-1, [&](long long) { return real(fd, command, length); });
}
PLATFORM_CALL(int, lockf64, (int fd, int command, off_t length)) {
  return call_lockf(fd, command, length);
}

namespace {

int recorded_fcntl(int fd, int command, void *argument, int (*real)(int, int, ...)) {
  if (armed_calls == nullptr) return real(fd, command, argument);
  Recording recording("fcntl");
  recording.fd(fd);
  switch (command) {
    case F_GETFD:
      recording.raw("F_GETFD");
      break;
    case F_SETFD:
      recording.raw("F_SETFD").number(reinterpret_cast<long>(argument));
      break;
    case F_GETFL:
      recording.raw("F_GETFL");
      break;
    case F_SETFL:
      recording.raw("F_SETFL").hex(reinterpret_cast<unsigned long>(argument));
      break;
    default:
      recording.number(command);
  }
  return recording.run(-1, [&](long long) { return real(fd, command, argument); });
}

}  // namespace

PLATFORM_CALL(int, fcntl, (int fd, int command, ...)) {
  NEXT(fcntl);
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  return recorded_fcntl(fd, command, argument, real);
}
PLATFORM_CALL(int, fcntl64, (int fd, int command, ...)) {
  NEXT(fcntl64);
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  return recorded_fcntl(fd, command, argument, real);
}

// --- Directories ---

PLATFORM_CALL(DIR *, opendir, (const char *path)) {
  NEXT(opendir);
  if (armed_calls == nullptr) return real(path);
  Recording recording("opendir");
  recording.path(path);
  DIR *directory = recording.run(static_cast<DIR *>(nullptr), [&](long long) {
    DIR *fake = Engine::open_directory(recording.calls());
    return fake != nullptr ? fake : real(path);
  });
  if (directory != nullptr) Engine::remember_directory(recording.calls(), directory, path);
  return directory;
}

PLATFORM_CALL(int, readdir_r, (DIR * directory, struct dirent *entry, struct dirent **result)) {
  NEXT(readdir_r);
  if (armed_calls == nullptr) return real(directory, entry, result);
  Recording recording("readdir_r");
  recording.path(Engine::directory_path(recording.calls(), directory).c_str());
  return recording.run(
      0,
      [&](long long) {
        return Engine::is_fake(recording.calls(), directory) ? Engine::read_directory(recording.calls(), entry, result)
                                                             : real(directory, entry, result);
      },
      Recording::kErrorNumber);
}
PLATFORM_CALL(int, readdir64_r, (DIR * directory, struct dirent *entry, struct dirent **result)) {
  return call_readdir_r(directory, entry, result);
}

PLATFORM_CALL(int, closedir, (DIR * directory)) {
  NEXT(closedir);
  if (armed_calls == nullptr) return real(directory);
  Recording recording("closedir");
  recording.path(Engine::directory_path(recording.calls(), directory).c_str());
  return recording.run(-1,
                       [&](long long) { return Engine::is_fake(recording.calls(), directory) ? 0 : real(directory); });
}

// --- Time ---

PLATFORM_CALL(int, gettimeofday, (struct timeval * out, void *zone)) {
  NEXT(gettimeofday);
  if (armed_calls == nullptr) return real(out, zone);
  Recording recording("gettimeofday");
  return recording.run(-1, [&](long long) {
    std::int64_t seconds = 0;
    std::int64_t microseconds = 0;
    if (!Engine::clock(recording.calls(), seconds, microseconds)) return real(out, zone);
    out->tv_sec = seconds;
    out->tv_usec = microseconds;
    return 0;
  });
}

PLATFORM_CALL(int, clock_gettime, (clockid_t id, struct timespec *out)) {
  NEXT(clock_gettime);
  if (armed_calls == nullptr) return real(id, out);
  Recording recording("clock_gettime");
  recording.number(id);
  return recording.run(-1, [&](long long) {
    std::int64_t seconds = 0;
    std::int64_t microseconds = 0;
    if (id != CLOCK_REALTIME || !Engine::clock(recording.calls(), seconds, microseconds)) return real(id, out);
    out->tv_sec = seconds;
    out->tv_nsec = microseconds * 1000;
    return 0;
  });
}

PLATFORM_CALL(struct tm *, localtime_r, (const time_t *clock, struct tm *out)) {
  NEXT(localtime_r);
  if (armed_calls == nullptr) return real(clock, out);
  Recording recording("localtime_r");
  recording.raw(time_text(clock));
  return recording.run(static_cast<struct tm *>(nullptr), [&](long long) { return real(clock, out); });
}

PLATFORM_CALL(char *, ctime_r, (const time_t *clock, char *out)) {
  NEXT(ctime_r);
  if (armed_calls == nullptr) return real(clock, out);
  Recording recording("ctime_r");
  recording.raw(time_text(clock));
  return recording.run(static_cast<char *>(nullptr), [&](long long) { return real(clock, out); });
}

PLATFORM_CALL(char *, ctime, (const time_t *clock)) {
  NEXT(ctime);
  if (armed_calls == nullptr) return real(clock);
  Recording recording("ctime");
  recording.raw(time_text(clock));
  return recording.run(static_cast<char *>(nullptr), [&](long long) { return real(clock); });
}

PLATFORM_CALL(int, nanosleep, (const struct timespec *wanted, struct timespec *left)) {
  NEXT(nanosleep);
  if (armed_calls == nullptr) return real(wanted, left);
  Recording recording("nanosleep");
  recording.number(wanted->tv_sec).number(wanted->tv_nsec);
  return recording.run(-1, [&](long long) { return real(wanted, left); });
}

// --- Network ---

PLATFORM_CALL(int, socket, (int domain, int type, int protocol)) {
  NEXT(socket);
  if (armed_calls == nullptr) return real(domain, type, protocol);
  Recording recording("socket");
  recording.number(domain).hex(static_cast<unsigned>(type)).number(protocol);
  return recording.run(-1, [&](long long) { return real(domain, type, protocol); });
}

PLATFORM_CALL(int, ioctl, (int fd, unsigned long request, ...)) {
  NEXT(ioctl);
  va_list arguments;
  va_start(arguments, request);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  if (armed_calls == nullptr) return real(fd, request, argument);
  Recording recording("ioctl");
  recording.fd(fd);
  if (request == SIOCGIFCONF) {
    recording.raw("SIOCGIFCONF").number(static_cast<struct ifconf *>(argument)->ifc_len);
  } else if (request == SIOCGIFFLAGS) {
    auto *record = static_cast<struct ifreq *>(argument);
    std::string name(record->ifr_name, strnlen(record->ifr_name, sizeof record->ifr_name));
    recording.raw("SIOCGIFFLAGS").text(name.c_str());
  } else {
    recording.hex(request);
  }
  return recording.run(-1, [&](long long) {
    int result = 0;
    return Engine::interface_query(recording.calls(), request, argument, result) ? result : real(fd, request, argument);
  });
}

// --- Environment and process ---

PLATFORM_CALL(char *, getenv, (const char *name)) {
  NEXT(getenv);
  if (armed_calls == nullptr) return real(name);
  Recording recording("getenv");
  recording.text(name);
  return recording.run(static_cast<char *>(nullptr), [&](long long) { return real(name); });
}

PLATFORM_CALL(int, putenv, (char *assignment)) {
  NEXT(putenv);
  if (armed_calls == nullptr) return real(assignment);
  Recording recording("putenv");
  recording.text(assignment).data(assignment == nullptr ? "" : assignment);
  return recording.run(-1, [&](long long) { return real(assignment); });
}

PLATFORM_CALL(unsigned long, getauxval, (unsigned long type)) {
  NEXT(getauxval);
  if (armed_calls == nullptr) return real(type);
  Recording recording("getauxval");
  recording.number(static_cast<long long>(type));
  return recording.run(~0UL, [&](long long) {
    unsigned long value = 0;
    return Engine::auxval(recording.calls(), type, value) ? value : real(type);
  });
}

PLATFORM_CALL(int, getrlimit, (int resource, struct rlimit *out)) {
  NEXT(getrlimit);
  if (armed_calls == nullptr) return real(resource, out);
  Recording recording("getrlimit");
  recording.number(resource);
  return recording.run(
      -1, [&](long long) { return Engine::rlimit_result(recording.calls(), resource, out) ? 0 : real(resource, out); });
}
PLATFORM_CALL(int, getrlimit64, (int resource, struct rlimit *out)) {
  return call_getrlimit(resource, out);
}

PLATFORM_CALL(pid_t, getpid, ()) {
  NEXT(getpid);
  if (armed_calls == nullptr) return real();
  Recording recording("getpid");
  return recording.run(pid_t{-1}, [&](long long) { return real(); });
}

PLATFORM_CALL(pid_t, getppid, ()) {
  NEXT(getppid);
  if (armed_calls == nullptr) return real();
  Recording recording("getppid");
  return recording.run(pid_t{-1}, [&](long long) { return real(); });
}

PLATFORM_CALL(unsigned long, pthread_self, ()) {
  NEXT(pthread_self);
  if (armed_calls == nullptr) return real();
  Recording recording("pthread_self");
  return recording.run(~0UL, [&](long long) { return real(); });
}

// --- Message catalogues ---

PLATFORM_CALL(char *, setlocale, (int category, const char *locale)) {
  NEXT(setlocale);
  if (armed_calls == nullptr) return real(category, locale);
  Recording recording("setlocale");
  recording.number(category).text(locale);
  return recording.run(static_cast<char *>(nullptr), [&](long long) { return real(category, locale); });
}

PLATFORM_CALL(long, catopen, (const char *name, int flag)) {
  NEXT(catopen);
  if (armed_calls == nullptr) return real(name, flag);
  Recording recording("catopen");
  recording.path(name).number(flag);
  return recording.run(-1L, [&](long long) { return real(name, flag); });
}

PLATFORM_CALL(char *, catgets, (long catalogue, int set, int number, const char *fallback)) {
  NEXT(catgets);
  if (armed_calls == nullptr) return real(catalogue, set, number, fallback);
  Recording recording("catgets");
  recording.number(set).number(number).text(fallback);
  return recording.run(static_cast<char *>(nullptr), [&](long long) { return real(catalogue, set, number, fallback); });
}

PLATFORM_CALL(int, catclose, (long catalogue)) {
  NEXT(catclose);
  if (armed_calls == nullptr) return real(catalogue);
  Recording recording("catclose");
  return recording.run(-1, [&](long long) { return real(catalogue); });
}

// --- System Log ---

PLATFORM_CALL(void, openlog, (const char *identity, int options, int facility)) {
  NEXT(openlog);
  if (armed_calls == nullptr) return real(identity, options, facility);
  Recording recording("openlog");
  recording.text(identity).hex(static_cast<unsigned>(options)).number(facility);
  recording.run(-1, [&](long long) {
    if (Engine::forwards_syslog(recording.calls())) real(identity, options, facility);
    return 0;
  });
}

namespace {

__attribute__((format(printf, 2, 0))) void recorded_syslog(int priority, const char *format, va_list arguments,
                                                           void (*real)(int, const char *, va_list)) {
  if (armed_calls == nullptr) return real(priority, format, arguments);
  Recording recording("syslog");
  va_list copy;
  va_copy(copy, arguments);
  std::string text = formatted(format, copy);
  va_end(copy);
  recording.number(priority).text(format).text(text.c_str()).data(text);
  recording.run(-1, [&](long long) {
    if (Engine::forwards_syslog(recording.calls())) real(priority, format, arguments);
    return 0;
  });
}

}  // namespace

extern "C" __attribute__((format(printf, 2, 0))) void call_vsyslog(int, const char *, va_list) __asm__("vsyslog");
extern "C" __attribute__((format(printf, 2, 3))) void call_syslog(int, const char *, ...) __asm__("syslog");

PLATFORM_CALL(void, vsyslog, (int priority, const char *format, va_list arguments)) {
  NEXT(vsyslog);
  recorded_syslog(priority, format, arguments, real);
}

PLATFORM_CALL(void, syslog, (int priority, const char *format, ...)) {
  static decltype(call_vsyslog) *slot;
  va_list arguments;
  va_start(arguments, format);
  recorded_syslog(priority, format, arguments, next(slot, "vsyslog"));
  va_end(arguments);
}

PLATFORM_CALL(void, closelog, ()) {
  NEXT(closelog);
  if (armed_calls == nullptr) return real();
  Recording recording("closelog");
  recording.run(-1, [&](long long) {
    if (Engine::forwards_syslog(recording.calls())) real();
    return 0;
  });
}

// --- Memory ---
// The allocator is reached under its second names, never through dlsym, which may allocate itself.

#ifdef QX_SANITIZER_ALLOCATOR
#define QX_ALLOCATOR(name) __interceptor_##name
#else
#define QX_ALLOCATOR(name) __libc_##name
#endif

extern "C" {
void *QX_ALLOCATOR(malloc)(size_t);
void *QX_ALLOCATOR(calloc)(size_t, size_t);
void *QX_ALLOCATOR(realloc)(void *, size_t);
}

namespace {

// Whether this allocation is to fail; errno is set then.
bool allocation_fails(const char *name) {
  if (armed_calls == nullptr) return false;
  int before = errno;
  platform::Calls *calls = armed_calls;
  armed_calls = nullptr;
  Engine::Decision decision = Engine::allocation(*calls, name);
  armed_calls = calls;
  errno = decision.action == Engine::Action::kFail ? static_cast<int>(decision.value) : before;
  return decision.action == Engine::Action::kFail;
}

}  // namespace

PLATFORM_CALL(void *, malloc, (size_t size)) {
  return allocation_fails("malloc") ? nullptr : QX_ALLOCATOR(malloc)(size);
}
PLATFORM_CALL(void *, calloc, (size_t count, size_t size)) {
  return allocation_fails("calloc") ? nullptr : QX_ALLOCATOR(calloc)(count, size);
}
PLATFORM_CALL(void *, realloc, (void *block, size_t size)) {
  return allocation_fails("realloc") ? nullptr : QX_ALLOCATOR(realloc)(block, size);
}
