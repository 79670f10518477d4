#include "verdict.h"

#include <algorithm>

#include "originator.h"

namespace vosk {

namespace {

struct kind_texts {
  verdict_kind kind;
  std::string_view name, sentence;
};

constexpr kind_texts kTexts[] = {
    {verdict_kind::present, "present", "the record is there"},
    {verdict_kind::ambiguous, "ambiguous", "several different records have this identifier"},
    {verdict_kind::overwritten, "overwritten", "the record was overwritten or cleared: its file has wrapped"},
    {verdict_kind::never_stored, "never_stored",
     "the record was never stored: its file never wrapped, is unbroken and does not hold it"},
    {verdict_kind::damaged, "damaged", "the file in which the record was, if it was stored, is damaged"},
    {verdict_kind::copied_before, "copied_before", "the only copy of its file ends before the record was made"},
    {verdict_kind::file_gone, "file_gone", "the file is gone: no stack of this node has its i-node"},
    {verdict_kind::inode_reused, "inode_reused", "the file is gone: its i-node now belongs to a later file"},
    {verdict_kind::other_node, "other_node", "the address is not one of this node's now"},
    {verdict_kind::node_not_told, "node_not_told", "the identifier does not tell its node"},
    {verdict_kind::not_searched, "not_searched", "the stacks could not be looked through"},
    {verdict_kind::error_template, "error_template", "the record was made under an error template, not in a stack"},
    {verdict_kind::not_in_logs, "not_in_logs", "the record is in none of the logs that were searched"},
    {verdict_kind::logs_not_readable, "logs_not_readable",
     "the record is in none of the logs that could be read, and others could not"},
    {verdict_kind::not_an_identifier, "not_an_identifier", "this is not an identifier"},
};

const kind_texts &texts_of(verdict_kind kind) noexcept {
  return *std::find_if(std::begin(kTexts), std::end(kTexts), [&](const kind_texts &t) { return t.kind == kind; });
}

moment moment_of(const identifier &id) {
  return {id.seconds, static_cast<std::int32_t>(id.microseconds.value_or(0))};
}

// The file's first record where it still has it.
const record *first_record(const stack &contents) {
  return contents.wrapped || contents.records.empty() || !contents.records.front().id ? nullptr
                                                                                      : &contents.records.front();
}

bool has_its_inode(const identifier &id, const stack_file &file) {
  return (file.facts.inode & kInodeMask) == id.inode;
}

class judgement {
 public:
  judgement(const identifier &id, node_test node, const search_places &places, record_search &search)
      : id_(id), node_(node), places_(places), search_(search) {}

  verdict run() {
    if (!look()) return give(verdict_kind::not_searched);
    if (!search_.found().empty()) return judge_found();
    look_for_siblings();
    if (const auto best = best_file_verdict()) {
      result_.facts.insert(result_.facts.end(), best->facts.begin(), best->facts.end());
      return give(best->kind);
    }
    if (node_ == node_test::not_told) return give(verdict_kind::node_not_told);
    if (node_ == node_test::other_node) return give(verdict_kind::other_node);
    if (!search_.refused().empty()) return judge_refused(search_.refused().front());
    return give(verdict_kind::file_gone);
  }

 private:
  verdict give(verdict_kind kind) {
    result_.kind = kind;
    if (kind != verdict_kind::present && kind != verdict_kind::ambiguous)
      add("files_searched", search_.files_searched());
    return std::move(result_);
  }
  template <class Value>
  void add(const char *name, Value value) {
    result_.facts.push_back({name, std::move(value)});
  }

  // By i-node first, then through all files. False if a directory is there and cannot be read, and nothing was found.
  bool look() {
    bool complete = true;
    const auto note = [&](const std::string &place, outcome got) {
      if (got == outcome::read) return;
      add(got == outcome::missing ? "missing" : "not_readable", place);
      if (got == outcome::failed) complete = false;
    };
    if (!places_.node_stacks.empty()) {
      const outcome got = search_.look_by_inode(places_.node_stacks);
      note(places_.node_stacks, got);
      if (got == outcome::read && search_.found().empty()) (void)search_.look_by_content(places_.node_stacks);
    }
    for (const std::string &place : places_.others) note(place, search_.look_by_content(place));
    return complete || !search_.found().empty();
  }

  void look_for_siblings() {
    if (!places_.node_stacks.empty()) (void)search_.look_for_siblings(places_.node_stacks);
    for (const std::string &place : places_.others) (void)search_.look_for_siblings(place);
  }

  verdict judge_found() {
    const std::vector<found_record> &found = search_.found();
    const found_record *whole = nullptr;  // damaged ones are no second record beside it
    bool same = true;
    for (const found_record &place : found) {
      add("file", place.file->path);
      add("offset", place.what->offset);
      if (!place.what->intact) continue;
      if (whole != nullptr) same = same && same_record(*whole, place);
      whole = &place;
    }
    return give(same ? verdict_kind::present : verdict_kind::ambiguous);
  }

