// Runs the built tools as a user would, under a fixed zone and locale.
#ifndef TESTS_TOOLS_TOOL_H
#define TESTS_TOOLS_TOOL_H

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "reader/builder.h"
#include "tools/json.h"

namespace tool {

struct result {
  int status = -1;  // exit status; 1000 + n when killed by signal n
  std::string out, err;
};

struct options {
  std::map<std::string, std::string> environment;  // besides TZ=UTC and LC_ALL=C.UTF-8
  std::string input;                               // standard input
  std::string out_file;                            // standard output, instead of a pipe
  bool powerless = false;                          // file modes count, for root too
  int timeout = 30;                                // seconds, then it is killed: 1009

  static options with(std::map<std::string, std::string> environment);
  static options to(std::string out_file);
  static options without_power();
};

// `arguments[0]` is "vosk" or "vkstkrpt".
result run(const std::vector<std::string> &arguments, const options &how = {});

// The processor time of the fastest of several runs, in milliseconds: what a command needs, whatever else this machine
// does. Each result is handed to `check`.
double milliseconds_of(const std::vector<std::string> &arguments, const std::function<void(const result &)> &check);

// Writes a stack file.
void write_stack(const std::string &path, const builder::bytes &bytes);

// The i-node number of a file.
std::uint64_t inode_of(const std::string &path);

}  // namespace tool

#endif
