// Establishing an environment through the entry points: what each situation leads to and how it is reported.
#include <gmock/gmock.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <functional>

#include "environment_test.h"
#include "support/sandbox.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr int kPid = 4711;
constexpr char kStackValue[] = "/var/adm/vosk/stacks/ancestor.1.20260101.000000";
constexpr char kStackFile[] = "/var/adm/vosk/stacks/mydaemon.4711.20261116.071127";
const Variables kAncestors = {{"VOSKSTACK", kStackValue},
                              {"VOSKORIG", "1"},
                              {"VOSKPID", "2"},
                              {"VOSKADDR", std::string(kNodeAddress) + "."},
                              {"VOSKPNAME", "ancestor"}};

class Init : public EnvironmentTest {
 protected:
  int init(platform::Calls &calls, int option, const char *name = "mydaemon", int mode = 0) {
    prepare(calls);
    fresh_double_but_failures();
    return during(calls, [&] { return vk_init_main_1(option, name, kPid, mode); });
  }
  int init(int option, const char *name = "mydaemon", int mode = 0) {
    platform::Calls calls;
    return init(calls, option, name, mode);
  }

  // The one report that the call made; its text is the one of the table unless `text` is given.
  void expect_report(const std::string &summary, const std::string &text = "") {
    EXPECT_THAT(cu_double::reports(), ElementsAre(summary));
    const std::vector<cu_double::Report> errors = cu_double::errors();
    if (errors.empty()) return;
    EXPECT_EQ(errors[0].zero, 0);
    EXPECT_EQ(errors[0].text, !text.empty() ? text : vk_mesgtbl_vk_lib[errors[0].number]);
  }

 private:
  void fresh_double_but_failures() {
    if (!process_info_fails_) fresh_double();
  }

 protected:
  bool process_info_fails_ = false;
};

TEST_F(Init, DecisionTableOfTheVariablesThatArePresent) {
  static constexpr struct {
    bool stack, orig;
    const char *pid;
    const char *create, *inherit;  // what is reported
  } kRows[] = {
      {false, false, nullptr, "no error", "15: vosk.cat 1/23 ()"},
      {true, true, "2", "1: vosk.cat 1/17 ()", "1: vosk.cat 1/17 ()"},
      {true, true, "4711", "14: vosk.cat 1/24 ()", "14: vosk.cat 1/24 ()"},
      {true, false, nullptr, "17: vosk.cat 1/25 ()", "17: vosk.cat 1/25 ()"},
      {true, false, "2", "17: vosk.cat 1/25 ()", "17: vosk.cat 1/25 ()"},
      {true, false, "4711", "17: vosk.cat 1/25 ()", "17: vosk.cat 1/25 ()"},
      {true, true, nullptr, "17: vosk.cat 1/25 ()", "17: vosk.cat 1/25 ()"},
      {false, true, nullptr, "17: vosk.cat 1/25 ()", "15: vosk.cat 1/23 ()"},
      {false, false, "2", "17: vosk.cat 1/25 ()", "15: vosk.cat 1/23 ()"},
      {false, true, "2", "17: vosk.cat 1/25 ()", "15: vosk.cat 1/23 ()"},
      {false, true, "4711", "17: vosk.cat 1/25 ()", "15: vosk.cat 1/23 ()"},
  };
  for (const auto &row : kRows) {
    for (int option : {VK_STACK_CREAT, VK_STACK_INHERIT}) {
      for (bool empty : {false, true}) {  // an empty value counts as not set
        SCOPED_TRACE(testing::Message() << row.stack << row.orig << (row.pid != nullptr ? row.pid : "-") << " option "
                                        << option << " empty " << empty);
        for (const auto &[name, value] : kAncestors) unset(name);
        if (empty) set({{"VOSKSTACK", ""}, {"VOSKORIG", ""}, {"VOSKPID", ""}});
        if (row.stack) set({{"VOSKSTACK", kStackValue}});
        if (row.orig) set({{"VOSKORIG", "1"}});
        if (row.pid != nullptr) set({{"VOSKPID", row.pid}});
        const Variables before = vosk_variables();

        const std::string summary = option == VK_STACK_CREAT ? row.create : row.inherit;
        const int result = init(option);
        EXPECT_EQ(result, summary == "no error" ? 0 : std::stoi(summary));
        expect_report(summary);
        if (result > 1) {
          EXPECT_EQ(vosk_variables(), before);
        }
      }
    }
  }
}

