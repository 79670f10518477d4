// A record in the three forms in which it is printed.
#ifndef TOOLS_VOSK_RECORD_TEXT_H
#define TOOLS_VOSK_RECORD_TEXT_H

#include <string>

#include "options.h"
#include "output.h"
#include "reader/description.h"
#include "reader/json.h"
#include "reader/record.h"

namespace vosk {

// A record and the file that it lies in.
struct placed_record {
  const std::string *path = nullptr;
  const record *what = nullptr;
};

// Time, process[pid], product, source:line, first line of the description, identifier; with the node behind the process
// if it is wanted.
std::string short_line(const output &out, const common_options &common, const record &r, const std::string &description,
                       bool with_node);

// Every field, a line each.
std::string verbose_block(const output &out, const common_options &common, const placed_record &placed,
                          const std::string &description);

// The members of a record's JSON object, from which its bytes can be rebuilt.
void record_members(json_object &object, const placed_record &placed, const std::string &description);

// "mydaemon[4711]"
std::string process_text(const output &out, const record &r);

// "worker.c:12"
std::string source_text(const output &out, const record &r);

std::string time_of(const common_options &common, const record &r);

}  // namespace vosk

#endif
