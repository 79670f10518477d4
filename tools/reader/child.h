// A program that this one reads from: started by its full path, without a shell, in an environment that it cannot be
// led astray by.
#ifndef TOOLS_READER_CHILD_H
#define TOOLS_READER_CHILD_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "safe_file.h"

namespace vosk {

// Where the system keeps the program; empty if it is not installed. PATH is not asked.
std::string program_path(const std::string &name);

class child {
 public:
  // `arguments[0]` is the full path. `input` becomes its standard input.
  child(const std::vector<std::string> &arguments, int input);
  ~child();
  child(const child &) = delete;
  child &operator=(const child &) = delete;

  // Its standard output; invalid if it could not be started.
  int output() const noexcept { return output_.get(); }

  // Stops it, unless it has ended. Returns what it complained of, empty if it ended well.
  std::string finish();

 private:
  std::string complaint(int status) const;

  pid_t pid_ = -1;
  unique_fd output_, errors_;
  std::string name_;
};

}  // namespace vosk

#endif
