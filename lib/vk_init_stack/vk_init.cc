// Establishing a VOSK Environment: the entry points.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "lib/report.h"
#include "lib/variables.h"
#include "lib/vk_init_stack/decisions.h"
#include "lib/vk_init_stack/env_values.h"
#include "utils/code_names.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"

namespace vk {
namespace {

constexpr int kFirstUnknownOption = 4, kStacksDisabled = 42;
constexpr std::size_t kStartupText = 256, kReportText = 1024;

// What a result is reported with: the message, and the insert of those that have one.
struct outcome {
  int result;
  int message;
  const char *insert;
};

constexpr outcome kLogOutcomes[] = {{VK_ENV_FAILED, 27, nullptr}, {VK_NO_MEMORY, 26, nullptr}};
constexpr outcome kCreateOutcomes[] = {{VK_ENV_FAILED, 27, nullptr},
                                       {VK_ENV_CORRUPT, 25, nullptr},
                                       {VK_NO_MEMORY, 26, nullptr},
                                       {kStackDirectoryFailed, 29, kStackDirectory},
                                       {kStackFileExists, 28, kStackDirectory}};
constexpr outcome kInheritOutcomes[] = {{VK_INHERIT_SUCCESS, 17, nullptr},
                                        {VK_ENV_EXIST, 24, nullptr},
                                        {VK_NO_VK_ENVIR, 23, nullptr},
                                        {VK_ENV_FAILED, 27, nullptr},
                                        {VK_ENV_CORRUPT, 25, nullptr},
                                        {VK_NO_MEMORY, 26, nullptr},
                                        {kStackDirectoryFailed, 29, kStackDirectory},
                                        {kStackFileExists, 28, kStackDirectory}};

// These messages have at most one insert, "%1$s"; the formatted text is reported, with no inserts left.
int report_formatted(int code, int message, const char *insert) noexcept {
  constexpr std::string_view kInsert = "%1$s";
  const char *text = vk_mesgtbl_vk_lib[message];
  text_builder<kReportText> formatted;
  if (const char *at = std::strstr(text, kInsert.data()); at != nullptr) {
    formatted.append({text, static_cast<std::size_t>(at - text)});
    formatted.append(insert);
    text = at + kInsert.size();
  }
  formatted.append(text);
  return report_text(code, message, formatted.c_str());
}

// Any result that the table lacks is unexpected and names the routine it came from.
int report_outcome(std::span<const outcome> outcomes, int result, const char *routine) noexcept {
  for (const outcome &row : outcomes)
    if (row.result == result) return report_formatted(result, row.message, row.insert);
  return report_formatted(result, 30, routine);
}

void trace_startup(const tracer &trace, int option_code, const char *proc_name, int mode) noexcept {
  if (!trace.on()) return;
  text_builder<kStartupText> options;
  options.append("Checking option_code...");
  if (option_code == VK_LOG) options.append("VK_LOG");
  if ((option_code & VK_STACK_CREAT) != 0) options.append(" VK_STACK_CREAT");
  if ((option_code & VK_STACK_INHERIT) != 0) options.append(" VK_STACK_INHERIT");
  options.append(mode == kDisplayOnly ? ", display environment only\n" : ", set environment\n");

  char code[64];
  (void)std::snprintf(code, sizeof code, "%s %x\n", "Routine Startup - option_code parameter is",
                      static_cast<unsigned int>(option_code));
  text_builder<kStartupText> text;
  text.append(code);
  if (is_set(proc_name)) {
    // No line feed behind the name, on purpose; a long one is cut so that the rest fits.
    text.append("procname=");
    text.append_leaving(proc_name, std::strlen(options.c_str()));
  } else {
    text.append("No procname provided\n");
  }
  text.append(options.c_str());
  trace.write("%s", text.c_str());
}

}  // namespace
}  // namespace vk

int vk_init_main_1(int option_code, const char *proc_name, int pid, int mode) {
  char trace_path[vk::kPathSize];
  const int trace_on = vk::decide_tracing(trace_path);
  const vk::tracer trace(trace_on, trace_path, "vk_init_main");
  vk::trace_startup(trace, option_code, proc_name, mode);

  // A signed comparison, on purpose: negative codes go on and are taken by their two low bits.
  if (option_code >= vk::kFirstUnknownOption) {
    VK_TRACE(trace, "option_code %x fails basic parameter check\nReturning %s(%d) to the caller\n",
             static_cast<unsigned int>(option_code), vk::vk_name(VK_UNKNOWN_OPTION), VK_UNKNOWN_OPTION);
    return vk::report(VK_UNKNOWN_OPTION, 20);
  }
  constexpr int kBoth = VK_STACK_CREAT | VK_STACK_INHERIT;
  if ((option_code & kBoth) == kBoth) {
    VK_TRACE(trace, "Caller requested both Stack creation and inheritance\nReturning %s(%d) to the caller\n",
             vk::vk_name(VK_INHERIT_INV), VK_INHERIT_INV);
    return vk::report(VK_INHERIT_INV, 22, "VK_STACK_CREATE", "VK_STACK_INHERIT", "vk_init_main");
  }
  bool disabled = false;
  if (getenv(vk::kVoskDisable) != nullptr && (option_code & kBoth) != 0) {
    VK_TRACE(trace,
             "Stack use disabled in process environment & caller requested to create or inherit an VOSK Stack\n"
             "Setting VOSKADDR environment value only");
    option_code = VK_LOG;
    disabled = true;
  }
  if (option_code == VK_LOG) {
    const int result = vk::vk_set_env_values(trace_on, trace_path, vk::kSystemLogOnly, proc_name, pid, mode);
    if (result != VK_SUCCESS) return vk::report_outcome(vk::kLogOutcomes, result, "vk_set_env_values");
    return disabled ? vk::report_formatted(vk::kStacksDisabled, 44, nullptr) : cu_set_no_error_1();
  }
  if ((option_code & VK_STACK_CREAT) != 0) {
    char buffer[vk::kPathSize];
    const char *name = vk::is_set(proc_name) ? vk::base_name(buffer, proc_name) : nullptr;
    const int result = vk::vk_create_env(trace_on, trace_path, name, pid, mode);
    if (result == VK_SUCCESS) return cu_set_no_error_1();
    if (result != VK_ENV_EXIST) return vk::report_outcome(vk::kCreateOutcomes, result, "vk_create_env");
  } else if ((option_code & VK_STACK_INHERIT) == 0) {  // a negative code whose low bits are clear
    return vk::report(VK_UNEXPECTED, 30, "vk_init_main");
  }
  const int result = vk::vk_inherit_env(trace_on, trace_path, proc_name, pid, mode);
  return vk::report_outcome(vk::kInheritOutcomes, result, "vk_inherit_env");
}

int vk_init_1(int option_code) {
  return vk_init_main_1(option_code, nullptr, getpid(), 0);
}
