// vosk env: the environment of records, for the shell that evaluates what this prints.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "environment_values.h"
#include "exit_status.h"
#include "include/qx_vosk.h"
#include "library_error.h"
#include "output.h"
#include "process.h"
#include "reader/json.h"
#include "shell_commands.h"
#include "verbs.h"

namespace vosk {

namespace {

using action = env_options::action;

// What stands behind the name in a stack's file name: process id, date and time.
constexpr std::size_t kBehindName = sizeof ".2147483647.20261231.235959" - 1, kLongestFileName = 255;

int option_code_of(action what) {
  if (what == action::inherit) return VK_STACK_INHERIT;
  return what == action::log ? VK_LOG : VK_STACK_CREAT;
}

// The shell that called this program. In a subshell, and some substitutions run in one, the parent is not the process
// whose environment the commands change.
pid_t calling_shell() {
  const auto parent = find_process(getppid()).value_or(process{});
  if (parent.image.stack == 0 || !is_shell(parent.id))
    throw usage_error("the parent process is no shell: give the process id, $$ in a shell");
  if (is_copy_of(parent, find_process(parent.parent).value_or(process{})))
    throw usage_error("the parent process is a subshell: give the process id of the shell, $$");
  return parent.id;
}

std::string name_of(const env_options &options, pid_t process) {
  if (options.name.empty()) return command_name(process);
  std::string name = as_process_name(options.name);
  if (name.size() > kLongestFileName - kBehindName)
    throw usage_error("--name has more than " + std::to_string(kLongestFileName - kBehindName) + " bytes");
  return name;
}

void print_json(output &out, const environment_values &values) {
  json_line line("environment");
  line.number("code", values.code);
  if (values.text.empty())
    line.null("text");
  else
    line.text("text", values.text);
  line.object("variables", [&](json_object &variables) {
    for (const auto &[name, value] : values.variables) variables.text(name, value);
  });
  out.write(line.take());
}

int establish(const common_options &common, const env_options &options) {
  const pid_t process = options.process ? *options.process : calling_shell();
  environment_values values = values_for(option_code_of(options.what), name_of(options, process), process);
  const bool failed = values.code != VK_SUCCESS && values.code != VK_INHERIT_SUCCESS;
  if (options.keep_newest && !failed) values.variables.emplace_back("VOSKRECLAIM", "whole");
  if (failed) complain("no environment (" + std::to_string(values.code) + "): " + one_line(values.text));
  output out(common, false);
  if (common.json)
    print_json(out, values);
  else
    out.write(export_commands(values) + (failed ? failing_commands(values.code) : ""));
  return out.finish() && !failed ? kExitFine : kExitFailure;
}

void print_failure(const common_options &common, int status) {
  if (common.json) return;
  output out(common, false);
  out.write(failing_commands(status));
}

}  // namespace

int env(const common_options &common, const env_options &options) {
  if (options.what == action::show) return show_environment(common, options);
  try {
    return establish(common, options);
  } catch (const usage_error &) {
    print_failure(common, kExitUsage);
    throw;
  } catch (const std::exception &) {
    print_failure(common, kExitFailure);
    throw;
  }
}

}  // namespace vosk
