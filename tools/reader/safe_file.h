// Opens and reads files in directories where anybody can plant anything: no link is followed, nothing but a regular
// file is ever opened, nothing blocks, nothing is written.
#ifndef TOOLS_READER_SAFE_FILE_H
#define TOOLS_READER_SAFE_FILE_H

#include <fcntl.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "moment.h"

namespace vosk {

class unique_fd {
 public:
  explicit unique_fd(int fd = -1) noexcept : fd_(fd) {}
  unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  unique_fd &operator=(unique_fd &&other) noexcept;
  ~unique_fd();
  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  int fd_;
};

struct file_facts {
  std::uint64_t inode = 0, device = 0;
  uid_t owner = 0;
  std::int64_t size = 0;
  moment modified;
  std::optional<moment> birth;  // where the file system knows it
};

enum class outcome {
  read,
  skipped,  // not what is looked for: a link, a device, too large
  missing,
  failed,
};

// An open regular file, or why there is none.
struct opened_file {
  outcome result = outcome::failed;
  std::string reason;  // unless result is `read`
  unique_fd fd;
  file_facts facts;
  std::int64_t content_at = 0;  // of a file in an archive, which `fd` then is: where its `facts.size` bytes begin
  bool packed = false;
};

// Opens `name` in the directory `dir` (AT_FDCWD for any path), for reading unless `access` says otherwise.
opened_file open_regular(int dir, const char *name, int access = O_RDONLY);

// What a descriptor stands for. False, with errno set, if that cannot be told.
bool facts_of(int fd, file_facts &facts);

// How long locks may be waited for: at most 100 ms a file, and not much more for ten thousand locked files.
class lock_patience {
 public:
  // Takes a shared lock on the whole file. False if it could not be had in time.
  bool lock(int fd);

 private:
  std::int64_t left_ = 1000;  // milliseconds for all files
};

struct file_bytes {
  outcome result = outcome::failed;
  std::string reason;
  std::vector<unsigned char> bytes;
  file_facts facts;
  bool steady = true;  // false: could not be locked, and changed while it was read
};

// Reads a file of at most `limit` bytes, under a shared lock or, where that cannot be had, until two readings agree.
file_bytes read_small_file(int dir, const char *name, std::size_t limit, lock_patience &patience);

// "Permission denied" and the like, independent of the locale.
std::string error_text(int error);

}  // namespace vosk

#endif
