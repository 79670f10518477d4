#include "incident.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "identifier.h"

namespace vosk {

namespace {

// By identifier: its recordings, and the identifiers of those that refer to it.
class references {
 public:
  explicit references(const std::vector<incident_entry> &entries) {
    entries_.reserve(entries.size());
    for (const incident_entry &entry : entries) {
      entries_[entry.eid].push_back(&entry);
      if (entry.cause == entry.eid) to_themselves_.insert(entry.eid);
      if (!entry.cause.empty() && entry.cause != entry.eid) followers_[entry.cause].push_back(entry.eid);
    }
  }

  const std::vector<const incident_entry *> &entries(const std::string &eid) const {
    static const std::vector<const incident_entry *> none;
    const auto found = entries_.find(eid);
    return found == entries_.end() ? none : found->second;
  }

  // Each once, sorted by time.
  std::vector<std::string> followers(const std::string &eid) const {
    const auto found = followers_.find(eid);
    if (found == followers_.end()) return {};
    std::vector<std::string> sorted(found->second.begin(), found->second.end());
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const std::string &a, const std::string &b) { return made_at(a) < made_at(b); });
    return sorted;
  }

  // Empty where there is none, or only the identifier itself.
  std::string cause(const std::string &eid) const {
    for (const incident_entry *entry : entries(eid))
      if (!entry->cause.empty() && entry->cause != eid) return entry->cause;
    return {};
  }

  bool to_itself(const std::string &eid) const { return to_themselves_.count(eid) != 0; }

  bool known(const std::string &eid) const { return entries_.count(eid) != 0 || followers_.count(eid) != 0; }

  // The first cause of an incident; of a loop, its earliest part.
  std::string first_cause(std::string eid) const {
    std::set<std::string> passed;
    while (passed.insert(eid).second) {
      const std::string before = cause(eid);
      if (before.empty()) return eid;
      eid = before;
    }
    std::string earliest = eid;
    for (std::string at = cause(eid); at != eid; at = cause(at))
      if (made_at(at) < made_at(earliest)) earliest = at;
    return earliest;
  }

 private:
  // The texts are those of the entries.
  std::unordered_map<std::string_view, std::vector<const incident_entry *>> entries_;
  std::unordered_map<std::string_view, std::vector<std::string_view>> followers_;
  std::unordered_set<std::string_view> to_themselves_;
};

std::string_view bytes_of(const incident_entry &entry) {
  const unsigned char *const bytes = entry.file->contents.bytes.data() + entry.what->offset;
  return {reinterpret_cast<const char *>(bytes), entry.what->size};
}

}  // namespace

std::optional<moment> made_at(const std::string &eid) {
  const auto id = decode_identifier(eid);
  if (!id) return std::nullopt;
  return moment{id->seconds, static_cast<std::int32_t>(id->microseconds.value_or(0))};
}

bool is_unidentified(const std::string &eid) noexcept {
  return eid.starts_with('\0');
}

std::vector<incident_entry> entries_of(const std::vector<stack_file> &files, const std::vector<log_record> &logged) {
  std::vector<incident_entry> entries;
  std::unordered_set<std::string_view> known;  // a record's bytes hold its identifiers, too
  const auto add = [&](incident_entry entry) {
    if (entry.eid.empty() && entry.cause.empty()) return;
    if (!known.insert(bytes_of(entry)).second) return;
    if (entry.eid.empty()) entry.eid = '\0' + std::to_string(entries.size());
    entries.push_back(std::move(entry));
  };
  // Of a stack there can be copies; a recording of the System Log is known once already.
  for (const stack_file &file : files)
    for (const record &r : file.contents.records)
      add({r.id ? std::string(identifier_text(r.eid)) : "", std::string(identifier_text(r.associated)), &file, &r});
  for (const log_record &r : logged) {
    if (r.eid.empty() && r.reference.empty()) continue;
    entries.push_back(
        {r.eid.empty() ? '\0' + std::to_string(entries.size()) : r.eid, r.reference, nullptr, nullptr, &r});
  }
  return entries;
}

std::vector<incident_node> trace_incident(const std::vector<incident_entry> &entries, const std::string &eid) {
  const references refer(entries);
  std::vector<incident_node> tree;
  if (!refer.known(eid)) return tree;
  struct open_node {
    std::string eid;
    std::size_t depth;
    bool last;
  };
  std::vector<open_node> open{{refer.first_cause(eid), 0, true}};  // the next one is at the end
  std::set<std::string> shown;
  while (!open.empty()) {
    const open_node next = open.back();
    open.pop_back();
    incident_node node{next.eid, {}, next.depth, next.last};
    node.repeated = !shown.insert(next.eid).second;
    node.refers_to_itself = refer.to_itself(next.eid);
    if (!node.repeated) {
      node.entries = refer.entries(next.eid);
      const std::vector<std::string> followers = refer.followers(next.eid);
      for (auto at = followers.rbegin(); at != followers.rend(); ++at)
        open.push_back({*at, next.depth + 1, at == followers.rbegin()});
    }
    tree.push_back(std::move(node));
  }
  return tree;
}

}  // namespace vosk
