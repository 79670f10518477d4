// The command line of vosk run.

#include "child_stderr.h"
#include "verb_arguments.h"

namespace vosk {

namespace {

constexpr char kRunHelp[] =
    "Run a command as if it were called itself. When it fails, record its command line, status or signal, times and "
    "use of resources, and print the record's identifier on standard error.";
constexpr char kRunExamples[] =
    "The record goes to the Error Stack where there is a usable one, else to the System Log.\n"
    "Examples:\n"
    "  PROGRAM -- backup --full /home\n"
    "  PROGRAM --stderr-tail -- rsync -a src/ node2:dst    with the end of what it said\n"
    "  PROGRAM --cause \"$id\" --id-file id.txt -- sh cleanup.sh\n"
    "Exit status: 0 and others as COMMAND's, 125 failure of vosk before the start, or usage, 126 COMMAND cannot be "
    "started, 127 it is not found; a signal that ends COMMAND ends vosk";

class run_arguments : public verb_of<run_options> {
 public:
  run_arguments(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kRunExamples, program) {
    options_.command = out.command;
    options_.pipe_ignored = out.pipe_ignored;
    line.add("COMMAND", options_.misplaced, "The command and its arguments, behind --");
    line.add("--cause", options_.cause, "The identifier of the incident that a failure follows from", "ID");
    line.add("--id-file", options_.id_file, "Write the identifier to FILE; it is empty where nothing failed", "FILE");
    line.add(
            "--stderr-tail", [this](const std::string &size) { options_.stderr_tail = tail_size(size); },
            "Pass standard error through a pipe and keep its last BYTES (8K; at most 1M) with the record", "BYTES")
        .value_optional();
    line.add_flag("--json", out.common.json, "Print a JSON line about a failure on standard error");
  }

 private:
  static std::size_t tail_size(const std::string &text) {
    if (text.empty()) return stderr_tail::kDefault;
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const std::string unit = text.substr(digits);
    const std::size_t factor = unit == "K" ? 1024 : unit == "M" ? 1024 * 1024 : unit.empty() ? 1 : 0;
    const std::size_t size = digits > 0 && digits <= 7 ? std::stoul(text.substr(0, digits)) * factor : 0;
    if (size == 0 || size > stderr_tail::kMax) throw usage_error("--stderr-tail: 1 to 1M bytes, not '" + text + "'");
    return size;
  }
};

}  // namespace

void add_run_verb(command_line &line, invocation &out, verb_list &verbs) {
  add_verb<run_arguments>(line, out, verbs, "run", kRunHelp);
}

}  // namespace vosk
