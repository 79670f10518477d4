// The lines that say what a stack file covers, what is damaged in it, and what was passed over.
#ifndef TOOLS_VOSK_COVERAGE_H
#define TOOLS_VOSK_COVERAGE_H

#include <string>

#include "exit_status.h"
#include "options.h"
#include "output.h"
#include "reader/collection.h"
#include "reader/json.h"

namespace vosk {

// The names given and the copies; where there are none, the stack that the environment names, else the node's.
std::vector<std::string> names_to_read(const std::vector<std::string> &names, const common_options &common);

collection read_names(const std::vector<std::string> &names);

void print_coverage(output &out, const common_options &common, const stack_file &file);

// One line for each damage.
void print_damage(output &out, const common_options &common, const stack_file &file);

// Names the files that are no stacks or cannot be read, and notes in `status` what was named but cannot be had.
void print_refused(output &out, const common_options &common, const collection &found, exit_status &status);

}  // namespace vosk

#endif
