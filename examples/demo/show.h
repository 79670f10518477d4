// How the demo shows what its programs left behind.
#pragma once

#include <string>
#include <vector>

namespace demo {

struct noted_record {
  std::string what;  // who made the record
  std::string identifier;
};

// A text with its control characters made visible, as ^A.
std::string visible(const std::string &text);

// The list that the programs left in `directory`.
std::vector<noted_record> noted_records(const std::string &directory);

// Takes an identifier apart and prints what it says. Returns the stack file that it names, if it does.
std::string show_decoded(const noted_record &record);

// Prints the lines of a text file, `limit` at most, without the zero bytes that fill a trace file up.
void show_file(const std::string &path, int limit);

}  // namespace demo
