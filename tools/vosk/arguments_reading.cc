// The command lines of the verbs that read.

#include "verb_arguments.h"

namespace vosk {

namespace {

constexpr char kReportHelp[] =
    "Show the records of stack files, and before them what each file covers. Without FILE those of the stack that "
    "VOSKSTACK "
    "names, else of all under /var/adm/vosk/stacks.";
constexpr char kReportExamples[] =
    "Examples:\n"
    "  PROGRAM                                       everything on this node\n"
    "  PROGRAM --since -10m --process orderd         the last ten minutes of one service\n"
    "  PROGRAM -f --new                              what is recorded from now on\n"
    "  PROGRAM -v -n 1 STACKFILE                     every field of the newest record\n"
    "  PROGRAM --around IDENTIFIER=30s --dir COPIES  around an incident, on all nodes\n"
    "Exit status: 0 shown, 1 failure, 2 usage, 3 damage seen, 4 no record to show";
constexpr char kAnnotateHelp[] =
    "Pass a text through and add, under each line that holds identifiers, what they say and which records they belong "
    "to. "
    "With --json print only that, one line for each identifier.";
constexpr char kAnnotateExamples[] =
    "Examples:\n"
    "  tail -f /var/log/syslog | PROGRAM\n"
    "  PROGRAM --dir COPIES incident.log\n"
    "Exit status: 0 done, 1 failure, 2 usage, 3 a record is damaged, 4 FILE is missing";
constexpr char kDetailHelp[] =
    "Show the detail of an identifier's record: the copy of the detail file that it cites, with its owner and size, or "
    "its "
    "text.";
constexpr char kDetailExamples[] =
    "Examples:\n"
    "  PROGRAM IDENTIFIER\n"
    "  PROGRAM -o core.txt IDENTIFIER    save it\n"
    "Exit status: 0 shown, 1 failure, 2 usage, 3 the record is damaged, 4 no record, or the file is gone";
constexpr char kListHelp[] =
    "Print a line for each stack: its file's owner, the process that established it, what it holds, and whether it "
    "takes the "
    "next recording. Without FILE of all under /var/adm/vosk/stacks.";
constexpr char kListExamples[] =
    "Examples:\n"
    "  PROGRAM             all stacks of this node\n"
    "  PROGRAM --failed    those that refuse the next recording\n"
    "Exit status: 0 listed, 1 failure, 2 usage, 3 damage seen, 4 nothing to list";
constexpr char kShowHelp[] =
    "Take an identifier apart and show its record, or say why it cannot be shown. The stacks of this node are looked "
    "through, and those below each --dir; for an identifier of the System Log, its logs.";
constexpr char kShowExamples[] =
    "Examples:\n"
    "  PROGRAM 75Oh2...2zIZ/.7S..XO.8....................\n"
    "  PROGRAM --dir COPIES IDENTIFIER    also in copies from other nodes\n"
    "  PROGRAM --log FILE IDENTIFIER      in a log that was copied or is kept elsewhere\n"
    "Exit status: 0 shown, 1 failure, 2 usage, 3 the record is damaged, 4 there is no record to show";
constexpr char kTraceHelp[] =
    "Show the whole incident that an identifier belongs to: back to the first cause, and from there everything that "
    "followed, over all stacks and logs of this node and the stacks below each --dir.";
constexpr char kTraceExamples[] =
    "Examples:\n"
    "  PROGRAM IDENTIFIER                                  on this node\n"
    "  PROGRAM --dir COPIES --log COPIES/log IDENTIFIER    across nodes\n"
    "  PROGRAM --log none IDENTIFIER                       only the stacks\n"
    "Exit status: 0 shown, 1 failure, 2 usage, 3 a record is damaged, 4 nothing has the identifier or refers to it";
constexpr char kVerifyHelp[] =
    "Name what is damaged in stack files: file, offset, field, value and what is allowed. Of sound files nothing is "
    "said.";
constexpr char kVerifyExamples[] =
    "Examples:\n"
    "  PROGRAM             all stacks of this node\n"
    "  PROGRAM STACKFILE   one of them\n"
    "Exit status: 0 no damage, 1 failure, 2 usage, 3 damage seen, 4 no stack file";

void add_names(command_line &line, std::vector<std::string> &names) {
  line.add("FILE", names, "Stack files, or directories of them");
}

void add_filters(command_line &line, record_filters &filters) {
  line.add("--since", filters.since, "From this time on: 2026-11-16 07:11, 07:11, yesterday, -2h", "TIME");
  line.add("--until", filters.until, "Up to this time", "TIME");
  line.add("--around", filters.around, "Around the time of an identifier, 5m before and after", "ID[=SPAN]");
  line.add_list("--process", filters.processes, "Of this process name; may be a pattern with * ? []", "NAME");
  line.add_list("--pid", filters.pids, "Of this process id", "PID");
  line.add_list("--product", filters.products, "Of this product; may be a pattern", "NAME");
  line.add_list("--source", filters.sources, "Of this source, FILE or FILE:LINE; may be a pattern", "FILE");
  line.add_list("--msg", filters.messages, "With this message", "SET/NUMBER");
  line.add_list("--grep", filters.patterns, "Whose description or detail matches", "REGEX");
  line.add_flag("--not", filters.inverted, "Those that the filters (the times apart) do not select");
}

class annotate_verb : public verb_of<annotate_options> {
 public:
  annotate_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kAnnotateExamples, program) {
    line.add("FILE", options_.file, "The text; standard input where it is missing or -");
    add_common(line, out.common);
  }
};

void add_logs(command_line &line, std::vector<std::string> &logs) {
  line.add_list("--log", logs, "Search this log: a file, a directory of logs, -, journal, auto (the default) or none",
                "LOG");
}

void add_identifier(command_line &line, std::string &identifier, bool &node_only) {
  line.add("ID", identifier, "The identifier, 42 characters").required();
  line.add_flag("--node-only", node_only, "Look into this node's stacks only for identifiers of its addresses");
}

class detail_verb : public verb_of<detail_options> {
 public:
  detail_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kDetailExamples, program) {
    add_identifier(line, options_.identifier, options_.node_only);
    line.add("-o,--output", options_.output_file, "Write the content to FILE, - for standard output", "FILE");
    add_logs(line, options_.logs);
    add_common(line, out.common);
  }
};

