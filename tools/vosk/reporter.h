// Prints records and what stands between them in a report.
#ifndef TOOLS_VOSK_REPORTER_H
#define TOOLS_VOSK_REPORTER_H

#include <set>
#include <string>
#include <vector>

#include "options.h"
#include "output.h"
#include "timeline.h"

namespace vosk {

struct chosen_record {
  timed_record record;
  std::string description;
};

struct outside_window {
  std::size_t before = 0, after = 0;
};

class reporter {
 public:
  reporter(const common_options &common, bool verbose, bool paged)
      : common_(common), verbose_(verbose), out_(common, paged) {}

  output &out() { return out_; }
  // Where the records of several nodes are printed, each says its own.
  void note_nodes(const std::vector<stack_file> &files);
  void print(const chosen_record &chosen);
  void print_outside(const outside_window &outside);
  void note(const std::string &text);

 private:
  void print_clock_step(const timed_record &r);
  void print_clock_difference(const timed_record &r);

  const common_options &common_;
  bool verbose_;
  std::set<std::string> nodes_;
  output out_;
};

}  // namespace vosk

#endif
