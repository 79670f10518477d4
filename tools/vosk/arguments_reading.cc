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

void add_names(CLI::App &app, std::vector<std::string> &names) {
  app.add_option("FILE", names, "Stack files, or directories of them")->type_name("");
}

void add_filters(CLI::App &app, record_filters &filters) {
  app.add_option("--since", filters.since, "From this time on: 2026-11-16 07:11, 07:11, yesterday, -2h")
      ->type_name("TIME");
  app.add_option("--until", filters.until, "Up to this time")->type_name("TIME");
  app.add_option("--around", filters.around, "Around the time of an identifier, 5m before and after")
      ->type_name("ID[=SPAN]");
  add_list(app, "--process", filters.processes, "Of this process name; may be a pattern with * ? []", "NAME");
  add_list(app, "--pid", filters.pids, "Of this process id", "PID");
  add_list(app, "--product", filters.products, "Of this product; may be a pattern", "NAME");
  add_list(app, "--source", filters.sources, "Of this source, FILE or FILE:LINE; may be a pattern", "FILE");
  add_list(app, "--msg", filters.messages, "With this message", "SET/NUMBER");
  add_list(app, "--grep", filters.patterns, "Whose description or detail matches", "REGEX");
  app.add_flag("--not", filters.inverted, "Those that the filters (the times apart) do not select");
}

class annotate_verb : public verb_of<annotate_options> {
 public:
  annotate_verb(CLI::App &app, invocation &out, const std::string &program)
      : verb_of(app, out, kAnnotateExamples, program) {
    app.add_option("FILE", options_.file, "The text; standard input where it is missing or -")->type_name("");
    add_common(app, out.common);
  }
};

void add_logs(CLI::App &app, std::vector<std::string> &logs) {
  add_list(app, "--log", logs, "Search this log: a file, a directory of logs, -, journal, auto (the default) or none",
           "LOG");
}

void add_identifier(CLI::App &app, std::string &identifier, bool &node_only) {
  app.add_option("ID", identifier, "The identifier, 42 characters")->required()->type_name("");
  app.add_flag("--node-only", node_only, "Look into this node's stacks only for identifiers of its addresses");
}

class detail_verb : public verb_of<detail_options> {
 public:
  detail_verb(CLI::App &app, invocation &out, const std::string &program)
      : verb_of(app, out, kDetailExamples, program) {
    add_identifier(app, options_.identifier, options_.node_only);
    app.add_option("-o,--output", options_.output_file, "Write the content to FILE, - for standard output")
        ->type_name("FILE");
    add_logs(app, options_.logs);
    add_common(app, out.common);
  }
};

class list_verb : public verb_of<list_options> {
 public:
  list_verb(CLI::App &app, invocation &out, const std::string &program) : verb_of(app, out, kListExamples, program) {
    add_names(app, options_.names);
    app.add_flag("--failed", options_.failed, "Only stacks that refuse the next recording");
    add_common(app, out.common);
  }
};

class report_verb : public verb_of<report_options> {
 public:
  report_verb(CLI::App &app, invocation &out, const std::string &program)
      : verb_of(app, out, kReportExamples, program) {
    add_names(app, options_.names);
    app.add_flag_callback(
        "-v,--verbose", [this] { options_.format = "verbose"; }, "Show every field");
    app.add_option("-o,--output", options_.format, "Form of the records")
        ->check(CLI::IsMember({"short", "verbose", "json"}))
        ->type_name("FORMAT");
    app.add_option("-n,--lines", options_.last, "Only the newest COUNT records")->type_name("COUNT");
    CLI::Option *const reverse = app.add_flag("-r,--reverse", options_.reverse, "The newest record first");
    CLI::Option *const follow = app.add_flag("-f,--follow", options_.follow,
                                             "Go on printing records as they are made, also in stacks that appear");
    follow->excludes(reverse);
    app.add_flag("--new", options_.only_new, "With -f: not those that are there already")->needs(follow);
    app.add_flag("--poll", options_.polling, "With -f: look every 0.4 s instead of waiting for the kernel")
        ->needs(follow);
    add_filters(app, options_.filters);
    add_common(app, out.common);
  }
};

class show_verb : public verb_of<show_options> {
 public:
  show_verb(CLI::App &app, invocation &out, const std::string &program) : verb_of(app, out, kShowExamples, program) {
    add_identifier(app, options_.identifier, options_.node_only);
    app.add_flag("--detail", options_.detail, "Show the detail file that the record cites, too");
    add_logs(app, options_.logs);
    add_common(app, out.common);
  }
};

class trace_verb : public verb_of<trace_options> {
 public:
  trace_verb(CLI::App &app, invocation &out, const std::string &program) : verb_of(app, out, kTraceExamples, program) {
    app.add_option("ID", options_.identifier, "The identifier of any record of the incident")
        ->required()
        ->type_name("");
    add_logs(app, options_.logs);
    add_common(app, out.common);
  }
};

class verify_verb : public verb_of<verify_options> {
 public:
  verify_verb(CLI::App &app, invocation &out, const std::string &program)
      : verb_of(app, out, kVerifyExamples, program) {
    add_names(app, options_.names);
    add_common(app, out.common);
  }
};

}  // namespace

void add_report_alone(CLI::App &app, invocation &out, verb_list &verbs) {
  app.description(kReportHelp);
  verbs.push_back(std::make_unique<report_verb>(app, out, out.program));
}

void add_reading_verbs(CLI::App &app, invocation &out, verb_list &verbs) {
  add_verb<annotate_verb>(app, out, verbs, "annotate", kAnnotateHelp);
  add_verb<detail_verb>(app, out, verbs, "detail", kDetailHelp);
  add_verb<list_verb>(app, out, verbs, "list", kListHelp);
  add_verb<report_verb>(app, out, verbs, "report", kReportHelp);
  add_verb<show_verb>(app, out, verbs, "show", kShowHelp);
  add_verb<trace_verb>(app, out, verbs, "trace", kTraceHelp);
  add_verb<verify_verb>(app, out, verbs, "verify", kVerifyHelp);
}

}  // namespace vosk
