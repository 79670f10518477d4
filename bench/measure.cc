#include "measure.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

using steady = std::chrono::steady_clock;

double nanoseconds_a_call(const subject &s, int milliseconds, counted what) {
  using nanoseconds = std::chrono::duration<double, std::nano>;
  const auto wanted = std::chrono::milliseconds(milliseconds);
  steady::duration spent{}, fastest = steady::duration::max();
  long blocks = 0;
  while (spent < wanted) {
    if (s.before) s.before();
    const auto start = steady::now();
    s.block();
    const steady::duration block = steady::now() - start;
    spent += block;
    fastest = std::min(fastest, block);
    ++blocks;
  }
  if (what == counted::fastest_block) return nanoseconds(fastest).count() / s.calls;
  return nanoseconds(spent).count() / static_cast<double>(blocks * s.calls);
}

double median(std::array<double, kRounds> values) {
  std::nth_element(values.begin(), values.begin() + kRounds / 2, values.end());
  return values[kRounds / 2];
}

}  // namespace

void expect_success(int result) {
  if (result == 0) return;
  std::fprintf(stderr, "qx_bench: a road failed with %d\n", result);
  std::abort();
}

comparison compare(const subject &ours, const subject &other, int milliseconds, counted what) {
  std::array<double, kRounds> a{}, b{}, ratios{};
  nanoseconds_a_call(ours, milliseconds / 2, what);  // caches and branch predictors
  nanoseconds_a_call(other, milliseconds / 2, what);
  for (std::size_t round = 0; round < kRounds; ++round) {
    // Neither side always comes first.
    if (round % 2 == 0) a[round] = nanoseconds_a_call(ours, milliseconds, what);
    b[round] = nanoseconds_a_call(other, milliseconds, what);
    if (round % 2 != 0) a[round] = nanoseconds_a_call(ours, milliseconds, what);
    ratios[round] = a[round] / b[round];
  }
  return {median(a), median(b), median(ratios)};
}

void print_heading(const char *other) {
  std::printf("\n%-42s %12s %12s %8s %6s\n", "", "library ns", other, "ratio", "goal");
}

void print_row(const row &r) {
  std::printf("%-42s %12.1f %12.1f %8.3f", r.name.c_str(), r.result.ours, r.result.other, r.result.ratio);
  if (r.goal != 0) std::printf(" %6.2f%s", r.goal, r.result.ratio <= r.goal ? "" : "  over");
  std::printf("\n");
  std::fflush(stdout);
}

}  // namespace bench
