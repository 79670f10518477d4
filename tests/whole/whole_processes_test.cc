// Several processes record into one file, some of them under each rule.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

constexpr int kProcesses = 8, kPushes = 250, kFailed = 255;

class WholeProcesses : public WholeTest, public testing::WithParamInterface<int> {
 protected:
  // The number of pushes that were refused, at most 254.
  static int record(unsigned seed) {
    own_environment();
    Random random(seed);
    int refused = 0;
    for (int i = 0; i < kPushes; ++i) {
      const int code = push(random_incident(random)).code;
      if (!recorded(code) && code != 24) return kFailed;
      refused += !recorded(code);
    }
    return std::min(refused, kFailed - 1);
  }

  // Starts the processes; the first `whole` of them record under whole records.
  std::vector<pid_t> start(int whole) {
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
      reclaim(i < whole ? "whole" : nullptr);
      const pid_t child = fork();
      if (child == 0) _exit(record(static_cast<unsigned>(i)));
      children.push_back(child);
    }
    return children;
  }

  // The file as it is while nobody records.
  std::string locked_file() const {
    const int fd = open(stack().c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(lockf(fd, F_LOCK, 0), 0);
    std::string bytes(16384 + 4, '\0');
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    close(fd);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }

  // Waits for all, looking at the file meanwhile; returns how each ended.
  template <class Look>
  std::vector<int> finish(const std::vector<pid_t> &children, Look look) {
    std::vector<int> results;
    for (const pid_t child : children) {
      int status = 0;
      pid_t ended = 0;
      while ((ended = waitpid(child, &status, WNOHANG)) == 0) look(locked_file());
      EXPECT_EQ(ended, child);
      EXPECT_TRUE(WIFEXITED(status)) << "killed by " << WTERMSIG(status);
      results.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : kFailed);
    }
    return results;
  }
};

TEST_P(WholeProcesses, UnderWholeRecordsAloneNothingIsRefusedAndTheFileIsSoundAtAnyTime) {
  put(fresh_file(GetParam()));
  int looks = 0;
  const auto results = finish(start(kProcesses), [&](const std::string &bytes) {
    const Chain chain = read_chain(bytes);
    EXPECT_EQ(chain.problem, "");
    ++looks;
  });
  EXPECT_EQ(results, std::vector<int>(kProcesses, 0));
  EXPECT_GT(looks, 0);
  EXPECT_EQ(read_chain(file()).problem, "");
  EXPECT_EQ(header_of(file()).wrapped, 1);
}

TEST_P(WholeProcesses, BesideTheStandardRuleTheHeaderStaysValidAndNothingIsRefusedUnderWholeRecords) {
  put(fresh_file(GetParam()));
  const int whole = 4;
  const auto results = finish(start(whole), [&](const std::string &bytes) {
    // A record of the standard rule may end up to 4 bytes past the file size.
    std::string looked_at = bytes;
    const Header header = header_of(bytes);
    if (header.position > header.size && header.position <= header.size + 4)
      put_number(looked_at, 8, static_cast<std::uint32_t>(header.size));
    EXPECT_EQ(header_problem(looked_at), "");
  });
  for (int i = 0; i < kProcesses; ++i) {
    EXPECT_NE(results[static_cast<std::size_t>(i)], kFailed) << i;
    EXPECT_TRUE(i >= whole || results[static_cast<std::size_t>(i)] == 0) << i;
  }
  // One of whole records finds what is left, and soon all is sound.
  reclaim("whole");
  Random random(99);
  for (int wraps = 0; wraps < 2;) {
    const std::int32_t position = header_of(file()).position;
    ASSERT_TRUE(recorded(push(random_incident(random)).code));
    wraps += header_of(file()).position < position;
  }
  EXPECT_EQ(read_chain(file()).problem, "");
}

using WholeCreation = WholeTest;

TEST_F(WholeCreation, ProcessesThatCreateTheFileTogetherLoseNothing) {
  reclaim("whole");
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      own_environment();
      _exit(recorded(push(incident_of(200)).code) ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  const Chain chain = read_chain(file());
  EXPECT_EQ(chain.problem, "");
  EXPECT_EQ(chain.records.size(), static_cast<std::size_t>(kProcesses));
}

INSTANTIATE_TEST_SUITE_P(Sizes, WholeProcesses, testing::Values(8192, 16384));

}  // namespace
}  // namespace whole_test
