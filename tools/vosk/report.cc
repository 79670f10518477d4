// vosk report: the records of one, several or all stacks.

#include <algorithm>

#include "coverage.h"
#include "exit_status.h"
#include "filter.h"
#include "output.h"
#include "reader/description.h"
#include "record_text.h"
#include "timeline.h"
#include "verbs.h"

namespace vosk {

namespace {

struct chosen_record {
  timed_record record;
  std::string description;
};

struct outside_window {
  std::size_t before = 0, after = 0;
};

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

class reporter {
 public:
  reporter(const common_options &common, const report_options &options)
      : common_(common), verbose_(options.format == "verbose"), out_(common, true) {}

  output &out() { return out_; }

  void print(const chosen_record &chosen) {
    if (chosen.record.clock_went_back > 0) print_clock_step(chosen.record);
    const placed_record &r = chosen.record.where;
    if (common_.json) {
      json_line line("record");
      record_members(line, r, chosen.description);
      out_.write(line.take());
    } else if (verbose_) {
      out_.line("");
      out_.write(verbose_block(out_, common_, r, chosen.description));
    } else {
      out_.write(short_line(out_, common_, *r.what, chosen.description));
    }
  }

  void print_outside(const outside_window &outside) {
    const std::size_t total = outside.before + outside.after;
    if (common_.json) {
      json_line line("window");
      line.number("before", outside.before).number("after", outside.after);
      out_.write(line.take());
    } else if (total > 0) {
      note(std::to_string(total) + (total == 1 ? " record" : " records") + " outside the time window: " +
           std::to_string(outside.before) + " before it, " + std::to_string(outside.after) + " after it");
    }
  }

  void note(const std::string &text) { out_.line(out_.painted(style::note, "-- " + text)); }

 private:
  void print_clock_step(const timed_record &r) {
    if (common_.json) {
      json_line line("clock_step");
      line.text("file", *r.where.path)
          .number("offset", r.where.what->offset)
          .number("microseconds", -r.clock_went_back);
      out_.write(line.take());
    } else {
      note("the clock went back by " + duration_text(r.clock_went_back) + " in " + out_.safe(*r.where.path));
    }
  }

  const common_options &common_;
  bool verbose_;
  output out_;
};

}  // namespace

int report(const common_options &given, const report_options &options) {
  common_options common = given;
  if (options.format == "json") common.json = true;
  const time_window window = window_of(options.filters, common.utc ? zone::utc : zone::local, now());
  const record_filter filter(options.filters);

  exit_status status;
  const collection found = read_names(names_to_read(options.names, common));
  reporter to(common, options);
  print_refused(to.out(), common, found, status);
  for (const stack_file &file : found.stacks) {
    print_coverage(to.out(), common, file);
    print_damage(to.out(), common, file);
    if (!file.contents.damages.empty()) status.damage = true;
  }

  outside_window outside;
  std::vector<chosen_record> chosen = choose(found.stacks, window, filter, outside);
  if (options.last && *options.last < chosen.size())
    chosen.erase(chosen.begin(), chosen.end() - static_cast<std::ptrdiff_t>(*options.last));
  if (options.reverse) std::reverse(chosen.begin(), chosen.end());
  for (const chosen_record &r : chosen) {
    if (to.out().closed()) break;
    to.print(r);
  }
  if (window.since || window.until) to.print_outside(outside);
  if (chosen.empty()) {
    status.not_found = true;
    if (!common.json) to.note("no record to show");
  }
  if (!to.out().finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
