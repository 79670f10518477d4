// VOSKSDISABLE: a process that may not use stacks is set up for the System Log.
#include <gmock/gmock.h>

#include "environment_test.h"
#include "support/sandbox.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;
using trace_file::folded_text;

class InitDisabled : public EnvironmentTest {
 protected:
  int init(platform::Calls &calls, int option) {
    prepare(calls);
    fresh_double();
    return during(calls, [&] { return vk_init_main_1(option, "/usr/sbin/mydaemon", 4711, 0); });
  }
  int init(int option) {
    platform::Calls calls;
    return init(calls, option);
  }
};

TEST_F(InitDisabled, CreationAndInheritanceSetAddressAndNameOnly) {
  for (const char *value : {"", "0", "no", "1"}) {
    set({{"VOSKSDISABLE", value}});
    for (int option : {VK_STACK_CREAT, VK_STACK_INHERIT, -3, -2}) {
      SCOPED_TRACE(testing::Message() << "\"" << value << "\", option " << option);
      unset("VOSKADDR");
      unset("VOSKPNAME");
      EXPECT_EQ(init(option), 42);
      EXPECT_THAT(cu_double::reports(), ElementsAre("42: vosk.cat 1/44 ()"));
      EXPECT_EQ(cu_double::errors().at(0).text, vk_mesgtbl_vk_lib[44]);
      EXPECT_THAT(vosk_variables(),
                  UnorderedElementsAre(Pair("VOSKSDISABLE", value), Pair("VOSKADDR", ".XO.8...................."),
                                       Pair("VOSKPNAME", "mydaemon")));
    }
  }
}

TEST_F(InitDisabled, ExistingEnvironmentIsNeitherLookedAtNorTakenOver) {
  const Variables before = {{"VOSKSDISABLE", ""}, {"VOSKSTACK", "s"}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}};
  set(before);
  EXPECT_EQ(init(VK_STACK_INHERIT), 42);
  Variables expected = before;
  expected["VOSKADDR"] = ".XO.8....................";
  expected["VOSKPNAME"] = "mydaemon";
  EXPECT_EQ(vosk_variables(), expected);
}

TEST_F(InitDisabled, OtherOptionsAreNotConcerned) {
  set({{"VOSKSDISABLE", ""}});
  EXPECT_EQ(init(VK_LOG), 0);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error"));
  EXPECT_EQ(init(3), 13);
  EXPECT_EQ(init(-1), 13);
  EXPECT_EQ(init(4), 12);
  EXPECT_EQ(init(5), 12);
  EXPECT_EQ(init(-4), 99);
  EXPECT_THAT(cu_double::reports(), ElementsAre("99: vosk.cat 1/30 (\"vk_init_main\")"));
}

TEST_F(InitDisabled, FailureOfTheSetUpIsReportedInstead) {
  set({{"VOSKSDISABLE", ""}});
  platform::Calls no_memory;
  no_memory.fail_nth("calloc", 1, ENOMEM);
  EXPECT_EQ(init(no_memory, VK_STACK_CREAT), 18);
  EXPECT_THAT(cu_double::reports(), ElementsAre("18: vosk.cat 1/26 ()"));
  platform::Calls no_address;
  no_address.fail_all("socket", EMFILE);
  EXPECT_EQ(init(no_address, VK_STACK_INHERIT), 16);
  EXPECT_THAT(cu_double::reports(), ElementsAre("16: vosk.cat 1/27 ()"));
}

TEST_F(InitDisabled, ItIsTracedAndTheSetUpIsThatOfTheSystemLog) {
  set({{"VOSKSDISABLE", ""}});
  trace_by_variable();
  EXPECT_EQ(init(VK_STACK_CREAT), 42);
  EXPECT_THAT(traced("vk_init_main"),
              ElementsAre(folded_text("Routine Startup - option_code parameter is 1\n"
                                      "procname=/usr/sbin/mydaemonChecking option_code... VK_STACK_CREAT, "
                                      "set environment\n"),
                          folded_text("Stack use disabled in process environment & caller requested to create or "
                                      "inherit an VOSK Stack\nSetting VOSKADDR environment value only")));
  EXPECT_EQ(traced("vk_set_env_values").at(0),
            folded_text("Called to set up VOSK Environment values - variable selection mask 0x18\n"));
  EXPECT_THAT(traced("vk_create_env"), IsEmpty());
}

}  // namespace
