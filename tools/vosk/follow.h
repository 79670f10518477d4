// vosk report -f
#ifndef TOOLS_VOSK_FOLLOW_H
#define TOOLS_VOSK_FOLLOW_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "exit_status.h"
#include "filter.h"
#include "reader/description.h"
#include "reader/watcher.h"
#include "reporter.h"

namespace vosk {

// Prints the records that appear in stacks, each once, until nobody reads any more.
class follower {
 public:
  // Changes are watched from here on, so that what is read next misses none.
  follower(const common_options &common, const report_options &options, const std::vector<std::string> &names);

  // Takes the records of files that were read as printed, or as not to be printed.
  void skip(const std::vector<stack_file> &files);

  void run(reporter &to, const time_window &window, const record_filter &filter, exit_status &status);

 private:
  bool is_new(const std::string &path, const stack_file &file, const record &r);
  void forget_what_is_gone(const stack_file &file);
  void print_new(reporter &to, const std::vector<stack_file> &files, const time_window &window,
                 const record_filter &filter);

  const common_options &common_;
  watcher watcher_;
  describer descriptions_;
  std::map<std::string, std::set<std::uint64_t>> seen_;  // by file, the records' marks
};

}  // namespace vosk

#endif
