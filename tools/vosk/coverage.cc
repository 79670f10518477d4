#include "coverage.h"

#include <algorithm>
#include <cstdlib>

#include "reader/escape.h"
#include "reader/moment.h"
#include "reader/reclamation.h"

namespace vosk {

namespace {

constexpr char kRemedy[] = "set VOSKRECLAIM=whole for the processes that record into it";

struct covered {
  const record *first = nullptr, *last = nullptr;  // the earliest and the latest by their identifiers
};

covered coverage_of(const stack &contents) {
  covered result;
  for (const record &r : contents.records) {
    if (!r.id) continue;
    if (result.first == nullptr || made_later(*result.first, r)) result.first = &r;
    if (result.last == nullptr || made_later(r, *result.last)) result.last = &r;
  }
  return result;
}

bool is_copy(const stack_file &file) {
  return file.contents.inode != 0 && file.contents.inode != (file.facts.inode & kInodeMask);
}

void print_coverage_json(output &out, const stack_file &file, const covered &range, const push_outlook &outlook) {
  const stack &contents = file.contents;
  json_line line("coverage");
  line.text("file", file.path).number("file_inode", file.facts.inode);
  if (contents.inode != 0)
    line.number("inode", contents.inode);
  else
    line.null("inode");
  if (range.first != nullptr) {
    line.text("from", utc_time_text(range.first->id->seconds, range.first->id->microseconds));
    line.text("to", utc_time_text(range.last->id->seconds, range.last->id->microseconds));
  } else {
    line.null("from").null("to");
  }
  line.boolean("header_written", contents.kind == file_kind::stack).boolean("wrapped", contents.wrapped);
  line.number("records", contents.records.size()).number("unreadable_bytes", contents.unreadable);
  line.number("damage", contents.damages.size()).boolean("read_in_one_piece", file.steady);
  line.boolean("next_push_taken", outlook.taken());
  if (!outlook.taken()) line.text("refused_because", outlook.reason);
  out.write(line.take());
}

}  // namespace

std::vector<std::string> names_to_read(const std::vector<std::string> &names, const common_options &common) {
  std::vector<std::string> all = names;
  all.insert(all.end(), common.copies.begin(), common.copies.end());
  if (!all.empty()) return all;
  const char *const own = std::getenv("VOSKSTACK");
  return {own != nullptr && *own != '\0' ? own : kStackDirectory};
}

collection read_names(const std::vector<std::string> &names) {
  collector found;
  for (const std::string &name : names) found.add(name);
  return found.take();
}

void print_coverage(output &out, const common_options &common, const stack_file &file) {
  const stack &contents = file.contents;
  const covered range = coverage_of(contents);
  const push_outlook outlook = next_push(contents);
  if (common.json) {
    print_coverage_json(out, file, range, outlook);
    return;
  }
  const zone where = common.utc ? zone::utc : zone::local;
  const auto at = [&](const record &r) { return time_text(r.id->seconds, r.id->microseconds, where); };
  std::string text = "-- " + out.safe(file.path) + ": ";
  if (contents.kind == file_kind::reserved) {
    text += "reserved for a first recording that has not written its header";
  } else {
    if (range.first != nullptr)
      text += at(*range.first) + " to " + at(*range.last);
    else
      text += "no time covered";
    const std::size_t records = contents.records.size();
    text += contents.wrapped ? ", wrapped, " : ", never wrapped, ";
    text += std::to_string(records) + (records == 1 ? " record, " : " records, ");
    text += std::to_string(contents.unreadable) + " bytes unreadable";
    if (is_copy(file)) text += ", copied from i-node " + std::to_string(contents.inode);
    if (!file.steady) text += ", changed while it was read";
  }
  out.line(out.painted(style::note, text));
  if (outlook.stopped_by == obstacle::reclamation)
    out.line(out.painted(
        style::note,
        "-- " + out.safe(file.path) + ": stopped: the standard reclamation refuses the next recording; " + kRemedy));
}

void print_damage(output &out, const common_options &common, const stack_file &file) {
  for (const damage &d : file.contents.damages) {
    if (common.json) {
      json_line line("damage");
      line.text("file", file.path).number("offset", d.offset).text("field", d.field);
      line.text("value", d.value).text("allowed", d.allowed);
      out.write(line.take());
    } else {
      out.line(out.painted(style::damage, "-- " + out.safe(file.path) + ": damage at offset " +
                                              std::to_string(d.offset) + ": " + d.field + ": " + d.value +
                                              "; allowed: " + d.allowed));
    }
  }
}

void print_refused(output &out, const common_options &common, const collection &found, exit_status &status) {
  for (const refused_file &file : found.refused) {
    if (file.failed) status.failure = true;
    if (file.missing) status.not_found = true;
    if (common.json) {
      json_line line(file.failed || file.missing ? "unreadable" : "skipped");
      line.text("file", file.path).text("reason", file.reason);
      out.write(line.take());
    } else {
      complain((file.failed || file.missing ? "cannot read " : "skipped ") + escaped(file.path) + ": " + file.reason);
    }
  }
}

}  // namespace vosk
