#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstddef>
#include <iterator>

#include "dev/run_shell.h"
#include "support/files.h"
#include "support/sandbox.h"

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using vk::test::all_groups;
using vk::test::first_group;
using vk::test::run_shell;
using vk::test::shell_result;

static constexpr const char *kDemo = QX_BINARY_DIR "/bin/qx_demo";
static constexpr int kRefused = 77;

// What the demo says between two of its headings.
static std::string section(const std::string &text, const std::string &heading, const std::string &next) {
  const std::size_t from = text.find("\n" + heading), to = text.find("\n" + next, from);
  return from == std::string::npos || to == std::string::npos ? "" : text.substr(from, to - from);
}

// One run serves all tests.
class Demo : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    machine_before = machine();
    run = run_shell("/", kDemo);
    machine_after = machine();
  }
  void SetUp() override {
    if (run.status == kRefused) CANNOT_RUN_HERE(run.output);
    ASSERT_EQ(run.status, 0) << run.output;
  }
  static std::string recorded_by(const std::string &program) {
    return first_group(run.output, program + "\\[[0-9]+]: recorded[a-z0-9 ]* as ([./0-9A-Za-z]{42})");
  }
  static std::string logged() { return first_group(run.output, "told the System Log as ([./0-9A-Za-z]{42})"); }
  static std::string machine() { return run_shell("/", "find /dev/log /var/adm").output; }

  static shell_result run;
  static std::string machine_before, machine_after;
};
shell_result Demo::run;
std::string Demo::machine_before, Demo::machine_after;

TEST_F(Demo, ThreeProcessesRecordAndTheIdentifierTravelsUp) {
  EXPECT_THAT(run.output, ContainsRegex("spooler.*write of order 1025 fails: No space left on device\n"));
  EXPECT_NE(recorded_by("spooler"), "");
  EXPECT_THAT(run.output, HasSubstr("spooler ended with status 1 and handed up " + recorded_by("spooler")));
  EXPECT_THAT(run.output,
              HasSubstr("recorded as " + recorded_by("orderd") + ", following from " + recorded_by("spooler")));
  EXPECT_NE(recorded_by("spoolcheck"), "");
}

TEST_F(Demo, EveryIdentifierDecodesToWhereItsRecordIs) {
  const std::string said = section(run.output, "What the identifiers say", "The records in the stack");
  const std::string stack = first_group(run.output, "VOSKSTACK is /var/adm/vosk/stacks/([^ \n]+)");
  ASSERT_NE(stack, "");
  for (const char *program : {"spooler", "orderd", "spoolcheck"})
    EXPECT_THAT(said, ContainsRegex(recorded_by(program) + ".*\n.*on the node [0-9.]+, this one\n.*in the stack file " +
                                    stack));
  EXPECT_THAT(said, ContainsRegex(logged() + ".*\n.*\n.*in the System Log, facility daemon, priority 3"));
}

TEST_F(Demo, TheStackFileHoldsTheRecordsInTheirOrder) {
  const std::string said = section(run.output, "The records in the stack", "The records in full");
  EXPECT_THAT(said, HasSubstr("never wrapped, 3 records, 0 bytes unreadable\n"));
  const std::vector<std::string> identifiers = all_groups(said, "([./0-9A-Za-z]{42})$");
  EXPECT_THAT(identifiers, ElementsAre(recorded_by("spooler"), recorded_by("orderd"), recorded_by("spoolcheck")));
  EXPECT_THAT(said,
              HasSubstr("cannot write order 1025 of batch 7 to /var/adm/vosk/demo/spool/batch-7: No space left on "
                        "device (errno 28)"));
}

TEST_F(Demo, TheRecordsInFullShowTheChain) {
  const std::string said = section(run.output, "The records in full", "The file that");
  EXPECT_THAT(all_groups(said, "^  Follows from    (.*)$"),
              ElementsAre("-", recorded_by("spooler"), recorded_by("orderd")));
  EXPECT_THAT(all_groups(said, "^  Detail          /var/adm/vosk/dumps/(spooler)[.]"), SizeIs(1));
}

TEST_F(Demo, TheDetailFileIsTheWorkersJournal) {
  EXPECT_THAT(section(run.output, "The file that the worker's record cites", "What was sent"),
              ContainsRegex("batch 7 of 4000 orders to .*/spool/batch-7\nwrite of order 1025: No space left on device\n"
                            "file system: 0 of 65536 bytes are free\n"));
}

TEST_F(Demo, TheLogLineArrivesAndRefersToTheRecord) {
  EXPECT_THAT(
      section(run.output, "What was sent", "What the library did"),
      ContainsRegex("orderd\\[[0-9]+\\]: .*Error ID: " + logged() + ":::Reference ID: " + recorded_by("orderd") +
                    ":::.*Details File: /var/adm/vosk/dumps/orderd.*:::orders have come to a stop at batch 7"));
}

TEST_F(Demo, TheTraceIsThatOfTheCommandsCall) {
  EXPECT_THAT(section(run.output, "What the library did", "  | [END OF FINAL ENTRY]"), HasSubstr("vk_push_stack"));
}

TEST_F(Demo, EndsWithTheWholeIncident) {
  EXPECT_THAT(run.output,
              ContainsRegex("\nThe whole incident[^\n]*\n[^\n]* spooler\\[[0-9]+\\][^\n]* " + recorded_by("spooler") +
                            "\n[^\n]* orderd\\[[0-9]+\\][^\n]* " + recorded_by("orderd") +
                            "\n[^\n]* orderd\\[[0-9]+\\][^\n]* " + recorded_by("spoolcheck") + " <- asked for\n$"));
}

TEST_F(Demo, NothingOutsideIsTouched) {
  EXPECT_EQ(machine_before, machine_after);
}

// From here on unshare fails in this process and in what it starts, for root as well.
static bool refuse_namespaces() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_unshare, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  const sock_fprog filter = {std::size(program), program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST(DemoRefused, SaysSoAndStops) {
  const sandbox::Outcome outcome = sandbox::run_child([] {
    ASSERT_TRUE(refuse_namespaces());
    const shell_result refused = run_shell("/", kDemo);
    EXPECT_THAT(refused.output,
                HasSubstr("qx_demo: a private node is refused here (no mount namespace: Operation not permitted).\n"));
    EXPECT_THAT(refused.output, HasSubstr("With --here the demo uses this machine's own"));
    EXPECT_EQ(refused.status, kRefused);
  });
  EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
}

TEST(DemoHere, RecordsInTheMachinesOwnDirectories) {
  sandbox::Options options;
  options.directories = false;
  RUN_IN_SANDBOX(options, [] {
    const shell_result here = run_shell("/", std::string(kDemo) + " --here");
    EXPECT_EQ(here.status, 0) << here.output;
    EXPECT_THAT(here.output, HasSubstr("write of order 1 fails: No space left on device\n"));
    EXPECT_EQ(files::list(sandbox::kStacks).size(), 1U);
    EXPECT_EQ(files::list(sandbox::kDumps).size(), 2U);
  });
}
