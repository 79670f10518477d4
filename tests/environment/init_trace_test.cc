// What vk_init_main_1 traces: its start, its refusals, and the routines that it runs.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "environment_test.h"
#include "support/sandbox.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using trace_file::folded_text;

class InitTrace : public EnvironmentTest {
 protected:
  int init(int option, const char *name = "mydaemon", int mode = 0) {
    platform::Calls calls;
    prepare(calls);
    return during(calls, [&] { return vk_init_main_1(option, name, 4711, mode); });
  }
  // The first entry of a call, whatever comes of it.
  std::string startup(int option, const char *name, int mode) {
    forget_traces();
    trace_by_variable();
    testing::internal::CaptureStdout();
    init(option, name, mode);
    testing::internal::GetCapturedStdout();
    return traced("vk_init_main").at(0);
  }
};

TEST_F(InitTrace, StartTellsOptionNameAndMode) {
  const struct {
    int option;
    const char *name;
    int mode;
    const char *text;
  } kRows[] = {
      {0, nullptr, 0,
       "Routine Startup - option_code parameter is 0\nNo procname provided\nChecking option_code...VK_LOG, "
       "set environment\n"},
      {1, "", 1,
       "Routine Startup - option_code parameter is 1\nNo procname provided\nChecking option_code... VK_STACK_CREAT, "
       "display environment only\n"},
      {2, "tool", 2,
       "Routine Startup - option_code parameter is 2\nprocname=toolChecking option_code... VK_STACK_INHERIT, "
       "set environment\n"},
      {3, "tool", -1,
       "Routine Startup - option_code parameter is 3\nprocname=toolChecking option_code... VK_STACK_CREAT "
       "VK_STACK_INHERIT, set environment\n"},
      {4, "tool", 1,
       "Routine Startup - option_code parameter is 4\nprocname=toolChecking option_code..., display environment "
       "only\n"},
      {5, "/usr/bin/tool", 0,
       "Routine Startup - option_code parameter is 5\nprocname=/usr/bin/toolChecking option_code... VK_STACK_CREAT, "
       "set environment\n"},
      {0x7abcdef0, "tool", 0,
       "Routine Startup - option_code parameter is 7abcdef0\nprocname=toolChecking option_code..., set environment\n"},
      {-1, "%s%n", 0,
       "Routine Startup - option_code parameter is ffffffff\nprocname=%s%nChecking option_code... VK_STACK_CREAT "
       "VK_STACK_INHERIT, set environment\n"},
      {-4, "tool", 0,
       "Routine Startup - option_code parameter is fffffffc\nprocname=toolChecking option_code..., set environment\n"},
  };
  for (const auto &row : kRows) EXPECT_EQ(startup(row.option, row.name, row.mode), folded_text("%s", row.text));
}

// 255 characters: 45 of the first line, "procname=", the name, and what is behind it. The entry holds 254 of them: the
// last one is the line feed.
TEST_F(InitTrace, LongNameIsCutSoThatWhatIsBehindItFits) {
  const struct {
    int option, mode;
    std::size_t kept;
    const char *first, *behind;
  } kRows[] = {
      {1, 0, 145, "Routine Startup - option_code parameter is 1\n",
       "Checking option_code... VK_STACK_CREAT, set environment\n"},
      {0, 1, 145, "Routine Startup - option_code parameter is 0\n",
       "Checking option_code...VK_LOG, display environment only\n"},
      {-1, 1, 112, "Routine Startup - option_code parameter is ffffffff\n",
       "Checking option_code... VK_STACK_CREAT VK_STACK_INHERIT, display environment only\n"},
  };
  for (const auto &row : kRows) {
    for (std::size_t length : {row.kept - 1, row.kept, row.kept + 1, std::size_t{255}, std::size_t{100000}}) {
      SCOPED_TRACE(testing::Message() << row.option << ", name of " << length);
      const std::string kept(std::min(length, row.kept), 'n');
      EXPECT_EQ(startup(row.option, std::string(length, 'n').c_str(), row.mode),
                folded_text("%sprocname=%s%s", row.first, kept.c_str(), row.behind));
    }
  }
}

