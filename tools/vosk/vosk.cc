#include "exit_status.h"
#include "run.h"
#include "verbs.h"

namespace vosk {

namespace {

struct call_verb {
  const common_options &common;
  int operator()(const std::monostate & /*none*/) const { return kExitUsage; }
  int operator()(const annotate_options &options) const { return annotate(common, options); }
  int operator()(const collect_options &options) const { return collect(common, options); }
  int operator()(const detail_options &options) const { return detail(common, options); }
  int operator()(const doctor_options &options) const { return doctor(common, options); }
  int operator()(const env_options &options) const { return env(common, options); }
  int operator()(const list_options &options) const { return list(common, options); }
  int operator()(const prune_options &options) const { return prune(common, options); }
  int operator()(const push_options &options) const { return push(common, options); }
  int operator()(const report_options &options) const { return report(common, options); }
  int operator()(const run_options &options) const { return run_command(common, options); }
  int operator()(const show_options &options) const { return show(common, options); }
  int operator()(const trace_options &options) const { return trace(common, options); }
  int operator()(const verify_options &options) const { return verify(common, options); }
};

int any_verb(const invocation &what) {
  return std::visit(call_verb{what.common}, what.verb);
}

}  // namespace

}  // namespace vosk

int main(int argc, char **argv) {
  return vosk::run("vosk", argc, argv, vosk::any_verb);
}
