// Processes that push are killed at random moments: what was acknowledged is there, nothing is torn, no lock stays.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>
#include <signal.h>

#include <array>
#include <cstdio>
#include <map>
#include <random>

#include "proof/processes.h"
#include "proof/soak.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "support/stack_model.h"

namespace proof {
namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/killed";
constexpr int kPushers = 4, kMostPushes = 4000;
constexpr int kBeforeTheWrap = 80;  // so many of these records fit without one

// What the pushers were told; `count` is raised behind each entry.
struct Acknowledged {
  std::atomic<int> count{0};
  std::array<vk_eid_t, kMostPushes> fids;
};

struct Board {
  std::array<Acknowledged, kPushers> of;
  std::atomic<int> begun{0}, refused{0};
  int most = 0;  // pushes in all
};

// Pushes until it is killed.
[[noreturn]] void push_for_ever(Board &board, int pusher) {
  const std::string pid = std::to_string(getpid());
  setenv("VOSKSTACK", kStack.c_str(), 1);
  setenv("VOSKORIG", pid.c_str(), 1);
  setenv("VOSKPID", pid.c_str(), 1);
  setenv("VOSKADDR", "z/../....................", 1);
  setenv("VOSKPNAME", "killed", 1);
  unsetenv("VOSKDEBUG");
  Acknowledged &mine = board.of[static_cast<std::size_t>(pusher)];
  for (;;) {
    const int number = mine.count;
    if (number == kMostPushes || board.begun.fetch_add(1) >= board.most) pause();
    vk_eid_t &fid = mine.fids[static_cast<std::size_t>(number)];
    const int code = vk_push_stack_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, "detail", nullptr, "c", 1, 1, "m");
    if (code == 0) {
      mine.count = number + 1;
    } else {
      board.refused.fetch_add(1);
    }
  }
}

// Starts all pushers over and over and kills each at a random moment, until the board's pushes are made.
class Killing {
 public:
  explicit Killing(unsigned seed) : random_(seed) {}

  int kill_some(Board &board, int most_kills) {
    std::array<pid_t, kPushers> pushers = {};
    int done = 0;
    for (int i = 0; i < kPushers; ++i) start(board, pushers, i);
    while (done < most_kills && board.begun < board.most) {
      usleep(static_cast<useconds_t>(random_() % 300));
      const int victim = static_cast<int>(random_() % kPushers);
      end(pushers, victim);
      start(board, pushers, victim);
      ++done;
    }
    for (int i = 0; i < kPushers; ++i) end(pushers, i);
    return done + kPushers;
  }

 private:
  static void start(Board &board, std::array<pid_t, kPushers> &pushers, int i) {
    const pid_t child = fork();
    if (child == 0) push_for_ever(board, i);
    pushers[static_cast<std::size_t>(i)] = child;
  }
  static void end(std::array<pid_t, kPushers> &pushers, int i) {
    const pid_t child = pushers[static_cast<std::size_t>(i)];
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status)) << "a pusher ended on its own: " << status;
  }
  std::mt19937 random_;
};

TEST(KillLoop, LosesNothingThatWasAcknowledged) {
  const int wanted = short_or_long(1500, 200000);
  const unsigned random_seed = seed();
  Killing killing(random_seed);
  std::mt19937 random(random_seed + 1);
  int kills = 0, files_seen = 0, past_the_wrap = 0;
  while (kills < wanted && !testing::Test::HasFailure()) {
    SCOPED_TRACE(testing::Message() << "seed " << random_seed << ", after " << kills << " kills");
    Shared<Board> board;
    ASSERT_TRUE(files::write(kStack, stack_model::created(16384).bytes));
    // Most rounds end before the stack wraps: there the records can be counted.
    board->most = random() % 8 == 0 ? kMostPushes : kBeforeTheWrap;
    kills += killing.kill_some(*board, 40);
    ++files_seen;
    EXPECT_FALSE(files::locked(kStack));
    const std::string bytes = files::read(kStack).value_or("");
    const stack_model::Header header = stack_model::File{bytes}.header();
    EXPECT_EQ(stack_model::validate(header), 0) << header.text();
    if (board->most > kBeforeTheWrap) {
      ++past_the_wrap;
      continue;
    }
    EXPECT_EQ(board->refused, 0);
    const auto records = stack_model::records(bytes);
    ASSERT_TRUE(records);
    std::map<std::string, int> times;
    for (const std::string &record : *records) {
      const auto decoded = stack_model::decode(record);
      ASSERT_TRUE(decoded);
      EXPECT_EQ(decoded->push.detail, "detail");
      ++times[decoded->push.identifier];
    }
    std::size_t acknowledged = 0;
    for (const Acknowledged &of : board->of) {
      for (int i = 0; i < of.count; ++i) {
        ++acknowledged;
        EXPECT_EQ(times[std::string(of.fids[static_cast<std::size_t>(i)], 43)], 1) << "of what was acknowledged";
      }
    }
    // A kill between the header and the acknowledgement leaves one record more.
    EXPECT_GE(records->size(), acknowledged);
  }
  EXPECT_GT(files_seen, past_the_wrap);
  std::printf("%d kills, %d stacks, %d of them past the wrap, seed %u\n", kills, files_seen, past_the_wrap,
              random_seed);
}

}  // namespace
}  // namespace proof
