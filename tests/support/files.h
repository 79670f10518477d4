// Small helpers around files: read, write, list, compare; and the loud way to say that a test cannot run here.
#ifndef QX_TESTS_SUPPORT_FILES_H
#define QX_TESTS_SUPPORT_FILES_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Skips the test with a reason, or fails it where CI is set: there everything must run.
#define CANNOT_RUN_HERE(reason)                                              \
  do {                                                                       \
    if (files::in_ci()) FAIL() << "cannot run here, but must: " << (reason); \
    GTEST_SKIP() << "CANNOT RUN HERE: " << (reason);                         \
  } while (false)

namespace files {

bool in_ci();

std::optional<std::string> read(const std::string &path);  // the bytes, none where it cannot be read
bool write(const std::string &path, std::string_view bytes);
std::vector<std::string> list(const std::string &directory);  // the names in order, without "." and ".."
bool exists(const std::string &path);

// Descriptors open in this process: number and what they refer to. Compare before and after a call.
std::map<int, std::string> descriptors();

// Whether any process holds a lockf lock on the file. Gives up this process's own locks on it.
bool locked(const std::string &path);

// Where two byte strings differ, with a few bytes of each in hex; empty where they are equal.
std::string difference(std::string_view expected, std::string_view actual);

// A fresh directory, removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  const std::string &path() const { return path_; }
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

 private:
  std::string path_;
};

// Binary integers as they lie in files.
std::string u32(std::uint32_t value);
std::string i32(std::int32_t value);
std::string u64(std::uint64_t value);

}  // namespace files

#endif
