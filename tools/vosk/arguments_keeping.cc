// The command lines of the verbs that keep what was recorded, and the directories that hold it.

#include "verb_arguments.h"

namespace vosk {

namespace {

constexpr char kCollectHelp[] =
    "Put an incident into one archive that every reading verb reads on any machine, with --dir: the stacks that hold "
    "its "
    "records, the copies that they cite, the log lines about it, and a manifest.";
constexpr char kCollectExamples[] =
    "Examples:\n"
    "  PROGRAM IDENTIFIER -o incident.tar                    one incident\n"
    "  PROGRAM --all -o node1.tar --log /var/log             everything that this node has\n"
    "  ssh node1 vosk collect --all -o - > node1.tar         from another node\n"
    "  vosk trace IDENTIFIER --dir node1.tar --dir node2.tar\n"
    "Exit status: 0 collected, 1 failure, 2 usage, 3 a stack in it is damaged, 4 there is nothing to collect";
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
  doctor_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kDoctorExamples, program) {
    add_output_options(line, out.common);
  }
};

class collect_verb : public verb_of<collect_options> {
 public:
  collect_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kCollectExamples, program) {
    const argument id = line.add("ID", options_.identifier, "The identifier of any record of the incident");
    line.add_flag("--all", options_.all, "Collect all stacks, and all that the logs hold of the library").excludes(id);
    line.add("-o,--output", options_.output_file, "The archive, which must not exist; - for standard output", "FILE")
        .required();
    line.add_list("--log", options_.logs, "Where to look for log lines: a file, a directory, journal, auto, none",
                  "LOG");
    add_common(line, out.common);
  }
};

class prune_verb : public verb_of<prune_options> {
 public:
  prune_verb(command_line &line, invocation &out, const std::string &program)
      : verb_of(line, out, kPruneExamples, program) {
    line.add("--older-than", options_.older_than, "What was last written so long ago: 30d, 12h, 1w", "SPAN").required();
    line.add("--max-total", options_.max_total, "Also the oldest, until SIZE is left: bytes, or 100K, 200M, 1G",
             "SIZE");
    line.add_list("--log", options_.logs, "Keep what this log cites: a file, a directory, journal, auto", "LOG");
    line.add_flag("-n,--dry-run", options_.dry_run, "Only tell what would be removed");
    add_output_options(line, out.common);
  }
};

}  // namespace

void add_keeping_verbs(command_line &line, invocation &out, verb_list &verbs) {
  add_verb<collect_verb>(line, out, verbs, "collect", kCollectHelp);
  add_verb<doctor_verb>(line, out, verbs, "doctor", kDoctorHelp);
  add_verb<prune_verb>(line, out, verbs, "prune", kPruneHelp);
}

}  // namespace vosk
