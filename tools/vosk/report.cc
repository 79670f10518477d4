// vosk report: the records of one, several or all stacks.

#include <algorithm>

#include "coverage.h"
#include "exit_status.h"
#include "filter.h"
#include "follow.h"
#include "reader/description.h"
#include "reporter.h"
#include "verbs.h"

namespace vosk {

namespace {

// The records that window and filters select, the oldest first, and how many the window leaves out. The window never
// leaves out a record without a time: it may belong there.
std::vector<chosen_record> choose(const std::vector<stack_file> &files, const time_window &window,
                                  const record_filter &filter, outside_window &outside) {
  describer descriptions;
  std::vector<chosen_record> chosen;
  for (timed_record &r : timeline(files)) {
    if (r.at && window.since && *r.at < *window.since) {
      ++outside.before;
    } else if (r.at && window.until && *r.at > *window.until) {
      ++outside.after;
    } else {
      std::string description = descriptions.description(*r.where.what);
      if (filter.selects(*r.where.what, description)) chosen.push_back({r, std::move(description)});
    }
  }
  return chosen;
}

}  // namespace

int report(const common_options &given, const report_options &options) {
  common_options common = given;
  if (options.format == "json") common.json = true;
  const time_window window = window_of(options.filters, common.utc ? zone::utc : zone::local, now());
  const record_filter filter(options.filters);
  const std::vector<std::string> names = names_to_read(options.names, common);
  std::optional<follower> following;
  if (options.follow) following.emplace(common, options, names);

  exit_status status;
  const collection found = read_names(names);
  reporter to(common, options.format == "verbose", !options.follow);
  to.note_nodes(found.stacks);
  print_refused(to.out(), common, found, status);
  for (const stack_file &file : found.stacks) {
    print_coverage(to.out(), common, file);
    print_damage(to.out(), common, file);
    if (!file.contents.damages.empty()) status.damage = true;
  }

  outside_window outside;
  std::vector<chosen_record> chosen;
  if (!options.only_new) chosen = choose(found.stacks, window, filter, outside);
  if (options.last && *options.last < chosen.size())
    chosen.erase(chosen.begin(), chosen.end() - static_cast<std::ptrdiff_t>(*options.last));
  if (options.reverse) std::reverse(chosen.begin(), chosen.end());
  for (const chosen_record &r : chosen) {
    if (to.out().closed()) break;
    to.print(r);
  }
  if (window.since || window.until) to.print_outside(outside);
  if (following) {
    following->skip(found.stacks);
    status.not_found = false;  // what is missing may come
    following->run(to, window, filter, status);
  } else if (chosen.empty()) {
    status.not_found = true;
    if (!common.json) to.note("no record to show");
  }
  if (!to.out().finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