TEST_F(InitTrace, UnknownOptionIsTracedInHexadecimal) {
  trace_by_variable();
  EXPECT_EQ(init(0x1f, nullptr), 12);
  EXPECT_THAT(traced(),
              ElementsAre("vk_init_main: " + folded_text("Routine Startup - option_code parameter is 1f\n"
                                                         "No procname provided\nChecking option_code... "
                                                         "VK_STACK_CREAT VK_STACK_INHERIT, set environment\n"),
                          "vk_init_main: " + folded_text("option_code 1f fails basic parameter check\n"
                                                         "Returning VK_UNKNOWN_OPTION(12) to the caller\n")));
}

TEST_F(InitTrace, BothOptionsAtOnceAreTraced) {
  trace_by_variable();
  EXPECT_EQ(init(3), 13);
  EXPECT_EQ(traced().back(), "vk_init_main: " + folded_text("Caller requested both Stack creation and inheritance\n"
                                                            "Returning VK_INHERIT_INV(13) to the caller\n"));
  EXPECT_EQ(traced().size(), 2U);
}

TEST_F(InitTrace, CreationShowsEachRoutineUnderItsOwnName) {
  trace_by_variable();
  EXPECT_EQ(init(VK_STACK_CREAT), 0);
  std::vector<std::string> routines;
  for (const trace_file::Entry &entry : trace_file::read(trace_path()).entries) routines.push_back(entry.routine);
  EXPECT_THAT(routines, ElementsAre("vk_init_main", "vk_set_env_values", "vk_obtain_ipaddrs", "vk_obtain_ipaddrs",
                                    "vk_get_ipaddr", "vk_set_env_values", "vk_set_env_values", "vk_set_env_values",
                                    "vk_set_env_values", "vk_create_env"));
}

TEST_F(InitTrace, CreationThatFindsAnEnvironmentTracesBothRoads) {
  trace_by_variable();
  set({{"VOSKSTACK", "somewhere"}, {"VOSKORIG", "1"}, {"VOSKPID", "4711"}});
  EXPECT_EQ(init(VK_STACK_CREAT), 14);
  EXPECT_THAT(traced(),
              ElementsAre(testing::StartsWith("vk_init_main: "),
                          "vk_create_env: " + folded_text("Attempting to CREATE VOSK Environment\n"
                                                          "Noticed that VOSKSTACK is set to somewhere\n"
                                                          "Assuming VOSK Environment exists - returning "
                                                          "VK_ENV_EXIST(14) to caller\n"),
                          "vk_inherit_env: " +
                              folded_text("Attempting to INHERIT VOSK Environment\n"
                                          "Process already appears to own current VOSK Environment\n"
                                          "Assuming environment exists - returning VK_ENV_EXIST(14) to the caller\n")));
}

// --- Whether it traces at all ---

TEST_F(InitTrace, MissingTraceFileIsMadeAndUsed) {
  const std::string path = directory_ / "made";
  set({{"VOSKDEBUG", path}});
  EXPECT_EQ(init(4), 12);
  EXPECT_EQ(trace_file::read(path).entries.size(), 2U);
}

TEST_F(InitTrace, WithoutAUsableTraceFileEverythingIsTheSame) {
  for (const std::string &path : {std::string(), directory_.path(), directory_ / "no/where"}) {
    set({{"VOSKDEBUG", path}});
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID"}) unset(name);
    EXPECT_EQ(init(VK_STACK_CREAT), 0) << path;
  }
}

TEST_F(InitTrace, TracingIsDecidedOncePerCall) {
  trace_by_variable();
  platform::Calls calls;
  prepare(calls);
  EXPECT_EQ(during(calls, [] { return vk_init_main_1(VK_STACK_CREAT, "mydaemon", 4711, 0); }), 0);
  int asked = 0;
  for (const std::string &text : calls.log_of({"getenv"}))
    if (text.find("VOSKDEBUG") != std::string::npos) ++asked;
  EXPECT_EQ(asked, 1);
}

}  // namespace
