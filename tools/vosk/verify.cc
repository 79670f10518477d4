// vosk verify: what is damaged in stacks, and nothing else.

#include "coverage.h"
#include "exit_status.h"
#include "output.h"
#include "verbs.h"

namespace vosk {

namespace {

void print_verdict(output &out, const common_options &common, const stack_file &file) {
  const std::size_t damages = file.contents.damages.size();
  if (common.json) {
    json_line line("verified");
    line.text("file", file.path).number("records", file.contents.records.size());
    line.number("unreadable_bytes", file.contents.unreadable).number("damage", damages);
    out.write(line.take());
  }
}

}  // namespace

int verify(const common_options &common, const verify_options &options) {
  exit_status status;
  const collection found = read_names(names_to_read(options.names, common));
  output out(common, true);
  print_refused(out, common, found, status);
  for (const stack_file &file : found.stacks) {
    print_damage(out, common, file);
    print_verdict(out, common, file);
    if (!file.contents.damages.empty()) status.damage = true;
  }
  if (found.stacks.empty()) status.not_found = true;
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
