// Every result that the setting of values may ever have, for every option: how it is reported. The routine that sets
// them is replaced, since most of these cannot be brought about.
#include <gmock/gmock.h>

#include <map>
#include <string>

#include "environment_test.h"

namespace {

struct Request {
  int trace_on;
  std::string trace_path;
  unsigned int mask;
  bool named;
  std::string name;
  int pid, mode;
};
std::vector<Request> requests;
int next_result = 0;

}  // namespace

extern "C" int set_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name, int pid,
                          int mode) __asm__("__wrap__ZN2vk17vk_set_env_valuesEiPKcjS1_ii");
int set_values(int trace_on, const char *trace_path, unsigned int mask, const char *proc_name, int pid, int mode) {
  requests.push_back(
      {trace_on, trace_path, mask, proc_name != nullptr, proc_name != nullptr ? proc_name : "", pid, mode});
  return next_result;
}

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;

const Variables kAncestors = {{"VOSKSTACK", "/stack"}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}};

class InitOutcomes : public EnvironmentTest {
 protected:
  int init(int option, int result, const char *name = "/usr/bin/tool", int mode = 0) {
    requests.clear();
    next_result = result;
    fresh_double();
    return vk_init_main_1(option, name, 4711, mode);
  }

  // The message by which each result from -3 to 120 is reported; those that are not in `messages` are unexpected.
  void expect_reports(int option, const std::map<int, int> &messages, const std::string &routine) {
    const std::map<int, std::string> formatted = {
        {28,
         "2615-009 libqx_vosk.a Error: The VOSK Environment could not be\n\t established.  An VOSK Error Stack File "
         "appears to exist already for\n\t this process in the /var/adm/vosk/stacks directory.  This process cannot "
         "make\n\t recordings to the VOSK Error Stack.\n"},
        {29,
         "2615-010 libqx_vosk.a Error: The VOSK Error Stack directory\n\t /var/adm/vosk/stacks cannot be accessed.  "
         "The directory may be missing, unmounted,\n\t or permissions may have been changed on the directory.  Contact "
         "the\n\t system administrator and report this problem.  This process cannot\n\t make recordings to the VOSK "
         "Error Stack at this time.\n"},
        {30, "2615-011 libqx_vosk.a Error: An unexpected failure occurred in the\n\t routine " + routine +
                 ".  This process cannot make recordings to the VOSK \n\t Error Stack at this time.  Contact the Tarvo "
                 "Customer Support Center\n\t for assistance in resolving this failure.\n"},
    };
    for (int result = -3; result <= 120; ++result) {
      if (result == 0 || (option == VK_STACK_CREAT && result == 14)) continue;
      const int message = messages.count(result) != 0 ? messages.at(result) : 30;
      EXPECT_EQ(init(option, result), result);
      EXPECT_THAT(cu_double::sequence(),
                  ElementsAre(std::to_string(result) + ": vosk.cat 1/" + std::to_string(message) + " ()"));
      EXPECT_EQ(cu_double::errors().at(0).text,
                formatted.count(message) != 0 ? formatted.at(message) : vk_mesgtbl_vk_lib[message])
          << result;
    }
  }
};

TEST_F(InitOutcomes, SystemLogOnly) {
  EXPECT_EQ(init(VK_LOG, 0), 0);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error"));
  expect_reports(VK_LOG, {{16, 27}, {18, 26}}, "vk_set_env_values");
}

TEST_F(InitOutcomes, Creation) {
  EXPECT_EQ(init(VK_STACK_CREAT, 0), 0);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error"));
  expect_reports(VK_STACK_CREAT, {{16, 27}, {17, 25}, {18, 26}, {19, 29}, {21, 28}}, "vk_create_env");
}

TEST_F(InitOutcomes, CreationThatFindsOneGoesOnToInherit) {
  EXPECT_EQ(init(VK_STACK_CREAT, 14), 15);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("15: vosk.cat 1/23 ()"));
}

TEST_F(InitOutcomes, Inheritance) {
  set(kAncestors);
  EXPECT_EQ(init(VK_STACK_INHERIT, 0), 1);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("1: vosk.cat 1/17 ()"));
  expect_reports(VK_STACK_INHERIT, {{1, 17}, {14, 24}, {15, 23}, {16, 27}, {17, 25}, {18, 26}, {19, 29}, {21, 28}},
                 "vk_inherit_env");
}

TEST_F(InitOutcomes, DisabledStacksReportTheFailureOfTheSetUpAsItIs) {
  set({{"VOSKSDISABLE", ""}});
  for (int option : {VK_STACK_CREAT, VK_STACK_INHERIT}) {
    EXPECT_EQ(init(option, 0), 42);
    for (int result : {1, 14, 16, 18, 19, 42, 99}) EXPECT_EQ(init(option, result), result);
    EXPECT_EQ(cu_double::errors().at(0).number, 30);
  }
}

TEST_F(InitOutcomes, EachRoadAsksForItsMaskWithItsName) {
  const struct {
    int option;
    bool ancestors, disabled;
    unsigned int mask;
    const char *name;
  } rows[] = {
      {VK_LOG, false, false, 24, "/usr/bin/tool"},        {VK_STACK_CREAT, false, false, 31, "tool"},
      {VK_STACK_CREAT, true, false, 20, "/usr/bin/tool"}, {VK_STACK_INHERIT, true, false, 20, "/usr/bin/tool"},
      {VK_STACK_CREAT, false, true, 24, "/usr/bin/tool"}, {VK_STACK_INHERIT, true, true, 24, "/usr/bin/tool"},
  };
  for (const auto &row : rows) {
    for (const auto &[name, value] : kAncestors) unset(name);
    unset("VOSKSDISABLE");
    if (row.ancestors) set(kAncestors);
    if (row.disabled) set({{"VOSKSDISABLE", ""}});
    for (int mode : {0, 1, -5}) {
      init(row.option, 0, "/usr/bin/tool", mode);
      ASSERT_EQ(requests.size(), 1U);
      EXPECT_EQ(requests[0].mask, row.mask);
      EXPECT_EQ(requests[0].name, row.name);
      EXPECT_EQ(requests[0].pid, 4711);
      EXPECT_EQ(requests[0].mode, mode);
      EXPECT_EQ(requests[0].trace_on, 0);
    }
  }
}

TEST_F(InitOutcomes, NullAndEmptyNames) {
  init(VK_STACK_CREAT, 0, nullptr);
  EXPECT_FALSE(requests.at(0).named);
  init(VK_STACK_CREAT, 0, "");
  EXPECT_FALSE(requests.at(0).named);
  init(VK_LOG, 0, nullptr);
  EXPECT_FALSE(requests.at(0).named);
  init(VK_LOG, 0, "");
  EXPECT_TRUE(requests.at(0).named);
  EXPECT_EQ(requests.at(0).name, "");
}

TEST_F(InitOutcomes, TraceIsHandedOn) {
  trace_by_variable();
  init(VK_LOG, 0);
  EXPECT_EQ(requests.at(0).trace_on, 1);
  EXPECT_EQ(requests.at(0).trace_path, trace_path());
}

}  // namespace
