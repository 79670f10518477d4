// Between the definitions of the platform calls and the Calls object that records them; not for test writers.
#ifndef QX_TESTS_SUPPORT_INTERPOSE_ENGINE_H
#define QX_TESTS_SUPPORT_INTERPOSE_ENGINE_H

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/vfs.h>

#include <cerrno>
#include <string>
#include <type_traits>

#include "support/interpose.h"

namespace platform {

// The object that records in this thread, null outside of `during` and while the engine itself works. The storage is
// part of the program's own block: no call is needed to reach it, however early this is.
extern __thread Calls *armed_calls __attribute__((tls_model("initial-exec")));

std::string quoted(const char *text);  // "text" with escapes, null for a null pointer

struct Engine {
  enum class Action { kReal, kFail, kShort, kReturn };
  struct Decision {
    Action action = Action::kReal;
    long long value = 0;
  };

  static bool ignored(const Calls &calls, const Call &call);
  static Decision begin(Calls &calls, Call &call);  // counts, runs the hooks before, looks for a rule
  static void end(Calls &calls, Call call);         // logs, keeps track of descriptors, runs the hooks after
  static Decision allocation(Calls &calls, const char *name);
  static void obtained(Calls &calls, const void *block, std::size_t size);
  static void released(Calls &calls, const void *block);
  static std::string label(const Calls &calls, int fd);
  static std::string path_of(const Calls &calls, int fd);

  // The fakes; false where there is none and the real call is to be made.
  static bool clock(Calls &calls, std::int64_t &seconds, std::int64_t &microseconds);
  static bool statfs_result(Calls &calls, struct statfs *out);
  static bool stat_result(Calls &calls, const Call &call, struct stat *out);
  static DIR *open_directory(Calls &calls);
  static bool is_fake(const Calls &calls, const DIR *directory);
  static int read_directory(Calls &calls, struct dirent *entry, struct dirent **result);
  static bool interface_query(Calls &calls, unsigned long request, void *argument, int &result);
  static bool auxval(const Calls &calls, unsigned long type, unsigned long &value);
  static bool rlimit_result(const Calls &calls, int resource, struct rlimit *out);
  static bool forwards_syslog(const Calls &calls) { return calls.forward_syslog_; }
  static void remember_directory(Calls &calls, const void *handle, std::string path);
  static std::string directory_path(const Calls &calls, const void *handle);
};

// One call on its way through: the object is taken out of the thread, so that nothing it does is itself recorded.
class Recording {
 public:
  explicit Recording(const char *name) : calls_(*armed_calls), errno_(errno) {
    armed_calls = nullptr;
    call_.name = name;
  }
  ~Recording() {
    armed_calls = &calls_;
    errno = errno_;
  }
  Recording(const Recording &) = delete;
  Recording &operator=(const Recording &) = delete;

  Calls &calls() { return calls_; }
  Call &call() { return call_; }

  Recording &path(const char *path) {
    call_.path = path == nullptr ? "" : path;
    return text(path);
  }
  Recording &text(const char *value) { return raw(quoted(value)); }
  Recording &fd(int fd) {
    call_.fd = fd;
    call_.path = Engine::path_of(calls_, fd);
    return raw(Engine::label(calls_, fd));
  }
  Recording &raw(const std::string &value) {
    if (!call_.arguments.empty()) call_.arguments += ", ";
    call_.arguments += value;
    return *this;
  }
  Recording &number(long long value) { return raw(std::to_string(value)); }
  Recording &hex(unsigned long value);
  Recording &octal(unsigned value);
  Recording &data(std::string bytes) {
    call_.data = std::move(bytes);
    return *this;
  }

  // `real` makes the call, moving at most the given number of bytes where that applies. `failure` is what the call
  // returns when it fails; a call that returns the error number itself has kErrorNumber.
  enum Convention { kErrno, kErrorNumber };
  template <class Result, class Real>
  Result run(Result failure, Real real, Convention convention = kErrno) {
    if (Engine::ignored(calls_, call_)) {
      errno = errno_;
      Result result = real(kNoLimit);
      errno_ = errno;
      return result;
    }
    Engine::Decision decision = Engine::begin(calls_, call_);
    Result result = failure;
    errno = errno_;
    switch (decision.action) {
      case Engine::Action::kReal:
        result = real(kNoLimit);
        break;
      case Engine::Action::kShort:
        result = real(decision.value);
        break;
      case Engine::Action::kFail:
        if (call_.name == "close") real(kNoLimit);  // the kernel gives the descriptor up whatever close returns
        errno = static_cast<int>(decision.value);
        if constexpr (std::is_integral_v<Result>) {
          if (convention == kErrorNumber) result = static_cast<Result>(decision.value);
        }
        break;
      case Engine::Action::kReturn:
        if constexpr (std::is_integral_v<Result>) result = static_cast<Result>(decision.value);
        break;
    }
    errno_ = errno;
    bool failed = false;
    if constexpr (std::is_pointer_v<Result>) {
      failed = result == nullptr;
      call_.value = failed ? 0 : 1;
      if (failed) {
        call_.result = "null";
      } else if constexpr (std::is_same_v<Result, char *>) {
        call_.result = quoted(result);
      } else {
        call_.result = "pointer";
      }
    } else {
      failed = convention == kErrorNumber ? result != 0 : result == failure;
      call_.value = static_cast<long long>(result);
      call_.result = std::to_string(result);
    }
    if (failed) call_.error = convention == kErrorNumber ? static_cast<int>(call_.value) : errno_;
    Engine::end(calls_, std::move(call_));
    return result;
  }

  static constexpr long long kNoLimit = -1;

 private:
  Calls &calls_;
  int errno_;
  Call call_;
};

}  // namespace platform

#endif
