// Writes an archive in the tar format, the same bytes for the same contents.
#ifndef TOOLS_VOSK_ARCHIVE_WRITER_H
#define TOOLS_VOSK_ARCHIVE_WRITER_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "reader/archive_format.h"
#include "reader/moment.h"

namespace vosk {

// Each call returns false when the archive could not be written; `error` then is the error number, and nothing further
// is written. Signals that end the program end the writing, too: see stop_on_signals.
class archive_writer {
 public:
  explicit archive_writer(int fd) : fd_(fd) {}

  // A member begins: a regular file of `size` bytes, less than 8 GiB, which are handed on by `write`, in pieces.
  bool begin(std::string_view name, std::int64_t size, uid_t owner, moment modified);
  bool write(std::string_view piece);
  bool end();  // zero bytes take the place of what is missing

  bool finish();

  int error() const noexcept { return error_; }

 private:
  bool put(std::string_view bytes);
  bool fill(std::int64_t count);
  bool put_header(std::string_view name, std::int64_t size, uid_t owner, moment modified, char type);

  int fd_, error_ = 0;
  std::int64_t left_ = 0, padding_ = 0;  // of the member
};

// From here on the signals that ask a program to end only make writing fail, with EINTR, so that what was written can
// be removed.
void stop_on_signals();

// Ends by the signal that came, if one did.
void end_by_signal();

}  // namespace vosk

#endif