TEST_F(Init, CreationSetsAllFiveVariablesUnderTheBaseName) {
  for (const char *name : {"mydaemon", "/usr/sbin/mydaemon", "sbin/mydaemon/"}) {
    for (const auto &[variable, value] : kAncestors) unset(variable);
    EXPECT_EQ(init(VK_STACK_CREAT, name), 0);
    expect_report("no error");
    EXPECT_THAT(vosk_variables(),
                UnorderedElementsAre(Pair("VOSKSTACK", kStackFile), Pair("VOSKORIG", "4711"), Pair("VOSKPID", "4711"),
                                     Pair("VOSKADDR", ".XO.8...................."), Pair("VOSKPNAME", "mydaemon")));
  }
}

TEST_F(Init, CreationWithoutANameTakesTheCommandName) {
  for (const char *name : {static_cast<const char *>(nullptr), ""}) {
    for (const auto &[variable, value] : kAncestors) unset(variable);
    EXPECT_EQ(init(VK_STACK_CREAT, name), 0);
    EXPECT_EQ(vosk_variables().at("VOSKPNAME"), "command");
    EXPECT_EQ(vosk_variables().at("VOSKSTACK"), "/var/adm/vosk/stacks/command.4711.20261116.071127");
  }
}

TEST_F(Init, NamesOfSlashesOnlyAreTheRoot) {
  // "/" as a base name leads into the stack directory: its name then begins with a dot.
  EXPECT_EQ(init(VK_STACK_CREAT, "///"), 0);
  EXPECT_EQ(vosk_variables().at("VOSKSTACK"), "/var/adm/vosk/stacks//.4711.20261116.071127");
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), "/");
}

TEST_F(Init, VeryLongNamesAreRefusedWhereTheyWouldNameAFile) {
  // The kernel takes components of 255 bytes.
  EXPECT_EQ(init(VK_STACK_CREAT, std::string(300, 'n').c_str()), 99);
  expect_report("99: vosk.cat 1/30 ()",
                "2615-011 libqx_vosk.a Error: An unexpected failure occurred in the\n\t routine vk_create_env.  This "
                "process cannot make recordings to the VOSK \n\t Error Stack at this time.  Contact the Tarvo Customer "
                "Support Center\n\t for assistance in resolving this failure.\n");
  EXPECT_THAT(vosk_variables(), IsEmpty());
  EXPECT_EQ(init(VK_STACK_CREAT, std::string(100000, 'n').c_str()), 99);
  EXPECT_THAT(vosk_variables(), IsEmpty());
  EXPECT_EQ(init(VK_STACK_CREAT, (std::string(100000, 'n') + "/mydaemon").c_str()), 0);
  EXPECT_EQ(vosk_variables().at("VOSKSTACK"), kStackFile);
}

TEST_F(Init, InheritanceReplacesOwnerAndNameAndIsReportedAsInherited) {
  for (int option : {VK_STACK_CREAT, VK_STACK_INHERIT}) {
    set(kAncestors);
    EXPECT_EQ(init(option, "/usr/bin/tool"), 1);
    expect_report("1: vosk.cat 1/17 ()", "VOSK Environment inherited from a previously established environment\n");
    Variables expected = kAncestors;
    expected["VOSKPID"] = "4711";
    expected["VOSKPNAME"] = "tool";
    EXPECT_EQ(vosk_variables(), expected);
  }
}

// Inheritance is handed the whole name: the trace of the reading back shows it.
TEST_F(Init, InheritanceIsHandedTheNameWithItsDirectoryPart) {
  trace_by_variable();
  for (int option : {VK_STACK_CREAT, VK_STACK_INHERIT}) {
    set(kAncestors);
    EXPECT_EQ(init(option, "/usr/bin/tool"), 1);
    EXPECT_THAT(traced("vk_set_env_values").back(),
                testing::HasSubstr("VOSKPNAME environment variable to /usr/bin/tool value\n"));
  }
}

TEST_F(Init, SystemLogOnlySetsAddressAndName) {
  EXPECT_EQ(init(VK_LOG, "/usr/bin/tool"), 0);
  expect_report("no error");
  EXPECT_THAT(vosk_variables(),
              UnorderedElementsAre(Pair("VOSKADDR", ".XO.8...................."), Pair("VOSKPNAME", "tool")));
}

TEST_F(Init, SystemLogOnlyLeavesAnExistingEnvironmentToItself) {
  set(kAncestors);
  EXPECT_EQ(init(VK_LOG), 0);
  Variables expected = kAncestors;
  expected["VOSKPNAME"] = "mydaemon";
  EXPECT_EQ(vosk_variables(), expected);
}

TEST_F(Init, SecondCreationInTheSameProcessIsRefused) {
  EXPECT_EQ(init(VK_STACK_CREAT), 0);
  EXPECT_EQ(init(VK_STACK_CREAT), 14);
  expect_report("14: vosk.cat 1/24 ()");
  EXPECT_EQ(init(VK_STACK_INHERIT), 14);
}

// --- Option codes ---

