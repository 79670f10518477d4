// vosk doctor: what keeps recordings from being made or found, and what to do about it.

#include <algorithm>
#include <csignal>

#include "exit_status.h"
#include "findings.h"
#include "output.h"
#include "reader/json.h"
#include "verbs.h"

namespace vosk {

namespace {

void print(output &out, const common_options &common, const finding &one) {
  const bool fault = one.how == severity::fault;
  if (common.json) {
    json_line line("finding");
    line.text("severity", fault ? "fault" : "note").text("name", one.name);
    line.text("text", one.text).text("remedy", one.remedy);
    out.write(line.take());
    return;
  }
  out.line(out.painted(fault ? style::damage : style::note, (fault ? "fault " : "note ") + one.name) + ": " +
           out.safe(one.text) + "; " + out.safe(one.remedy));
}

}  // namespace

int doctor(const common_options &common, const doctor_options & /*options*/) {
  (void)std::signal(SIGXFSZ, SIG_IGN);  // the limit that it tells of may be its own output's
  findings found;
  examine_environment(found);
  examine_directories(found);
  examine_stacks(found);
  examine_node(found);
  output out(common, true);
  for (const finding &one : found.all) print(out, common, one);
  const auto faults =
      std::count_if(found.all.begin(), found.all.end(), [](const finding &one) { return one.how == severity::fault; });
  if (common.json) {
    json_line line("doctor");
    line.number("faults", faults).number("notes", static_cast<std::ptrdiff_t>(found.all.size()) - faults);
    out.write(line.take());
  } else if (faults == 0) {
    out.line("-- no fault found");
  }
  return out.finish() && faults == 0 ? kExitFine : kExitFailure;
}

}  // namespace vosk
