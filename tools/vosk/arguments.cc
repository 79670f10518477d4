#include "arguments.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "exit_status.h"
#include "version.h"

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
    "  PROGRAM -v -n 1 STACKFILE                     every field of the newest record\n"
    "  PROGRAM --around IDENTIFIER=30s --dir COPIES  around an incident, on all nodes\n"
    "Exit status: 0 shown, 1 failure, 2 usage, 3 damage seen, 4 no record to show";
constexpr char kVerifyHelp[] =
    "Name what is damaged in stack files: file, offset, field, value and what is allowed. Of sound files nothing is "
    "said.";
constexpr char kVerifyExamples[] =
    "Examples:\n"
    "  PROGRAM             all stacks of this node\n"
    "  PROGRAM STACKFILE   one of them\n"
    "Exit status: 0 no damage, 1 failure, 2 usage, 3 damage seen, 4 no stack file";

std::string with_program(std::string text, const std::string &program) {
  constexpr std::string_view kPlace = "PROGRAM";
  for (std::size_t at = 0; (at = text.find(kPlace, at)) != std::string::npos; at += program.size())
    text.replace(at, kPlace.size(), program);
  return text;
}

// An option that can be given several times, each time with one value.
template <class Value>
void add_list(CLI::App &app, const char *names, std::vector<Value> &values, const char *help, const char *type) {
  app.add_option(names, values, help)->allow_extra_args(false)->type_name(type);
}

void add_names(CLI::App &app, std::vector<std::string> &names) {
  app.add_option("FILE", names, "Stack files, or directories of them")->type_name("");
}

void add_common(CLI::App &app, common_options &common) {
  app.add_flag("--json", common.json, "Print JSON Lines");
  app.add_flag("--utc", common.utc, "Show times in UTC");
  app.add_flag("--raw", common.raw, "Leave control characters in texts as they are");
  app.add_flag("--no-pager", common.no_pager, "Do not start a pager on a terminal");
  app.add_option("--color", common.color, "When to use colours")
      ->check(CLI::IsMember({"auto", "always", "never"}))
      ->type_name("WHEN");
  add_list(app, "--dir", common.copies, "Look at the stacks below DIR, such as copies from other nodes", "DIR");
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

void add_report(CLI::App &app, const std::string &program, common_options &common, report_options &report) {
  add_names(app, report.names);
  app.add_flag_callback(
      "-v,--verbose", [&] { report.format = "verbose"; }, "Show every field");
  app.add_option("-o,--output", report.format, "Form of the records")
      ->check(CLI::IsMember({"short", "verbose", "json"}))
      ->type_name("FORMAT");
  app.add_option("-n,--lines", report.last, "Only the newest COUNT records")->type_name("COUNT");
  app.add_flag("-r,--reverse", report.reverse, "The newest record first");
  add_filters(app, report.filters);
  add_common(app, common);
  app.footer(with_program(kReportExamples, program));
}

// The argument library's own results, as the tools' exit statuses.
int finish(const CLI::App &app, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) {
    (void)app.exit(error, std::cout, std::cerr);
    std::cout.flush();
    return std::cout ? kExitFine : kExitFailure;
  }
  std::cerr << app.get_name() << ": " << error.what() << "\nTry '" << app.get_name() << " --help'.\n";
  return kExitUsage;
}

}  // namespace

std::optional<int> parse_arguments(int argc, char **argv, invocation &out) {
  report_options report;
  verify_options verify;
  CLI::App app("Reads what libqx_vosk recorded.", out.program);
  app.set_version_flag("--version", out.program + " " + kVersion);
  app.get_formatter()->column_width(28);

  const bool report_only = out.program == "vkstkrpt";
  if (report_only) {
    app.description(kReportHelp);
    add_report(app, out.program, out.common, report);
  } else {
    app.require_subcommand(1);
    add_report(*app.add_subcommand("report", kReportHelp), "vosk report", out.common, report);
    CLI::App *const verify_verb = app.add_subcommand("verify", kVerifyHelp);
    add_names(*verify_verb, verify.names);
    add_common(*verify_verb, out.common);
    verify_verb->footer(with_program(kVerifyExamples, "vosk verify"));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return finish(app, error);
  }
  if (report_only || app.got_subcommand("report"))
    out.verb = std::move(report);
  else
    out.verb = std::move(verify);
  return std::nullopt;
}

}  // namespace vosk
