// What vosk env takes from the library's answer: here the answers are this program's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>

#include "include/qx_cu.h"
#include "include/qx_vosk.h"
#include "support/files.h"
#include "vosk/environment_values.h"
#include "vosk/library_error.h"
#include "vosk/options.h"
#include "vosk/verbs.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

struct {
  int code;
  std::string printed, name;
  int option, process, mode;
} answer;

cu_error_t last_error;

const std::string kCreated = "VOSKSTACK=/s\nVOSKORIG=1\nVOSKPID=1\nVOSKADDR=a\nVOSKPNAME=n\n";
const std::string kInherited = "VOSKPID=1\nVOSKPNAME=n\n", kLog = "VOSKADDR=a\nVOSKPNAME=n\n";

}  // namespace

// In the place of the library's.
extern "C" int vk_init_main_1(int option_code, const char *proc_name, int pid, int mode) {
  answer.option = option_code;
  answer.name = proc_name;
  answer.process = pid;
  answer.mode = mode;
  (void)std::fputs(answer.printed.c_str(), stdout);
  return answer.code;
}

extern "C" int cu_get_error_1(cu_error_t *error) {
  *error = last_error;
  return answer.code;
}

namespace {

struct outcome {
  int status = -1;
  std::string out, thrown;
};

outcome env(const vosk::env_options &options) {
  outcome made;
  testing::internal::CaptureStdout();
  try {
    made.status = vosk::env({}, options);
  } catch (const std::runtime_error &error) {
    made.thrown = error.what();
  }
  made.out = testing::internal::GetCapturedStdout();
  return made;
}

vosk::env_options options(vosk::env_options::action what) {
  vosk::env_options made;
  made.what = what;
  made.process = 4711;
  return made;
}

using enum vosk::env_options::action;

TEST(Answer, IsAskedForWithoutANullName) {
  const struct {
    vosk::env_options::action what;
    int option;
  } rows[] = {{create, VK_STACK_CREAT}, {inherit, VK_STACK_INHERIT}, {log, VK_LOG}};
  for (const auto &row : rows) {
    answer = {VK_ENV_FAILED, "", "", -1, 0, 0};
    (void)env(options(row.what));
    EXPECT_EQ(answer.option, row.option);
    EXPECT_EQ(answer.process, 4711);
    EXPECT_EQ(answer.mode, 1);
    EXPECT_NE(answer.name, "");
  }
}

TEST(Answer, IsTakenWithExactlyTheNamesThatBelongToIt) {
  const struct {
    vosk::env_options::action what;
    int code;
    std::string printed;
    bool good;
  } rows[] = {
      {create, 0, kCreated, true},
      {create, 1, kInherited, true},
      {create, 42, kLog, true},
      {inherit, 1, kInherited, true},
      {log, 0, kLog, true},
      {create, 0, "VOSKPNAME=n\nVOSKADDR=a\nVOSKPID=1\nVOSKORIG=1\nVOSKSTACK=/s\n", true},
      {create, 0, "", false},
      {create, 0, kInherited, false},
      {create, 0, kCreated + "VOSKPID=2\n", false},
      {create, 0, kCreated + "PATH=/evil\n", false},
      {create, 0, "VOSKDEBUG=/evil\n" + kCreated, false},
      {create, 0, kCreated + "\n", false},
      {create, 0, kCreated + "text", false},
      {create, 0, "VOSKSTACK=/s\x1b\nVOSKORIG=1\nVOSKPID=1\nVOSKADDR=a\nVOSKPNAME=n\n", false},
      {create, 0, "VOSKSTACK=/s\nVOSKORIG=1\nVOSKPID=1\nVOSKADDR=a\nVOSKPNAME=n\r\n", false},
      {create, 0, "VOSKSTACK=/s\nVOSKORIG=1\nVOSKPID=1\nVOSKADDR=a\nVOSKPNAME=a\nb\n", false},
      {create, 0, "VOSKSTACK=/s\nVOSKORIG=1\nVOSKPID=1\nVOSKADDR=a\nVOSKPNAME=\xc2\x85\n", false},
      {create, 1, kCreated, false},
      {inherit, 1, kLog, false},
      {log, 0, kInherited, false},
      {log, 0, kCreated, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.printed);
    answer.code = row.code;
    answer.printed = row.printed;
    const outcome made = env(options(row.what));
    if (row.good) {
      EXPECT_EQ(made.thrown, "");
      EXPECT_THAT(made.out, HasSubstr("export VOSKPNAME='n'\n"));
      EXPECT_EQ(made.status, row.code == 42 ? 1 : 0);
    } else {
      EXPECT_THAT(made.thrown, HasSubstr("the library printed"));
      EXPECT_EQ(made.out, "(exit 1)\n") << "all or nothing";
    }
  }
}

TEST(Answer, OfAFailureIsItsStatusAloneWhateverWasPrinted) {
  for (const int code : {12, 13, 14, 15, 16, 17, 18, 19, 21, 99}) {
    answer.code = code;
    answer.printed = kCreated;
    const outcome made = env(options(create));
    EXPECT_EQ(made.status, 1);
    EXPECT_EQ(made.out, "(exit " + std::to_string(code) + ")\n");
  }
}

TEST(Answer, OfAFailureTellsNothingOfReclamation) {
  vosk::env_options newest = options(create);
  newest.keep_newest = true;
  answer.printed = kCreated;
  answer.code = 0;
  EXPECT_THAT(env(newest).out, HasSubstr("export VOSKRECLAIM='whole'\n"));
  answer.code = 12;
  EXPECT_EQ(env(newest).out, "(exit 12)\n");
}

TEST(Answer, ThatIsMoreThanAPipeHoldsIsAFailureAndGoesNowhere) {
  answer.code = 0;
  answer.printed = std::string(65536 + 100, 'x');  // the last ones stay in the buffer
  const outcome made = env(options(create));
  EXPECT_EQ(made.thrown, "cannot read what the library prints: Resource temporarily unavailable");
  EXPECT_EQ(made.out, "(exit 1)\n");
}

TEST(Answer, WithoutATextIsToldByItsNumber) {
  std::string text = "An explanation.", none;
  answer.code = 12;
  for (char *const given : {static_cast<char *>(nullptr), none.data(), text.data()}) {
    last_error.text = given;
    EXPECT_EQ(vosk::library_text(12), given == text.data() ? text : "libqx_vosk returned 12.");
    EXPECT_EQ(vosk::library_text(13), "libqx_vosk returned 13.") << "that is the text of another";
  }
  EXPECT_EQ(vosk::first_sentence("One.\n  Two."), "One.");
  EXPECT_EQ(vosk::first_sentence("One alone."), "One alone.");
}

TEST(Answer, LeavesStandardOutputAsItWas) {
  const auto before = files::descriptors();
  answer.code = 0;
  answer.printed = kLog;
  (void)env(options(log));
  answer.printed = std::string(200000, 'x');
  (void)env(options(log));
  EXPECT_EQ(files::descriptors(), before);
}

TEST(Answer, IsQuotedForAShell) {
  answer.code = 0;
  answer.printed = "VOSKADDR=$(x) `y` \"z\" \\\nVOSKPNAME=''it's'\n";
  EXPECT_EQ(env(options(log)).out, "export VOSKADDR='$(x) `y` \"z\" \\'\nexport VOSKPNAME=''\\'''\\''it'\\''s'\\'''\n");
}

}  // namespace
