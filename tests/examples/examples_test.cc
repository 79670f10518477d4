#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <vector>

#include "dev/run_shell.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"

using testing::HasSubstr;
using testing::SizeIs;
using vk::test::run_shell;

static const std::string kExamples = QX_BINARY_DIR "/bin/examples/";

// The identifiers that a program has shown, in order.
static std::vector<std::string> identifiers(const std::string &text) {
  return vk::test::all_groups(text, "2615-000 ([./0-9A-Za-z]{42})\n");
}

static std::string only_stack() {
  const auto names = files::list(sandbox::kStacks);
  if (names.size() != 1) return "";
  std::ifstream file(std::string(sandbox::kStacks) + "/" + names[0], std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

static unsigned int location_of(const std::string &eid) {
  unsigned int on_node, version, location = 9, templ, facility, priority, ipv6;
  timeval time;
  char names[256], address[16];
  EXPECT_EQ(vk_decode_eid_2(0, nullptr, eid.c_str(), &on_node, &version, &location, names, 1, &templ, &facility,
                            &priority, &time, address, &ipv6),
            0);
  return location;
}

TEST(Examples, RecordToStackLeavesARecordAndShowsItsIdentifier) {
  const auto run = run_shell("/", kExamples + "record_to_stack /no/such/file");
  EXPECT_EQ(run.status, 1) << run.output;
  const auto shown = identifiers(run.output);
  ASSERT_THAT(shown, SizeIs(1)) << run.output;
  EXPECT_EQ(location_of(shown[0]), unsigned{VK_LOCATION_STACK});
  const std::string stack = only_stack();
  EXPECT_THAT(stack, HasSubstr(shown[0]));
  EXPECT_THAT(stack, HasSubstr("The file %1$s cannot be read: %2$s."));
  EXPECT_THAT(stack, HasSubstr("/no/such/file"));
}

TEST(Examples, RecordToStackRecordsNothingWhenNothingFails) {
  const auto run = run_shell("/", kExamples + "record_to_stack /proc/self/status");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_TRUE(files::list(sandbox::kStacks).empty());
}

TEST(Examples, RecordToLogShowsAnIdentifierOfTheSystemLog) {
  const auto run = run_shell("/", kExamples + "record_to_log /no/such/directory");
  EXPECT_EQ(run.status, 1) << run.output;
  const auto shown = identifiers(run.output);
  ASSERT_THAT(shown, SizeIs(1)) << run.output;
  EXPECT_EQ(location_of(shown[0]), unsigned{VK_LOCATION_SYSLOG});
  EXPECT_TRUE(files::list(sandbox::kStacks).empty());
}

TEST(Examples, ReferToCausePutsTheCommandsIdentifierBesideItsOwn) {
  const auto run = run_shell("/", kExamples + "refer_to_cause " + kExamples + "record_to_stack /no/such/file");
  EXPECT_EQ(run.status, 1) << run.output;
  const auto shown = identifiers(run.output);
  ASSERT_THAT(shown, SizeIs(2)) << run.output;
  // Both records are in one stack; in the second one the cause follows its own identifier.
  EXPECT_THAT(only_stack(), HasSubstr(shown[1] + '\0' + shown[0] + '\0'));
}

TEST(Examples, ReferToCauseTellsOfACommandThatRecordedNothing) {
  const auto run = run_shell("/", kExamples + "refer_to_cause false");
  EXPECT_EQ(run.status, 1) << run.output;
  EXPECT_THAT(identifiers(run.output), SizeIs(1));
  EXPECT_THAT(only_stack(), HasSubstr("the command recorded nothing"));
}
