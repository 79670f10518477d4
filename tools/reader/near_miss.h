// Names what is wrong with a record that does not verify.
#ifndef TOOLS_READER_NEAR_MISS_H
#define TOOLS_READER_NEAR_MISS_H

#include <vector>

#include "stack.h"
#include "survey.h"

namespace vosk {

// Adds what is wrong at `at` if that is, but for one thing, the start of a record; or, where a record ends at `at`, if
// identifier and time prove that the next one started there. `at` has at least layout::kFieldsAt bytes behind it and
// lies in no record.
void find_near_miss(byte_span bytes, std::size_t at, bool follows_a_record, const inode_fields &inodes,
                    std::vector<damage> &damages);

}  // namespace vosk

#endif
