#include "reporter.h"

#include "reader/json.h"
#include "record_text.h"

namespace vosk {

void reporter::print(const chosen_record &chosen) {
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

}  // namespace vosk
