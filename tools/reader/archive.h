// Archives in the tar format, read in place: nothing is ever unpacked. Every byte of them can be anybody's.
#ifndef TOOLS_READER_ARCHIVE_H
#define TOOLS_READER_ARCHIVE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "moment.h"

namespace vosk {

// A regular file in an archive. Its name is relative and has no "..".
struct archive_member {
  std::string name;
  std::int64_t offset = 0, size = 0;  // of its content, which lies in the archive
  uid_t owner = 0;
  moment modified;

  std::string_view base_name() const noexcept;
  bool is_in(std::string_view directory) const noexcept;  // directly in a directory of this name
};

struct archive_contents {
  std::vector<archive_member> members;
  std::string damage;  // why it could not be read to its end; what was read before it counts
};

// True if the file begins as an archive does.
bool is_archive(int fd);

// What is in an archive. Members that are no regular files, or have other names, are passed over.
archive_contents list_archive(int fd);

// The content of a member. False, with errno set, if it cannot be read.
bool read_member(int fd, const archive_member &member, std::vector<unsigned char> &bytes);

}  // namespace vosk

#endif
