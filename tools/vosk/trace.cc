// vosk trace: the whole incident that an identifier belongs to.

#include <algorithm>
#include <iterator>

#include "coverage.h"
#include "exit_status.h"
#include "identifier_text.h"
#include "log_text.h"
#include "lookup.h"
#include "output.h"
#include "reader/description.h"
#include "reader/incident.h"
#include "record_text.h"
#include "verbs.h"

namespace vosk {

namespace {

// Deeper branches are not moved to the right any more; their depth is printed.
constexpr std::size_t kDeepest = 24;

struct branch_signs {
  const char *more, *last, *through, *nothing;
};
constexpr branch_signs kLines = {"├─ ", "└─ ", "│  ", "   "};
constexpr branch_signs kPlain = {"|- ", "`- ", "|  ", "   "};

std::vector<const incident_entry *> of_kind(const std::vector<const incident_entry *> &entries, bool logged) {
  std::vector<const incident_entry *> some;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(some),
               [&](const incident_entry *entry) { return (entry->logged != nullptr) == logged; });
  return some;
}

class incident_printer {
 public:
  incident_printer(const common_options &common, output &out, const std::string &asked, const log_findings &logged)
      : common_(common), out_(out), asked_(asked), logged_(logged), signs_(out.utf8() ? kLines : kPlain) {}

  // Nodes come in the order of the tree.
  void print(const incident_node &node) {
    // The ones that this one hangs on, and what they leave open.
    path_.resize(node.depth);
    std::string lead;
    if (node.depth > 0) lead = lead_for(node);
    const std::string *const cause = path_.empty() ? nullptr : &path_.back().eid;
    if (common_.json)
      print_json(node, cause);
    else
      print_text(node, cause, lead);
    path_.push_back({node.eid, node.last_of_its_cause});
  }

 private:
  struct step {
    std::string eid;
    bool last;
  };

  std::string lead_for(const incident_node &node) const {
    if (node.depth > kDeepest) return "[" + std::to_string(node.depth) + " deep] ";
    std::string lead;
    for (std::size_t i = 1; i < path_.size(); ++i) lead += path_[i].last ? signs_.nothing : signs_.through;
    return lead + (node.last_of_its_cause ? signs_.last : signs_.more);
  }

  // The time itself for the first, the difference to the cause for the others.
  std::string when(const incident_node &node, const std::string *cause) const {
    const auto at = made_at(node.eid), before = cause != nullptr ? made_at(*cause) : std::nullopt;
    if (!at) return "(no time)";
    if (!before)
      return time_text(at->seconds, static_cast<std::uint32_t>(at->microseconds),
                       common_.utc ? zone::utc : zone::local);
    const std::int64_t difference = microseconds_between(*before, *at);
    return (difference < 0 ? "" : "+") + duration_text(difference) + clock_note(node, *cause, difference);
  }

  // Nothing follows from what has not happened yet.
  static std::string clock_note(const incident_node &node, const std::string &cause, std::int64_t difference) {
    if (difference >= 0) return {};
    return other_node(node, &cause).empty() ? " (the clock went back)" : " (the nodes' clocks differ)";
  }

  // Where it was recorded, if that is another node than its cause's.
  static std::string other_node(const incident_node &node, const std::string *cause) {
    const auto id = decode_identifier(node.eid), before = decode_identifier(cause != nullptr ? *cause : std::string());
    if (!id || !id->address || (before && before->address == id->address)) return {};
    return " on " + id->address->text();
  }