TEST_F(Init, OptionCodesAreTakenAsTheyAre) {
  const std::string unexpected = "99: vosk.cat 1/30 (\"vk_init_main\")";
  const std::string both = "13: vosk.cat 1/22 (\"VK_STACK_CREATE\", \"VK_STACK_INHERIT\", \"vk_init_main\")";
  const std::string unknown = "12: vosk.cat 1/20 ()";
  const struct {
    int option;
    std::string summary;
  } kRows[] = {
      {-4, unexpected},
      {-3, "no error"},  // the low bits of -3 are those of VK_STACK_CREAT
      {-2, "15: vosk.cat 1/23 ()"},
      {-1, both},
      {0, "no error"},
      {1, "no error"},
      {2, "15: vosk.cat 1/23 ()"},
      {3, both},
      {4, unknown},
      {5, unknown},
      {6, unknown},
      {7, unknown},
      {8, unknown},
      {-8, unexpected},
      {INT_MAX, unknown},
      {INT_MIN, unexpected},
      {INT_MIN + 3, both},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.option);
    for (const auto &[name, value] : kAncestors) unset(name);
    EXPECT_EQ(init(row.option), row.summary == "no error" ? 0 : std::stoi(row.summary));
    expect_report(row.summary);
    if (row.summary != "no error") {
      EXPECT_THAT(vosk_variables(), IsEmpty());
      EXPECT_THAT(cu_double::all().size(), 1U) << "values were computed";
    } else {
      EXPECT_EQ(vosk_variables().size(), row.option == 0 ? 2U : 5U);
    }
  }
}

// The texts of these go out with their placeholders, the inserts beside them.
TEST_F(Init, RefusedOptionsAreReportedWithTheTableTextItself) {
  for (int option : {3, 4, -4}) {
    init(option);
    const std::vector<cu_double::Report> errors = cu_double::errors();
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_EQ(errors[0].text_pointer, vk_mesgtbl_vk_lib[errors[0].number]) << option;
  }
}

// --- Failures ---

TEST_F(Init, EachFailureIsReportedWithItsMessage) {
  const std::string directory_text =
      "2615-010 libqx_vosk.a Error: The VOSK Error Stack directory\n\t /var/adm/vosk/stacks cannot be accessed.  The "
      "directory may be missing, unmounted,\n\t or permissions may have been changed on the directory.  Contact the\n"
      "\t system administrator and report this problem.  This process cannot\n\t make recordings to the VOSK Error "
      "Stack at this time.\n";
  const std::string exists_text =
      "2615-009 libqx_vosk.a Error: The VOSK Environment could not be\n\t established.  An VOSK Error Stack File "
      "appears to exist already for\n\t this process in the /var/adm/vosk/stacks directory.  This process cannot "
      "make\n\t recordings to the VOSK Error Stack.\n";
  const auto unexpected_text = [](const std::string &routine) {
    return "2615-011 libqx_vosk.a Error: An unexpected failure occurred in the\n\t routine " + routine +
           ".  This process cannot make recordings to the VOSK \n\t Error Stack at this time.  Contact the Tarvo "
           "Customer Support Center\n\t for assistance in resolving this failure.\n";
  };
  using Calls = platform::Calls;
  const struct {
    const char *what;
    int option;
    std::function<void(Calls &)> fault;
    std::string summary;
    std::string text;
  } kRows[] = {
      {"log: no memory", 0, [](Calls &c) { c.fail_nth("calloc", 2, ENOMEM); }, "18: vosk.cat 1/26 ()", ""},
      {"log: no address", 0, [](Calls &c) { c.fail_all("socket", ENFILE); }, "16: vosk.cat 1/27 ()", ""},
      {"log: no variable", 0, [](Calls &c) { c.fail_nth("putenv", 1, ENOMEM); }, "16: vosk.cat 1/27 ()", ""},
      {"create: no memory", 1, [](Calls &c) { c.fail_nth("calloc", 1, ENOMEM); }, "18: vosk.cat 1/26 ()", ""},
      {"create: no address", 1, [](Calls &c) { c.fail_all("socket", ENFILE); }, "16: vosk.cat 1/27 ()", ""},
      {"create: no variable", 1, [](Calls &c) { c.fail_nth("putenv", 5, ENOMEM); }, "16: vosk.cat 1/27 ()", ""},
      {"create: no directory", 1, [](Calls &c) { c.fail_nth("stat", 1, ENOENT); }, "19: vosk.cat 1/29 ()",
       directory_text},
      {"create: file exists", 1, [](Calls &) { files::write(kStackFile, ""); }, "21: vosk.cat 1/28 ()", exists_text},
      {"create: stat fails", 1, [](Calls &c) { c.fail_nth("stat", 2, EIO); }, "99: vosk.cat 1/30 ()",
       unexpected_text("vk_create_env")},
      {"inherit: no memory", 2, [](Calls &c) { c.fail_nth("calloc", 2, ENOMEM); }, "18: vosk.cat 1/26 ()", ""},
      {"inherit: no variable", 2, [](Calls &c) { c.fail_nth("putenv", 1, ENOMEM); }, "16: vosk.cat 1/27 ()", ""},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.what);
    for (const auto &[name, value] : kAncestors) unset(name);
    if (row.option == VK_STACK_INHERIT) set(kAncestors);
    platform::Calls calls;
    row.fault(calls);
    EXPECT_EQ(init(calls, row.option), std::stoi(row.summary));
    expect_report(row.summary, row.text);
    std::filesystem::remove(kStackFile);
  }
}

