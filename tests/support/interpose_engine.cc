// What happens to one recorded call: counting, hooks, rules, logging.
#include "support/interpose_engine.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace platform {

__thread Calls *armed_calls __attribute__((tls_model("initial-exec"))) = nullptr;

namespace {

bool same_path(std::string_view wanted, std::string_view path) {
  return wanted.empty() || wanted == path;
}

}  // namespace

std::string error_name(int error) {
  const char *name = strerrorname_np(error);
  return name == nullptr ? std::to_string(error) : name;
}

std::string quoted(const char *text) {
  if (text == nullptr) return "null";
  std::string out = "\"";
  for (const char *p = text; *p != '\0'; ++p) {
    switch (*p) {
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '"':
      case '\\':
        out += '\\';
        out += *p;
        break;
      default:
        if (static_cast<unsigned char>(*p) < 0x20 || *p == 0x7f) {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(*p));
          out += escape;
        } else {
          out += *p;
        }
    }
  }
  return out + "\"";
}

Recording &Recording::hex(unsigned long value) {
  char text[32];
  std::snprintf(text, sizeof text, "0x%lx", value);
  return raw(text);
}
Recording &Recording::octal(unsigned value) {
  char text[32];
  std::snprintf(text, sizeof text, "0%o", value);
  return raw(text);
}

std::string Engine::label(const Calls &calls, int fd) {
  auto known = calls.descriptors_.find(fd);
  return known == calls.descriptors_.end() ? std::to_string(fd) : known->second.label;
}

std::string Engine::path_of(const Calls &calls, int fd) {
  auto known = calls.descriptors_.find(fd);
  if (known != calls.descriptors_.end()) return known->second.path;
  char link[64];
  char target[PATH_MAX];
  std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
  ssize_t length = readlink(link, target, sizeof target);
  return length < 0 ? "" : std::string(target, static_cast<std::size_t>(length));
}

bool Engine::ignored(const Calls &calls, const Call &call) {
  auto named = [&](const std::vector<std::string> &list, const std::string &text) {
    return std::find(list.begin(), list.end(), text) != list.end();
  };
  return named(calls.ignored_names_, call.name) || (!call.path.empty() && named(calls.ignored_paths_, call.path));
}

Engine::Decision Engine::begin(Calls &calls, Call &call) {
  ++calls.total_;
  ++calls.counts_[call.name];
  for (std::size_t i = 0; i < calls.hooks_.size(); ++i) {  // by index: a hook may plan further hooks
    Calls::HookRule &rule = calls.hooks_[i];
    if (!rule.before || !(rule.name.empty() || rule.name == call.name) || !same_path(rule.path, call.path)) continue;
    ++rule.seen;
    if (rule.nth != 0 && rule.seen != rule.nth) continue;
    Calls::Hook hook = rule.hook;
    hook(call);
  }
  Decision decision;
  for (Calls::Rule &rule : calls.rules_) {
    bool named = rule.name.empty() ? Calls::can_fail(call.name) : rule.name == call.name;
    if (!named || !same_path(rule.path, call.path)) continue;
    ++rule.seen;  // every rule counts for itself, also where another one decides
    if (decision.action != Action::kReal || rule.seen < rule.first || rule.seen > rule.last) continue;
    ++rule.used;
    ++calls.faults_;
    decision.value = rule.value;
    decision.action = rule.kind == Calls::Rule::kFail    ? Action::kFail
                      : rule.kind == Calls::Rule::kShort ? Action::kShort
                                                         : Action::kReturn;
  }
  return decision;
}

void Engine::end(Calls &calls, Call call) {
  bool opens = (call.name == "open" || call.name == "socket") && call.value >= 0;
  if (opens) {
    call.fd = static_cast<int>(call.value);
    call.result = "fd" + std::to_string(++calls.opened_);
    calls.descriptors_[call.fd] = {call.result, call.path};
  }
  if (call.name == "close") calls.descriptors_.erase(call.fd);
  if (call.error != 0) {
    if (call.name == "readdir_r") {
      call.result = error_name(call.error);
    } else if (call.name != "getenv") {
      call.result += " " + error_name(call.error);
    }
  }
  calls.log_.push_back(call);
  for (std::size_t i = 0; i < calls.hooks_.size(); ++i) {
    Calls::HookRule &rule = calls.hooks_[i];
    if (rule.before || !(rule.name.empty() || rule.name == call.name) || !same_path(rule.path, call.path)) continue;
    ++rule.seen;
    if (rule.nth != 0 && rule.seen != rule.nth) continue;
    Calls::Hook hook = rule.hook;
    hook(call);
  }
}

Engine::Decision Engine::allocation(Calls &calls, const char *name) {
  Decision decision;
  ++calls.counts_[name];
  ++calls.counts_["allocation"];
  for (Calls::Rule &rule : calls.rules_) {
    if (rule.name != name && rule.name != "allocation") continue;
    ++rule.seen;
    if (rule.seen < rule.first || rule.seen > rule.last) continue;
    ++rule.used;
    ++calls.faults_;
    decision = {Action::kFail, rule.value};
  }
  return decision;
}

void Engine::obtained(Calls &calls, const void *block, std::size_t size) {
  calls.blocks_.emplace_back(block, size);
}

void Engine::released(Calls &calls, const void *block) {
  std::erase_if(calls.blocks_, [block](const auto &known) { return known.first == block; });
}

}  // namespace platform
