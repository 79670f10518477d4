// vosk push and vosk log: record an incident for the process that calls this program.

#include <charconv>
#include <csignal>
#include <iterator>
#include <limits>

#include "detail_source.h"
#include "exit_status.h"
#include "include/qx_vosk.h"
#include "message_format.h"
#include "output.h"
#include "reader/identifier.h"
#include "recording.h"
#include "verbs.h"

namespace vosk {

namespace {

template <class Number>
Number number_in(const std::string &text, int base, const std::string &option) {
  Number value{};
  const auto read = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size())
    throw usage_error(option + " is no number in its range");
  return value;
}

int event_type_of(const std::string &name) {
  // In the order of their numbers.
  static constexpr std::string_view kNames[] = {"emerg", "error", "state", "perf", "trace", "recov", "debug"};
  int number = 0;
  while (kNames[number] != name) ++number;
  return number;
}

road road_of(const std::string &name) {
  if (name == "log") return road::log;
  return name == "auto" ? road::automatic : road::stack;
}

void take_message(const push_options &options, incident &what) {
  if (options.format) {
    check_format(*options.format, options.arguments.size());
    what.format = *options.format;
    what.arguments = options.arguments;
  } else if (options.message) {
    what.format = as_format(*options.message);
  } else {
    throw usage_error("a message is needed: MESSAGE or --format");
  }
}

void take_catalogue_message(const push_options &options, incident &what) {
  what.catalogue = options.catalogue;
  if (options.catalogue_message.empty()) return;
  const std::string &text = options.catalogue_message;
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) throw usage_error("--msg is SET/NUMBER");
  what.set = number_in<int>(text.substr(0, slash), 10, "--msg");
  what.number = number_in<int>(text.substr(slash + 1), 10, "--msg");
  if (what.set < 0 || what.number < 0) throw usage_error("--msg is SET/NUMBER, both 0 or more");
}

incident incident_of(const push_options &options) {
  incident what;
  take_message(options, what);
  take_catalogue_message(options, what);
  if (!options.cause.empty() && !decode_identifier(options.cause))
    throw usage_error("--cause is no identifier: 42 characters are needed");
  what.cause = options.cause;
  what.resource = options.resource;
  what.product = options.product;
  what.source = options.source;
  what.version = options.version;
  // Some shells have no LINENO.
  if (!options.line.empty()) what.line = number_in<int>(options.line, 10, "--line");
  if (what.line < 1) throw usage_error("--line is a number from 1 on");
  what.detail = options.detail;
  what.detail_file = options.detail_file;
  what.event_type = event_type_of(options.event_type);
  what.template_id = number_in<std::uint32_t>(options.template_id, 16, "--template");
  fill_in_defaults(what, recorder::parent);
  return what;
}

// An argument that is longer than the stack keeps.
constexpr std::size_t kLongestArgument = 64;

void complain_about_arguments(const incident &what) {
  for (std::size_t i = 0; i < what.arguments.size(); ++i)
    if (what.arguments[i].size() > kLongestArgument)
      complain("argument " + std::to_string(i + 1) + " is kept to its first " + std::to_string(kLongestArgument) +
               " bytes");
}

// The details that are not in a file yet. What cannot be read is left to the library, which records all the same.
detail_source details_of(const incident &what) {
  try {
    detail_source details = detail_source::of_file(what.detail_file);
    if (details.cut()) complain("the details are kept to their first 16 MiB");
    return details;
  } catch (const std::runtime_error &error) {
    complain(error.what());
    // Never "-" itself, since a file may have that name; nor standard input, which is the null device where it was
    // closed.
    return detail_source::of_name(what.detail_file == "-" ? "/dev/stdin/" : what.detail_file);
  }
}

}  // namespace

int push(const common_options &common, const push_options &options) {
  // A limit on the size of files shall cost the details, not the record.
  (void)std::signal(SIGXFSZ, SIG_IGN);
  incident what = incident_of(options);
  const detail_source details = details_of(what);
  what.detail_file = details.path();
  const road way = road_of(options.road);
  const recording made = record(what, recorder::parent, way);
  if (made.made && made.where == road::stack) complain_about_arguments(what);
  complain_about(made, options.verbose);
  if (!made.made && way == road::stack) complain("with --road=auto the System Log takes what the Error Stack does not");
  output out(common, false);
  if (common.json)
    out.write(recording_line(made));
  else if (!made.identifier.empty())
    out.line(made.identifier);
  (void)out.finish();  // the record is made, whoever hears of it
  return made.made ? kExitFine : kExitFailure;
}

}  // namespace vosk
