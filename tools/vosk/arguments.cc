#include "arguments.h"

#include <algorithm>
#include <cstring>
#include <iostream>

#include "exit_status.h"
#include "shell_commands.h"
#include "verb_arguments.h"
#include "version.h"

namespace vosk {

namespace {

// A shell that evaluates what vosk env prints is to see the failure, too.
int refuse(const command_line &line, const std::string &program, const std::string &reason) {
  if (line.called("env") && !line.called("env", "show")) std::cout << failing_commands(kExitUsage) << std::flush;
  std::cerr << program << ": " << reason << "\nTry '" << program << " --help'.\n";
  return kExitUsage;
}

// The verbs that scripts give empty values, as in --detail="$text".
bool records(const std::string &verb) {
  return verb == "push" || verb == "log" || verb == "env" || verb == "run";
}

// What stands behind the "--" of vosk run is the command's, whatever it looks like. Returns how many arguments are not.
int set_command_aside(int argc, char **argv, invocation &out) {
  int own = 2;
  while (own < argc && std::strcmp(argv[own], "--") != 0) ++own;
  if (own < argc) out.command.assign(argv + own + 1, argv + argc);
  return own;
}

}  // namespace

std::string with_program(std::string text, const std::string &program) {
  constexpr std::string_view kPlace = "PROGRAM";
  for (std::size_t at = 0; (at = text.find(kPlace, at)) != std::string::npos; at += program.size())
    text.replace(at, kPlace.size(), program);
  return text;
}

void add_output_options(command_line &line, common_options &common) {
  line.add_flag("--json", common.json, "Print JSON Lines");
  line.add_flag("--utc", common.utc, "Show times in UTC");
  line.add_flag("--raw", common.raw, "Leave control characters in texts as they are");
  line.add_flag("--no-pager", common.no_pager, "Do not start a pager on a terminal");
  line.add("--color", common.color, "When to use colours", "WHEN").one_of({"auto", "always", "never"});
}

void add_common(command_line &line, common_options &common) {
  add_output_options(line, common);
  line.add_list("--dir", common.copies, "Look at the stacks below DIR, or in an archive: copies from other nodes",
                "DIR");
}

std::optional<int> parse_arguments(int argc, char **argv, invocation &out) {
  const bool runs_command = argc > 1 && out.program == "vosk" && std::strcmp(argv[1], "run") == 0;
  if (runs_command) argc = set_command_aside(argc, argv, out);
  command_line line(out.program, "Records failures with libqx_vosk, and reads what was recorded.",
                    out.program + " " + kVersion);
  verb_list verbs;
  if (out.program == "vkstkrpt") {
    add_report_alone(line, out, verbs);
  } else {
    line.require_verb();
    // A command is not to wait until all the others have been described.
    if (!runs_command) {
      add_reading_verbs(line, out, verbs);
      add_recording_verbs(line, out, verbs);
      add_keeping_verbs(line, out, verbs);
    }
    add_run_verb(line, out, verbs);
  }
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  try {
    if (line.parse(words, !words.empty() && records(words[0]))) return std::nullopt;
  } catch (const usage_error &error) {
    const int status = refuse(line, out.program, error.what());
    return runs_command ? kExitNotStarted : status;
  }
  std::cout.flush();
  return std::cout ? kExitFine : kExitFailure;
}

}  // namespace vosk
