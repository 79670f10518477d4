#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_cu.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/files.h"
#include "support/sandbox.h"

namespace {

constexpr int kThreads = 8;

// Runs `body` in several threads that start together.
void in_threads(const std::function<void(int)> &body) {
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) threads.emplace_back(body, number);
  for (std::thread &thread : threads) thread.join();
}

class SerialisedUse : public testing::Test {
 protected:
  void SetUp() override {
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG"})
      ASSERT_EQ(unsetenv(name), 0);
    ASSERT_EQ(vk_init_1(VK_STACK_CREAT), VK_SUCCESS);
    stack_ = getenv("VOSKSTACK");
  }

  std::string stack_;
  std::mutex turn_;  // what the library asks its callers to have
};

std::size_t count_of(const std::string &text, const std::string &part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST_F(SerialisedUse, EveryRecordOfEveryThreadIsInTheFileOnce) {
  constexpr int kEach = 6;  // what fits in a stack that does not wrap
  std::vector<std::string> identifiers;
  in_threads([&](int number) {
    for (int n = 0; n < kEach; ++n) {
      const std::scoped_lock mine(turn_);
      vk_eid_t id = "";
      EXPECT_EQ(vk_push_stack_1(&id, nullptr, "resource", "product", __FILE__, "1.0", __LINE__, 0, "details", nullptr,
                                "my.cat", 1, 7, "thread %d, record %d", number, n),
                VK_SUCCESS);
      identifiers.emplace_back(id);
    }
  });
  const std::string file = files::read(stack_).value_or("");
  EXPECT_EQ(std::set(identifiers.begin(), identifiers.end()).size(), std::size_t{kThreads * kEach});
  for (const std::string &id : identifiers) EXPECT_EQ(count_of(file, id + '\0'), 1U) << id;
}

TEST_F(SerialisedUse, OfEveryRoutineIsWithoutARace) {
  ASSERT_EQ(setenv("VOSKDEBUG", "/var/adm/vosk/trace", 1), 0);
  in_threads([&](int number) {
    const std::scoped_lock mine(turn_);
    vk_eid_t pushed = "", logged = "";
    EXPECT_EQ(vk_test_stack_1(), VK_SUCCESS);
    EXPECT_EQ(vk_push_stack_1(&pushed, nullptr, "resource", "product", __FILE__, "1.0", __LINE__, 0, "details", nullptr,
                              "my.cat", 1, 7, "thread %d", number),
              VK_SUCCESS);
    EXPECT_EQ(vk_log_error_1(&logged, pushed, "resource", "product", __FILE__, "1.0", __LINE__, 0, VOSK_ERROR, 0,
                             "details", 7, nullptr, "thread %d", number),
              VK_SUCCESS);
    unsigned int on_node = 0, version = 0, location = 9, label = 0, facility = 0, priority = 0, is_ipv6 = 0;
    char names[2][256] = {};
    timeval when{};
    unsigned char address[16] = {};
    for (const char *id : {pushed, logged})
      EXPECT_EQ(vk_decode_eid_2(0, nullptr, id, &on_node, &version, &location, names[0], 2, &label, &facility,
                                &priority, &when, address, &is_ipv6),
                VOSK_SUCCESS);
    EXPECT_EQ(stack_, std::string(sandbox::kStacks) + "/" + names[0]);
    EXPECT_EQ(vk_display_fid_main_1("", 0), VK_NO_EID_PTR);
    EXPECT_EQ(vk_init_1(VK_STACK_CREAT), VK_ENV_EXIST);
  });
}

TEST_F(SerialisedUse, LeavesEachThreadItsOwnMessage) {
  in_threads([&](int number) {
    {
      const std::scoped_lock mine(turn_);
      EXPECT_EQ(vk_init_1(number % 2 == 0 ? 3 : 4), number % 2 == 0 ? VK_INHERIT_INV : VK_UNKNOWN_OPTION);
    }
    std::this_thread::yield();
    cu_error_t error;
    EXPECT_EQ(cu_get_error_1(&error), number % 2 == 0 ? VK_INHERIT_INV : VK_UNKNOWN_OPTION);
    EXPECT_EQ(error.number, number % 2 == 0 ? 22 : 20);
  });
}

TEST(Routines, ThatAreSafeInThreadsNeedNoTurns) {
  in_threads([](int number) {
    for (std::uint64_t n = 0; n < 500; ++n) {
      const std::uint64_t value = n * 7919 + static_cast<std::uint64_t>(number);
      char digits[8] = "";
      EXPECT_EQ(vk_l64a_r(value, digits, 6), 0);
      EXPECT_EQ(vk_a64l(digits), value);
    }
  });
}

}  // namespace
