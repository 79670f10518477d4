#include "support/interpose.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <climits>

#include "support/interpose_engine.h"

namespace platform {

namespace {

// The calls that fail_kth counts. Left out: those that cannot fail, and the reads of the clock, of which the callers
// make nothing.
constexpr std::array kCanFail = {"stat",      "fstat",    "fstatat", "statfs", "open",   "lseek",     "read",
                                 "write",     "close",    "unlink",  "fchmod", "lockf",  "fcntl",     "opendir",
                                 "readdir_r", "closedir", "socket",  "ioctl",  "putenv", "getrlimit", "catopen"};

}  // namespace

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

std::vector<std::size_t> Calls::unreleased() const {
  std::vector<std::size_t> out;
  for (const auto &block : blocks_) out.push_back(block.second);
  return out;
}

void Calls::clear() {
  log_.clear();
  blocks_.clear();
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