  void print_text(const incident_node &node, const std::string *cause, const std::string &lead) {
    const std::string start = lead + out_.painted(style::time, when(node, cause));
    const std::string mark =
        std::string(node.eid == asked_ ? " <- asked for" : "") + (node.refers_to_itself ? " (refers to itself)" : "");
    const std::string eid =
        is_unidentified(node.eid) ? "(no identifier)" : out_.painted(style::identifier, out_.safe(node.eid));
    if (node.repeated) {
      out_.line(start + " (above already) " + eid);
      return;
    }
    if (node.entries.empty())
      out_.line(start + " " + out_.painted(style::damage, missing_text(node.eid)) + other_node(node, cause) + " " +
                eid + mark);
    for (const incident_entry *entry : node.entries) {
      std::string line = start;
      line += ' ';
      line += out_.painted(style::process, entry->logged != nullptr ? process_text(out_, *entry->logged)
                                                                    : process_text(out_, *entry->what));
      line += other_node(node, cause);
      line += ' ';
      line += entry->logged != nullptr ? source_text(out_, *entry->logged) : source_text(out_, *entry->what);
      line += ' ';
      line += out_.safe(first_line_of(*entry));
      line += ' ';
      line += eid;
      line += mark;
      out_.line(line);
    }
  }

  std::string first_line_of(const incident_entry &entry) {
    const std::string text = entry.logged != nullptr ? entry.logged->message : descriptions_.description(*entry.what);
    return text.substr(0, text.find('\n'));
  }

  verdict_kind why_missing(const std::string &eid) { return look_up(common_, eid, {false, {}, &logged_}).judged.kind; }

  std::string missing_text(const std::string &eid) {
    return "(no record: " + std::string(name_of(why_missing(eid))) + ")";
  }

  void print_json(const incident_node &node, const std::string *cause) {
    json_line line("trace");
    if (is_unidentified(node.eid))
      line.null("identifier");
    else
      line.text("identifier", node.eid);
    line.number("depth", node.depth);
    if (cause != nullptr)
      line.text("follows_from", *cause);
    else
      line.null("follows_from");
    line.boolean("asked_for", node.eid == asked_).boolean("repeated", node.repeated);
    line.boolean("refers_to_itself", node.refers_to_itself);
    const auto at = made_at(node.eid), before = cause != nullptr ? made_at(*cause) : std::nullopt;
    if (at && before) line.number("microseconds_later", microseconds_between(*before, *at));
    if (!node.repeated) {
      if (node.entries.empty()) line.text("verdict", name_of(why_missing(node.eid)));
      line.array("records", of_kind(node.entries, false), [&](const incident_entry *entry, std::string &text) {
        json_object object(text);
        record_members(object, {&entry->file->path, entry->what}, descriptions_.description(*entry->what));
        object.close();
      });
      line.array("log_records", of_kind(node.entries, true), [&](const incident_entry *entry, std::string &text) {
        json_object object(text);
        log_members(object, *entry->logged);
        object.close();
      });
    }
    out_.write(line.take());
  }

  const common_options &common_;
  output &out_;
  const std::string &asked_;
  const log_findings &logged_;
  const branch_signs &signs_;
  describer descriptions_;
  std::vector<step> path_;
};

}  // namespace

int trace(const common_options &common, const trace_options &options) {
  exit_status status;
  output out(common, true);
  const std::string &eid = options.identifier;
  std::vector<std::string> names{kStackDirectory};
  for (const std::string &name : names_to_read({}, common))
    if (name != kStackDirectory) names.push_back(name);
  const collection found = read_names(names);
  const log_findings logged = all_log_records(logs_to_read(common, options.logs));
  const std::vector<incident_entry> entries = entries_of(found.stacks, logged.records);
  const std::vector<incident_node> tree = trace_incident(entries, eid);
  if (tree.empty()) {
    const lookup looked = look_up(common, eid, {false, options.logs, &logged});
    print_verdict(out, common, looked);
    note_verdict(looked, status);
  }
  incident_printer printer(common, out, eid, logged);
  for (const incident_node &node : tree) {
    if (out.closed()) break;
    printer.print(node);
    for (const incident_entry *entry : node.entries)
      if (entry->what != nullptr && !entry->what->intact) status.damage = true;
  }
  for (const refused_file &file : found.refused)
    if (file.failed) status.failure = true;
  if (status.failure) print_refused(out, common, found, status);
  print_unreadable_logs(out, common, logged, !options.logs.empty(), status);
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
