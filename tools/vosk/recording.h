// Recording an incident with libqx_vosk: for the shell that runs this program, or for this program itself.
//
//   incident what;
//   what.format = as_format("the backup failed");
//   fill_in_defaults(what, recorder::parent);
//   const recording made = record(what, recorder::parent, road::automatic);
//   complain_about(made, false);
#ifndef TOOLS_VOSK_RECORDING_H
#define TOOLS_VOSK_RECORDING_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vosk {

enum class road { stack, log, automatic };  // automatic: the Error Stack where it is usable, else the System Log
enum class recorder { parent, self };       // as whom a record is made

// Texts that are empty are given defaults by fill_in_defaults, so that nothing is missing in an ordinary record.
struct incident {
  std::string cause;  // identifier of an earlier incident, or empty
  std::string resource, product, source, version;
  int line = 1;
  std::string catalogue;
  int set = 0, number = 0;  // 0 and 0 is no message of any catalogue
  std::string format;       // of the message; checked, or made by as_format of its text
  std::vector<std::string> arguments;
  std::string detail, detail_file;  // one of them, or none
  bool detail_is_default = false;   // cut rather than that the record be over length
  int event_type;                   // for the System Log
  std::uint32_t template_id = 0;

  incident();
};

struct recording {
  bool made = false;
  road where = road::stack;  // never automatic
  std::string identifier;    // empty where there is none
  int code = 0;              // the library's result: an attention where the record was made, else an error
  std::string text;          // and its text; empty where code is 0
  bool cut = false;          // the end of the message, or of what follows it, is missing
  // With road::automatic: why the record is not in the Error Stack.
  int stack_code = 0;
  std::string stack_text;
};

void fill_in_defaults(incident &what, recorder who);

// Records, with the process environment prepared where the library needs that: an Error Stack that an ancestor owns is
// inherited by this process, for the recorder; the System Log's variables are set where they are missing. So it is
// called once, after any child process has been started.
recording record(const incident &what, recorder who, road way);

// What a person should know of it, on standard error: the last attention or the error, in a line, or `whole`.
void complain_about(const recording &made, bool whole);

// The line that --json prints.
std::string recording_line(const recording &made);

}  // namespace vosk

#endif
