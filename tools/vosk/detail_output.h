// The detail of a record: its text, or the file copy that it cites.
#ifndef TOOLS_VOSK_DETAIL_OUTPUT_H
#define TOOLS_VOSK_DETAIL_OUTPUT_H

#include <functional>
#include <string_view>

#include "exit_status.h"
#include "options.h"
#include "output.h"
#include "reader/log_record.h"
#include "reader/node.h"
#include "reader/safe_file.h"
#include "reader/search.h"

namespace vosk {

// A detail as it was found.
struct located_detail {
  enum { none, text, copy } kind = none;
  std::string text_or_path;
  opened_file file;  // of a copy
};

// Finds the detail of a record. A copy is looked for in the node's own directory, or, where the record lies in a copied
// stack, below the directories of copies.
located_detail locate_detail(const common_options &common, const found_record &found);

// The same for a recording of the System Log, whose identifier was made on `node`.
located_detail locate_detail(const common_options &common, const log_record &found, node_test node);

// Hands the content of a copy to `take` in pieces, until that returns false. False, with errno set, on a read error.
bool read_detail(const opened_file &copy, const std::function<bool(std::string_view)> &take);

// Says what the detail is, and prints its content. Notes in `status` what is gone or cannot be read.
void print_detail(output &out, const common_options &common, located_detail &detail, exit_status &status);

// Writes the content to the file `path`, standard output for "-". False, with a message, if that fails.
bool save_detail(output &out, located_detail &detail, const std::string &path);

}  // namespace vosk

#endif
