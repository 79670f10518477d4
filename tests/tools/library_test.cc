// What the library records, read by the tools: through real files in the real directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

// Forgets the environment that another test has made.
void start_anew() {
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
}

std::string push(const char *cause, const char *detail, const char *format, const char *argument, int number) {
  vk_eid_t eid = "";
  const int code = vk_push_stack_1(&eid, cause, "resource", "product", "source.c", "1.0", 42, 0, detail, nullptr,
                                   "a.cat", 1, number, format, argument, number);
  EXPECT_EQ(code, 0);
  return eid;
}

}  // namespace

TEST(Library, RecordsWhatTheToolsShow) {
  start_anew();
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "service", getpid(), 0), 0);
  const std::string first = push(nullptr, "detail of the first", "cannot open %s, attempt %d", "/etc/thing", 3);
  const std::string second = push(first.c_str(), "detail of the second", "%2$d: gave up on %1$s", "it", 4);
  ASSERT_EQ(first.size(), 42u);

  const tool::result r = tool::run({"vosk", "report", "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  const auto lines = tool::json_lines(r.out);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["type"], "coverage");
  EXPECT_EQ(lines[0]["file"], getenv("VOSKSTACK"));
  EXPECT_EQ(lines[0]["inode"], tool::inode_of(getenv("VOSKSTACK")));
  EXPECT_EQ(lines[0]["damage"], 0);
  EXPECT_EQ(lines[1]["identifier"], first);
  EXPECT_EQ(lines[1]["process"], "service");
  EXPECT_EQ(lines[1]["pid"], getpid());
  EXPECT_EQ(lines[1]["parent"], 0);
  EXPECT_EQ(lines[1]["description"], "cannot open /etc/thing, attempt 3");
  EXPECT_EQ(lines[1]["detail"], "detail of the first");
  EXPECT_EQ(lines[2]["identifier"], second);
  EXPECT_EQ(lines[2]["associated"], first);
  EXPECT_EQ(lines[2]["description"], "4: gave up on it");

  EXPECT_THAT(tool::run({"vkstkrpt"}).out,
              HasSubstr(" service[" + std::to_string(getpid()) +
                        "] product source.c:42 cannot open /etc/thing, attempt 3 " + first + "\n"));
  EXPECT_EQ(tool::run({"vosk", "verify"}).status, 0);
}

TEST(Library, LeavesNoDamageHoweverOftenItWraps) {
  setenv("VOSKRECLAIM", "whole", 1);
  start_anew();
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "wrapping", getpid(), 0), 0);
  std::string newest;
  for (int i = 0; i < 1000; ++i) {
    newest = push(nullptr, std::string(static_cast<std::size_t>(1 + i * 37 % 500), 'd').c_str(), "%s %d", "x", i);
    if (i % 50 != 0) continue;
    const tool::result r = tool::run({"vosk", "report", "-n", "1", getenv("VOSKSTACK")});
    ASSERT_EQ(r.status, 0) << r.out;
    ASSERT_THAT(r.out, testing::EndsWith(" " + newest + "\n"));
  }
  unsetenv("VOSKRECLAIM");
}
