// The search for an identifier's record that several verbs begin with.
#ifndef TOOLS_VOSK_LOOKUP_H
#define TOOLS_VOSK_LOOKUP_H

#include <optional>
#include <string>
#include <vector>

#include "exit_status.h"
#include "options.h"
#include "output.h"
#include "reader/verdict.h"

namespace vosk {

struct lookup {
  explicit lookup(const std::string &text) : eid(text), search(text) {}

  std::string eid;
  std::optional<identifier> id;  // nothing for what is no identifier
  node_test node = node_test::not_told;
  record_search search;  // of a stack's identifier
  log_findings logged;   // of one of the System Log
  verdict judged;

  bool found() const noexcept { return !search.found().empty() || !logged.records.empty(); }
};

// Where to look besides the copies. The node's stacks are looked through (with `node_only` just for identifiers of this
// node), and the stack that the environment names; `logs` only for identifiers of the System Log.
struct lookup_places {
  bool node_only = false;
  std::vector<std::string> logs;          // empty: the usual ones
  const log_findings *already = nullptr;  // what the logs hold, where they were read before
};

// Takes `text` apart and looks for its record.
lookup look_up(const common_options &common, const std::string &text, const lookup_places &places);

// The logs that were asked for, or the usual ones; and those of the collections among the copies, unless the answer was
// to be none.
std::vector<std::string> logs_to_read(const common_options &common, const std::vector<std::string> &logs);

// Prints what the identifier says and the verdict.
void print_verdict(output &out, const common_options &common, const lookup &looked);

// What the verdict means for the exit status.
void note_verdict(const lookup &looked, exit_status &status);

}  // namespace vosk

#endif
