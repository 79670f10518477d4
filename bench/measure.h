// Measuring two things side by side.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <functional>
#include <string>

namespace bench {

// One call, or a block of calls that counts as `calls`. `before` runs untimed in front of each timed block.
struct subject {
  std::function<void()> block;
  int calls = 1;
  std::function<void()> before = {};
};

struct comparison {
  double ours, other;  // nanoseconds a call
  double ratio;
};

// Ends the benchmark unless `result` is 0: a road that fails is not the one to be measured.
void expect_success(int result);

constexpr int kRounds = 11;

// What counts of a round: its fastest block, since whatever interrupts the others is no cost of the calls; or all
// blocks, where some calls do more than others.
enum class counted { fastest_block, all_blocks };

// Runs both in turn, for `milliseconds` each a round; takes the medians of the rounds, and of their ratios.
comparison compare(const subject &ours, const subject &other, int milliseconds, counted what);

// One row of the table.
struct row {
  std::string name;
  comparison result;
  double goal = 0;  // of the ratio; 0 where the row is only shown
};

void print_heading(const char *other);
void print_row(const row &r);

}  // namespace bench

#endif
