// Recordings of the System Log, and the logs themselves, in text and JSON.
#ifndef TOOLS_VOSK_LOG_TEXT_H
#define TOOLS_VOSK_LOG_TEXT_H

#include <string>
#include <vector>

#include "exit_status.h"
#include "options.h"
#include "output.h"
#include "reader/json.h"
#include "reader/log_record.h"
#include "reader/log_search.h"

namespace vosk {

// Every field, a line each, of a recording that was asked for: its identifier is whole.
std::string log_block(const output &out, const common_options &common, const log_record &r);

void log_members(json_object &object, const log_record &r);

// "orders[4711]"
std::string process_text(const output &out, const log_record &r);

// "file.c:321", or the location as it stands
std::string source_text(const output &out, const log_record &r);

// Names the logs that could not be read. For logs that were asked for that is a failure.
void print_unreadable_logs(output &out, const common_options &common, const log_findings &found, bool asked_for,
                           exit_status &status);

}  // namespace vosk

#endif
