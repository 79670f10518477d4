// The sample that a seed chooses, and the interval around a score.
#include "mutants/score.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(Sample, HoldsEachNumberOnceInAnOrderThatTheSeedDecides) {
  EXPECT_THAT(mutants::shuffled(5, 1), UnorderedElementsAre(0, 1, 2, 3, 4));
  EXPECT_EQ(mutants::shuffled(100, 7), mutants::shuffled(100, 7));
  EXPECT_NE(mutants::shuffled(100, 7), mutants::shuffled(100, 8));
  EXPECT_THAT(mutants::shuffled(0, 1), ElementsAre());
}

TEST(Interval, IsThatOfWilson) {
  struct {
    std::size_t some, all;
    double low, high;
  } const rows[] = {{0, 0, 0, 1}, {10, 10, 0.7225, 1}, {0, 10, 0, 0.2775}, {388, 400, 0.9483, 0.9828}};
  for (const auto &row : rows) {
    SCOPED_TRACE(std::to_string(row.some) + " of " + std::to_string(row.all));
    const auto [low, high] = mutants::interval(row.some, row.all);
    EXPECT_NEAR(low, row.low, 0.0002);
    EXPECT_NEAR(high, row.high, 0.0002);
  }
}

}  // namespace
