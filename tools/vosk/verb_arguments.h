// What the verbs' command lines share.
#ifndef TOOLS_VOSK_VERB_ARGUMENTS_H
#define TOOLS_VOSK_VERB_ARGUMENTS_H

#include <memory>
#include <string>
#include <vector>

#include "command_line.h"
#include "options.h"

namespace vosk {

// Keeps what the argument library refers to while it parses.
struct verb_arguments {
  virtual ~verb_arguments() = default;
};

using verb_list = std::vector<std::unique_ptr<verb_arguments>>;

// Adds the options that every verb has: how to print. Verbs that look at stacks besides the node's have --dir, too.
void add_output_options(command_line &line, common_options &common);
void add_common(command_line &line, common_options &common);

// `text` with the program's own name, "vosk show" for one, in place of the word PROGRAM.
std::string with_program(std::string text, const std::string &program);

// Each verb's options, stored in the invocation where the verb is the one that is called.
template <class Options>
class verb_of : public verb_arguments {
 protected:
  verb_of(command_line &line, invocation &out, const char *examples, const std::string &program) {
    line.set_footer(with_program(examples, program));
    line.after_words([this, &out] { out.verb = options_; });
  }
  Options options_;
};

// Adds the verb NAME, whose options Verb keeps, to the program vosk.
template <class Verb>
void add_verb(command_line &line, invocation &out, verb_list &verbs, const std::string &name, const char *help) {
  command_line words = line.add_verb(name, help);
  verbs.push_back(std::make_unique<Verb>(words, out, "vosk " + name));
}

// The verbs that read what was recorded.
void add_reading_verbs(command_line &line, invocation &out, verb_list &verbs);

// The verbs that record.
void add_recording_verbs(command_line &line, invocation &out, verb_list &verbs);

// The verbs that keep what was recorded, and the directories that hold it.
void add_keeping_verbs(command_line &line, invocation &out, verb_list &verbs);

// The verb that runs a command.
void add_run_verb(command_line &line, invocation &out, verb_list &verbs);

// The report verb as a program of its own.
void add_report_alone(command_line &line, invocation &out, verb_list &verbs);

}  // namespace vosk

#endif
