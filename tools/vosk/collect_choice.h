// What a collection holds: the stacks of an incident, or all, with the copies that they cite and the log lines about
// it.
#ifndef TOOLS_VOSK_COLLECT_CHOICE_H
#define TOOLS_VOSK_COLLECT_CHOICE_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "detail_output.h"
#include "options.h"
#include "reader/collection.h"
#include "reader/log_source.h"

namespace vosk {

// Opens a copy; there can be more of them than files can be open.
using open_detail = std::function<located_detail()>;

struct collect_choice {
  collection read;                                   // everything that was looked at
  std::map<std::string, const stack_file *> stacks;  // by the name that each gets
  std::map<std::string, open_detail> copies;         // by name; those that are gone, too
  std::map<std::string, std::string> logs;           // by the name that each gets: its lines
  std::vector<log_outcome> log_sources;
  bool too_many = false;              // the logs hold more than can be looked at; the lines are the first
  std::set<std::string> identifiers;  // of the incident
  std::size_t log_lines = 0;

  bool empty() const noexcept { return stacks.empty() && logs.empty(); }
};

collect_choice choose_what_to_collect(const common_options &common, const collect_options &options);

}  // namespace vosk

#endif
