#include "follow.h"

#include <algorithm>
#include <functional>

#include "coverage.h"

namespace vosk {

namespace {

constexpr int kDepth = 8;

// What a record is recognised by when its file is read again: its place and identifier, or its bytes where it has none.
std::uint64_t mark_of(const stack_file &file, const record &r) {
  const std::string_view bytes(reinterpret_cast<const char *>(file.contents.bytes.data()) + r.offset, r.size);
  return std::hash<std::string_view>()(r.id ? r.eid : bytes) * 31 + r.offset;
}

bool is_outside(const timed_record &r, const time_window &window) {
  return r.at && ((window.since && *r.at < *window.since) || (window.until && *r.at > *window.until));
}

}  // namespace

follower::follower(const common_options &common, const report_options &options, const std::vector<std::string> &names)
    : common_(common),
      watcher_(names, names == std::vector<std::string>{kStackDirectory} ? 0 : kDepth, !options.polling) {}

bool follower::is_new(const std::string &path, const stack_file &file, const record &r) {
  return seen_[path].insert(mark_of(file, r)).second;
}

// A record that was overwritten does not come back.
void follower::forget_what_is_gone(const stack_file &file) {
  if (!file.steady) return;
  std::set<std::uint64_t> there;
  for (const record &r : file.contents.records) there.insert(mark_of(file, r));
  seen_[file.path] = std::move(there);
}

void follower::skip(const std::vector<stack_file> &files) {
  for (const stack_file &file : files)
    for (const record &r : file.contents.records) (void)is_new(file.path, file, r);
}

void follower::print_new(reporter &to, const std::vector<stack_file> &files, const time_window &window,
                         const record_filter &filter) {
  std::map<std::string_view, const stack_file *> by_path;
  for (const stack_file &file : files) by_path[file.path] = &file;
  for (const timed_record &r : timeline(files)) {
    const stack_file &file = *by_path[*r.where.path];
    if (!is_new(file.path, file, *r.where.what) || is_outside(r, window)) continue;
    std::string description = descriptions_.description(*r.where.what);
    if (filter.selects(*r.where.what, description)) to.print({r, std::move(description)});
  }
}

void follower::run(reporter &to, const time_window &window, const record_filter &filter, exit_status &status) {
  std::set<std::string> changed;
  to.out().flush();
  while (!to.out().closed() && watcher_.wait(changed, 1)) {
    collection found = read_names({changed.begin(), changed.end()});
    changed.clear();
    // A stack that is just being made changes again soon.
    std::erase_if(found.stacks, [](const stack_file &file) { return file.contents.kind == file_kind::reserved; });
    for (const stack_file &file : found.stacks) {
      if (seen_.count(file.path) == 0) print_coverage(to.out(), common_, file);
      if (!file.contents.damages.empty()) status.damage = true;
    }
    to.note_nodes(found.stacks);
    print_new(to, found.stacks, window, filter);
    for (const stack_file &file : found.stacks) forget_what_is_gone(file);
    for (const refused_file &file : found.refused)
      if (file.missing) seen_.erase(file.path);
    to.out().flush();
  }
}

}  // namespace vosk
