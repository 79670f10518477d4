// Small spaces tried completely: every bit of a stack file, every combination of boundary values of its header, every
// boundary value of a record's length. Result and bytes are the model's.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <map>
#include <set>

#include "proof/instrumented.h"
#include "proof/roads.h"
#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/stack_model.h"

namespace proof {
namespace {

// Instrumented programs are slow; there most bytes behind the first records are left out.
constexpr std::size_t kStep = kInstrumented ? 37 : 1;

class Exhaustive : public testing::Test {
 protected:
  // Pushes onto these bytes and compares with the model; the file keeps its i-node.
  void push_onto(const std::string &bytes) {
    ASSERT_TRUE(files::write(kStack, bytes));
    if (inode_ == 0) {
      struct stat status = {};
      ASSERT_EQ(stat(kStack.c_str(), &status), 0);
      inode_ = status.st_ino;
      own_environment();
      unsetenv("VOSKDEBUG");
      record_ = stack_model::build(push_of(push_, inode_, getpid(), getppid()));
    }
    cu_double::reset();
    platform::Calls calls;
    plan(calls);
    calls.during(push_.body);
    stack_model::File model{bytes};
    const stack_model::Outcome outcome = stack_model::push(model, record_);
    EXPECT_EQ(push_.look().code, outcome.code);
    EXPECT_EQ(stack_model::difference(model, kStack), "");
    ++codes_[outcome.code];
  }

  const Road &push_ = road("later push");
  std::uint64_t inode_ = 0;
  stack_model::Record record_;
  std::map<int, int> codes_;
  platform::UtcZone utc_;
};

TEST_F(Exhaustive, EveryBitOfAStackFileFlipped) {
  int flips = 0;
  for (State state : {State::kPartlyFilled, State::kFull, State::kWrapped}) {
    const std::string sound = file_in(state).bytes;
    for (std::size_t at = 0; at < sound.size() && !HasFailure(); at += at < 1100 ? 1 : kStep) {
      for (int bit = 0; bit < 8; ++bit) {
        SCOPED_TRACE(testing::Message() << to_string(state) << ", byte " << at << ", bit " << bit);
        std::string bytes = sound;
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
        push_onto(bytes);
        ++flips;
      }
    }
  }
  EXPECT_GT(codes_[0], 1000);
  EXPECT_GT(codes_[24], 100);
  std::printf("%d flips\n", flips);
}

TEST_F(Exhaustive, HeaderFieldsOverTheirBoundariesInAllCombinations) {
  const std::uint32_t versions[] = {0, 1, 7, 8, 16, 56, 57, 64, 0xFFFFFFFF};
  const std::int32_t positions[] = {INT32_MIN, -1, 0, 23, 24, 25, 8192, 16383, 16384, 16385, INT32_MAX};
  const std::int32_t sizes[] = {-1, 0, 8191, 8192, 16384, 16385, INT32_MAX};
  const std::uint8_t wraps[] = {0, 1, 2, 255};
  const std::string body = file_in(State::kFull).bytes.substr(24);
  int headers = 0, skipped = 0;
  for (std::uint32_t version : versions) {
    for (std::int32_t init : positions) {
      for (std::int32_t recording : positions) {
        for (std::int32_t earliest : positions) {
          for (std::int32_t size : sizes) {
            for (std::uint8_t wrap : wraps) {
              stack_model::Header header{version, init, recording, earliest, size, wrap};
              // A version that is refused, or a size, is refused whatever else there is: one wrap byte does.
              const bool refused = stack_model::validate({version, 24, 24, 24, 8192, 0}) == -26 ||
                                   stack_model::validate({version, 24, 24, 24, size, 0}) == -26;
              if (refused && wrap != 1) continue;
              if (kInstrumented && ++skipped % 23 != 0) continue;
              if (HasFailure()) return;
              ++headers;
              push_onto(files::u32(version) + header.control() + body);
              if (HasFailure()) ADD_FAILURE() << header.text();
            }
          }
        }
      }
    }
  }
  EXPECT_GT(codes_[0], 100);
  EXPECT_GT(codes_[24], 100);
  EXPECT_GT(codes_[41], 10);
  std::printf("%d headers\n", headers);
}

TEST_F(Exhaustive, RecordLengthsOverTheirBoundaries) {
  std::set<std::uint32_t> lengths = {0x7FFFFFFF, 0x80000000, 0xFFFFFFF8, 0xFFFFFFFB,
                                     0xFFFFFFFC, 0xFFFFFFFD, 0xFFFFFFFF};
  const auto need = static_cast<std::uint32_t>(197 - 8 + 4);
  for (std::uint32_t middle : {4u, 132u, need - 4, need, 1016u, 1020u, 8192u, 16356u, 16384u, 65536u}) {
    for (std::uint32_t i = 0; i < 9; ++i) lengths.insert(middle - 4 + i);
  }
  // The first, the second, and the one at the end of the scan.
  const std::string full = file_in(State::kFull).bytes, wrapped = file_in(State::kWrapped).bytes;
  for (const std::string &sound : {full, wrapped}) {
    for (std::uint32_t length : lengths) {
      for (std::size_t at : {24u, 28u, 320u, 324u, 16224u, 16380u, 16383u}) {
        SCOPED_TRACE(testing::Message() << "length " << length << " at " << at);
        std::string bytes = sound;
        bytes.replace(at, std::min<std::size_t>(4, bytes.size() - at), files::u32(length), 0,
                      std::min<std::size_t>(4, bytes.size() - at));
        push_onto(bytes);
        // And with the scan starting there.
        bytes.replace(12, 4, files::u32(static_cast<std::uint32_t>(at)));
        bytes[20] = 1;
        push_onto(bytes);
      }
    }
  }
  EXPECT_GT(codes_[0], 100);
  EXPECT_GT(codes_[24], 100);
}

}  // namespace
}  // namespace proof
