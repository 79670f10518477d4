// Which stacks and detail copies are not needed any more, and their removal.
#ifndef TOOLS_VOSK_PRUNER_H
#define TOOLS_VOSK_PRUNER_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "reader/processes.h"
#include "reader/safe_file.h"
#include "reader/stack.h"

namespace vosk {

// Why a file stays: a name for programs, and a sentence.
struct kept_reason {
  const char *name = "";
  std::string text;
};

struct prune_candidate {
  bool is_stack = false;
  std::string name;
  file_facts facts;
  std::optional<kept_reason> kept;
  bool removed = false;
  // Of a stack: who established it, who recorded into it and when last, and the copies that it cites.
  int originator = 0;
  std::map<int, std::int64_t> recorders;
  std::set<std::string> cites;
};

struct prune_limits {
  std::int64_t older_than = 0;             // microseconds
  std::optional<std::uint64_t> max_total;  // bytes
  bool really = true;                      // false: only tell
};

class pruner {
 public:
  explicit pruner(const prune_limits &limits) : limits_(limits), started_(now()) {}

  // Looks at both directories and all processes. False, with a reason, if that cannot be done, or if there is neither
  // directory; then `missing` is set.
  bool look(std::string &why, bool &missing);

  // Copies that a line of these logs cites stay; all, if one of the logs cannot be read.
  void keep_cited_in_logs(const std::vector<std::string> &logs);

  // Removes what may go, the oldest first.
  void remove();

  // By name, the stacks first. Each is removed or has a reason to stay.
  const std::vector<prune_candidate> &files() const noexcept { return files_; }
  std::uint64_t total() const noexcept { return total_; }  // of what remains
  bool failed() const noexcept { return failed_; }         // something could not be read or removed
  std::size_t unreadable_environments() const noexcept { return processes_->unreadable(); }

 private:
  using place = std::pair<moment, std::size_t>;  // when it was written, and which file

  bool open(const char *path, unique_fd &fd, std::string &why, bool &missing);
  void look_at_copies();
  void look_at_stacks();
  void look_at_stack(const std::string &name);
  void take_contents(prune_candidate &stack, const vosk::stack &contents);
  void take_cut_citation(prune_candidate &stack, const record &r);
  void judge_copies();
  void keep(prune_candidate &file, const char *name, std::string text);
  std::optional<kept_reason> used_by(const prune_candidate &stack) const;
  bool read_processes(std::string &why);
  bool wanted(const prune_candidate &file) const;
  void try_to_remove(std::size_t index);
  void after_removal(const prune_candidate &stack);
  void note_failure(prune_candidate &file, const std::string &text);

  const prune_limits limits_;
  const moment started_;
  unique_fd stacks_, dumps_;
  lock_patience patience_;
  std::vector<prune_candidate> files_;
  std::map<std::string, std::size_t> copies_;  // by name
  std::optional<process_table> processes_;
  std::int64_t processes_read_ = 0;                      // milliseconds
  std::map<std::string, std::set<std::size_t>> citing_;  // by a copy's name, the stacks
  std::set<place> open_;                                 // those that may go
  std::uint64_t total_ = 0;
  bool failed_ = false, stack_unread_ = false;
};

}  // namespace vosk

#endif
