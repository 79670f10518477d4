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
  double ours, other;  // medians, nanoseconds a call
  double ratio() const { return ours / other; }
};

// Ends the benchmark unless `result` is 0: a road that fails is not the one to be measured.
void expect_success(int result);

constexpr int kRounds = 11;

// Runs both in turn, for `milliseconds` each a round, and takes the medians of the rounds.
comparison compare(const subject &ours, const subject &other, int milliseconds);

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
