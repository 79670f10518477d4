// What a user would pick instead, from the distribution's packages.
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

#include <functional>
#include <string>

#include "measure.h"

namespace bench {

// Measures a push, a log and an identifier against each peer that is built in.
void measure_peers(const std::string &stack, int milliseconds, const std::function<void(const row &)> &shown);

}  // namespace bench

#endif
