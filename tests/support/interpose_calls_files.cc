// The platform calls on files and directories.
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>

#include "support/interpose_calls.h"

namespace {

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

}  // namespace

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
