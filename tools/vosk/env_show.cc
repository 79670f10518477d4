// vosk env show: the environment that this process was started with, and who can record into it.

#include <unistd.h>

#include <cstdlib>

#include "exit_status.h"
#include "include/qx_vosk.h"
#include "library_error.h"
#include "output.h"
#include "owner.h"
#include "process.h"
#include "reader/json.h"
#include "verbs.h"

namespace vosk {

namespace {

constexpr const char *kVariables[] = {"VOSKSTACK", "VOSKORIG",     "VOSKPID",     "VOSKADDR",
                                      "VOSKPNAME", "VOSKSDISABLE", "VOSKRECLAIM", "VOSKDEBUG"};

struct environment_state {
  const char *name;  // for programs
  std::string text;
  int status;
};

environment_state state_for(pid_t process) {
  const int code = vk_test_stack_main_1(process);
  if (code == VK_SUCCESS) return {"own", "process " + std::to_string(process) + " owns this environment", kExitFine};
  if (code == VK_ENV_CORRUPT) return {"corrupt", first_sentence(library_text(code)), kExitDamage};
  const char *const stack = std::getenv("VOSKSTACK"), *const address = std::getenv("VOSKADDR");
  if (stack == nullptr || *stack == '\0') {
    if (address != nullptr && *address != '\0') return {"log", "for the System Log only", kExitNotFound};
    return {"none", "no environment", kExitNotFound};
  }
  const pid_t owner = owner_of_environment();
  const std::string who = owner == 0 ? "nobody" : "process " + std::to_string(owner);
  if (owner != 0 && is_ancestor(owner, process))
    return {"above", "owned by " + who + ", above process " + std::to_string(process), kExitFine};
  return {"foreign", "owned by " + who + ", which is not above process " + std::to_string(process), kExitNotFound};
}

}  // namespace

int show_environment(const common_options &common, const env_options &options) {
  const pid_t process = options.process ? *options.process : getppid();
  const environment_state state = state_for(process);
  output out(common, false);
  json_line line("environment");
  line.text("state", state.name).number("process", process);
  for (const char *const name : kVariables) {
    const char *const value = std::getenv(name);
    if (value == nullptr) continue;
    if (common.json)
      line.text(name, value);
    else
      out.line(std::string(name) + "=" + out.safe(value));
  }
  if (common.json)
    out.write(line.take());
  else
    out.line(out.painted(style::note, "-- " + out.safe(state.text)));
  return out.finish() ? state.status : kExitFailure;
}

}  // namespace vosk
