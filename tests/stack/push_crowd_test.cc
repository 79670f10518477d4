// Many processes and one stack: nothing is lost, torn or refused.
#include <algorithm>
#include <map>

#include "stack/crowd.h"
#include "support/stack_model.h"

namespace {

using stack_test::Crowd;
using stack_test::kStack;
using stack_test::push;

class PushCrowd : public stack_test::StackTest {
 protected:
  // Every result is 0, and the file holds exactly the records that were answered for: by process, line and identifier.
  static void expect_all_recorded(int pushes, const std::vector<Crowd::Share> &shares) {
    std::map<std::pair<int, int>, std::string> answered;
    for (const Crowd::Share &share : shares) {
      for (int i = 0; i < pushes; ++i) {
        EXPECT_EQ(share.results[i].code, 0) << "process " << share.pid;
        answered[{share.pid, i + 1}] = std::string(share.results[i].fid, sizeof(vk_eid_t));
      }
    }
    const std::string bytes = stack();
    EXPECT_EQ(bytes.size(), 16384u);
    const auto records = stack_model::records(bytes);
    ASSERT_TRUE(records) << stack_model::File{bytes, {}}.header().text();
    EXPECT_EQ(records->size(), answered.size());
    for (const std::string &record : *records) {
      const auto decoded = stack_model::decode(record);
      ASSERT_TRUE(decoded);
      const auto found = answered.find({decoded->push.pid, decoded->push.line});
      ASSERT_NE(found, answered.end()) << "twice, or nobody's";
      EXPECT_EQ(decoded->push.identifier, found->second);
      const std::string details = decoded->push.detail;
      EXPECT_EQ(details, std::string(details.size(), static_cast<char>('a' + decoded->push.set % 26)));
      answered.erase(found);
    }
    EXPECT_TRUE(answered.empty());
  }
  // An incident that can be told from all others: by its process, by its line, and by what its details are made of.
  int push_own(int process, int number, vk_eid_t *fid, std::size_t size) {
    const std::string details(size, static_cast<char>('a' + process % 26));
    stack_test::Incident in = incident();
    in.fid = fid;
    in.line = number + 1;
    in.set = process;
    in.data = details.c_str();
    return push(in);
  }
};

// Each stack is created by the process that happens to come first.
TEST_F(PushCrowd, OfSixteenProcessesCreatesEachStackOnceAndLosesNoRecord) {
  constexpr int kStacks = 2000;
  Crowd crowd(16);
  int looked = 0;
  const bool good = crowd.run(
      kStacks, 1,
      [&](int round, int process, int number, vk_eid_t *fid) {
        // 180 to 580 bytes each, another mixture in every round.
        return push_own(process, number, fid, static_cast<std::size_t>((process * 37 + round * 13) % 400 + 1));
      },
      [&](int round, const std::vector<Crowd::Share> &shares) {
        SCOPED_TRACE(round);
        ++looked;
        if (!HasFailure()) expect_all_recorded(1, shares);
        unlink(kStack);
      });
  EXPECT_TRUE(good);
  EXPECT_EQ(looked, kStacks);
}

TEST_F(PushCrowd, OfEightProcessesFillsAStackWithEveryIdentifierOnce) {
  constexpr int kRounds = 100, kPushes = 10;
  Crowd crowd(8);
  const bool good = crowd.run(
      kRounds, kPushes, [&](int, int process, int number, vk_eid_t *fid) { return push_own(process, number, fid, 10); },
      [&](int round, const std::vector<Crowd::Share> &shares) {
        SCOPED_TRACE(round);
        if (!HasFailure()) expect_all_recorded(kPushes, shares);
        unlink(kStack);
      });
  EXPECT_TRUE(good);
}

}  // namespace
