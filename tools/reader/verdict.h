// Where the record of an identifier is, or why it cannot be shown.
#ifndef TOOLS_READER_VERDICT_H
#define TOOLS_READER_VERDICT_H

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "log_search.h"
#include "node.h"
#include "search.h"

namespace vosk {

enum class verdict_kind {
  present,
  ambiguous,          // several different records have the identifier
  overwritten,        // the file has wrapped since, or the record was cleared
  never_stored,       // the file never wrapped, is unbroken, and does not hold it
  damaged,            // the file is broken where the record can have been
  inode_reused,       // the file that has the i-node now was made later
  copied_before,      // only a copy is there, with nothing as late as the identifier
  file_gone,          // made on this node, and no stack has the i-node
  other_node,         // the address is not one of this node's now
  node_not_told,      // no address, or the loopback one
  not_searched,       // the stacks could not be looked through
  error_template,     // made under an error template; no record here is
  not_in_logs,        // of the System Log, and in none of the sources searched
  logs_not_readable,  // the same, and not all sources could be read
  not_an_identifier,
};

// "present", "ambiguous" and so on, as in JSON.
std::string_view name_of(verdict_kind kind) noexcept;

// The same in a sentence.
std::string_view sentence_of(verdict_kind kind) noexcept;

// One fact that the verdict rests on.
struct evidence {
  std::string name;  // in JSON; with blanks for '_' in text
  std::variant<std::string, moment, std::size_t> value;
};

struct verdict {
  verdict_kind kind = verdict_kind::not_an_identifier;
  std::vector<evidence> facts;
};

// Where to look for a stack identifier's record.
struct search_places {
  std::string node_stacks;          // the node's own directory; empty: not looked at
  std::vector<std::string> others;  // files and directories, with copies or not
};

// What shows that a file was made after the identifier: its birth, else the time in its name, else its first record. Of
// a copy, which has another i-node than the identifier names, only the last is evidence.
std::optional<evidence> made_after(const identifier &id, const stack_file &file);

// Judges what was found of an identifier of the System Log.
verdict judge_logged(const log_findings &found);

// Looks for the record of `eid`, an identifier of a stack, whose fields are `id`, and judges what was found. `search`
// keeps the records.
verdict judge(const identifier &id, node_test node, const search_places &places, record_search &search);

}  // namespace vosk

#endif
