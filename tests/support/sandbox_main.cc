// The main() of programs that run in a sandbox as a whole: each test finds a fresh /var/adm/vosk.
#include <gtest/gtest.h>

#include <cstdio>

#include "support/files.h"
#include "support/sandbox.h"

namespace {

// What ctest is told to take as "not run".
constexpr int kNotRun = 77;

class Refusal : public testing::Environment {
 public:
  explicit Refusal(std::string reason) : reason_(std::move(reason)) {}
  void SetUp() override { CANNOT_RUN_HERE(reason_); }

 private:
  std::string reason_;
};

class FreshDirectories : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo &) override {
    std::string problem = sandbox::fresh();
    if (!problem.empty()) ADD_FAILURE() << problem;
  }
};

}  // namespace

int main(int argc, char **argv) {
  // Before GoogleTest takes its arguments out of argv, since the program may be started anew with them.
  std::string refused = sandbox::enter({}, argv);
  testing::InitGoogleTest(&argc, argv);
  if (!refused.empty()) {
    std::printf("NO SANDBOX, every test of this program is left out: %s\n", refused.c_str());
    testing::AddGlobalTestEnvironment(new Refusal(refused));
    int result = RUN_ALL_TESTS();
    return result != 0 ? result : kNotRun;
  }
  testing::UnitTest::GetInstance()->listeners().Append(new FreshDirectories);
  return RUN_ALL_TESTS();
}
