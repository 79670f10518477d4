// An incident: records that refer to each other, from the first cause to everything that followed from it.
#ifndef TOOLS_READER_INCIDENT_H
#define TOOLS_READER_INCIDENT_H

#include <optional>
#include <string>
#include <vector>

#include "collection.h"
#include "log_record.h"
#include "moment.h"

namespace vosk {

// One recording, in a stack or in the System Log.
struct incident_entry {
  std::string eid;    // a mark that is no identifier where none was made
  std::string cause;  // the identifier that it refers to; empty where it refers to none
  const stack_file *file = nullptr;
  const record *what = nullptr;
  const log_record *logged = nullptr;
};

// The recordings that have an identifier or refer to one, each once: copies of one record are one recording.
std::vector<incident_entry> entries_of(const std::vector<stack_file> &files, const std::vector<log_record> &logged);

// True for the mark of a recording that has no identifier.
bool is_unidentified(const std::string &eid) noexcept;

// One identifier of an incident, in the order in which a tree is printed.
struct incident_node {
  std::string eid;
  std::vector<const incident_entry *> entries;  // none: only referred to, or repeated; several: it was made twice
  std::size_t depth = 0;
  bool last_of_its_cause = true;  // no other follows from the same cause
  bool repeated = false;          // it is above already: references form a loop, or it follows from two causes
  bool refers_to_itself = false;
};

// The whole tree that the identifier belongs to, from its first cause on; what follows from one cause by time. Empty if
// nothing has the identifier and nothing refers to it.
std::vector<incident_node> trace_incident(const std::vector<incident_entry> &entries, const std::string &eid);

// When an identifier was made, if that can be told.
std::optional<moment> made_at(const std::string &eid);

}  // namespace vosk

#endif
