// qx_bench [--milliseconds N] [--gate]: one table of ratios, measured side by side. Started by run.sh, which gives it
// directories and sockets of its own. With --gate the roads alone are measured, and the exit status is 1 when one
// misses its goal by more than 0.10 in each of six attempts.
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "measure.h"
#include "peers.h"
#include "roads.h"
#include "stage.h"

int main(int argc, char **argv) {
  int milliseconds = 30;
  bool gate = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view word = argv[i];
    if (word == "--gate") {
      gate = true;
    } else if (word == "--milliseconds" && i + 1 < argc) {
      milliseconds = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "usage: qx_bench [--milliseconds N] [--gate]\n");
      return 2;
    }
  }
  const bench::drain log("/dev/log");
  const bench::drain journal("/run/systemd/journal/socket");
  const std::string stack = bench::set_stage();

  utsname machine = {};
  (void)uname(&machine);
  std::printf("Linux %s, %s; files on tmpfs; medians of %d interleaved rounds of %d ms\n", machine.release,
              machine.machine, bench::kRounds, milliseconds);
  bool missed = false;
  bench::print_heading("floor ns");
  bench::measure_roads(stack, milliseconds, gate ? 6 : 1, [&](const bench::row &r) {
    bench::print_row(r);
    if (r.goal != 0 && r.result.ratio > r.goal + bench::kTolerance) missed = true;
  });
  if (gate) {
    std::printf("\ngate (goal + %.2f): %s\n", bench::kTolerance, missed ? "MISSED" : "kept");
    return missed ? 1 : 0;
  }
  bench::print_heading("peer ns");
  bench::measure_peers(stack, milliseconds, bench::print_row);
  return 0;
}
