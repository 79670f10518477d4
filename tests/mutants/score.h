// Choosing a sample, and what it says about all.
#ifndef QX_TESTS_MUTANTS_SCORE_H
#define QX_TESTS_MUTANTS_SCORE_H

#include <cstdint>
#include <utility>
#include <vector>

namespace mutants {

// All the numbers below `count` in an order that the seed alone decides.
std::vector<std::size_t> shuffled(std::size_t count, std::uint64_t seed);

// Wilson's interval: where the share of all lies, at 95 %, when `some` of `all` that were drawn have the property.
std::pair<double, double> interval(std::size_t some, std::size_t all);

}  // namespace mutants

#endif
