// The lines that say what a stack file covers, what is damaged in it, and what was passed over.
#ifndef TOOLS_VOSK_COVERAGE_H
#define TOOLS_VOSK_COVERAGE_H

#include <string>

#include "exit_status.h"
#include "options.h"
#include "output.h"
#include "reader/collection.h"
#include "reader/json.h"
#include "reader/reclamation.h"

namespace vosk {

// The names given and the copies; where there are none, the stack that the environment names, else the node's.
std::vector<std::string> names_to_read(const std::vector<std::string> &names, const common_options &common);

// The same, but without names always all stacks of the node.
std::vector<std::string> names_to_list(const std::vector<std::string> &names, const common_options &common);

collection read_names(const std::vector<std::string> &names);

// The records made first and last by their identifiers; null where none has one.
struct covered_time {
  const record *first = nullptr, *last = nullptr;
};
covered_time covered_by(const stack &contents);
std::string covered_text(const record *r, const common_options &common);  // "-" for none
void coverage_members(json_object &object, const covered_time &time);
void outlook_members(json_object &object, const push_outlook &outlook);

// What to do about a stack that the standard reclamation has stopped.
inline constexpr char kRemedy[] = "set VOSKRECLAIM=whole for the processes that record into it";

// True if its records name another i-node than the file has.
bool is_copy(const stack_file &file);

void print_coverage(output &out, const common_options &common, const stack_file &file);

// One line for each damage.
void print_damage(output &out, const common_options &common, const stack_file &file);

// Names the files that are no stacks or cannot be read, and notes in `status` what was named but cannot be had.
void print_refused(output &out, const common_options &common, const collection &found, exit_status &status);

}  // namespace vosk

#endif
