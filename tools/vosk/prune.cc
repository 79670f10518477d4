// vosk prune: removes stacks and detail copies that nobody needs any more.

#include <unistd.h>

#include <charconv>
#include <csignal>
#include <limits>

#include "exit_status.h"
#include "output.h"
#include "pruner.h"
#include "reader/collection.h"
#include "reader/json.h"
#include "verbs.h"

namespace vosk {

namespace {

std::uint64_t parse_size(const std::string &text) {
  constexpr std::string_view kUnits = "KMGT";
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  std::string_view unit(end, static_cast<std::size_t>(text.data() + text.size() - end));
  unsigned shift = 0;
  if (!unit.empty() && kUnits.find(unit[0]) != std::string_view::npos) {
    shift = 10 * static_cast<unsigned>(kUnits.find(unit[0]) + 1);
    unit.remove_prefix(1);
  }
  if (error != std::errc() || !(unit.empty() || unit == "B" || unit == "iB") ||
      number > std::numeric_limits<std::uint64_t>::max() >> shift)
    throw usage_error("--max-total: '" + text + "' is no size");
  return number << shift;
}

prune_limits limits_of(const prune_options &options) {
  prune_limits limits;
  const auto span = parse_duration(options.older_than);
  if (!span) throw usage_error("--older-than: '" + options.older_than + "' is no span of time");
  limits.older_than = *span;
  if (!options.max_total.empty()) limits.max_total = parse_size(options.max_total);
  limits.really = !options.dry_run;
  return limits;
}

struct sums {
  std::size_t removed = 0, kept = 0;
  std::uint64_t bytes = 0;

  void add(const prune_candidate &file) {
    ++(file.removed ? removed : kept);
    if (file.removed) bytes += static_cast<std::uint64_t>(file.facts.size);
  }
};

std::string path_of(const prune_candidate &file) {
  return std::string(file.is_stack ? kStackDirectory : kDumpDirectory) + "/" + file.name;
}

std::string age_of(const prune_candidate &file, moment at) {
  return duration_text(microseconds_between(file.facts.modified, at));
}

// Why a file went: it was old enough, or the oldest when there was too much.
const char *removal_name(const prune_candidate &file, const prune_limits &limits, moment at) {
  return microseconds_between(file.facts.modified, at) >= limits.older_than ? "old" : "above_the_total";
}

class prune_printer {
 public:
  prune_printer(const common_options &common, const prune_limits &limits)
      : common_(common), limits_(limits), at_(now()), out_(common, true) {}

  output &out() { return out_; }

  void print(const prune_candidate &file) {
    if (common_.json) {
      print_json(file);
      return;
    }
    const std::string path = out_.safe(path_of(file));
    if (!file.removed) {
      out_.line("kept " + path + ": " + out_.safe(file.kept->text));
      return;
    }
    const char *const action = limits_.really ? "removed " : "would remove ";
    out_.line(out_.painted(style::note, action + path) + ": " + std::to_string(file.facts.size) + " bytes, written " +
              age_of(file, at_) + " ago, " +
              (file.is_stack ? "none of its processes runs" : "no stack or log given cites it"));
  }

  void print(const sums &all, std::uint64_t total) {
    if (common_.json) {
      json_line line("prune");
      line.boolean("dry_run", !limits_.really).number("removed", all.removed).number("removed_bytes", all.bytes);
      line.number("kept", all.kept).number("kept_bytes", total);
      out_.write(line.take());
      return;
    }
    out_.line(out_.painted(style::note, std::string("-- ") + (limits_.really ? "removed " : "would remove ") +
                                            files(all.removed) + " of " + std::to_string(all.bytes) + " bytes, kept " +
                                            files(all.kept) + " of " + std::to_string(total) + " bytes"));
  }

 private:
  static std::string files(std::size_t count) { return std::to_string(count) + (count == 1 ? " file" : " files"); }

  void print_json(const prune_candidate &file) {
    json_line line("pruned");
    line.text("file", path_of(file)).text("kind", file.is_stack ? "stack" : "detail");
    line.text("action", !file.removed ? "kept" : limits_.really ? "removed" : "would_remove");
    line.text("because", file.removed ? removal_name(file, limits_, at_) : file.kept->name);
    if (!file.removed) line.text("reason", file.kept->text);
    line.number("size", file.facts.size);
    line.text("modified",
              utc_time_text(file.facts.modified.seconds, static_cast<std::uint32_t>(file.facts.modified.microseconds)));
    out_.write(line.take());
  }

  const common_options &common_;
  const prune_limits &limits_;
  moment at_;
  output out_;
};

}  // namespace

int prune(const common_options &common, const prune_options &options) {
  const prune_limits limits = limits_of(options);
  (void)std::signal(SIGIO, SIG_IGN);  // comes when somebody opens a file that is just being removed
  pruner work(limits);
  std::string why;
  bool missing = false;
  if (!work.look(why, missing)) {
    complain(why);
    return missing ? kExitNotFound : kExitFailure;
  }
  work.keep_cited_in_logs(options.logs);
  work.remove();

  exit_status status;
  prune_printer to(common, limits);
  sums all;
  for (const prune_candidate &file : work.files()) {
    to.print(file);
    all.add(file);
  }
  to.print(all, work.total());
  if (all.removed != 0 && work.unreadable_environments() != 0)
    complain("the environments of " + std::to_string(work.unreadable_environments()) +
             " processes could not be read: whether they use a stack was not seen");
  if (limits.max_total && work.total() > *limits.max_total) {
    complain("what remains takes " + std::to_string(work.total()) + " bytes, more than --max-total allows");
    status.failure = true;
  }
  if (work.failed() || !to.out().finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
