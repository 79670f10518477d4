// Texts that no command on this machine can be relied on to print.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>

#include "vosk/log_text.h"
#include "vosk/run_text.h"

using testing::HasSubstr;

TEST(Texts, AreCutAtWholeCharacters) {
  EXPECT_EQ(vosk::cut_text("12345678", 8), "12345678");
  EXPECT_EQ(vosk::cut_text("123456789", 8), "12345...");
  EXPECT_EQ(vosk::cut_text("1234\xc3\xbc"
                           "789",
                           8),
            "1234...");
  EXPECT_EQ(vosk::cut_text("12\xf0\x9f\x98\x80"
                           "789",
                           8),
            "12...");
  EXPECT_EQ(vosk::cut_text(std::string(20, '\x80'), 8), "...");
}

TEST(Texts, TellWhetherACommandLeftACore) {
  constexpr int kCore = 0x80;
  vosk::child_end end;
  end.status = SIGABRT;
  EXPECT_EQ(vosk::end_text(end), "killed by signal 6 (SIGABRT)");
  end.status = SIGABRT | kCore;
  EXPECT_EQ(vosk::end_text(end), "killed by signal 6 (SIGABRT), core dumped");
}

TEST(Texts, TellThatTheLogsHoldTooMuch) {
  const auto print = [](const vosk::log_findings &found, bool json, vosk::exit_status &status) {
    vosk::common_options common;
    common.json = json;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
      vosk::output out(common, false);
      vosk::print_unreadable_logs(out, common, found, false, status);
    }
    return testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
  };
  for (const bool json : {false, true}) {
    vosk::log_findings found;
    vosk::exit_status status;
    EXPECT_EQ(print(found, json, status), "");
    EXPECT_EQ(status.value(), 0);
    found.too_many = true;
    EXPECT_THAT(print(found, json, status), HasSubstr("they hold more recordings than can be looked at at once"));
    EXPECT_EQ(status.value(), 1);
  }
}
