// The platform calls that ask for the time, the network, the environment and the process, and those that reach
// catalogues and the System Log.
#include <net/if.h>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/interpose_calls.h"

namespace {

std::string time_text(const time_t *clock) {
  return clock == nullptr ? "null" : std::to_string(*clock);
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
  recording.raw(type == AT_SECURE ? "AT_SECURE" : std::to_string(type));
  return recording.run(~0UL, [&](long long) {
    unsigned long value = 0;
    return Engine::auxval(recording.calls(), type, value) ? value : real(type);
  });
}

PLATFORM_CALL(int, getrlimit, (int resource, struct rlimit *out)) {
  NEXT(getrlimit);
  if (armed_calls == nullptr) return real(resource, out);
  Recording recording("getrlimit");
  recording.raw(resource == RLIMIT_FSIZE ? "RLIMIT_FSIZE" : std::to_string(resource));
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
  recorded_syslog(priority, format, arguments, platform::next_routine(slot, "vsyslog"));
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
