#include "mutants/score.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace mutants {

std::vector<std::size_t> shuffled(std::size_t count, std::uint64_t seed) {
  std::vector<std::size_t> out(count);
  std::iota(out.begin(), out.end(), std::size_t{0});
  std::mt19937_64 source(seed);  // the standard fixes its numbers, but not those of its distributions
  for (std::size_t i = count; i > 1; --i) std::swap(out[i - 1], out[source() % i]);
  return out;
}

std::pair<double, double> interval(std::size_t some, std::size_t all) {
  if (all == 0) return {0, 1};
  constexpr double kZ = 1.959964;
  const double n = static_cast<double>(all), share = static_cast<double>(some) / n, z2 = kZ * kZ / n;
  const double centre = (share + z2 / 2) / (1 + z2);
  const double half = kZ * std::sqrt(share * (1 - share) / n + z2 / (4 * n)) / (1 + z2);
  return {std::max(0.0, centre - half), std::min(1.0, centre + half)};
}

}  // namespace mutants
