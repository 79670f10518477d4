#include "collect_choice.h"

#include <algorithm>

#include "coverage.h"
#include "lookup.h"
#include "reader/detail_path.h"
#include "reader/identifier_scan.h"
#include "reader/incident.h"
#include "reader/log_record.h"
#include "reader/log_search.h"
#include "reader/node.h"

namespace vosk {

namespace {

// A line that may belong to an incident.
struct kept_line {
  std::string source, text;
  std::vector<std::string> identifiers;
  bool is_record = false;
};

struct log_contents {
  std::vector<kept_line> lines;
  std::vector<log_record> records;
  bool too_many = false;  // these are the first
};

std::size_t bytes_of(const kept_line &line) {
  constexpr std::size_t kIdentifierBytes = sizeof(std::string) + 48;
  return sizeof line + line.source.size() + line.text.size() + line.identifiers.size() * kIdentifierBytes;
}

// One pass, as what is read may be a pipe: everything with an identifier in it is kept.
log_contents read_logs(const std::vector<std::string> &names, std::vector<log_outcome> &outcomes) {
  log_contents contents;
  const identifier_scanner scanner(now().seconds);
  std::vector<std::size_t> found;
  std::size_t bytes = 0;
  outcomes = for_each_log_line(names, [&](const log_line &line) {
    found.clear();
    scanner.scan(line.text, found);
    auto record = parse_log_record(line);
    if (found.empty() && !record) return true;
    kept_line kept{line.source, std::string(line.text), {}, record.has_value()};
    for (const std::size_t at : found) kept.identifiers.emplace_back(line.text.substr(at, kIdentifierLength));
    if (record) kept.identifiers.insert(kept.identifiers.end(), {record->eid, record->reference});
    bytes += bytes_of(kept) + (record ? sizeof *record + line.text.size() : 0);
    contents.too_many = bytes > kMostLogBytes;
    if (contents.too_many) return false;
    contents.lines.push_back(std::move(kept));
    if (record) contents.records.push_back(std::move(*record));
    return true;
  });
  return contents;
}

// "logs/var_log_syslog"
std::string log_name(const std::string &source) {
  std::string name;
  for (const char c : source) {
    const bool plain =
        (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' || c == '-';
    if (plain || !name.empty()) name += plain ? c : '_';
  }
  constexpr std::size_t kLongest = 80;
  if (name.size() > kLongest) name.erase(0, name.size() - kLongest);
  return "logs/" + (name.empty() ? "log" : name);
}

class chooser {
 public:
  chooser(const common_options &common, const collect_options &options) : common_(common), options_(options) {}

  collect_choice run() {
    std::vector<std::string> names{kStackDirectory};
    for (const std::string &name : names_to_read({}, common_))
      if (name != kStackDirectory) names.push_back(name);
    choice_.read = read_names(names);
    const log_contents logs = read_logs(logs_to_read(common_, options_.logs), choice_.log_sources);
    choice_.too_many = logs.too_many;
    if (options_.all)
      take_all(logs);
    else
      take_incident(logs);
    take_lines(logs);
    return std::move(choice_);
  }

 private:
  void take_all(const log_contents &logs) {
    for (const stack_file &file : choice_.read.stacks) take_stack(file);
    for (const log_record &r : logs.records) take_copy(r);
  }

  void take_incident(const log_contents &logs) {
    const std::vector<incident_entry> entries = entries_of(choice_.read.stacks, logs.records);
    std::set<const stack_file *> files;
    for (const incident_node &node : trace_incident(entries, options_.identifier)) {
      if (!is_unidentified(node.eid)) choice_.identifiers.insert(node.eid);
      for (const incident_entry *entry : node.entries) {
        if (entry->file != nullptr) files.insert(entry->file);
        if (entry->logged != nullptr) take_copy(*entry->logged);
      }
    }
    for (const stack_file &file : choice_.read.stacks)
      if (files.count(&file) != 0) take_stack(file);
  }

  // "stacks/NAME"; stacks of several nodes can have one name.
  std::string free_name(const std::string &path) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::size_t number = ++named_[name];
    return "stacks/" + (number == 1 ? "" : std::to_string(number) + "/") + name;
  }

  void take_stack(const stack_file &file) {
    // The caller's own stack lies among the others mostly.
    if (file.facts.inode != 0 && !taken_.emplace(file.facts.device, file.facts.inode).second) return;
    choice_.stacks[free_name(file.path)] = &file;
    for (const record &r : file.contents.records) {
      const auto name = cited_copy(r.detail.value_or(""));
      if (name && choice_.copies.count(*name) == 0)
        choice_.copies[*name] = [common = &common_, &file, &r] { return locate_detail(*common, {&file, &r}); };
    }
  }

  void take_copy(const log_record &r) {
    const auto name = cited_copy(r.detail_file);
    const auto id = decode_identifier(r.eid);
    if (!name || choice_.copies.count(*name) != 0) return;
    const node_test node = id ? test_node(*id, addresses_) : node_test::this_node;
    choice_.copies[*name] = [common = &common_, r, node] { return locate_detail(*common, r, node); };
  }

  void take_lines(const log_contents &logs) {
    for (const kept_line &line : logs.lines) {
      const bool about_it = options_.all
                                ? line.is_record
                                : std::any_of(line.identifiers.begin(), line.identifiers.end(),
                                              [&](const auto &id) { return choice_.identifiers.count(id) != 0; });
      if (!about_it) continue;
      choice_.logs[log_name(line.source)] += line.text + "\n";
      ++choice_.log_lines;
    }
  }

  const common_options &common_;
  const collect_options &options_;
  const std::vector<node_address> addresses_ = addresses_of_this_node();
  std::map<std::string, std::size_t> named_;                 // how many stacks have a name
  std::set<std::pair<std::uint64_t, std::uint64_t>> taken_;  // devices and i-nodes
  collect_choice choice_;
};

}  // namespace

collect_choice choose_what_to_collect(const common_options &common, const collect_options &options) {
  return chooser(common, options).run();
}

}  // namespace vosk
