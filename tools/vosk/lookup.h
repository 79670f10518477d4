// The search for an identifier's record that several verbs begin with.
#ifndef TOOLS_VOSK_LOOKUP_H
#define TOOLS_VOSK_LOOKUP_H

#include <optional>
#include <string>

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
  record_search search;
  verdict judged;
};

// Takes `text` apart and looks for its record in the node's stacks (with `node_only` just for identifiers of this
// node), the stack that the environment names, and the copies.
lookup look_up(const common_options &common, const std::string &text, bool node_only);

// Prints what the identifier says and the verdict.
void print_verdict(output &out, const common_options &common, const lookup &looked);

// What the verdict means for the exit status.
void note_verdict(const lookup &looked, exit_status &status);

}  // namespace vosk

#endif
