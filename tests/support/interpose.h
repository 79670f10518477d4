// The platform calls of the code under test: recorded, and failed, shortened or faked on demand.
//
// Every test program defines the platform calls itself (open, lockf, stat, gettimeofday, ...), so that both the shared
// library's calls and those of objects linked into the program come through here. They go straight to the C library,
// except in the thread and for the time of a `during`, where a platform::Calls object records and changes them:
//
//   #include "support/interpose.h"
//
//   TEST(Clear, StopsAtAFailedWrite) {
//     int fd = ...;
//     platform::Calls calls;
//     calls.fail_nth("write", 2, ENOSPC);                          // plan first ...
//     EXPECT_EQ(calls.during([&] { return fclear(fd, 2500); }), -1);  // ... then the call under test, nothing else
//     EXPECT_THAT(calls.log(), testing::ElementsAre("lseek(5, 0, SEEK_CUR) = 0", "write(5, 1024) = 1024",
//                                                   "write(5, 1024) = -1 ENOSPC"));
//   }
//
// In the log a descriptor that was opened during the recording is written fd1, fd2, ... in the order of opening; others
// by their number. Keep expectations out of `during`: they would be recorded too. Hooks run unrecorded.
//
// A planned failure that never happened fails the test when the object goes, so that no test passes by missing its
// target; allow_unused() takes that back.
//
// Names are the C names; open64, stat64 and the like count under their plain name, vsyslog under syslog. malloc, calloc
// and realloc are counted under their names and under "allocation", can be failed, but are not in the log; unreleased()
// says what is left of them.
//
// Recorded calls: stat fstat fstatat statfs open lseek read write close unlink fchmod lockf fcntl; opendir readdir_r
// closedir; gettimeofday clock_gettime localtime_r ctime_r ctime nanosleep; socket ioctl; getenv putenv getauxval
// getrlimit getpid getppid pthread_self; setlocale catopen catgets catclose; openlog syslog closelog.
// openlog, syslog and closelog are recorded but not passed on, unless forward_syslog() is called.
#ifndef QX_TESTS_SUPPORT_INTERPOSE_H
#define QX_TESTS_SUPPORT_INTERPOSE_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform {

struct Call {
  std::string name;
  std::string arguments;  // as in the log
  std::string result;     // "0", "fd1", "-1 ENOENT", "null", "\"text\""
  long long value = 0;    // the result as a number (1 for a pointer that is not null)
  int error = 0;          // errno where the call failed
  int fd = -1;            // the descriptor concerned, by its number
  std::string path;       // the file concerned, also for calls on a descriptor that was opened during the recording
  std::string data;       // the bytes written, the text logged, the assignment put

  std::string text() const { return name + "(" + arguments + ") = " + result; }
};

struct StatfsFigures {
  std::uint64_t blocks = 0;
  std::uint64_t available = 0;
  std::int64_t block_size = 4096;
};

struct FakeStat {
  unsigned mode = 0100644;  // the whole mode word, file type included
  std::uint64_t inode = 1;
  std::uint64_t device = 1;
  std::int64_t size = 0;
};

struct FakeEntry {
  std::string name;
  std::uint64_t inode = 1;
  unsigned char type = 0;  // DT_UNKNOWN
};

struct FakeInterface {
  std::string name;
  std::string address;  // "10.0.0.1"; for AF_INET6 "::1"
  int flags = 0;        // IFF_UP, IFF_LOOPBACK, ...
  int flags_error = 0;  // errno of the flags query, 0 for success
  int flags_eintr = 0;  // how often the flags query is interrupted first
  int family = 2;       // AF_INET
};

class Calls {
 public:
  Calls();
  ~Calls();
  Calls(const Calls &) = delete;
  Calls &operator=(const Calls &) = delete;

  // Runs `body` with this object recording in the calling thread.
  template <class Body>
  auto during(Body &&body) {
    Armed armed(*this);
    return std::forward<Body>(body)();
  }

  // --- What was seen ---
  const std::vector<Call> &calls() const { return log_; }
  std::vector<std::string> log() const;                                          // every call as text
  std::vector<std::string> log_of(const std::vector<std::string> &names) const;  // only these calls
  std::vector<std::string> log_of_path(std::string_view path) const;             // only calls on this file
  std::vector<std::string> names() const;                                        // the calls' names in order
  int count(std::string_view name) const;                                        // how often, 0 if never
  int count_all() const { return total_; }                                       // of all calls, without allocations
  int faults() const { return faults_; }                                         // planned changes that happened
  std::vector<std::pair<int, std::string>> left_open() const;                    // opened during and not closed
  // The sizes of the blocks that were obtained and not released, in the order of obtaining.
  std::vector<std::size_t> unreleased() const;
  void clear();  // forget the log and all counts

