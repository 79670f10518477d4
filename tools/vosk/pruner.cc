#include "pruner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

#include "output.h"
#include "reader/collection.h"
#include "reader/detail_path.h"
#include "reader/escape.h"
#include "reader/log_record.h"
#include "reader/log_source.h"
#include "reader/originator.h"
#include "reader/removal.h"

namespace vosk {

namespace {

// The record that cites a copy is made after the copy: it may still be to come, however low the limits are.
constexpr std::int64_t kGrace = std::int64_t{3600} * 1000000;
// How long before its record a copy is made, and how much after, as clocks are rounded and set; in seconds.
constexpr std::int64_t kCopying = 60, kSlack = 2;
constexpr std::int64_t kFreshProcesses = 500;  // milliseconds

std::int64_t milliseconds() {
  timespec now{};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

std::string process_text(const running_process &process) {
  return "process " + std::to_string(process.pid);
}

// All that looks like the path of a copy, in whatever state the record is that it belongs to.
void find_paths(byte_span bytes, std::set<std::string> &names) {
  const std::string prefix = std::string(kDumpDirectory) + "/";
  const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
  for (std::size_t at = text.find(prefix); at != std::string_view::npos; at = text.find(prefix, at + 1)) {
    const std::size_t begin = at + prefix.size(), end = std::min(text.find('\0', begin), text.size());
    names.emplace(text.substr(begin, end - begin));
  }
}

// ".PID.YYYYMMDD.HHMMSS" of a copy's name.
std::string_view ending_of(std::string_view name) {
  std::size_t at = name.size();
  for (int dots = 0; dots < 3; ++dots) at = name.rfind('.', at - 1);
  return name.substr(at);
}

// Every ending of a copy's name in a line that cites one. A log may have changed characters of the name before it.
void find_endings(std::string_view line, std::set<std::string> &endings) {
  if (line.find(kDumpDirectory) == std::string_view::npos) return;
  constexpr std::string_view kDigits = "0123456789";
  constexpr std::size_t kDate = 8, kTime = 6;
  for (std::size_t at = line.find('.'); at != std::string_view::npos; at = line.find('.', at + 1)) {
    std::size_t end = at;
    bool matches = true;
    for (const std::size_t wanted : {std::size_t{0}, kDate, kTime}) {
      const std::size_t begin = end + 1;
      if (end >= line.size() || line[end] != '.') {
        matches = false;
        break;
      }
      end = std::min(line.find_first_not_of(kDigits, begin), line.size());
      if (wanted == kTime) end = std::min(end, begin + kTime);  // whatever follows the name
      matches = matches && end > begin && (wanted == 0 || end - begin == wanted);
    }
    if (matches) endings.emplace(line.substr(at, end - at));
  }
}

}  // namespace

bool pruner::open(const char *path, unique_fd &fd, std::string &why, bool &missing) {
  fd = open_directory(AT_FDCWD, path, false);
  if (fd.valid()) return true;
  missing = errno == ENOENT;
  why = std::string(path) + ": " + (errno == ELOOP || errno == ENOTDIR ? "not a directory" : error_text(errno));
  return missing;
}

bool pruner::look(std::string &why, bool &missing) {
  bool no_stacks = false, no_dumps = false;
  if (!open(kStackDirectory, stacks_, why, no_stacks) || !open(kDumpDirectory, dumps_, why, no_dumps)) return false;
  missing = no_stacks && no_dumps;
  if (missing) return false;
  // Copies first: one that is seen here and cited by no stack that is read after it has had its time.
  if (dumps_.valid()) look_at_copies();
  if (stacks_.valid()) look_at_stacks();
  std::stable_sort(files_.begin(), files_.end(),
                   [](const auto &a, const auto &b) { return a.is_stack && !b.is_stack; });
  // Last: who recorded into a stack that was read before is seen here if it still runs.
  if (!read_processes(why)) return false;
  for (std::size_t i = 0; i < files_.size(); ++i) {
    total_ += static_cast<std::uint64_t>(std::max<std::int64_t>(files_[i].facts.size, 0));
    for (const std::string &name : files_[i].cites) citing_[name].insert(i);
    if (!files_[i].is_stack) copies_[files_[i].name] = i;
  }
  for (prune_candidate &file : files_)
    if (file.is_stack && !file.kept) file.kept = used_by(file);
  judge_copies();
  return true;
}

void pruner::keep(prune_candidate &file, const char *name, std::string text) {
  file.kept = kept_reason{name, std::move(text)};
}

void pruner::note_failure(prune_candidate &file, const std::string &text) {
  keep(file, "failed", text);
  failed_ = true;
}

void pruner::look_at_copies() {
  std::vector<directory_entry> entries;
  if (!list_directory(dumps_.get(), entries)) failed_ = true;
  for (const directory_entry &entry : entries) {
    prune_candidate &copy = files_.emplace_back();
    copy.name = entry.name;
    // What it holds does not matter, and others' copies need not be readable.
    const unique_fd path_fd(openat(dumps_.get(), entry.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!path_fd.valid() || fstat(path_fd.get(), &st) != 0 || !facts_of(path_fd.get(), copy.facts)) {
      if (errno == ENOENT)
        files_.pop_back();
      else
        note_failure(copy, error_text(errno));
    } else if (!S_ISREG(st.st_mode)) {
      copy.facts.size = 0;
      keep(copy, "no_copy", "it is no regular file");
    } else if (!parse_stack_name(entry.name)) {
      keep(copy, "no_copy", "its name is not that of a copy");
    }
  }
}

void pruner::look_at_stacks() {
  std::vector<directory_entry> entries;
  if (!list_directory(stacks_.get(), entries)) failed_ = stack_unread_ = true;
  for (const directory_entry &entry : entries) look_at_stack(entry.name);
}

void pruner::look_at_stack(const std::string &name) {
  file_bytes file = read_small_file(stacks_.get(), name.c_str(), layout::kReadLimit, patience_);
  if (file.result == outcome::missing) return;
  prune_candidate &stack = files_.emplace_back();
  stack.is_stack = true;
  stack.name = name;
  stack.facts = file.facts;
  if (file.result == outcome::failed) {
    stack_unread_ = true;
    note_failure(stack, "it cannot be read: " + file.reason);
    return;
  }
  if (file.result == outcome::skipped) {
    if (std::cmp_less_equal(stack.facts.size, layout::kReadLimit)) stack.facts.size = 0;
    keep(stack, "no_stack", "it is no stack: " + file.reason);
    return;
  }
  find_paths(file.bytes, stack.cites);
  const bool empty = file.bytes.empty();  // its maker was stopped before it could reserve it
  const vosk::stack contents = read_stack(std::move(file.bytes), file.facts.inode);
  if (contents.kind == file_kind::other && !empty) {
    keep(stack, "no_stack", "it is no stack");
    return;
  }
  take_contents(stack, contents);
  const auto established = parse_stack_name(name);
  if (!established)
    keep(stack, "not_told", "its name does not tell who established it");
  else
    stack.originator = established->pid;
}

void pruner::take_contents(prune_candidate &stack, const vosk::stack &contents) {
  for (const record &r : contents.records) {
    if (r.pid) {
      std::int64_t &last = stack.recorders[static_cast<int>(*r.pid)];
      last = std::max(last, r.id ? r.id->seconds : std::int64_t{r.time});
    }
    if (r.cut || !r.detail) take_cut_citation(stack, r);
  }
}

// The path is the last text of a record: of a cut one the copy's name may be there in part, or not at all. Then every
// copy that was made about that time, which not every record has, counts as cited: better one too many than too few.
void pruner::take_cut_citation(prune_candidate &stack, const record &r) {
  const std::string_view text = r.detail.value_or("");
  const auto cited = cited_copy(text);
  const std::string directory = std::string(kDumpDirectory) + "/";
  if (!cited && !directory.starts_with(text)) return;
  const std::int64_t at = r.id ? r.id->seconds : std::int64_t{r.time};
  const auto is_near = [at](moment made) {
    return at == 0 || (at - kCopying <= made.seconds && made.seconds <= at + kSlack);
  };
  for (const prune_candidate &file : files_) {
    if (file.is_stack) continue;
    const auto name = parse_stack_name(file.name);
    const bool matches =
        cited ? file.name.starts_with(*cited) : is_near(file.facts.modified) || (name && is_near(name->made));
    if (matches) stack.cites.insert(file.name);
  }
}

bool pruner::read_processes(std::string &why) {
  auto table = process_table::read(why);
  if (!table) return false;
  processes_ = std::move(table);
  processes_read_ = milliseconds();
  return true;
}

std::optional<kept_reason> pruner::used_by(const prune_candidate &stack) const {
  if (const running_process *p = processes_->with_id(stack.originator, stack.facts.modified.seconds))
    return kept_reason{"originator_runs", "its originator still runs: " + process_text(*p)};
  for (const auto &[pid, last] : stack.recorders)
    if (const running_process *p = processes_->with_id(pid, last))
      return kept_reason{"owner_runs", process_text(*p) + " recorded into it and still runs"};
  if (const running_process *p = processes_->user_of(stack.name))
    return kept_reason{"owner_runs", process_text(*p) + " has it in its environment"};
  return std::nullopt;
}

void pruner::judge_copies() {
  for (prune_candidate &copy : files_) {
    if (copy.is_stack || copy.kept) continue;
    if (microseconds_between(copy.facts.modified, started_) < kGrace)
      keep(copy, "just_made", "it was just made, and its record may be to come");
    else if (stack_unread_)
      keep(copy, "not_told", "a stack that may cite it cannot be read");
  }
}

void pruner::keep_cited_in_logs(const std::vector<std::string> &logs) {
  std::set<std::string> endings;
  std::string unread;
  const auto take = [&](const log_line &line) {
    find_endings(line.text, endings);
    if (const auto record = parse_log_record(line)) find_endings(record->detail_file, endings);
    return true;
  };
  for (const log_outcome &log : for_each_log_line(logs, take)) {
    if (log.result == outcome::read) continue;
    complain("cannot read " + escaped(log.source) + ": " + log.reason);
    unread = log.source;
    failed_ = true;
  }
  for (prune_candidate &copy : files_) {
    if (copy.is_stack || copy.kept) continue;
    if (!unread.empty())
      keep(copy, "not_told", "a log that may cite it cannot be read: " + unread);
    else if (endings.count(std::string(ending_of(copy.name))) != 0)
      keep(copy, "cited_in_log", "a log cites it");
  }
}

bool pruner::wanted(const prune_candidate &file) const {
  const bool old = microseconds_between(file.facts.modified, started_) >= limits_.older_than;
  return old || (limits_.max_total && total_ > *limits_.max_total);
}

void pruner::remove() {
  for (std::size_t i = 0; i < files_.size(); ++i) {
    const prune_candidate &file = files_[i];
    if (!file.kept && (file.is_stack || citing_.count(file.name) == 0)) open_.insert({file.facts.modified, i});
  }
  while (!open_.empty() && wanted(files_[open_.begin()->second])) {
    const std::size_t index = open_.begin()->second;
    open_.erase(open_.begin());
    try_to_remove(index);
  }
  for (prune_candidate &file : files_) {
    if (file.removed || file.kept) continue;
    const auto cited = citing_.find(file.name);
    if (!file.is_stack && cited != citing_.end())
      keep(file, "cited", "it is cited by " + escaped(files_[*cited->second.begin()].name));
    else
      keep(file, "too_young",
           "it was written " + duration_text(microseconds_between(file.facts.modified, started_)) + " ago");
  }
}

void pruner::try_to_remove(std::size_t index) {
  prune_candidate &file = files_[index];
  // Processes come and go while directories are read and files removed.
  std::string why;
  if (file.is_stack && milliseconds() - processes_read_ > kFreshProcesses && !read_processes(why)) {
    note_failure(file, why);
    return;
  }
  if (file.is_stack && (file.kept = used_by(file))) return;
  const removal_result result =
      remove_unused(file.is_stack ? stacks_.get() : dumps_.get(), file.name, file.facts, limits_.really);
  switch (result.what) {
    case removal::removed:
      file.removed = true;
      break;
    case removal::gone:
      keep(file, "gone", "somebody else removed it");
      break;
    case removal::locked:
      keep(file, "locked", result.reason);
      return;
    case removal::in_use:
      keep(file, "open", result.reason);
      return;
    case removal::changed:
      keep(file, "changed", result.reason);
      return;
    case removal::failed:
      note_failure(file, result.reason);
      return;
  }
  total_ -= static_cast<std::uint64_t>(std::max<std::int64_t>(file.facts.size, 0));
  if (file.is_stack && file.removed) after_removal(file);
}

// Its copies lose a citation.
void pruner::after_removal(const prune_candidate &stack) {
  const auto index = static_cast<std::size_t>(&stack - files_.data());
  for (const std::string &name : stack.cites) {
    std::set<std::size_t> &stacks = citing_[name];
    stacks.erase(index);
    if (!stacks.empty()) continue;
    citing_.erase(name);
    const auto copy = copies_.find(name);
    if (copy != copies_.end() && !files_[copy->second].kept)
      open_.insert({files_[copy->second].facts.modified, copy->second});
  }
}

}  // namespace vosk
