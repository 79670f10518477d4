// The current error: what is kept, for whom, and for how long.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "current_error.h"

namespace {

constexpr std::size_t kTextMax = 4103;  // what is kept of a message

class CurrentError : public testing::Test {
 protected:
  CurrentError() { cu_set_no_error_1(); }
};

TEST_F(CurrentError, IsNoneBeforeTheFirstOfAThread) {
  EXPECT_EQ(cu_set_error_1(12, 0, "vosk.cat", 1, 20, "text"), 12);
  std::thread([] {
    const cu_error_t error = current_error();
    EXPECT_EQ(error.id, 0);
    EXPECT_EQ(error.set, 0);
    EXPECT_EQ(error.number, 0);
    EXPECT_STREQ(error.catalogue, "");
    EXPECT_STREQ(error.text, "");
  }).join();
  EXPECT_EQ(current_error().id, 12);
}

TEST_F(CurrentError, KeepsIdReferenceAndFormattedText) {
  EXPECT_EQ(cu_set_error_1(40, 0, "no-such.cat", 1, 36, "%2$d bytes in %1$s\n", "/stacks", 16384), 40);
  const cu_error_t error = current_error();
  EXPECT_EQ(error.id, 40);
  EXPECT_EQ(error.set, 1);
  EXPECT_EQ(error.number, 36);
  EXPECT_STREQ(error.catalogue, "no-such.cat");
  EXPECT_STREQ(error.text, "16384 bytes in /stacks\n");
  EXPECT_EQ(cu_get_error_1(nullptr), 40);
}

TEST_F(CurrentError, IsReplacedByTheNextAndClearedByNoError) {
  cu_set_error_1(26, 0, "vosk.cat", 1, 8, "a long first text");
  cu_set_error_1(28, 0, "vosk.cat", 1, 2, "second");
  EXPECT_EQ(current_error().id, 28);
  EXPECT_EQ(current_text(), "second");
  EXPECT_EQ(cu_set_no_error_1(), 0);
  EXPECT_EQ(current_error().id, 0);
  EXPECT_EQ(current_error().number, 0);
  EXPECT_EQ(current_text(), "");
  EXPECT_STREQ(current_error().catalogue, "");
}

TEST_F(CurrentError, ReturnsAnyIdUnchanged) {
  for (const int id : {0, 1, 44, 99, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(cu_set_error_1(id, 0, "vosk.cat", 1, 1, "text"), id);
    EXPECT_EQ(cu_get_error_1(nullptr), id);
  }
}

TEST_F(CurrentError, TakesNullTextsAsEmpty) {
  EXPECT_EQ(cu_set_error_1(5, 0, nullptr, 1, 1, nullptr), 5);
  EXPECT_STREQ(current_error().catalogue, "");
  EXPECT_EQ(current_text(), "");
  const char *null = nullptr;
  cu_set_error_1(5, 0, "vosk.cat", 1, 1, "<%s|%5s|%.2s>", null, null, null);
  EXPECT_EQ(current_text(), "<|     |>");
}

// As they stand: what follows in the call was never passed, so nothing may be read for them.
TEST_F(CurrentError, KeepsTextsWithBrokenConversionsAsTheyStand) {
  for (const char *text : {"100%", "50% of %y", "%n", "%s %n", "%5%", "%1$s and %s", "%2$s", "%ls", "%999999999$s",
                           "%99999999d", "%1$s %3$s", "90%.", "%!", "80% of %s", "80% systems"}) {
    cu_set_error_1(99, 0, "vosk.cat", 1, 30, text);
    EXPECT_EQ(current_text(), text);
  }
}

TEST_F(CurrentError, HalvesDoubledPercentSigns) {
  cu_set_error_1(99, 0, "vosk.cat", 1, 30, "100%% of %%s");
  EXPECT_EQ(current_text(), "100% of %s");
}

TEST_F(CurrentError, PutsErrnoBackAndShowsItForPercentM) {
  errno = ENOSPC;
  cu_set_error_1(99, 0, "no-such.cat", 1, 30, "%m: %s", "file");
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(current_text(), "No space left on device: file");
}

TEST_F(CurrentError, CutsALongTextAtItsEnd) {
  for (const std::size_t length : {std::size_t{4096}, kTextMax, kTextMax + 1, std::size_t{100000}}) {
    SCOPED_TRACE(length);
    const std::string text = std::string(length - 1, 'x') + "y";
    const std::string kept = text.substr(0, kTextMax);
    cu_set_error_1(1, 0, "vosk.cat", 1, 17, text.c_str());
    EXPECT_EQ(current_text(), kept) << "a text without inserts";
    cu_set_error_1(1, 0, "vosk.cat", 1, 17, "%s", text.c_str());
    EXPECT_EQ(current_text(), kept) << "an insert";
    cu_set_error_1(1, 0, "vosk.cat", 1, 17, (text + "%").c_str());
    EXPECT_EQ(current_text(), (text + "%").substr(0, kTextMax)) << "a text that cannot be formatted";
  }
  cu_set_error_1(1, 0, "vosk.cat", 1, 17, "%65535s%1s", "a", "b");
  EXPECT_EQ(current_text(), std::string(kTextMax, ' '));
  cu_set_error_1(1, 0, "vosk.cat", 1, 17, "%*d|%*d", INT_MAX, 1, INT_MIN, 2);
  EXPECT_EQ(current_text(), std::string(kTextMax, ' '));
}

TEST_F(CurrentError, CutsALongCatalogueName) {
  const std::string name(5000, 'c');
  cu_set_error_1(1, 0, name.substr(0, 255).c_str(), 1, 17, "text");
  EXPECT_EQ(current_error().catalogue, name.substr(0, 255));
  cu_set_error_1(1, 0, name.c_str(), 1, 17, "text");
  EXPECT_EQ(current_error().catalogue, name.substr(0, 255));
  EXPECT_EQ(current_text(), "text");
}

TEST_F(CurrentError, MayWrapTheOneBefore) {
  cu_set_error_1(1, 0, "first.cat", 1, 17, "first %s", "text");
  const cu_error_t first = current_error();
  cu_set_error_1(2, 0, first.catalogue, 1, 18, "again: %s, %s", first.text, first.text);
  EXPECT_EQ(current_text(), "again: first text, first text");
  EXPECT_STREQ(current_error().catalogue, "first.cat");
  cu_set_error_1(3, 0, "vosk.cat", 1, 18, current_error().text);
  EXPECT_EQ(current_text(), "again: first text, first text");
}

TEST_F(CurrentError, BelongsToItsThread) {
  constexpr int kThreads = 8, kRounds = 2000;
  std::atomic<int> ready = 0, wrong = 0;
  std::vector<std::thread> threads;
  for (int id = 1; id <= kThreads; ++id)
    threads.emplace_back([&, id] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (int round = 0; round < kRounds; ++round) {
        cu_set_error_1(id, 0, "no-such.cat", id, round, "thread %d, round %d", id, round);
        const cu_error_t error = current_error();
        const std::string expected = "thread " + std::to_string(id) + ", round " + std::to_string(round);
        if (error.id != id || error.set != id || error.number != round || error.text != expected) ++wrong;
      }
    });
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(current_error().id, 0) << "this thread set none";
}

}  // namespace
