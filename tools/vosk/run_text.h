// What is recorded of a command that failed.
#ifndef TOOLS_VOSK_RUN_TEXT_H
#define TOOLS_VOSK_RUN_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "child.h"
#include "child_stderr.h"
#include "reader/json.h"

namespace vosk {

// The command line as it could be typed, control characters made visible.
std::string command_text(const std::vector<std::string> &command);

// `text`, its end replaced by "..." where it is longer than `limit` bytes.
std::string cut_text(std::string_view text, std::size_t limit);

// "exit status 3", "killed by signal 11 (SIGSEGV), core dumped", "cannot be started: Permission denied"
std::string end_text(const child_end &end);

// The whole in one line that fits into a record.
std::string run_summary(const std::vector<std::string> &command, const child_end &end);

// A line for each fact; command and directory cut to `limit` bytes each.
std::string run_detail(const std::vector<std::string> &command, const child_end &end, std::size_t limit);

// The heading above what the command wrote.
std::string tail_heading(const stderr_tail::excerpt &tail);

// True if the detail files of records can be copied to where they are kept.
bool can_keep_files();

void run_members(json_object &object, const std::vector<std::string> &command, const child_end &end);

}  // namespace vosk

#endif
