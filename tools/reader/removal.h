// Removes a file from a directory in which others make, lock, read and exchange files meanwhile.
#ifndef TOOLS_READER_REMOVAL_H
#define TOOLS_READER_REMOVAL_H

#include <string>

#include "safe_file.h"

namespace vosk {

enum class removal {
  removed,
  locked,   // somebody records
  in_use,   // somebody has it open, or opened it just now
  changed,  // it is not the file any more that was looked at, or not as it was
  gone,     // somebody else removed it
  failed,
};

struct removal_result {
  removal what = removal::failed;
  std::string reason;  // unless it was removed
};

// Removes the file `name` of the directory `dir` if it still is the one that `seen` describes, unchanged, and nobody
// else has it open: whoever opens it in the meantime waits, and finds it in its place again. With `really` false
// everything is tried but the removal. SIGIO must be ignored.
removal_result remove_unused(int dir, const std::string &name, const file_facts &seen, bool really);

}  // namespace vosk

#endif