  // --- Failures; n counts from 1; an empty path means any file ---
  void fail_nth(std::string_view name, int n, int error, std::string_view path = {});
  void fail_first(std::string_view name, int times, int error, std::string_view path = {});  // EINTR, EINTR, then real
  void fail_from(std::string_view name, int n, int error, std::string_view path = {});       // the n-th and all later
  void fail_all(std::string_view name, int error, std::string_view path = {});
  // The k-th call of those that can fail at all (see can_fail), whatever its name.
  void fail_kth(int k, int error);
  // The n-th read or write moves only `bytes` bytes, and leaves errno alone.
  void short_nth(std::string_view name, int n, long long bytes, std::string_view path = {});
  void short_all(std::string_view name, long long bytes, std::string_view path = {});
  // The n-th call (0: every call) is not made and returns `value`.
  void return_nth(std::string_view name, int n, long long value, std::string_view path = {});
  void return_all(std::string_view name, long long value) { return_nth(name, 0, value); }
  void allow_unused() { allow_unused_ = true; }
  static bool can_fail(std::string_view name);

  // --- Hooks: n counts from 1, 0 means every call; "" as a name means any call ---
  using Hook = std::function<void(const Call &)>;  // before: no result yet
  void before(std::string_view name, int n, Hook hook, std::string_view path = {});
  void after(std::string_view name, int n, Hook hook, std::string_view path = {});

  // --- Fakes ---
  // gettimeofday and clock_gettime(CLOCK_REALTIME) start here and move on by `step` microseconds with each call.
  void fixed_clock(std::int64_t seconds, std::int64_t microseconds, std::int64_t step = 0);
  // The n-th statfs gets the n-th figures, later ones the last.
  void statfs_figures(std::vector<StatfsFigures> figures);
  // `name` is stat, fstat or fstatat; an empty path means any file. For fstat the path is that of the open.
  void fake_stat(std::string_view name, std::string_view path, FakeStat result);
  void fake_directory(std::vector<FakeEntry> entries);  // what the next opendir finds
  // SIOCGIFCONF and SIOCGIFFLAGS; a `length` is returned instead of the true length of the list.
  void fake_interfaces(std::vector<FakeInterface> interfaces, std::optional<int> length = {});
  void fake_auxval(unsigned long type, unsigned long value);
  void fake_rlimit(int resource, std::uint64_t soft, std::uint64_t hard);
  void forward_syslog() { forward_syslog_ = true; }
  // Calls on this file are neither recorded nor counted nor changed (a trace file, for instance).
  void ignore_path(std::string_view path) { ignored_paths_.emplace_back(path); }
  // Calls of this name are neither recorded nor counted nor changed (getenv, for instance).
  void ignore(std::string_view name) { ignored_names_.emplace_back(name); }

 private:
  friend struct Engine;

  class Armed {
   public:
    explicit Armed(Calls &calls);
    ~Armed();
    Armed(const Armed &) = delete;
    Armed &operator=(const Armed &) = delete;
  };

  struct Rule {
    enum Kind { kFail, kShort, kReturn } kind;
    std::string name;  // empty: any call that can fail
    std::string path;
    int first;
    int last;
    long long value;
    int seen = 0;
    int used = 0;
  };
  struct HookRule {
    bool before;
    std::string name;
    int nth;
    Hook hook;
    std::string path;
    int seen = 0;
  };
  struct StatRule {
    std::string name;
    std::string path;
    FakeStat result;
  };

  void add_rule(Rule::Kind kind, std::string_view name, int first, int last, long long value, std::string_view path);

  std::vector<Call> log_;
  std::map<std::string, int, std::less<>> counts_;
  int total_ = 0;
  int faults_ = 0;
  int opened_ = 0;
  bool allow_unused_ = false;
  bool forward_syslog_ = false;
  std::vector<Rule> rules_;
  std::vector<HookRule> hooks_;
  std::vector<std::string> ignored_paths_;
  std::vector<std::string> ignored_names_;
  struct Descriptor {
    std::string label;
    std::string path;
  };
  std::map<int, Descriptor> descriptors_;
  std::map<const void *, std::string> handles_;  // of opendir
  std::vector<std::pair<const void *, std::size_t>> blocks_;

  struct Clock {
    std::int64_t microseconds;
    std::int64_t step;
  };
  std::optional<Clock> clock_;
  std::vector<StatfsFigures> figures_;
  std::size_t figures_used_ = 0;
  std::vector<StatRule> stats_;
  std::optional<std::vector<FakeEntry>> directory_;
  std::size_t directory_position_ = 0;
  std::optional<std::vector<FakeInterface>> interfaces_;
  std::optional<int> interface_length_;
  std::map<unsigned long, unsigned long> auxvals_;
  std::map<int, std::pair<std::uint64_t, std::uint64_t>> rlimits_;
};

// Sets TZ to UTC for its lifetime, so that local times are known.
class UtcZone {
 public:
  UtcZone();
  ~UtcZone();
  UtcZone(const UtcZone &) = delete;
  UtcZone &operator=(const UtcZone &) = delete;

 private:
  std::optional<std::string> previous_;
};

// Sets environment variables for its lifetime and puts the previous values back; no value removes the variable.
class Environment {
 public:
  Environment() = default;
  ~Environment();
  Environment(const Environment &) = delete;
  Environment &operator=(const Environment &) = delete;
  void set(const std::string &name, const std::string &value);
  void unset(const std::string &name);

 private:
  void keep(const std::string &name);
  std::vector<std::pair<std::string, std::optional<std::string>>> previous_;
};

// "ENOENT" for 2; the number where it has no name.
std::string error_name(int error);

}  // namespace platform

#endif
