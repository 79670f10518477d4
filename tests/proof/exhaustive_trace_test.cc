// Small spaces tried completely: every bit of a trace file, every combination of boundary values of its header. Result
// and bytes are the model's.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <map>

#include "proof/instrumented.h"
#include "proof/roads.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_model.h"

namespace proof {
namespace {

// Instrumented programs are slow; there most bytes behind the first records are left out.
constexpr std::size_t kStep = kInstrumented ? 37 : 1;

class TraceBits : public testing::TestWithParam<int> {
 protected:
  // The library's entry is the model's, at a fixed time.
  void write_into(const std::string &bytes, const std::string &path) {
    ASSERT_TRUE(files::write(path, bytes));
    platform::Calls calls;
    calls.fixed_clock(kSeconds, 0);
    const int result = calls.during([&] { return vk_debug(path.c_str(), "bits", "one entry\n"); });
    std::string model = bytes;
    const auto thread = static_cast<int>(static_cast<unsigned>(pthread_self()));
    const std::string entry = trace_model::entry(kSeconds, "bits", getpid(), thread, "one entry\n");
    EXPECT_EQ(result, trace_model::append(model, entry));
    EXPECT_EQ(files::difference(model, *files::read(path)), "");
    ++results_[result];
  }
  std::map<int, int> results_;
  platform::UtcZone utc_;
};

// The parameter is how many entries the file has had: none, some, enough to recycle, and more.
TEST_P(TraceBits, EveryBitFlippedHasTheModelsResult) {
  const std::string path = std::string(sandbox::kRoot) + "/bits";
  std::string sound = trace_model::fresh(8192);
  for (int i = 0; i < GetParam(); ++i) {
    const std::string text(static_cast<std::size_t>(i * 37 % 200), 'x');
    ASSERT_EQ(trace_model::append(sound, trace_model::entry(kSeconds, "filler", 1, 2, text + "\n")), 0);
  }
  for (std::size_t at = 0; at < sound.size() && !HasFailure(); at += at < 1100 ? 1 : kStep) {
    for (int bit = 0; bit < 8; ++bit) {
      SCOPED_TRACE(testing::Message() << "byte " << at << ", bit " << bit);
      std::string bytes = sound;
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << bit));
      write_into(bytes, path);
    }
  }
  EXPECT_GT(results_[0], 1000);
  EXPECT_GT(results_[-26], 100);
}

INSTANTIATE_TEST_SUITE_P(Fillings, TraceBits, testing::Values(0, 10, 70));

TEST_F(TraceBits, HeaderFieldsOverTheirBoundariesInAllCombinations) {
  const std::string path = std::string(sandbox::kRoot) + "/bits";
  const char *numbers[] = {"36   ", "0    ", "-1   ", "-9999", "35   ", "8000 ",
                           "8192 ", "99999", "     ", "abcde", "+40  ", "1 234"};
  for (const char *offset : numbers) {
    for (const char *wraps : numbers) {
      for (const char *size : numbers) {
        SCOPED_TRACE(testing::Message() << offset << "|" << wraps << "|" << size);
        std::string bytes = std::string("VKTFO=") + offset + " VKTFW=" + wraps + " VKTFS=" + size + "\n";
        bytes += std::string(300, 'e') + "\001" + std::string(200, 'f');
        write_into(bytes, path);
      }
    }
  }
  EXPECT_GT(results_[0], 100);
  EXPECT_GT(results_[-26], 100);
}

}  // namespace
}  // namespace proof
