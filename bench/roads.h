// The library's roads, each beside its floor.
#ifndef BENCH_ROADS_H
#define BENCH_ROADS_H

#include <functional>
#include <string>

#include "measure.h"

namespace bench {

// How much a ratio may miss its goal by before the gate closes.
inline constexpr double kTolerance = 0.10;

// Measures every road and hands each row to `shown`. A road that misses its goal by more than the tolerance is measured
// again, up to `attempts` times in all, and shown at its best: a busy machine spoils a run, a slow library all of them.
void measure_roads(const std::string &stack, int milliseconds, int attempts,
                   const std::function<void(const row &)> &shown);

// One ordinary recording, as every comparison uses it.
void push_once();
void log_once();
inline constexpr int kPushesAStack = 60;  // so many of them fit without a wrap

}  // namespace bench

#endif
