// What the command line asks of the verbs that record.
#ifndef TOOLS_VOSK_OPTIONS_RECORDING_H
#define TOOLS_VOSK_OPTIONS_RECORDING_H

#include <optional>
#include <string>
#include <vector>

namespace vosk {

struct env_options {
  enum class action { create, inherit, log, show } what = action::show;
  std::string name;
  std::optional<int> process;
  bool keep_newest = false;
};

struct push_options {
  std::optional<std::string> message, format;
  std::vector<std::string> arguments;
  std::string cause, detail, detail_file;
  std::string resource, product, source, version, line, catalogue, catalogue_message;  // SET/NUMBER
  std::string road = "stack";                                                          // stack, log or auto
  std::string event_type = "error";
  std::string template_id = "0";  // hexadecimal
  bool verbose = false;
};

}  // namespace vosk

#endif
