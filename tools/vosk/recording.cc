#include "recording.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "include/qx_vosk.h"
#include "library_error.h"
#include "output.h"
#include "owner.h"
#include "process.h"
#include "reader/escape.h"
#include "reader/json.h"
#include "recording_calls.h"
#include "user_name.h"

namespace vosk {

namespace {

constexpr char kProduct[] = "scripts", kCatalogue[] = "scripts.cat", kVersion[] = "unversioned";
constexpr std::size_t kLongestDirectory = 256;

std::string variable(const char *name) {
  const char *const value = std::getenv(name);
  return value != nullptr ? value : "";
}

pid_t id_of(recorder who) {
  return who == recorder::parent ? getppid() : getpid();
}

// The name under which an environment is inherited: that of a shell goes on in its subshells.
std::string name_to_inherit(pid_t id, pid_t owner) {
  const std::string name = variable("VOSKPNAME");
  const process heir = find_process(id).value_or(process{}), shell = find_process(owner).value_or(process{});
  return !name.empty() && is_copy_of(heir, shell) ? name : command_name(id);
}

// Takes over the environment of a process above the recorder's, in this process. Returns the library's error, or 0.
int inherit_for(pid_t id) {
  const pid_t owner = owner_of_environment();
  const std::string stack = variable("VOSKSTACK");
  if (stack.empty() || owner == 0 || owner == id || !is_ancestor(owner, id)) return VK_SUCCESS;
  const int code = vk_init_main_1(VK_STACK_INHERIT, name_to_inherit(id, owner).c_str(), id, 0);
  return code == VK_INHERIT_SUCCESS ? VK_SUCCESS : code;
}

// What the library returns for a record that was made.
bool is_attention(int code) {
  return code == VK_SUCCESS || (code >= VK_DETAIL_BOTH && code <= VK_NO_UNIQUE_EID) || code == VK_RECORD_TRUNCATED;
}

recording finished(road where, int code, const vk_eid_t &eid) {
  recording made;
  made.where = where;
  made.code = code;
  made.made = is_attention(code);
  if (made.made) made.identifier.assign(eid, strnlen(eid, sizeof eid));
  if (code != VK_SUCCESS) made.text = library_text(code);
  made.cut = code == VK_RECORD_TRUNCATED;
  return made;
}

recording record_in_stack(const incident &what, recorder who) {
  vk_eid_t eid = "";
  int code = inherit_for(id_of(who));
  if (code == VK_SUCCESS) code = call_push(what, who, eid);
  return finished(road::stack, code, eid);
}

recording record_in_log(const incident &what, recorder who) {
  if (!system_log_listens()) {
    recording refused;
    refused.where = road::log;
    refused.code = VK_SYSLOG_FAILED;
    refused.text = "No System Log daemon listens on /dev/log.";
    return refused;
  }
  const pid_t id = id_of(who);
  // Without an address the record is made all the same; the library then says that it has no identifier.
  if (variable("VOSKADDR").empty()) (void)vk_init_main_1(VK_LOG, command_name(id).c_str(), id, 0);
  vk_eid_t eid = "";
  bool cut = false;
  const int code = call_log(what, eid, cut);
  recording made = finished(road::log, code, eid);
  made.cut = cut;
  return made;
}

// The script that the recorder, or the nearest process above it, runs; the owner of the environment is the highest one
// that is asked.
std::string source_for(pid_t id) {
  const pid_t owner = owner_of_environment();
  std::string own = command_name(id);
  for (int depth = 0; depth < 16 && id > 1; ++depth) {
    if (const auto script = script_name(id)) return *script;
    if (id == owner) break;
    id = find_process(id).value_or(process{}).parent;
  }
  return own;
}

std::string default_detail() {
  char *const directory = get_current_dir_name();
  std::string text = directory != nullptr ? directory : "?";
  std::free(directory);
  if (text.size() > kLongestDirectory) text = "..." + text.substr(text.size() - kLongestDirectory);
  return "user " + user_name(geteuid()) + ", directory " + text;
}

void give(std::string &field, const std::string &value) {
  if (field.empty()) field = value;
}

}  // namespace

incident::incident() : event_type(VOSK_ERROR) {}

void fill_in_defaults(incident &what, recorder who) {
  const pid_t id = id_of(who);
  const std::string name = variable("VOSKPNAME");
  give(what.resource, name.empty() ? command_name(id) : name);
  give(what.product, kProduct);
  give(what.source, source_for(id));
  give(what.version, kVersion);
  give(what.catalogue, kCatalogue);
  if (!what.detail.empty() || !what.detail_file.empty()) return;
  what.detail = default_detail();
  what.detail_is_default = true;
}

recording record(const incident &what, recorder who, road way) {
  if (way == road::log) return record_in_log(what, who);
  recording in_stack = record_in_stack(what, who);
  if (in_stack.made || way == road::stack) return in_stack;
  recording in_log = record_in_log(what, who);
  in_log.stack_code = in_stack.code;
  in_log.stack_text = in_stack.text;
  return in_log;
}

void complain_about(const recording &made, bool whole) {
  // That there is no stack is what the automatic road is for; one that cannot be used is news.
  if (made.stack_code != VK_SUCCESS && (whole || made.stack_code != VK_NO_VK_ENVIR || !made.made))
    complain("not in the Error Stack (" + std::to_string(made.stack_code) + "): " + one_line(made.stack_text));
  if (made.cut && made.where == road::log) complain("the message is cut: a System Log record has no room for more");
  if (made.code == VK_SUCCESS) return;
  const std::string code = "(" + std::to_string(made.code) + "): ";
  if (!made.made)
    complain("not recorded " + code + one_line(made.text));
  else if (whole)
    complain("recorded " + code + escaped(made.text, keep::lines));
  else
    complain("recorded " + code + first_sentence(made.text));
}

std::string recording_line(const recording &made) {
  json_line line("recording");
  line.boolean("recorded", made.made).text("road", made.where == road::stack ? "stack" : "log");
  const auto text_or_null = [&](const char *name, const std::string &value) {
    if (value.empty())
      line.null(name);
    else
      line.text(name, value);
  };
  text_or_null("identifier", made.identifier);
  line.number("code", made.code);
  text_or_null("text", made.text);
  line.boolean("cut", made.cut);
  if (made.stack_code != VK_SUCCESS) line.number("stack_code", made.stack_code).text("stack_text", made.stack_text);
  return line.take();
}

}  // namespace vosk
