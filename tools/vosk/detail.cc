// vosk detail: the detail file that an identifier's record cites.

#include "detail_output.h"
#include "log_text.h"
#include "lookup.h"
#include "verbs.h"

namespace vosk {

int detail(const common_options &common, const detail_options &options) {
  exit_status status;
  output out(common, options.output_file.empty());
  const lookup looked = look_up(common, options.identifier, {options.node_only, options.logs, nullptr});
  note_verdict(looked, status);
  print_unreadable_logs(out, common, looked.logged, !options.logs.empty(), status);
  if (!looked.found()) {
    print_verdict(out, common, looked);
  } else {
    located_detail found = looked.logged.records.empty()
                               ? locate_detail(common, looked.search.found().front())
                               : locate_detail(common, looked.logged.records.front(), looked.node);
    const bool is_there = found.kind == located_detail::text ||
                          (found.kind == located_detail::copy && found.file.result == outcome::read);
    if (options.output_file.empty() || !is_there)
      print_detail(out, common, found, status);
    else if (!save_detail(out, found, options.output_file))
      status.failure = true;
  }
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
