// Recording through the library: texts come back as they were given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <random>

#include "include/qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"
#include "vosk/message_format.h"
#include "vosk/options.h"
#include "vosk/recording.h"
#include "vosk/recording_calls.h"

using testing::HasSubstr;
using vosk::as_format;
using vosk::as_log_text;
using vosk::incident;
using vosk::record;
using vosk::recorder;
using vosk::recording;
using vosk::road;

namespace {

// A stack of this process's own, in which the newest records always find room.
void begin_stack() {
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
  setenv("VOSKRECLAIM", "whole", 1);
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "p", getpid(), 0), 0);
}

incident of_text(const std::string &text) {
  incident what;
  what.format = as_format(text);
  vosk::fill_in_defaults(what, recorder::self);
  return what;
}

// Bytes of all kinds, two in five a percent sign, and what conversions are made of.
std::string random_text(std::mt19937 &random) {
  static const std::vector<std::string> pieces = {"%",    "%",    "%%", "%s", "%n", "%1$s", "%m", "%*d", "%%m", "s",
                                                  "n",    "$",    "1",  "-",  ".",  "m",    "\n", "\t",  " ",   "ü",
                                                  "\xff", "\x01", "\\", "'",  "\"", "a",    "{",  "[",   ",",   ":"};
  std::string text;
  for (std::size_t i = std::uniform_int_distribution<std::size_t>(1, 40)(random); i > 0; --i)
    text += pieces[std::uniform_int_distribution<std::size_t>(0, pieces.size() - 1)(random)];
  return text;
}

std::string bytes_of(const tool::json &text) {
  if (text.is_string()) return text;
  std::string bytes;
  const std::string hex = text["hex"];
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  return bytes;
}

TEST(Recording, ReturnsTenThousandRandomTextsUnchanged) {
  begin_stack();
  const unsigned seed =
      std::getenv("QX_SEED") != nullptr ? static_cast<unsigned>(std::atoi(std::getenv("QX_SEED"))) : 7;
  SCOPED_TRACE("QX_SEED=" + std::to_string(seed));
  std::mt19937 random(seed);
  constexpr std::size_t kTexts = 10000, kAtOnce = 25;  // so many fit in the file
  std::size_t shown = 0;
  for (std::size_t done = 0; done < kTexts; done += kAtOnce) {
    std::vector<std::pair<std::string, std::string>> made;
    for (std::size_t i = 0; i < kAtOnce; ++i) {
      const std::string text = random_text(random);
      const recording one = record(of_text(text), recorder::self, road::stack);
      ASSERT_EQ(one.code, 0) << one.text << text;
      made.emplace_back(one.identifier, text);
    }
    const tool::result report =
        tool::run({"vosk", "report", "--json", "-n", std::to_string(kAtOnce), std::getenv("VOSKSTACK")});
    ASSERT_EQ(report.status, 0) << report.err;
    std::size_t next = 0;
    for (const tool::json &line : tool::json_lines(report.out)) {
      if (line["type"] != "record") continue;
      ASSERT_LT(next, made.size());
      ASSERT_EQ(line["identifier"], made[next].first);
      ASSERT_EQ(bytes_of(line["description"]), made[next].second);
      ++next;
    }
    ASSERT_EQ(next, made.size());
    if (done % 1000 != 0) continue;
    const tool::result show = tool::run({"vosk", "show", "--json", made[0].first});
    ASSERT_EQ(show.status, 0) << show.err;
    ASSERT_EQ(bytes_of(tool::json_lines(show.out).back()["description"]), made[0].second) << show.out;
    ++shown;
  }
  EXPECT_EQ(shown, kTexts / 1000);
}

// A long text loses its end and nothing else: no half of a percent sign or of a character is left of it.
TEST(Recording, CutsLongTextsBetweenCharacters) {
  begin_stack();
  struct {
    std::string unit;
  } const rows[] = {{"%"}, {"x"}, {"ü"}, {"€"}, {"a%"}, {"\xff%"}, {"😀%%"}};
  for (const auto &row : rows) {
    for (int shift = 0; shift < 4; ++shift) {
      SCOPED_TRACE(row.unit + std::to_string(shift));
      std::string text(static_cast<std::size_t>(shift), '.');
      while (text.size() < 2000) text += row.unit;
      const recording made = record(of_text(text), recorder::self, road::stack);
      EXPECT_TRUE(made.made);
      EXPECT_EQ(made.code, VK_RECORD_TRUNCATED);
      const tool::result show = tool::run({"vosk", "show", "--json", made.identifier});
      std::string shown = bytes_of(tool::json_lines(show.out).back()["description"]);
      while (!shown.empty() && shown.back() == ' ') shown.pop_back();
      EXPECT_TRUE(text.starts_with(shown)) << shown;
      EXPECT_GT(shown.size(), 300u);
      if (row.unit[0] != '\xff') {
        EXPECT_TRUE(tool::json_lines(show.out).back()["description"].is_string()) << "half a character";
      }
    }
  }
}

