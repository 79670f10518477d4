#include "support/interpose.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>

#include "support/interpose_engine.h"

namespace platform {

__thread Calls *armed_calls __attribute__((tls_model("initial-exec"))) = nullptr;

namespace {

// The calls that fail_kth counts. Left out: those that cannot fail, and the reads of the clock, of which the callers
// make nothing.
constexpr std::array kCanFail = {"stat",      "fstat",    "fstatat", "statfs", "open",   "lseek",     "read",
                                 "write",     "close",    "unlink",  "fchmod", "lockf",  "fcntl",     "opendir",
                                 "readdir_r", "closedir", "socket",  "ioctl",  "putenv", "getrlimit", "catopen"};

std::string printed(const char *format, unsigned long value) {
  char text[32];
  if (std::strcmp(format, "0%o") == 0) {
    std::snprintf(text, sizeof text, "0%lo", value);
  } else {
    std::snprintf(text, sizeof text, "0x%lx", value);
  }
  return text;
}

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
  return raw(printed("0x%x", value));
}
Recording &Recording::octal(unsigned value) {
  return raw(printed("0%o", value));
}

// --- Engine ---

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

// --- Calls ---

Calls::Armed::Armed(Calls &calls) {
  if (armed_calls != nullptr) ADD_FAILURE() << "a during inside a during";
  armed_calls = &calls;
}

Calls::Armed::~Armed() {
  armed_calls = nullptr;
}

Calls::Calls() = default;

Calls::~Calls() {
  if (allow_unused_) return;
  for (const Rule &rule : rules_) {
    if (rule.used == 0) {
      ADD_FAILURE() << "the change planned for call " << rule.first << " of " << (rule.name.empty() ? "any" : rule.name)
                    << (rule.path.empty() ? "" : " on " + rule.path) << " never happened; calls seen: " << rule.seen;
    }
  }
}

std::vector<std::string> Calls::log() const {
  std::vector<std::string> out;
  for (const Call &call : log_) out.push_back(call.text());
  return out;
}

std::vector<std::string> Calls::log_of(const std::vector<std::string> &names) const {
  std::vector<std::string> out;
  for (const Call &call : log_) {
    if (std::find(names.begin(), names.end(), call.name) != names.end()) out.push_back(call.text());
  }
  return out;
}

std::vector<std::string> Calls::log_of_path(std::string_view path) const {
  std::vector<std::string> out;
  for (const Call &call : log_) {
    if (call.path == path) out.push_back(call.text());
  }
  return out;
}

std::vector<std::string> Calls::names() const {
  std::vector<std::string> out;
  for (const Call &call : log_) out.push_back(call.name);
  return out;
}

int Calls::count(std::string_view name) const {
  auto found = counts_.find(name);
  return found == counts_.end() ? 0 : found->second;
}

std::vector<std::pair<int, std::string>> Calls::left_open() const {
  std::vector<std::pair<int, std::string>> out;
  for (const auto &[fd, descriptor] : descriptors_) out.emplace_back(fd, descriptor.path);
  return out;
}

void Calls::clear() {
  log_.clear();
  counts_.clear();
  total_ = 0;
  faults_ = 0;
  opened_ = 0;
  figures_used_ = 0;
  directory_position_ = 0;
  for (Rule &rule : rules_) rule.seen = 0;
  for (HookRule &rule : hooks_) rule.seen = 0;
}

bool Calls::can_fail(std::string_view name) {
  return std::find(kCanFail.begin(), kCanFail.end(), name) != kCanFail.end();
}

void Calls::add_rule(Rule::Kind kind, std::string_view name, int first, int last, long long value,
                     std::string_view path) {
  rules_.push_back({kind, std::string(name), std::string(path), first, last, value});
}

void Calls::fail_nth(std::string_view name, int n, int error, std::string_view path) {
  add_rule(Rule::kFail, name, n, n, error, path);
}
void Calls::fail_first(std::string_view name, int times, int error, std::string_view path) {
  add_rule(Rule::kFail, name, 1, times, error, path);
}
void Calls::fail_from(std::string_view name, int n, int error, std::string_view path) {
  add_rule(Rule::kFail, name, n, INT_MAX, error, path);
}
void Calls::fail_all(std::string_view name, int error, std::string_view path) {
  fail_from(name, 1, error, path);
}
void Calls::fail_kth(int k, int error) {
  add_rule(Rule::kFail, "", k, k, error, "");
}
void Calls::short_nth(std::string_view name, int n, long long bytes, std::string_view path) {
  add_rule(Rule::kShort, name, n, n, bytes, path);
}
void Calls::short_all(std::string_view name, long long bytes, std::string_view path) {
  add_rule(Rule::kShort, name, 1, INT_MAX, bytes, path);
}
void Calls::return_nth(std::string_view name, int n, long long value, std::string_view path) {
  add_rule(Rule::kReturn, name, n == 0 ? 1 : n, n == 0 ? INT_MAX : n, value, path);
}

void Calls::before(std::string_view name, int n, Hook hook, std::string_view path) {
  hooks_.push_back({true, std::string(name), n, std::move(hook), std::string(path)});
}
void Calls::after(std::string_view name, int n, Hook hook, std::string_view path) {
  hooks_.push_back({false, std::string(name), n, std::move(hook), std::string(path)});
}

// --- Surroundings ---

UtcZone::UtcZone() {
  if (const char *zone = getenv("TZ")) previous_ = zone;
  setenv("TZ", "UTC0", 1);
  tzset();
}

UtcZone::~UtcZone() {
  if (previous_) {
    setenv("TZ", previous_->c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
}

void Environment::keep(const std::string &name) {
  const char *value = getenv(name.c_str());
  previous_.emplace_back(name, value == nullptr ? std::nullopt : std::optional<std::string>(value));
}

void Environment::set(const std::string &name, const std::string &value) {
  keep(name);
  setenv(name.c_str(), value.c_str(), 1);
}

void Environment::unset(const std::string &name) {
  keep(name);
  unsetenv(name.c_str());
}

Environment::~Environment() {
  for (auto it = previous_.rbegin(); it != previous_.rend(); ++it) {
    if (it->second) {
      setenv(it->first.c_str(), it->second->c_str(), 1);
    } else {
      unsetenv(it->first.c_str());
    }
  }
}

}  // namespace platform
