// A program in plain C, compiled strictly, uses both roads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dev/run_shell.h"
#include "private_log.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

TEST(BothRoads, CProgramRecordsAndReadsItsIdentifiersBack) {
  const std::string problem = private_log::cover_dev();
  if (!problem.empty()) CANNOT_RUN_HERE(problem);
  platform::Environment environment;
  for (const char *name :
       {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG", "NLSPATH", "LANG"})
    environment.unset(name);
  private_log::Listener listener;
  const vk::test::shell_result run = vk::test::run_shell("/", QX_PROGRAM);
  ASSERT_EQ(run.status, 0) << run.output;
  const std::vector<std::string> stacks = files::list(sandbox::kStacks);
  ASSERT_EQ(stacks.size(), 1U);
  EXPECT_THAT(run.output, testing::MatchesRegex("2615-000 7[./0-9A-Za-z]{41}\n2615-000 8[./0-9A-Za-z]{41}\nstack " +
                                                stacks[0] + "\nlog 24 3\n"));
  const std::string first = run.output.substr(9, 42), second = run.output.substr(61, 42);
  EXPECT_THAT(files::read(std::string(sandbox::kStacks) + "/" + stacks[0]).value_or(""), testing::HasSubstr(first));
  // The C library's syslog keeps the line feeds of a record.
  const std::string datagram = listener.next().value_or("");
  EXPECT_THAT(datagram, testing::HasSubstr(second + ":::Reference ID: " + first +
                                           ":::Template ID: 2a:::Details File: :::Location: tests,both_roads.c,1.0,"));
  EXPECT_THAT(datagram, testing::EndsWith(" :::Write failed\nThe device is full\nError number\n28\nDevice\nsda1\n"));
}

}  // namespace
