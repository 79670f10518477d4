// Finds records by trying every offset.
#ifndef TOOLS_READER_SURVEY_H
#define TOOLS_READER_SURVEY_H

#include <optional>
#include <string>
#include <vector>

#include "stack.h"

namespace vosk {

// The i-node fields (six characters each) that identifiers of this file may have.
using inode_fields = std::vector<std::string>;

struct survey {
  std::vector<record> records;  // in file order, none overlapping
  std::vector<damage> damages;
  inode_fields inodes;
};

survey survey_records(byte_span bytes, const stack_header &header, std::optional<std::uint64_t> inode);

}  // namespace vosk

#endif