// Around the length at which it begins: not a byte is lost, or the library says so.
TEST(Recording, LosesNothingWithoutSayingSo) {
  begin_stack();
  int cut = 0;
  for (std::size_t size = 780; size < 900; ++size) {
    const std::string text(size, 'x');
    const recording made = record(of_text(text), recorder::self, road::stack);
    ASSERT_TRUE(made.made);
    const auto line = tool::json_lines(tool::run({"vosk", "show", "--json", made.identifier}).out).back();
    if (made.code == 0) {
      EXPECT_EQ(cut, 0) << size;
      EXPECT_EQ(line["description"], text);
      EXPECT_NE(line["detail"], "");
    } else {
      EXPECT_EQ(made.code, VK_RECORD_TRUNCATED) << size;
      ++cut;
    }
  }
  EXPECT_GT(cut, 10);
  EXPECT_LT(cut, 110);
}

TEST(Recording, OfNothingIsARecordWithAnAttention) {
  begin_stack();
  const recording made = record(of_text(""), recorder::self, road::stack);
  EXPECT_TRUE(made.made);
  EXPECT_EQ(made.code, VK_NO_DEFAULT_MSG);
  EXPECT_EQ(made.identifier.size(), 42u);
}

TEST(Recording, LeavesNoMessageWhereTheOtherTextsTakeAllRoom) {
  begin_stack();
  incident what = of_text("a message");
  what.source = std::string(1000, 's');
  EXPECT_EQ(vosk::fitted_format(what, "p"), " ");
  const recording made = record(what, recorder::self, road::stack);
  EXPECT_TRUE(made.made);
  EXPECT_EQ(made.code, VK_RECORD_TRUNCATED);
}

TEST(Recording, TellsTheDirectoryAsFarAsItIsKnownAndFits) {
  const auto detail = [] { return of_text("m").detail; };
  files::TemporaryDirectory dir;
  unsetenv("PWD");
  const std::string name(200, 'd'), deep = dir / name + "/" + name, gone = dir / "gone";
  for (const std::string &path : {dir / name, deep, gone}) ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  ASSERT_EQ(chdir(deep.c_str()), 0);
  EXPECT_EQ(detail(), "user root, directory ..." + deep.substr(deep.size() - 256));
  ASSERT_EQ(chdir(gone.c_str()), 0);
  ASSERT_EQ(rmdir(gone.c_str()), 0);
  EXPECT_EQ(detail(), "user root, directory ?");
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_EQ(detail(), "user root, directory /");
}

TEST(Recording, InheritsForThisProcessWhatAProcessAboveOwns) {
  begin_stack();
  setenv("VOSKPID", std::to_string(getppid()).c_str(), 1);
  const recording made = record(of_text("inherited"), recorder::self, road::stack);
  EXPECT_EQ(made.code, 0) << made.text;
  EXPECT_EQ(std::getenv("VOSKPID"), std::to_string(getpid()));
  const auto line = tool::json_lines(tool::run({"vosk", "show", "--json", made.identifier}).out).back();
  EXPECT_EQ(line["pid"], getpid());
}

TEST(LogText, IsDoubledWhereSyslogWouldReadAConversion) {
  struct {
    const char *text, *out;
  } const rows[] = {{"", ""},         {"a", "a"},       {"%", "%"},   {"%%", "%%%"},    {"%m", "%%m"},    {"%s", "%s"},
                    {"100%", "100%"}, {"%%%", "%%%%%"}, {"%M", "%M"}, {"%%m", "%%%%m"}, {"m%m%", "m%%m%"}};
  for (const auto &row : rows) EXPECT_EQ(as_log_text(row.text), row.out) << row.text;
}

TEST(MessageFormat, TakesStringsInEveryFormAndNothingElse) {
  struct {
    const char *format;
    std::size_t arguments;
    bool good;
  } const rows[] = {{"", 0, true},
                    {"%%", 0, true},
                    {"%s", 1, true},
                    {"%s", 0, false},
                    {"%s", 2, false},
                    {"%1$s", 1, true},
                    {"%2$s %1$s", 2, true},
                    {"%2$s", 2, false},
                    {"%1$s %1$s", 1, true},
                    {"%1$s %s", 1, false},
                    {"%-5s", 1, true},
                    {"%.3s", 1, true},
                    {"%-5.3s", 1, true},
                    {"%1$-5.3s", 1, true},
                    {"%05s", 1, false},
                    {"%+s", 1, false},
                    {"%#s", 1, false},
                    {"%'s", 1, false},
                    {"% s", 1, false},
                    {"%*s", 1, false},
                    {"%*s", 2, false},
                    {"%.*s", 2, false},
                    {"%1$*2$s", 2, false},
                    {"%ls", 1, false},
                    {"%hs", 1, false},
                    {"%S", 1, false},
                    {"%d", 1, false},
                    {"%c", 1, false},
                    {"%n", 0, false},
                    {"%n", 1, false},
                    {"%m", 0, false},
                    {"%p", 1, false},
                    {"%", 0, false},
                    {"a%", 0, false},
                    {"%5%", 0, false},
                    {"%0$s", 1, false},
                    {"%16$s", 16, false},
                    {"%65535s", 1, true},
                    {"%65536s", 1, false},
                    {"%99999999999999999999s", 1, false},
                    {"%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s", 16, true},
                    {"%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s", 17, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.format);
    if (row.good)
      EXPECT_NO_THROW(vosk::check_format(row.format, row.arguments));
    else
      EXPECT_THROW(vosk::check_format(row.format, row.arguments), vosk::usage_error);
  }
}

}  // namespace
