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
  env_verb(CLI::App &app, invocation &out, const std::string &program) : verb_of(app, out, kEnvExamples, program) {
    app.require_subcommand(1);
    using enum env_options::action;
    add(app, out, create, "create", kEnvCreateHelp, kEnvCreateExamples);
    add(app, out, inherit, "inherit", kEnvInheritHelp, kEnvInheritExamples);
    add(app, out, log, "log", kEnvLogHelp, kEnvLogExamples);
    add(app, out, show, "show", kEnvShowHelp, kEnvShowExamples);
  }

 private:
  void add(CLI::App &env, invocation &out, env_options::action what, const std::string &name, const char *help,
           const char *examples) {
    CLI::App &app = *env.add_subcommand(name, help);
    app.footer(with_program(examples, "vosk env " + name));
    app.preparse_callback([this, what](std::size_t) { options_.what = what; });
    app.add_option("PID", options_.process, "The process id of the shell: $$")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->type_name("");
    if (what != env_options::action::show)
      app.add_option("--name", options_.name, "The process name in records; the command's name without it")
          ->type_name("NAME");
    if (what == env_options::action::create)
      app.add_flag("--keep-newest", options_.keep_newest,
                   "In a full stack let whole records give way, the oldest first");
    app.add_flag("--json", out.common.json, "Print JSON Lines, no commands");
  }
};

class push_verb : public verb_of<push_options> {
 public:
  push_verb(CLI::App &app, invocation &out, const std::string &program) : push_verb(app, out, program, kPushExamples) {
    app.add_option("--road", options_.road, "Where to record; auto: the System Log where no stack is usable")
        ->check(CLI::IsMember({"stack", "log", "auto"}))
        ->type_name("ROAD");
  }

 protected:
  push_verb(CLI::App &app, invocation &out, const std::string &program, const char *examples)
      : verb_of(app, out, examples, program) {
    add_message(app);
    add_text(app, "--cause", options_.cause, "The identifier of the incident that this one follows from", "ID");
    add_text(app, "--detail", options_.detail, "A text with details", "TEXT");
    add_text(app, "--detail-file", options_.detail_file, "A file to keep a copy of; - for standard input", "FILE")
        ->excludes("--detail");
    add_text(app, "--source", options_.source, "The source file; the script's name without it", "FILE");
    add_text(app, "--line", options_.line, "Its line: \"$LINENO\"", "NUMBER");
    add_text(app, "--source-version", options_.version, "Its version", "TEXT");
    add_text(app, "--product", options_.product, "The product that it belongs to", "NAME");
    add_text(app, "--resource", options_.resource, "What reports the incident; the System Log's tag", "NAME");
    add_text(app, "--type", options_.event_type, "The severity in the System Log", "TYPE")
        ->check(CLI::IsMember({"emerg", "error", "state", "perf", "trace", "recov", "debug"}));
    add_text(app, "--template", options_.template_id, "The error template in the System Log, hexadecimal", "NUMBER");
    app.add_flag("-v,--verbose", options_.verbose, "Print attentions in full");
    app.add_flag("--json", out.common.json, "Print a JSON line instead of the identifier");
  }

 private:
  static CLI::Option *add_text(CLI::App &app, const char *name, std::string &value, const char *help,
                               const char *type) {
    return app.add_option(name, value, help)->type_name(type);
  }

  void add_message(CLI::App &app) {
    CLI::Option *const message = app.add_option("MESSAGE", options_.message, "What happened")->type_name("");
    CLI::Option *const format =
        app.add_option("--format", options_.format, "A printf format with %s or %N$s, instead of MESSAGE")
            ->type_name("FORMAT")
            ->excludes(message);
    app.add_option("--arg", options_.arguments, "The next argument of the format, at most 16")
        ->allow_extra_args(false)
        ->type_name("TEXT")
        ->needs(format);
    CLI::Option *const catalogue =
        add_text(app, "--catalogue", options_.catalogue, "The message catalogue that has translations", "NAME");
    add_text(app, "--msg", options_.catalogue_message, "The message in it", "SET/NUMBER")->needs(catalogue);
  }
};

class log_verb : public push_verb {
 public:
  log_verb(CLI::App &app, invocation &out, const std::string &program) : push_verb(app, out, program, kLogExamples) {
    options_.road = "log";
  }
};

}  // namespace

void add_recording_verbs(CLI::App &app, invocation &out, verb_list &verbs) {
  add_verb<env_verb>(app, out, verbs, "env", kEnvHelp);
  add_verb<log_verb>(app, out, verbs, "log", kLogHelp);
  add_verb<push_verb>(app, out, verbs, "push", kPushHelp);
}

}  // namespace vosk