  // Of several files that the record can have been in, the one that says most: kinds are listed in this order.
  std::optional<verdict> best_file_verdict() const {
    std::optional<verdict> best;
    for (const stack_file *file : search_.candidates()) {
      if (!is_from_its_node(*file)) continue;
      verdict other = judge_file(*file);
      if (!best || rank(other.kind) < rank(best->kind)) best = std::move(other);
    }
    return best;
  }
  static std::ptrdiff_t rank(verdict_kind kind) {
    constexpr verdict_kind kOrder[] = {verdict_kind::never_stored, verdict_kind::overwritten, verdict_kind::damaged,
                                       verdict_kind::inode_reused, verdict_kind::copied_before};
    return std::find(std::begin(kOrder), std::end(kOrder), kind) - kOrder;
  }

  // An i-node says something of a file here only if the identifier was made here; or if the file's own records name the
  // same i-node and a node that can be told.
  bool is_from_its_node(const stack_file &file) const {
    if (node_ == node_test::this_node) return true;
    if (node_ == node_test::not_told) return false;
    const auto same_node = [&](const record &r) {
      return r.id && r.id->inode == id_.inode && r.id->address == id_.address;
    };
    return std::any_of(file.contents.records.begin(), file.contents.records.end(), same_node);
  }

  verdict judge_file(const stack_file &file) const {
    const stack &contents = file.contents;
    const moment made = moment_of(id_);
    verdict given{verdict_kind::overwritten, {{"file", file.path}}};
    const auto fact = [&](const char *name, auto value) { given.facts.push_back({name, std::move(value)}); };
    if (const auto later = made_after(id_, file)) {
      given.kind = verdict_kind::inode_reused;
      given.facts.push_back(*later);
      return given;
    }
    std::optional<moment> newest;
    for (const record &r : contents.records)
      if (r.id) newest = std::max(newest.value_or(moment_of(*r.id)), moment_of(*r.id));
    if (const record *const first = first_record(contents)) fact("first_record", moment_of(*first->id));
    if (newest) fact("newest_record", *newest);
    fact("records", contents.records.size());
    if (!contents.damages.empty()) fact("damages", contents.damages.size());
    if (contents.wrapped) return given;
    const bool complete = has_its_inode(id_, file) || newest >= made;
    given.kind = !is_unbroken_to(contents, made) ? verdict_kind::damaged
                 : complete                      ? verdict_kind::never_stored
                                                 : verdict_kind::copied_before;
    return given;
  }

  // In a file that never wrapped: all damage lies behind a record that was made later.
  static bool is_unbroken_to(const stack &contents, moment made) {
    const auto later = std::find_if(contents.records.begin(), contents.records.end(),
                                    [&](const record &r) { return r.id && moment_of(*r.id) > made; });
    const std::size_t known_to = later == contents.records.end() ? 0 : later->offset;
    return std::all_of(contents.damages.begin(), contents.damages.end(),
                       [&](const damage &d) { return d.offset > known_to && known_to != 0; });
  }

  verdict judge_refused(const refused_file &file) {
    add("file", file.path);
    add("what_it_is", file.reason);
    if (file.birth && *file.birth > moment_of(id_)) {
      add("file_made", *file.birth);
      return give(verdict_kind::inode_reused);
    }
    return give(file.failed ? verdict_kind::not_searched : verdict_kind::damaged);
  }

  const identifier &id_;
  node_test node_;
  const search_places &places_;
  record_search &search_;
  verdict result_;
};

}  // namespace

std::string_view name_of(verdict_kind kind) noexcept {
  return texts_of(kind).name;
}
std::string_view sentence_of(verdict_kind kind) noexcept {
  return texts_of(kind).sentence;
}

std::optional<evidence> made_after(const identifier &id, const stack_file &file) {
  const auto if_later = [&](const char *name, moment at) {
    return at > moment_of(id) ? std::optional<evidence>({name, at}) : std::nullopt;
  };
  if (has_its_inode(id, file)) {
    if (file.facts.birth) return if_later("file_made", *file.facts.birth);
    if (const auto named = parse_stack_name(file.path)) return if_later("time_in_its_name", named->made);
  }
  const record *const first = first_record(file.contents);
  return first != nullptr ? if_later("first_record", moment_of(*first->id)) : std::nullopt;
}

verdict judge_logged(const log_findings &found) {
  verdict given;
  const auto add = [&](const char *name, auto value) { given.facts.push_back({name, std::move(value)}); };
  for (const log_place &place : found.places) {
    add("log", place.source);
    add("line", static_cast<std::size_t>(place.line));
  }
  for (const log_outcome &source : found.sources) {
    if (source.result != outcome::read)
      add("not_readable", source.source + ": " + source.reason);
    else if (found.records.empty())
      add("searched", source.source);
  }
  if (found.sources.empty()) add("logs_searched", std::size_t{0});
  if (!found.records.empty())
    given.kind = found.records.size() == 1 ? verdict_kind::present : verdict_kind::ambiguous;
  else
    given.kind = found.all_read() ? verdict_kind::not_in_logs : verdict_kind::logs_not_readable;
  return given;
}

verdict judge(const identifier &id, node_test node, const search_places &places, record_search &search) {
  if (id.where == location::error_template) return {verdict_kind::error_template, {}};
  return judgement(id, node, places, search).run();
}

}  // namespace vosk
