// Many pushes under whole records: nothing is refused, and as many of the newest as fit are there.
#include <gtest/gtest.h>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

class WholeRing : public WholeTest, public testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    reclaim("whole");
    put(fresh_file(GetParam()));
  }

  void push_and_compare(const Incident &incident) {
    const Pushed pushed = push(incident);
    ASSERT_TRUE(recorded(pushed.code)) << pushed.code;
    expected_.add(incident.size());

    const std::string bytes = file();
    const Chain chain = read_chain(bytes);
    ASSERT_EQ(chain.problem, "");
    ASSERT_EQ(places(chain.records), places(expected_.records()));
    ASSERT_EQ(chain.records.back().identifier(), pushed.identifier);
    expected_.newest().bytes = chain.records.back().bytes;
    for (std::size_t i = 0; i < chain.records.size(); ++i) ASSERT_EQ(chain.records[i], expected_.records()[i]) << i;
    const Header header = header_of(bytes);
    ASSERT_EQ(static_cast<std::size_t>(header.position), expected_.position());
    ASSERT_EQ(static_cast<std::size_t>(header.earliest), expected_.records().front().offset);
    ASSERT_EQ(bytes.size(), static_cast<std::size_t>(GetParam()));
    wraps_ += expected_.wrapped();
    has_wrapped_ |= expected_.wrapped();
    ASSERT_EQ(header.wrapped, has_wrapped_);
  }

  // Fills the file behind the last record up to `rest` bytes before its end.
  void fill_up_to(std::size_t rest) {
    const std::size_t end = static_cast<std::size_t>(GetParam()) - rest;
    while (end - expected_.position() > 1200 + 142)
      ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(kLargestBody)));
    const std::size_t left = end - expected_.position();
    const std::size_t first = left > 1024 ? left / 2 : left;
    ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(first - kPrefix)));
    if (first != left) {
      ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(left - first - kPrefix)));
    }
    ASSERT_EQ(expected_.position(), end);
  }

  Expected expected_{GetParam()};
  int wraps_ = 0;
  bool has_wrapped_ = false;
};

TEST_P(WholeRing, TenThousandPushesOfMixedSizesKeepAsManyOfTheNewestAsFit) {
  Random random(20261116);
  for (int i = 0; i < 10000; ++i) {
    SCOPED_TRACE(i);
    set_identified(between(random, 0, 9) != 0);
    ASSERT_NO_FATAL_FAILURE(push_and_compare(random_incident(random)));
  }
  EXPECT_GT(wraps_, 100);
}

TEST_P(WholeRing, OneSizeForAllGoesRound) {
  for (const std::size_t body : {kSmallestBody, std::size_t{501}, std::size_t{1008}, std::size_t{1009}, kLargestBody}) {
    for (int i = 0; i < 300; ++i) {
      SCOPED_TRACE(i);
      ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(body)));
    }
  }
}

TEST_P(WholeRing, ARecordThatEndsWithTheFileDoesNotWrapAndOneByteMoreDoes) {
  ASSERT_NO_FATAL_FAILURE(fill_up_to(500));
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(492)));
  EXPECT_EQ(wraps_, 0);
  EXPECT_EQ(header_of(file()).position, GetParam());
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(kSmallestBody)));
  EXPECT_EQ(wraps_, 1);
  ASSERT_NO_FATAL_FAILURE(fill_up_to(500));
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(493)));
  EXPECT_EQ(wraps_, 2);
}

TEST_P(WholeRing, ARecordThatFillsTheGapExactlyLeavesAFullRing) {
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(300)));
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(400)));
  ASSERT_NO_FATAL_FAILURE(fill_up_to(0));
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(300)));
  Header header = header_of(file());
  EXPECT_EQ(header.earliest, header.position);
  EXPECT_EQ(expected_.cleared(), 1u);
  // From there on one for one, and one byte more takes another one.
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(400)));
  EXPECT_EQ(expected_.cleared(), 1u);
  ASSERT_NO_FATAL_FAILURE(fill_up_to(0));
  ASSERT_NO_FATAL_FAILURE(push_and_compare(incident_of(301)));
  EXPECT_EQ(expected_.cleared(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Sizes, WholeRing, testing::Values(8192, 8193, 16384));

}  // namespace
}  // namespace whole_test
