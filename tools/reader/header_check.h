// Whether a header is one that a writer can have left beside these records.
#ifndef TOOLS_READER_HEADER_CHECK_H
#define TOOLS_READER_HEADER_CHECK_H

#include "stack.h"

namespace vosk {

// The part of a stack file that is known when its header is checked: bytes, header and records in file order.
struct header_check {
  bool wrapped = false;          // judged by the records where header and records disagree
  bool position_trusted = true;  // the recording position divides new records from old ones
  std::size_t unreadable = 0;    // as in `stack`
  std::vector<damage> damages;
};

header_check check_header(byte_span bytes, const stack_header &header, const std::vector<record> &records);

// True if at most one field of the header is out of its range: so far a damaged header can be told from other files.
bool looks_like_header(byte_span bytes, const stack_header &header);

// True if a recording accepts the header: version 0, or one of those that are not checked further, and all in range.
bool header_is_usable(const stack_header &header);

}  // namespace vosk

#endif
