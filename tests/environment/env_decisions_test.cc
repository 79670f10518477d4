// Whether an environment can be created or inherited, by the variables that are there.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>

#include "environment_test.h"
#include "support/sandbox.h"
#include "vk_init_stack/decisions.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using trace_file::folded_text;

constexpr int kSet = 0, kDisplay = 1;
constexpr int kPid = 4711;

class EnvDecisions : public EnvironmentTest {
 protected:
  using Routine = int (*)(int, const char *, const char *, int, int) noexcept;
  int decide(Routine routine, int trace_on = 1, const char *name = "mydaemon", int mode = kSet) {
    platform::Calls calls;
    prepare(calls);
    forget_traces();
    const char *path = trace_path();
    return during(calls, [&] { return routine(trace_on, path, name, kPid, mode); });
  }
  int create() { return decide(vk::vk_create_env); }
  int inherit() { return decide(vk::vk_inherit_env); }

  // Sets or removes the variable; an empty value counts as not set, so both are tried.
  void state(const char *name, bool is_set, const char *value, bool empty) {
    if (is_set)
      set({{name, value}});
    else if (empty)
      set({{name, ""}});
    else
      unset(name);
  }
};

constexpr char kStackValue[] = "/var/adm/vosk/stacks/ancestor.1.20260101.000000";

TEST_F(EnvDecisions, CreationLooksAtTheStackThenTheOriginatorThenTheOwner) {
  const std::string exists = folded_text(
      "Attempting to CREATE VOSK Environment\nNoticed that VOSKSTACK is set to %s\n"
      "Assuming VOSK Environment exists - returning VK_ENV_EXIST(14) to caller\n",
      kStackValue);
  const std::string orig = folded_text(
      "Attempting to CREATE VOSK Environment\nNoticed that VOSKORIG is set when VOSKSTACK is not set\n"
      "Assuming a corrupted environment - returning VK_ENV_CORRUPT(17) to the caller\n");
  const std::string pid = folded_text(
      "Attempting to CREATE VOSK Environment\nNoticed that VOSKPID is set when VOSKSTACK is not set\n"
      "Assuming a corrupted environment - returning VK_ENV_CORRUPT(17) to the caller\n");
  const std::string done = "Successful completion - Returning VK_SUCCESS(0) to caller";
  const struct {
    bool stack, orig, pid;
    int result;
    std::string text;
  } kRows[] = {
      {false, false, false, 0, done},  {true, false, false, 14, exists}, {true, true, false, 14, exists},
      {true, false, true, 14, exists}, {true, true, true, 14, exists},   {false, true, false, 17, orig},
      {false, true, true, 17, orig},   {false, false, true, 17, pid},
  };
  for (const auto &row : kRows) {
    for (bool empty : {false, true}) {
      SCOPED_TRACE(testing::Message() << row.stack << row.orig << row.pid << " empty " << empty);
      state("VOSKSTACK", row.stack, kStackValue, empty);
      state("VOSKORIG", row.orig, "1", empty);
      state("VOSKPID", row.pid, "2", empty);
      const Variables before = vosk_variables();
      fresh_double();
      EXPECT_EQ(create(), row.result);
      EXPECT_THAT(traced("vk_create_env"), ElementsAre(row.text));
      EXPECT_EQ(cu_double::all().empty(), row.result != 0) << "values were computed";
      if (row.result != 0) {
        EXPECT_EQ(vosk_variables(), before);
      }
      for (const char *name : {"VOSKADDR", "VOSKPNAME"}) unset(name);
    }
  }
}

TEST_F(EnvDecisions, CreationSetsAllFiveVariables) {
  EXPECT_EQ(create(), 0);
  EXPECT_THAT(vosk_variables(),
              UnorderedElementsAre(Pair("VOSKSTACK", "/var/adm/vosk/stacks/mydaemon.4711.20261116.071127"),
                                   Pair("VOSKORIG", "4711"), Pair("VOSKPID", "4711"),
                                   Pair("VOSKADDR", ".XO.8...................."), Pair("VOSKPNAME", "mydaemon")));
  EXPECT_THAT(traced("vk_set_env_values").at(0),
              folded_text("Called to set up VOSK Environment values - variable selection mask 0x1f\n"));
}

TEST_F(EnvDecisions, CreationPassesAFailureOnAndTracesItTwice) {
  ASSERT_TRUE(std::filesystem::remove(sandbox::kStacks));
  EXPECT_EQ(create(), 19);
  EXPECT_THAT(traced("vk_create_env"),
              ElementsAre(folded_text("Cannot establish environment - vk_set_env_values retcode is 19\n"
                                      "Returning 19 to caller")));
  cu_double::fail_process_info();
  EXPECT_EQ(create(), 16);
  EXPECT_THAT(traced("vk_create_env"),
              ElementsAre(folded_text("Cannot establish environment - vk_set_env_values retcode is 16\n"
                                      "Returning 16 to caller")));
}

