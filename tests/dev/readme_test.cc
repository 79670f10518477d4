#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "run_shell.h"
#include "support/files.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using vk::test::all_groups;
using vk::test::run_shell;
using vk::test::shell_result;

static std::string readme() {
  return files::read(QX_SOURCE_DIR "/README.md").value_or("");
}

// The first block of the language.
static std::string program_of(const std::string &text) {
  const std::size_t from = text.find("```c\n") + 5, to = text.find("```", from);
  return to == std::string::npos ? "" : text.substr(from, to - from);
}

// The indented lines that start with the command.
static std::string command_of(const std::string &text, const std::string &command) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("    " + command + " ", 0) == 0) return line;
  return "";
}

TEST(Readme, ProgramCompilesRunsAndRecordsAndItsRecordIsReadAsItSays) {
  const std::string text = readme();
  const files::TemporaryDirectory tree;
  ASSERT_TRUE(files::write(tree / "orders.c", program_of(text)));
  const shell_result links =
      run_shell(tree.path(), "ln -s " QX_SOURCE_DIR "/include include && ln -s " QX_BINARY_DIR " build");
  ASSERT_EQ(links.status, 0) << links.output;

  const shell_result compiled = run_shell(tree.path(), command_of(text, "cc"));
  ASSERT_EQ(compiled.status, 0) << compiled.output;
  EXPECT_EQ(compiled.output, "");
  const shell_result made = run_shell(tree.path(), command_of(text, "install"));
  ASSERT_EQ(made.status, 0) << made.output;

  const shell_result ran = run_shell(tree.path(), "./orders");
  EXPECT_EQ(ran.status, 0);
  EXPECT_THAT(ran.output, MatchesRegex("2615-000 [./0-9A-Za-z]{42}\n"));
  const std::vector<std::string> stacks = files::list("/var/adm/vosk/stacks");
  ASSERT_EQ(stacks.size(), 1U);
  const std::string stack = files::read("/var/adm/vosk/stacks/" + stacks[0]).value_or("");
  EXPECT_THAT(stack, HasSubstr(ran.output.substr(9, 42)));
  EXPECT_THAT(stack, HasSubstr("cannot read the settings %s"));

  const std::string identifier = ran.output.substr(9, 42);
  const std::string reading_part = text.substr(text.find("## Read what was recorded"));
  const std::vector<std::string> readings = all_groups(reading_part, "^    build/bin/(vosk [^#\n]*)");
  ASSERT_EQ(readings.size(), 6U);
  for (std::string reading : readings) {
    SCOPED_TRACE(reading);
    if (const std::size_t at = reading.find("IDENTIFIER"); at != std::string::npos) reading.replace(at, 10, identifier);
    const shell_result read = run_shell(tree.path(), "build/bin/" + reading);
    EXPECT_EQ(read.status, 0) << read.output;
    const bool shows_help = reading.find("--help") != std::string::npos;
    const bool shows_detail = reading.find(" detail ") != std::string::npos;
    EXPECT_THAT(read.output, HasSubstr(shows_help     ? "Usage: vosk report"
                                       : shows_detail ? "No such file or directory"
                                                      : "cannot read the settings /etc/orders.conf"));
  }
}

TEST(Readme, LinksLeadToFilesOfTheTree) {
  const std::string text = readme() + files::read(QX_SOURCE_DIR "/CONTRIBUTING.md").value_or("");
  const std::vector<std::string> links = all_groups(text, "]\\(([^):]+)\\)");
  for (const std::string &link : links) EXPECT_TRUE(files::exists(QX_SOURCE_DIR "/" + link)) << link;
  EXPECT_GT(links.size(), 3U);
}

TEST(Readme, ShellRecordsAsItSays) {
  const std::string text = readme();
  const std::string script = command_of(text, "eval") + "\n" + command_of(text, "build/bin/vosk push");
  const files::TemporaryDirectory tree;
  ASSERT_TRUE(files::write(tree / "script", script));
  const shell_result ran =
      run_shell(tree.path(), "ln -s " QX_BINARY_DIR " build && file=orders sh ./script && build/bin/vosk report");
  EXPECT_EQ(ran.status, 0) << ran.output;
  EXPECT_THAT(ran.output, HasSubstr("cannot copy orders"));
}
