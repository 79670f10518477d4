// The command lines of the verbs that record.

#include <limits>

#include "verb_arguments.h"

namespace vosk {

namespace {

constexpr char kEnvHelp[] =
    "Print shell commands that give the calling shell the environment which records need, or show the one it has.";
constexpr char kEnvExamples[] =
    "Examples:\n"
    "  eval \"$(PROGRAM create $$)\"     an Error Stack for this shell and the programs it starts\n"
    "  eval \"$(PROGRAM inherit $$)\"    this shell records for itself in the stack of its parent\n"
    "  eval \"$(PROGRAM log $$)\"        the System Log only\n"
    "  PROGRAM show                    what there is\n"
    "Exit status: 0 done, 1 failure, 2 usage; of show also 3 damage seen, 4 no usable stack";
constexpr char kEnvCreateHelp[] =
    "Create an environment for an Error Stack, or inherit the one that there is. The commands end with the status of "
    "the library's result where it failed.";
constexpr char kEnvCreateExamples[] =
    "Examples:\n"
    "  eval \"$(PROGRAM $$)\" || exit\n"
    "  eval \"$(PROGRAM --name nightly --keep-newest $$)\"\n"
    "Without PID the parent process is meant, where it is a shell and no subshell.\n"
    "Exit status: 0 printed, 1 failure, 2 usage";
constexpr char kEnvInheritHelp[] =
    "Take over the environment of a process above the shell, so that the shell's records are made under its own id.";
constexpr char kEnvInheritExamples[] =
    "Examples:\n"
    "  eval \"$(PROGRAM $$)\"\n"
    "Exit status: 0 printed, 1 failure, 2 usage";
constexpr char kEnvLogHelp[] = "Prepare an environment for records in the System Log, without an Error Stack.";
constexpr char kEnvLogExamples[] =
    "Examples:\n"
    "  eval \"$(PROGRAM $$)\"\n"
    "Exit status: 0 printed, 1 failure, 2 usage";
constexpr char kEnvShowHelp[] = "Show the environment, and whether the process (the calling one) can record into it.";
constexpr char kEnvShowExamples[] =
    "Examples:\n"
    "  PROGRAM\n"
    "Exit status: 0 there is a usable stack, 1 failure, 2 usage, 3 the variables contradict each other, 4 there is "
    "none";
constexpr char kPushHelp[] =
    "Record an incident in the Error Stack, as the process that calls this program, and print its identifier. MESSAGE "
    "is taken as it is.";
constexpr char kPushExamples[] =
    "Examples:\n"
    "  id=$(PROGRAM \"cannot copy $file\")\n"
    "  PROGRAM --cause \"$id\" --line \"$LINENO\" \"the backup failed\"\n"
    "  make 2>&1 | PROGRAM --detail-file - \"the build failed\"\n"
    "  PROGRAM --format 'cannot read %s: %s' --arg \"$file\" --arg \"$why\"\n"
    "  PROGRAM --road=auto -- \"$message\"    in the System Log where there is no stack\n"
    "Exit status: 0 recorded, 1 not recorded, 2 usage";
constexpr char kLogHelp[] = "Record an incident in the System Log and print its identifier. MESSAGE is taken as it is.";
constexpr char kLogExamples[] =
    "Examples:\n"
    "  PROGRAM \"cannot copy $file\"\n"
    "  PROGRAM --type state \"the backup begins\"\n"
    "  dmesg | PROGRAM --detail-file - \"the disk failed\"\n"
    "Exit status: 0 recorded, 1 not recorded, 2 usage";

class env_verb : public verb_of<env_options> {
 public:
  env_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kEnvExamples, program) {
    line.require_verb();
    using enum env_options::action;
    add(line, out, create, "create", kEnvCreateHelp, kEnvCreateExamples);
    add(line, out, inherit, "inherit", kEnvInheritHelp, kEnvInheritExamples);
    add(line, out, log, "log", kEnvLogHelp, kEnvLogExamples);
    add(line, out, show, "show", kEnvShowHelp, kEnvShowExamples);
  }

 private:
  void add(command_line &env, invocation &out, env_options::action what, const std::string &name, const char *help,
           const char *examples) {
    command_line line = env.add_verb(name, help);
    line.set_footer(with_program(examples, "vosk env " + name));
    line.before_words([this, what] { options_.what = what; });
    line.add("PID", options_.process, "The process id of the shell: $$").between(1, std::numeric_limits<int>::max());
    if (what != env_options::action::show)
      line.add("--name", options_.name, "The process name in records; the command's name without it", "NAME");
    if (what == env_options::action::create)
      line.add_flag("--keep-newest", options_.keep_newest,
                    "In a full stack let whole records give way, the oldest first");
    line.add_flag("--json", out.common.json, "Print JSON Lines, no commands");
  }
};

class push_verb : public verb_of<push_options> {
 public:
  push_verb(command_line &line, invocation &out, const std::string &program)
      : push_verb(line, out, program, kPushExamples) {
    line.add("--road", options_.road, "Where to record; auto: the System Log where no stack is usable", "ROAD")
        .one_of({"stack", "log", "auto"});
  }

 protected:
  push_verb(command_line &line, invocation &out, const std::string &program, const char *examples)
      : verb_of(line, out, examples, program) {
    add_message(line);
    line.add("--cause", options_.cause, "The identifier of the incident that this one follows from", "ID");
    const argument detail = line.add("--detail", options_.detail, "A text with details", "TEXT");
    line.add("--detail-file", options_.detail_file, "A file to keep a copy of; - for standard input", "FILE")
        .excludes(detail);
    line.add("--source", options_.source, "The source file; the script's name without it", "FILE");
    line.add("--line", options_.line, "Its line: \"$LINENO\"", "NUMBER");
    line.add("--source-version", options_.version, "Its version", "TEXT");
    line.add("--product", options_.product, "The product that it belongs to", "NAME");
    line.add("--resource", options_.resource, "What reports the incident; the System Log's tag", "NAME");
    line.add("--type", options_.event_type, "The severity in the System Log", "TYPE")
        .one_of({"emerg", "error", "state", "perf", "trace", "recov", "debug"});
    line.add("--template", options_.template_id, "The error template in the System Log, hexadecimal", "NUMBER");
    line.add_flag("-v,--verbose", options_.verbose, "Print attentions in full");
    line.add_flag("--json", out.common.json, "Print a JSON line instead of the identifier");
  }

 private:
  void add_message(command_line &line) {
    const argument message = line.add("MESSAGE", options_.message, "What happened");
    const argument format =
        line.add("--format", options_.format, "A printf format with %s or %N$s, instead of MESSAGE", "FORMAT")
            .excludes(message);
    line.add_list("--arg", options_.arguments, "The next argument of the format, at most 16", "TEXT").needs(format);
    const argument catalogue =
        line.add("--catalogue", options_.catalogue, "The message catalogue that has translations", "NAME");
    line.add("--msg", options_.catalogue_message, "The message in it", "SET/NUMBER").needs(catalogue);
  }
};

class log_verb : public push_verb {
 public:
  log_verb(command_line &line, invocation &out, const std::string &program)
      : push_verb(line, out, program, kLogExamples) {
    options_.road = "log";
  }
};

}  // namespace

void add_recording_verbs(command_line &line, invocation &out, verb_list &verbs) {
  add_verb<env_verb>(line, out, verbs, "env", kEnvHelp);
  add_verb<log_verb>(line, out, verbs, "log", kLogHelp);
  add_verb<push_verb>(line, out, verbs, "push", kPushHelp);
}

}  // namespace vosk
