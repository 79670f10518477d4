// What the command line asks for, verb by verb. Filled by arguments.cc.
#ifndef TOOLS_VOSK_OPTIONS_H
#define TOOLS_VOSK_OPTIONS_H

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "options_recording.h"
#include "options_run.h"

namespace vosk {

// A command line that cannot be done: exit status 2.
class usage_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What every verb understands.
struct common_options {
  bool json = false, utc = false, raw = false, no_pager = false;
  std::string color = "auto";
  std::vector<std::string> copies;  // --dir: directories with stacks copied from this or other nodes
};

struct record_filters {
  std::string since, until, around;  // as typed
  std::vector<std::string> processes, products, sources, messages, patterns;
  std::vector<unsigned> pids;
  bool inverted = false;
};

struct report_options {
  std::vector<std::string> names;
  std::string format = "short";
  record_filters filters;
  std::optional<std::size_t> last;
  bool reverse = false, follow = false;
  bool only_new = false;  // follow: leave out what is there already
  bool polling = false;   // follow: look again and again, as where the kernel tells no changes
};

struct trace_options {
  std::string identifier;
  std::vector<std::string> logs;  // --log
};

struct verify_options {
  std::vector<std::string> names;
};

struct annotate_options {
  std::string file;  // empty or "-": standard input
};

struct detail_options {
  std::string identifier, output_file;
  std::vector<std::string> logs;
  bool node_only = false;
};

struct collect_options {
  std::string identifier, output_file;
  bool all = false;
  std::vector<std::string> logs;  // empty: the usual ones
};

struct prune_options {
  std::string older_than, max_total;  // as typed
  std::vector<std::string> logs;
  bool dry_run = false;
};

struct doctor_options {};

struct list_options {
  std::vector<std::string> names;
  bool failed = false;  // only stacks that refuse the next recording
};

struct show_options {
  std::string identifier;
  std::vector<std::string> logs;
  bool node_only = false, detail = false;
};

struct invocation {
  std::string program = "vosk";
  common_options common;
  std::vector<std::string> command;  // run: what stands behind "--"
  bool pipe_ignored = false;         // SIGPIPE was, when the program was started
  std::variant<std::monostate, annotate_options, collect_options, detail_options, doctor_options, env_options,
               list_options, prune_options, push_options, report_options, run_options, show_options, trace_options,
               verify_options>
      verb;
};

}  // namespace vosk

#endif
