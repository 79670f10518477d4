// The syslog priority of an event type.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <algorithm>
#include <climits>

#include "support/files.h"
#include "support/trace_file.h"

namespace {

using testing::ElementsAre;

struct Mapping {
  std::uint32_t type;
  std::int32_t priority;
};
constexpr Mapping kKnown[] = {{0, 0}, {1, 3}, {2, 5}, {3, 4}, {4, 6}, {5, 7}, {6, 7}};
constexpr std::uint32_t kUnknown[] = {7, 8, 100, INT_MAX, 0x80000000U, 0xFFFFFFFFU};

class Priority : public testing::Test {
 protected:
  std::int32_t priority_of(std::uint32_t type, int mark = 1) {
    std::fill(std::begin(state_), std::end(state_), 0U);
    std::int32_t priority = -1;
    vk_determine_bsd_priority(0, nullptr, type, &priority, mark, state_);
    return priority;
  }
  // How many entries of the state were touched.
  long touched() const {
    return std::count_if(std::begin(state_), std::end(state_), [](auto entry) { return entry != 0; });
  }

  std::uint32_t state_[VK_FLAG_COUNT] = {};
};

TEST_F(Priority, EventTypesHaveTheirNumbers) {
  EXPECT_EQ(VOSK_EMERG, 0);
  EXPECT_EQ(VOSK_ERROR, 1);
  EXPECT_EQ(VOSK_STATE, 2);
  EXPECT_EQ(VOSK_PERF, 3);
  EXPECT_EQ(VOSK_TRACE, 4);
  EXPECT_EQ(VOSK_RECOV, 5);
  EXPECT_EQ(VOSK_DEBUG, 6);
}

TEST_F(Priority, KnownTypesMapByTheTableAndAreNotMarked) {
  for (const Mapping &row : kKnown) {
    EXPECT_EQ(priority_of(row.type), row.priority) << row.type;
    EXPECT_EQ(touched(), 0) << row.type;
  }
}

TEST_F(Priority, UnknownTypesHaveTheLowestPriorityAndAreMarked) {
  for (std::uint32_t type : kUnknown) {
    EXPECT_EQ(priority_of(type), 7) << type;
    EXPECT_EQ(state_[15], 1U) << type;
    EXPECT_EQ(touched(), 1) << type;
  }
}

TEST_F(Priority, OnlyTheSwitchOneMarks) {
  for (int mark : {0, 2, -1}) {
    EXPECT_EQ(priority_of(7, mark), 7);
    EXPECT_EQ(touched(), 0) << mark;
  }
}

TEST_F(Priority, MappingIsTraced) {
  const files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_EQ(vk_create_debug_file(path.c_str()), 0);
  std::int32_t priority = 0;
  vk_determine_bsd_priority(1, path.c_str(), VOSK_PERF, &priority, 1, state_);
  vk_determine_bsd_priority(1, path.c_str(), 7, &priority, 0, state_);
  vk_determine_bsd_priority(1, path.c_str(), 0xFFFFFFFFU, &priority, 1, state_);
  vk_determine_bsd_priority(0, path.c_str(), VOSK_PERF, &priority, 1, state_);
  vk_determine_bsd_priority(2, path.c_str(), VOSK_PERF, &priority, 1, state_);
  EXPECT_THAT(trace_file::read(path).summaries(),
              ElementsAre("vk_determine_bsd_priority: Assigning SysLog priority of 4 to event type 3",
                          "vk_determine_bsd_priority: Invalid VOSK Event Type 7 - mapping to type VOSK_DEBUG(6)",
                          "vk_determine_bsd_priority: Assigning SysLog priority of 7 to event type 7",
                          "vk_determine_bsd_priority: Invalid VOSK Event Type -1 - mapping to type VOSK_DEBUG(6)",
                          "vk_determine_bsd_priority: Assigning SysLog priority of 7 to event type -1"));
}

}  // namespace
