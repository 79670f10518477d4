#include "filter.h"

#include <fnmatch.h>

#include <algorithm>

#include "reader/identifier.h"
#include "reader/number.h"

namespace vosk {

namespace {

constexpr std::int64_t kAround = 300000000;  // five minutes

moment parse_or_throw(const std::string &text, const char *option, zone where, moment now) {
  const auto at = parse_moment(text, where, now);
  if (!at) throw usage_error(std::string(option) + ": '" + text + "' is no time");
  return *at;
}

time_window window_around(const std::string &text) {
  const std::size_t equals = text.find('=');
  std::string why;
  const auto id = decode_identifier(text.substr(0, equals), &why);
  if (!id) throw usage_error("--around: not an identifier: " + why);
  const auto span = equals == std::string::npos ? kAround : parse_duration(text.substr(equals + 1));
  if (!span) throw usage_error("--around: '" + text.substr(equals + 1) + "' is no span of time");
  const moment middle{id->seconds, static_cast<std::int32_t>(id->microseconds.value_or(0))};
  return {shifted(middle, -*span), shifted(middle, *span)};
}

bool matches_any(const std::vector<std::string> &patterns, const std::optional<std::string_view> &text) {
  const std::string value(text.value_or(""));
  return std::any_of(patterns.begin(), patterns.end(),
                     [&](const std::string &pattern) { return fnmatch(pattern.c_str(), value.c_str(), 0) == 0; });
}

std::string_view base_name(std::string_view path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

time_window window_of(const record_filters &filters, zone where, moment now) {
  if (!filters.around.empty()) {
    if (!filters.since.empty() || !filters.until.empty()) throw usage_error("--around excludes --since and --until");
    return window_around(filters.around);
  }
  time_window window;
  if (!filters.since.empty()) window.since = parse_or_throw(filters.since, "--since", where, now);
  if (!filters.until.empty()) window.until = parse_or_throw(filters.until, "--until", where, now);
  return window;
}

record_filter::record_filter(const record_filters &filters) : wanted_(filters) {
  for (const std::string &message : filters.messages) {
    const std::size_t slash = message.find('/');
    auto &[set, number] = messages_.emplace_back();
    if (slash == std::string::npos || !parse_number(message.substr(0, slash), set) ||
        !parse_number(message.substr(slash + 1), number))
      throw usage_error("--msg: '" + message + "' is not SET/NUMBER");
  }
  for (const std::string &pattern : filters.patterns) {
    std::unique_ptr<regex_t> regex(new regex_t);
    const int error = regcomp(regex.get(), pattern.c_str(), REG_EXTENDED | REG_NOSUB);
    if (error != 0) {
      char text[128];
      (void)regerror(error, regex.get(), text, sizeof text);
      throw usage_error("--grep: '" + pattern + "': " + text);
    }
    patterns_.emplace_back(regex.release());
  }
}

bool record_filter::selects(const record &r, const std::string &description) const {
  return matches(r, description) != wanted_.inverted;
}

bool record_filter::matches(const record &r, const std::string &description) const {
  if (!wanted_.processes.empty() && !matches_any(wanted_.processes, r.process)) return false;
  if (!wanted_.products.empty() && !matches_any(wanted_.products, r.product)) return false;
  if (!wanted_.pids.empty() &&
      (!r.pid || std::find(wanted_.pids.begin(), wanted_.pids.end(), *r.pid) == wanted_.pids.end()))
    return false;
  return matches_source(r) && matches_message(r) && matches_text(r, description);
}

// "worker.c", "src/worker.c", "worker.c:12"
bool record_filter::matches_source(const record &r) const {
  if (wanted_.sources.empty()) return true;
  const std::string path(r.source.value_or("")), name(base_name(path)), line = ":" + std::to_string(r.line.value_or(0));
  const std::string with_line = path + line, name_with_line = name + line;
  return matches_any(wanted_.sources, path) || matches_any(wanted_.sources, name) ||
         matches_any(wanted_.sources, with_line) || matches_any(wanted_.sources, name_with_line);
}

bool record_filter::matches_message(const record &r) const {
  if (messages_.empty()) return true;
  return r.set && r.number &&
         std::find(messages_.begin(), messages_.end(), std::pair(*r.set, *r.number)) != messages_.end();
}

bool record_filter::matches_text(const record &r, const std::string &description) const {
  if (patterns_.empty()) return true;
  const std::string default_text(r.default_text.value_or("")), detail(r.detail.value_or(""));
  return std::any_of(patterns_.begin(), patterns_.end(), [&](const auto &pattern) {
    const auto found = [&](const std::string &text) {
      return regexec(pattern.get(), text.c_str(), 0, nullptr, 0) == 0;
    };
    return found(description) || found(default_text) || found(detail);
  });
}

}  // namespace vosk
