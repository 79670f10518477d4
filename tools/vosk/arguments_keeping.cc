// The command lines of the verbs that keep what was recorded, and the directories that hold it.

#include "verb_arguments.h"

namespace vosk {

namespace {

constexpr char kPruneHelp[] =
    "Remove stacks whose processes are gone, and copies of detail files that no remaining stack cites. What is in use, "
    "locked, or not a file of the library stays, and a line says why.";
constexpr char kPruneExamples[] =
    "Examples:\n"
    "  PROGRAM --older-than 30d --dry-run          what would go\n"
    "  PROGRAM --older-than 30d                    what nobody wrote to for 30 days\n"
    "  PROGRAM --older-than 90d --max-total 200M   and then the oldest, until 200 MiB are left\n"
    "Exit status: 0 done, 1 failure, or --max-total not reached, 2 usage, 4 there are no directories";

constexpr char kDoctorHelp[] =
    "Look for what keeps recordings from being made or found again: variables, directories, space, the stack and its "
    "lock, clock, System Log, catalogue, containers. A line for each finding, with the remedy.";
constexpr char kDoctorExamples[] =
    "Examples:\n"
    "  PROGRAM                  for the process that calls it\n"
    "  PROGRAM --json | jq -r 'select(.severity == \"fault\").name'\n"
    "Exit status: 0 no fault found, 1 a fault, or failure, 2 usage";

class doctor_verb : public verb_of<doctor_options> {
 public:
  doctor_verb(CLI::App &app, invocation &out, const std::string &program)
      : verb_of(app, out, kDoctorExamples, program) {
    add_output_options(app, out.common);
  }
};

class prune_verb : public verb_of<prune_options> {
 public:
  prune_verb(CLI::App &app, invocation &out, const std::string &program) : verb_of(app, out, kPruneExamples, program) {
    app.add_option("--older-than", options_.older_than, "What was last written so long ago: 30d, 12h, 1w")
        ->required()
        ->type_name("SPAN");
    app.add_option("--max-total", options_.max_total, "Also the oldest, until SIZE is left: bytes, or 100K, 200M, 1G")
        ->type_name("SIZE");
    add_list(app, "--log", options_.logs, "Keep what this log cites: a file, a directory, journal, auto", "LOG");
    app.add_flag("-n,--dry-run", options_.dry_run, "Only tell what would be removed");
    add_output_options(app, out.common);
  }
};

}  // namespace

void add_keeping_verbs(CLI::App &app, invocation &out, verb_list &verbs) {
  add_verb<doctor_verb>(app, out, verbs, "doctor", kDoctorHelp);
  add_verb<prune_verb>(app, out, verbs, "prune", kPruneHelp);
}

}  // namespace vosk