class list_verb : public verb_of<list_options> {
 public:
  list_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kListExamples, program) {
    add_names(line, options_.names);
    line.add_flag("--failed", options_.failed, "Only stacks that refuse the next recording");
    add_common(line, out.common);
  }
};

class report_verb : public verb_of<report_options> {
 public:
  report_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kReportExamples, program) {
    add_names(line, options_.names);
    line.add_flag(
        "-v,--verbose", [this] { options_.format = "verbose"; }, "Show every field");
    line.add("-o,--output", options_.format, "Form of the records", "FORMAT").one_of({"short", "verbose", "json"});
    line.add("-n,--lines", options_.last, "Only the newest COUNT records", "COUNT");
    const argument reverse = line.add_flag("-r,--reverse", options_.reverse, "The newest record first");
    const argument follow = line.add_flag("-f,--follow", options_.follow,
                                          "Go on printing records as they are made, also in stacks that appear");
    follow.excludes(reverse);
    line.add_flag("--new", options_.only_new, "With -f: not those that are there already").needs(follow);
    line.add_flag("--poll", options_.polling, "With -f: look every 0.4 s instead of waiting for the kernel")
        .needs(follow);
    add_filters(line, options_.filters);
    add_common(line, out.common);
  }
};

class show_verb : public verb_of<show_options> {
 public:
  show_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kShowExamples, program) {
    add_identifier(line, options_.identifier, options_.node_only);
    line.add_flag("--detail", options_.detail, "Show the detail file that the record cites, too");
    add_logs(line, options_.logs);
    add_common(line, out.common);
  }
};

class trace_verb : public verb_of<trace_options> {
 public:
  trace_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kTraceExamples, program) {
    line.add("ID", options_.identifier, "The identifier of any record of the incident").required();
    add_logs(line, options_.logs);
    add_common(line, out.common);
  }
};

class verify_verb : public verb_of<verify_options> {
 public:
  verify_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kVerifyExamples, program) {
    add_names(line, options_.names);
    add_common(line, out.common);
  }
};

}  // namespace

void add_report_alone(command_line &line, invocation &out, verb_list &verbs) {
  line.set_help(kReportHelp);
  verbs.push_back(std::make_unique<report_verb>(line, out, out.program));
}

void add_reading_verbs(command_line &line, invocation &out, verb_list &verbs) {
  add_verb<annotate_verb>(line, out, verbs, "annotate", kAnnotateHelp);
  add_verb<detail_verb>(line, out, verbs, "detail", kDetailHelp);
  add_verb<list_verb>(line, out, verbs, "list", kListHelp);
  add_verb<report_verb>(line, out, verbs, "report", kReportHelp);
  add_verb<show_verb>(line, out, verbs, "show", kShowHelp);
  add_verb<trace_verb>(line, out, verbs, "trace", kTraceHelp);
  add_verb<verify_verb>(line, out, verbs, "verify", kVerifyHelp);
}

}  // namespace vosk
