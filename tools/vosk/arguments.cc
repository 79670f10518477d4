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

// The argument library's own results, as the tools' exit statuses.
int finish(const CLI::App &app, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) {
    (void)app.exit(error, std::cout, std::cerr);
    std::cout.flush();
    return std::cout ? kExitFine : kExitFailure;
  }
  for (const CLI::App *verb : app.get_subcommands())
    if (verb->get_name() == "env" && !verb->got_subcommand("show"))
      std::cout << failing_commands(kExitUsage) << std::flush;
  std::cerr << app.get_name() << ": " << error.what() << "\nTry '" << app.get_name() << " --help'.\n";
  return kExitUsage;
}

const CLI::App *subcommand_of(const CLI::App &app, const std::string &name) {
  const auto found = app.get_subcommands([&](const CLI::App *verb) { return verb->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

// True if the word behind `word` is its value, whatever that looks like.
bool takes_next_word(const CLI::App &verb, const std::string &word) {
  const CLI::Option *const option = word.starts_with('-') ? verb.get_option_no_throw(word) : nullptr;
  return option != nullptr && option->get_items_expected_min() > 0;
}

// "--detail=", where the value is empty.
bool is_emptied_option(const std::string &word) {
  return word.starts_with("--") && word.find('=') == word.size() - 1;
}

// The words as the parser takes them, the last one first. It takes "--detail=" for an option without a value; scripts
// write that for an empty one. The words of a command to be run stay as they are.
std::vector<std::string> words_of(const CLI::App &app, int argc, char **argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  const bool records =
      !words.empty() && (words[0] == "push" || words[0] == "log" || words[0] == "env" || words[0] == "run");
  const CLI::App *verb = records ? subcommand_of(app, words[0]) : nullptr;
  for (std::size_t i = 1; verb != nullptr && i < words.size() && words[i] != "--"; ++i) {
    if (const CLI::App *const below = subcommand_of(*verb, words[i])) {
      verb = below;
    } else if (takes_next_word(*verb, words[i])) {
      ++i;
    } else if (is_emptied_option(words[i])) {
      words[i].pop_back();
      words.emplace(words.begin() + static_cast<std::ptrdiff_t>(++i));
    }
  }
  std::reverse(words.begin(), words.end());
  return words;
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

void add_output_options(CLI::App &app, common_options &common) {
  app.add_flag("--json", common.json, "Print JSON Lines");
  app.add_flag("--utc", common.utc, "Show times in UTC");
  app.add_flag("--raw", common.raw, "Leave control characters in texts as they are");
  app.add_flag("--no-pager", common.no_pager, "Do not start a pager on a terminal");
  app.add_option("--color", common.color, "When to use colours")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
}

void add_common(CLI::App &app, common_options &common) {
  add_output_options(app, common);
  add_list(app, "--dir", common.copies, "Look at the stacks below DIR, or in an archive: copies from other nodes",
           "DIR");
}

std::optional<int> parse_arguments(int argc, char **argv, invocation &out) {
  const bool runs_command = argc > 1 && out.program == "vosk" && std::strcmp(argv[1], "run") == 0;
  if (runs_command) argc = set_command_aside(argc, argv, out);
  CLI::App app("Records failures with libqx_vosk, and reads what was recorded.", out.program);
  app.set_version_flag("--version", out.program + " " + kVersion);
  app.get_formatter()->column_width(28);
  verb_list verbs;
  if (out.program == "vkstkrpt") {
    add_report_alone(app, out, verbs);
  } else {
    app.require_subcommand(1);
    // A command is not to wait until all the others have been described.
    if (!runs_command) {
      add_reading_verbs(app, out, verbs);
      add_recording_verbs(app, out, verbs);
      add_keeping_verbs(app, out, verbs);
    }
    add_run_verb(app, out, verbs);
  }
  try {
    app.parse(words_of(app, argc, argv));
  } catch (const CLI::ParseError &error) {
    const int status = finish(app, error);
    return runs_command && status == kExitUsage ? kExitNotStarted : status;
  }
  return std::nullopt;
}

}  // namespace vosk