TEST_F(Init, MissingProcessInformationIsReportedForEveryOption) {
  for (int option : {VK_LOG, VK_STACK_CREAT, VK_STACK_INHERIT}) {
    if (option == VK_STACK_INHERIT) set(kAncestors);
    fresh_double();
    cu_double::fail_process_info();
    process_info_fails_ = true;
    EXPECT_EQ(init(option), 16);
    expect_report("16: vosk.cat 1/27 ()");
  }
}

// The longest text, about the missing address, is not cut by the 1024 bytes in which it is formatted.
TEST_F(Init, LongestMessageIsReportedWhole) {
  platform::Calls calls;
  calls.fail_all("socket", ENFILE);
  EXPECT_EQ(init(calls, VK_LOG), 16);
  const std::string text = cu_double::errors().at(0).text;
  EXPECT_THAT(text, testing::StartsWith("2615-008 libqx_vosk.a Error:  An VOSK Environment cannot be\n"));
  EXPECT_THAT(text, testing::EndsWith("\n\t network adapter is defined in the QDB at the time that this\n"
                                      "\t process executes.\n"));
}

TEST_F(Init, FailurePartWayLeavesTheEarlierVariablesInPlace) {
  platform::Calls calls;
  calls.fail_nth("putenv", 3, ENOMEM);
  EXPECT_EQ(init(calls, VK_STACK_CREAT), 16);
  EXPECT_THAT(vosk_variables(), UnorderedElementsAre(Pair("VOSKSTACK", kStackFile), Pair("VOSKORIG", "4711")));
}

// --- Display mode ---

TEST_F(Init, DisplayModePrintsWhatWouldBeSet) {
  const struct {
    int option;
    bool ancestors;
    int result;
    std::string printed;
  } kRows[] = {
      {VK_STACK_CREAT, false, 0,
       std::string("VOSKSTACK=") + kStackFile +
           "\nVOSKORIG=4711\nVOSKPID=4711\nVOSKADDR=.XO.8....................\nVOSKPNAME=mydaemon\n"},
      {VK_STACK_CREAT, true, 1, "VOSKPID=4711\nVOSKPNAME=mydaemon\n"},
      {VK_STACK_INHERIT, true, 1, "VOSKPID=4711\nVOSKPNAME=mydaemon\n"},
      {VK_STACK_INHERIT, false, 15, ""},
      {VK_LOG, false, 0, "VOSKADDR=.XO.8....................\nVOSKPNAME=mydaemon\n"},
  };
  for (const auto &row : kRows) {
    for (const auto &[name, value] : kAncestors) unset(name);
    if (row.ancestors) set(kAncestors);
    const Variables before = vosk_variables();
    testing::internal::CaptureStdout();
    EXPECT_EQ(init(row.option, "mydaemon", 1), row.result);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
    EXPECT_EQ(vosk_variables(), before);
  }
  EXPECT_THAT(files::list(sandbox::kStacks), IsEmpty()) << "no stack file is made";
}

// --- The short form ---

TEST_F(Init, ShortFormIsForTheCallingProcessUnderItsCommandName) {
  platform::Calls calls;
  prepare(calls);
  EXPECT_EQ(during(calls, [] { return vk_init_1(VK_STACK_CREAT); }), 0);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("process " + std::to_string(getpid()) + " = 1", "no error"));
  EXPECT_EQ(vosk_variables().at("VOSKPID"), std::to_string(getpid()));
  EXPECT_EQ(vosk_variables().at("VOSKPNAME"), "command");
  fresh_double();
  EXPECT_EQ(during(calls, [] { return vk_init_1(4); }), 12);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("12: vosk.cat 1/20 ()"));
  fresh_double();
  EXPECT_EQ(during(calls, [] { return vk_init_1(3); }), 13);
  EXPECT_THAT(cu_double::sequence(),
              ElementsAre("13: vosk.cat 1/22 (\"VK_STACK_CREATE\", \"VK_STACK_INHERIT\", \"vk_init_main\")"));
}

}  // namespace
