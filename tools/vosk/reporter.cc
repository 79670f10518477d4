#include "reporter.h"

#include "reader/json.h"
#include "record_text.h"

namespace vosk {

void reporter::note_nodes(const std::vector<stack_file> &files) {
  for (const stack_file &file : files)
    for (const record &r : file.contents.records)
      if (r.id && r.id->address) nodes_.insert(r.id->address->text());
}

void reporter::print(const chosen_record &chosen) {
  if (chosen.record.clock_went_back > 0) print_clock_step(chosen.record);
  if (chosen.record.cause_is_later > 0) print_clock_difference(chosen.record);
  const placed_record &r = chosen.record.where;
  if (common_.json) {
    json_line line("record");
    record_members(line, r, chosen.description);
    out_.write(line.take());
  } else if (verbose_) {
    out_.line("");
    out_.write(verbose_block(out_, common_, r, chosen.description));
  } else {
    out_.write(short_line(out_, common_, *r.what, chosen.description, nodes_.size() > 1));
  }
}

void reporter::print_outside(const outside_window &outside) {
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

void reporter::note(const std::string &text) {
  out_.line(out_.painted(style::note, "-- " + text));
}

void reporter::print_clock_step(const timed_record &r) {
  if (common_.json) {
    json_line line("clock_step");
    line.text("file", *r.where.path).number("offset", r.where.what->offset).number("microseconds", -r.clock_went_back);
    out_.write(line.take());
  } else {
    note("the clock went back by " + duration_text(r.clock_went_back) + " in " + out_.safe(*r.where.path));
  }
}

void reporter::print_clock_difference(const timed_record &r) {
  const auto cause = decode_identifier(identifier_text(r.where.what->associated));
  const bool elsewhere = cause->address && cause->address != r.where.what->id->address;
  if (common_.json) {
    json_line line("clock_difference");
    line.text("file", *r.where.path).number("offset", r.where.what->offset).number("microseconds", r.cause_is_later);
    if (cause->address) line.text("node_of_cause", cause->address->text());
    out_.write(line.take());
  } else {
    note("the next record follows from one that was made " + duration_text(r.cause_is_later) + " later" +
         (elsewhere ? " on " + cause->address->text() + ": the nodes' clocks differ" : ": the clock was set back"));
  }
}

}  // namespace vosk
