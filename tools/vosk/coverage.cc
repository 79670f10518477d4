#include "coverage.h"

#include <algorithm>
#include <cstdlib>

#include "reader/escape.h"
#include "reader/moment.h"
#include "reader/reclamation.h"

namespace vosk {

namespace {

void print_coverage_json(output &out, const stack_file &file, const covered_time &range, const push_outlook &outlook) {
  const stack &contents = file.contents;
  json_line line("coverage");
  line.text("file", file.path).number("file_inode", file.facts.inode);
  if (contents.inode != 0)
    line.number("inode", contents.inode);
  else
    line.null("inode");
  coverage_members(line, range);
  line.boolean("header_written", contents.kind == file_kind::stack).boolean("wrapped", contents.wrapped);
  line.number("records", contents.records.size()).number("unreadable_bytes", contents.unreadable);
  line.number("damage", contents.damages.size()).boolean("read_in_one_piece", file.steady);
  outlook_members(line, outlook);
  out.write(line.take());
}

std::vector<std::string> given_names(const std::vector<std::string> &names, const common_options &common) {
  std::vector<std::string> all = names;
  all.insert(all.end(), common.copies.begin(), common.copies.end());
  return all;
}

}  // namespace

std::vector<std::string> names_to_read(const std::vector<std::string> &names, const common_options &common) {
  const std::vector<std::string> all = given_names(names, common);
  const char *const own = std::getenv("VOSKSTACK");
  if (all.empty() && own != nullptr && *own != '\0') return {own};
  return names_to_list(names, common);
}

std::vector<std::string> names_to_list(const std::vector<std::string> &names, const common_options &common) {
  const std::vector<std::string> all = given_names(names, common);
  return all.empty() ? std::vector<std::string>{kStackDirectory} : all;
}

collection read_names(const std::vector<std::string> &names) {
  collector found;
  for (const std::string &name : names) found.add(name);
  return found.take();
}

covered_time covered_by(const stack &contents) {
  covered_time result;
  for (const record &r : contents.records) {
    if (!r.id) continue;
    if (result.first == nullptr || made_later(*result.first, r)) result.first = &r;
    if (result.last == nullptr || !made_later(*result.last, r)) result.last = &r;
  }
  return result;
}

std::string covered_text(const record *r, const common_options &common) {
  if (r == nullptr) return "-";
  return time_text(r->id->seconds, r->id->microseconds, common.utc ? zone::utc : zone::local);
}

void coverage_members(json_object &object, const covered_time &time) {
  if (time.first == nullptr) {
    object.null("from").null("to");
    return;
  }
  object.text("from", utc_time_text(time.first->id->seconds, time.first->id->microseconds));
  object.text("to", utc_time_text(time.last->id->seconds, time.last->id->microseconds));
}

void outlook_members(json_object &object, const push_outlook &outlook) {
  object.boolean("next_push_taken", outlook.taken());
  if (!outlook.taken()) object.text("refused_because", outlook.reason);
}

bool is_copy(const stack_file &file) {
  return file.contents.inode != 0 && file.contents.inode != (file.facts.inode & kInodeMask);
}

void print_coverage(output &out, const common_options &common, const stack_file &file) {
  const stack &contents = file.contents;
  const covered_time range = covered_by(contents);
  const push_outlook outlook = next_push(contents);
  if (common.json) {
    print_coverage_json(out, file, range, outlook);
    return;
  }
  std::string text = "-- " + out.safe(file.path) + ": ";
  if (contents.kind == file_kind::reserved) {
    text += "reserved for a first recording that has not written its header";
  } else {
    if (range.first != nullptr)
      text += covered_text(range.first, common) + " to " + covered_text(range.last, common);
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
    const bool unread = file.failed || file.missing;
    if (common.json) {
      json_line line(unread ? "unreadable" : "skipped");
      line.text("file", file.path).text("reason", file.reason);
      out.write(line.take());
    } else {
      complain((unread ? "cannot read " : "skipped ") + escaped(file.path) + ": " + file.reason);
    }
  }
}

}  // namespace vosk
