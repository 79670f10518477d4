// What vosk run costs: the time beyond what the command itself takes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "proof/instrumented.h"

namespace {

using milliseconds = std::chrono::duration<double, std::milli>;

milliseconds time_of(std::vector<const char *> words) {
  words.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = vfork();
  if (child == 0) {
    execv(words[0], const_cast<char **>(words.data()));
    _exit(127);
  }
  int status = -1;
  (void)waitpid(child, &status, 0);
  const milliseconds taken = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(status, 0);
  return taken;
}

class Overhead : public testing::TestWithParam<std::vector<const char *>> {};

INSTANTIATE_TEST_SUITE_P(, Overhead,
                         testing::Values(std::vector<const char *>{"run"},
                                         std::vector<const char *>{"run", "--stderr-tail"}),
                         [](const auto &row) { return row.param.size() == 1 ? "Plain" : "WithTail"; });

}  // namespace

// The quickest of many, so that the machine's other work does not count; on a busy one more of them are tried. On a
// slow machine it may cost what four starts of a small program cost there.
TEST_P(Overhead, IsLessThanThreeMilliseconds) {
  if (proof::kInstrumented) GTEST_SKIP() << "times are not measured under a sanitizer, nor with counters";
  std::vector<const char *> words{QX_BINARY_DIR "/bin/vosk"};
  words.insert(words.end(), GetParam().begin(), GetParam().end());
  words.insert(words.end(), {"--", "/bin/true"});
  milliseconds plain = std::chrono::hours(1), run = plain;
  const auto within = [&] { return run - plain < std::max(milliseconds(3), 4 * plain); };
  for (int i = 0; i < 50 || (i < 2000 && !within()); ++i) {
    plain = std::min(plain, time_of({"/bin/true"}));
    run = std::min(run, time_of(words));
  }
  std::printf("milliseconds: %.2f, of the command alone: %.2f\n", (run - plain).count(), plain.count());
  EXPECT_TRUE(within()) << run.count() << " with it, " << plain.count() << " without";
}
