#include "process.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "include/qx_cu.h"
#include "reader/escape.h"
#include "reader/number.h"
#include "reader/proc_file.h"

namespace vosk {

namespace {

constexpr std::size_t kLongestCommandLine = 65536;
constexpr int kDeepest = 4096;  // no chain of processes is that long

std::string base_name(std::string path) {
  while (!path.empty() && path.back() == '/') path.pop_back();
  return path.substr(path.rfind('/') + 1);
}

// "bash" of "bash-5.2", "zsh5" or "bash (deleted)".
std::string program_family(const std::string &path) {
  const std::string name = base_name(path);
  return name.substr(0, name.find_first_of("-.0123456789 "));
}

std::string executable_of(pid_t id) {
  char path[4096];
  const ssize_t length = readlink(("/proc/" + std::to_string(id) + "/exe").c_str(), path, sizeof path);
  return {path, static_cast<std::size_t>(std::max<ssize_t>(length, 0))};
}

// The length of the control character at the start of `text`, 0 where there is none.
std::size_t control_length(std::string_view text) {
  const auto byte = static_cast<unsigned char>(text.front());
  if (byte < 0x20 || byte == 0x7F) return 1;
  char32_t code = 0;
  const std::size_t length = utf8_length(text, &code);
  return code >= 0x80 && code < 0xA0 ? length : 0;
}

// The first argument of a shell that is no option: its script. Nothing with -c and -s.
std::optional<std::string> script_of_shell(const std::vector<std::string> &words) {
  for (std::size_t i = 1; i < words.size(); ++i) {
    const std::string &word = words[i];
    if (word == "--" || word == "-") return i + 1 < words.size() ? std::optional(words[i + 1]) : std::nullopt;
    if (word.size() < 2 || (word[0] != '-' && word[0] != '+')) return word;
    if (word.starts_with("--")) {
      if (word == "--rcfile" || word == "--init-file" || word == "--emulate") ++i;
      continue;
    }
    if (word[0] == '-' && word.find_first_of("cs") != std::string::npos) return std::nullopt;
    if (word.find_first_of("oO") != std::string::npos) ++i;
  }
  return std::nullopt;
}

}  // namespace

std::optional<process> find_process(pid_t id) {
  const std::string text = proc_file(id, "stat").value_or("");
  const std::vector<std::string_view> fields = stat_fields(text);
  if (fields.size() <= kEnvironment) return std::nullopt;
  const auto number = [&](stat_field field) {
    unsigned long long value = 0;
    (void)parse_number(fields[field], value);
    return value;
  };
  process found;
  found.id = id;
  found.parent = static_cast<pid_t>(number(kParent));
  found.image = {number(kCode), number(kStack), number(kData), number(kArguments), number(kEnvironment)};
  return found;
}

bool is_ancestor(pid_t ancestor, pid_t id) {
  for (int depth = 0; depth < kDeepest && id > 0; ++depth) {
    if (id == ancestor) return true;
    const auto found = find_process(id);
    if (!found) return false;
    id = found->parent;
  }
  return false;
}

bool is_copy_of(const process &id, const process &other) {
  // Where addresses are not random, the same program can lie at the same place in any two processes.
  return id.image.stack != 0 && id.image == other.image && executable_of(id.id) == executable_of(other.id) &&
         command_line(id.id) == command_line(other.id);
}

bool is_shell(pid_t id) {
  static constexpr std::string_view kShells[] = {"sh",   "ash",  "bash",  "dash", "ksh",  "lksh", "mksh",
                                                 "oksh", "posh", "rbash", "rksh", "yash", "zsh"};
  std::string name = program_family(executable_of(id));
  if (name == "busybox") {
    const std::string words = proc_file(id, "cmdline", kLongestCommandLine).value_or("");
    name = base_name(words.substr(0, words.find('\0')));
    if (name.starts_with('-')) name.erase(0, 1);
  }
  return std::find(std::begin(kShells), std::end(kShells), name) != std::end(kShells);
}

std::vector<std::string> command_line(pid_t id) {
  const std::string text = proc_file(id, "cmdline", kLongestCommandLine).value_or("");
  std::vector<std::string> words;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\0', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return words;
}

std::string command_name(pid_t id) {
  cu_proc_info_t info{};
  if (cu_get_proc_info_1(&info, id) != 1) return as_process_name("");
  return as_process_name(base_name(info.command));
}

std::optional<std::string> script_name(pid_t id) {
  const std::vector<std::string> words = command_line(id);
  std::optional<std::string> script;
  if (is_shell(id)) {
    script = script_of_shell(words);
  } else {
    // Of any other interpreter: the kernel names the process after the script, and puts the script behind the
    // interpreter and one argument at most.
    cu_proc_info_t info{};
    if (cu_get_proc_info_1(&info, id) != 1) return std::nullopt;
    const auto is_named = [&](const std::string &word) {
      constexpr std::size_t kKernelName = 15;
      return base_name(word).substr(0, kKernelName) == info.command;
    };
    for (std::size_t i = 1; i < std::min<std::size_t>(words.size(), 3) && !is_named(words[0]) && !script; ++i)
      if (is_named(words[i])) script = words[i];
  }
  if (!script || base_name(*script).empty()) return std::nullopt;
  return base_name(*script);
}

std::string as_process_name(const std::string &text) {
  std::string name;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t control = control_length(rest);
    name += control > 0 || rest.front() == '/' ? '_' : rest.front();
    rest.remove_prefix(std::max<std::size_t>(control, 1));
  }
  return name.empty() ? "_" : name;
}

bool has_control_characters(const std::string &text) {
  for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(1))
    if (control_length(rest) > 0) return true;
  return false;
}

}  // namespace vosk