TEST_F(EnvDecisions, InheritanceLooksAtStackOriginatorOwnerAndThenWhoOwns) {
  const std::string none = folded_text(
      "Attempting to INHERIT VOSK Environment\nNoticed that VOSKSTACK is not set\n"
      "Assuming no VOSK Environment exists - returning VK_NO_VK_ENVIR(15) to caller\n");
  const std::string orig = folded_text(
      "Attempting to INHERIT VOSK Environment\nNoticed that VOSKORIG is not set when VOSKSTACK has been set\n"
      "Assuming a corrupted environment - returning VK_ENV_CORRUPT(17) to the caller\n");
  const std::string pid = folded_text(
      "Attempting to INHERIT VOSK Environment\nNoticed that VOSKPID is not set when VOSKSTACK has been set\n"
      "Assuming a corrupted environment - returning VK_ENV_CORRUPT(17) to the caller\n");
  const std::string owned = folded_text(
      "Attempting to INHERIT VOSK Environment\nProcess already appears to own current VOSK Environment\n"
      "Assuming environment exists - returning VK_ENV_EXIST(14) to the caller\n");
  const std::string done = "VOSK Environment successfully inherited\nReturning VK_INHERIT_SUCCESS(1) to caller";
  const struct {
    bool stack, orig;
    const char *pid;
    int result;
    std::string text;
  } kRows[] = {
      {false, false, nullptr, 15, none}, {false, true, nullptr, 15, none},  {false, false, "4711", 15, none},
      {false, true, "4711", 15, none},   {true, false, nullptr, 17, orig},  {true, false, "4711", 17, orig},
      {true, true, nullptr, 17, pid},    {true, true, "4711", 14, owned},   {true, true, " 4711 by name", 14, owned},
      {true, true, "4712", 1, done},     {true, true, "nonsense", 1, done},
  };
  for (const auto &row : kRows) {
    for (bool empty : {false, true}) {
      SCOPED_TRACE(testing::Message() << row.stack << row.orig << (row.pid != nullptr ? row.pid : "-") << empty);
      state("VOSKSTACK", row.stack, kStackValue, empty);
      state("VOSKORIG", row.orig, "1", empty);
      state("VOSKPID", row.pid != nullptr, row.pid, empty);
      const Variables before = vosk_variables();
      EXPECT_EQ(inherit(), row.result);
      EXPECT_THAT(traced("vk_inherit_env"), ElementsAre(row.text));
      if (row.result != 1) {
        EXPECT_EQ(vosk_variables(), before);
      }
      unset("VOSKPNAME");
    }
  }
}

TEST_F(EnvDecisions, InheritanceReplacesOwnerAndNameOnly) {
  set({{"VOSKSTACK", kStackValue}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}, {"VOSKADDR", "odd"}, {"VOSKPNAME", "parent"}});
  EXPECT_EQ(inherit(), 1);
  EXPECT_THAT(vosk_variables(),
              UnorderedElementsAre(Pair("VOSKSTACK", kStackValue), Pair("VOSKORIG", "1"), Pair("VOSKPID", "4711"),
                                   Pair("VOSKADDR", "odd"), Pair("VOSKPNAME", "mydaemon")));
  EXPECT_THAT(traced("vk_set_env_values").at(0),
              folded_text("Called to set up VOSK Environment values - variable selection mask 0x14\n"));
}

TEST_F(EnvDecisions, InheritanceNeedsNeitherAddressNorName) {
  set({{"VOSKSTACK", kStackValue}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}});
  EXPECT_EQ(inherit(), 1);
  EXPECT_EQ(vosk_variables().count("VOSKADDR"), 0U);
}

TEST_F(EnvDecisions, InheritancePassesAFailureOnWithoutATraceOfItsOwn) {
  set({{"VOSKSTACK", kStackValue}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}});
  cu_double::fail_process_info();
  EXPECT_EQ(inherit(), 16);
  EXPECT_THAT(traced("vk_inherit_env"), IsEmpty());
}

TEST_F(EnvDecisions, DecisionsAreTheSameWithoutATrace) {
  const auto silently = [&](Routine routine) { return decide(routine, 0); };
  EXPECT_EQ(silently(vk::vk_inherit_env), 15);
  EXPECT_EQ(silently(vk::vk_create_env), 0);
  EXPECT_EQ(silently(vk::vk_create_env), 14);
  EXPECT_EQ(silently(vk::vk_inherit_env), 14);
  EXPECT_THAT(traced(), IsEmpty());
}

TEST_F(EnvDecisions, DisplayModeIsPassedOn) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(decide(vk::vk_create_env, 0, "mydaemon", kDisplay), 0);
  set({{"VOSKSTACK", kStackValue}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}});
  const Variables before = vosk_variables();
  EXPECT_EQ(decide(vk::vk_inherit_env, 0, "other", kDisplay), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "VOSKSTACK=/var/adm/vosk/stacks/mydaemon.4711.20261116.071127\nVOSKORIG=4711\nVOSKPID=4711\n"
            "VOSKADDR=.XO.8....................\nVOSKPNAME=mydaemon\n"
            "VOSKPID=4711\nVOSKPNAME=other\n");
  EXPECT_EQ(vosk_variables(), before);
}

}  // namespace
