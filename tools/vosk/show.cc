// vosk show: what an identifier says, and the record that it belongs to, or why it cannot be shown.

#include <algorithm>

#include "detail_output.h"
#include "log_text.h"
#include "lookup.h"
#include "reader/description.h"
#include "record_text.h"
#include "verbs.h"

namespace vosk {

namespace {

void print_record(output &out, const common_options &common, const found_record &found, describer &descriptions) {
  const placed_record r{&found.file->path, found.what};
  const std::string description = descriptions.description(*found.what);
  if (common.json) {
    json_line line("record");
    record_members(line, r, description);
    out.write(line.take());
  } else {
    out.line("");
    out.write(verbose_block(out, common, r, description));
  }
}

void print_record(output &out, const common_options &common, const log_record &r) {
  if (common.json) {
    json_line line("log_record");
    log_members(line, r);
    out.write(line.take());
  } else {
    out.line("");
    out.write(log_block(out, common, r));
  }
}

}  // namespace

int show(const common_options &common, const show_options &options) {
  exit_status status;
  output out(common, true);
  const lookup looked = look_up(common, options.identifier, {options.node_only, options.logs, nullptr});
  print_verdict(out, common, looked);
  note_verdict(looked, status);
  describer descriptions;
  const std::vector<found_record> &found = looked.search.found();
  for (auto at = found.begin(); at != found.end(); ++at) {
    if (std::any_of(found.begin(), at, [&](const found_record &r) { return same_record(r, *at); })) continue;
    print_record(out, common, *at, descriptions);
    if (!options.detail) continue;
    located_detail detail = locate_detail(common, *at);
    print_detail(out, common, detail, status);
  }
  for (const log_record &r : looked.logged.records) {
    print_record(out, common, r);
    if (!options.detail) continue;
    located_detail detail = locate_detail(common, r, looked.node);
    print_detail(out, common, detail, status);
  }
  print_unreadable_logs(out, common, looked.logged, !options.logs.empty(), status);
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
