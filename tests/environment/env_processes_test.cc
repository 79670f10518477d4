// Real processes: what a parent establishes, forked and executed children find, inherit and hand on. The reported texts
// are those that libqx_cu keeps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "dev/run_shell.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr char kNoError[] = ", error 0  0/0 ";
constexpr char kInherited[] =
    ", error 1 vosk.cat 1/17 VOSK Environment inherited from a previously established environment|";
constexpr char kNone[] =
    ", error 15 vosk.cat 1/1 libqx_vosk.a Status: An VOSK Environment does not exist for|\t this process.  This "
    "process "
    "cannot record failure information to the|\t VOSK Error Stack.|";
constexpr char kExists[] =
    ", error 14 vosk.cat 1/24 2615-005 libqx_vosk.a Error: Cannot create or inherit an VOSK|\t Environment, because an "
    "VOSK Environment already exists for this|\t process.  vk_init_stack may have been attempted several times by|\t "
    "this process.  Examine the source code for errors.|";

class EnvProcesses : public testing::Test {
 protected:
  EnvProcesses() {
    for (const char *name :
         {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG", "NLSPATH", "LANG"})
      environment_.unset(name);
  }

  // What a chain of processes prints, line by line.
  static std::vector<std::string> lines(const std::string &arguments, const std::string &before = "") {
    const vk::test::shell_result run = vk::test::run_shell("/", before + QX_PROCESS " " + arguments);
    EXPECT_EQ(run.status, 0) << run.output;
    std::istringstream output(run.output);
    std::vector<std::string> all;
    for (std::string line; std::getline(output, line);) all.push_back(line);
    return all;
  }

  // The variables among the lines from `from` on; of the first process that printed them.
  static std::map<std::string, std::string> variables(const std::vector<std::string> &all, std::size_t from) {
    std::map<std::string, std::string> found;
    for (std::size_t i = from; i < all.size() && all[i].rfind("VOSK", 0) == 0; ++i) {
      const std::size_t equals = all[i].find('=');
      found[all[i].substr(0, equals)] = all[i].substr(equals + 1);
    }
    return found;
  }
  static std::string number(const std::string &line) { return line.substr(line.rfind(' ') + 1); }

  platform::Environment environment_;
};

TEST_F(EnvProcesses, ParentCreatesAndOwnsACompleteEnvironment) {
  const std::vector<std::string> all = lines("pid test init 1 test init 1 init 2 vars");
  ASSERT_EQ(all.size(), 11U);
  const std::string pid = number(all[0]);
  EXPECT_EQ(all[1], std::string("test = 15") + kNone);
  EXPECT_EQ(all[2], std::string("init 1 = 0") + kNoError);
  EXPECT_EQ(all[3], std::string("test = 0") + kNoError);
  EXPECT_EQ(all[4], std::string("init 1 = 14") + kExists);
  EXPECT_EQ(all[5], std::string("init 2 = 14") + kExists);
  const auto found = variables(all, 6);
  ASSERT_EQ(found.size(), 5U);
  EXPECT_EQ(found.at("VOSKORIG"), pid);
  EXPECT_EQ(found.at("VOSKPID"), pid);
  EXPECT_EQ(found.at("VOSKPNAME"), "environment_pro") << "the kernel's command names have 15 characters";
  EXPECT_THAT(found.at("VOSKSTACK"),
              MatchesRegex("/var/adm/vosk/stacks/environment_pro\\." + pid + "\\.[0-9]{8}\\.[0-9]{6}"));
  EXPECT_THAT(found.at("VOSKADDR"), MatchesRegex("[./0-9A-Za-z]{24}[./]"));
  EXPECT_THAT(files::list(sandbox::kStacks), ElementsAre()) << "the file is left to the first recording";
}

TEST_F(EnvProcesses, ForkedAndExecutedChildrenInheritAndHandOn) {
  for (const char *way : {"fork", "exec", "fork-exec"}) {
    SCOPED_TRACE(way);
    const std::vector<std::string> all = lines(std::string("pid init 1 vars ") + way + " pid test init 2 test vars " +
                                               way + " pid test init 1 test vars");
    ASSERT_EQ(all.size(), 2U + 5 + 4 + 5 + 4 + 5);
    const std::string parent = number(all[0]);
    const auto parents = variables(all, 2);
    const std::size_t child = 7, grandchild = 16;
    for (const auto &[at, option] : std::map<std::size_t, std::string>{{child, "2"}, {grandchild, "1"}}) {
      const std::string pid = number(all[at]);
      EXPECT_NE(pid, parent);
      EXPECT_EQ(all[at + 1], std::string("test = 15") + kNone) << "it has not inherited yet";
      EXPECT_EQ(all[at + 2], "init " + option + " = 1" + kInherited);
      EXPECT_EQ(all[at + 3], std::string("test = 0") + kNoError);
      auto expected = parents;
      expected["VOSKPID"] = pid;
      // After an exec the kernel's name is that of the link by which the program was named.
      expected["VOSKPNAME"] = std::string(way) == "fork" ? "environment_pro" : "exe";
      EXPECT_EQ(variables(all, at + 4), expected);
    }
  }
}

TEST_F(EnvProcesses, ChildWithoutAnEnvironmentHasNothingToInherit) {
  const std::vector<std::string> all = lines("exec init 2");
  ASSERT_EQ(all.size(), 1U);
  EXPECT_THAT(all[0],
              StartsWith("init 2 = 15, error 15 vosk.cat 1/23 2615-004 libqx_vosk.a Error: Cannot inherit an "
                         "VOSK Environment|\t because an VOSK Environment has not been previously established."));
}

TEST_F(EnvProcesses, LogEnvironmentOfAParentIsNoneToInherit) {
  const std::vector<std::string> all = lines("init 0 test exec test init 2 init 1 test");
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(all[0], std::string("init 0 = 0") + kNoError);
  EXPECT_EQ(all[1], std::string("test = 15") + kNone);
  EXPECT_EQ(all[2], std::string("test = 15") + kNone);
  EXPECT_THAT(all[3], StartsWith("init 2 = 15, "));
  EXPECT_EQ(all[4], std::string("init 1 = 0") + kNoError);
  EXPECT_EQ(all[5], std::string("test = 0") + kNoError);
}

TEST_F(EnvProcesses, DisabledStacksAreDisabledForTheWholeTree) {
  const std::vector<std::string> all = lines("init 1 vars exec init 2", "VOSKSDISABLE= ");
  ASSERT_EQ(all.size(), 5U);
  for (std::size_t i : {std::size_t{0}, std::size_t{4}})
    EXPECT_THAT(all[i], HasSubstr(" = 42, error 42 vosk.cat 1/44 2615-025 libqx_vosk.a Error: Unable to create or "
                                  "inherit an VOSK|\t Environment.  This process environment has been set to prevent "
                                  "the|\t creation or inheritance of VOSK Error Stacks."));
  const auto found = variables(all, 1);
  EXPECT_EQ(found.count("VOSKADDR"), 1U);
  EXPECT_EQ(found.count("VOSKPNAME"), 1U);
}

TEST_F(EnvProcesses, RefusedOptionsAreReadBackWithTheirInserts) {
  const std::vector<std::string> all = lines("init 3 init -4 init 7");
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0],
            "init 3 = 13, error 13 vosk.cat 1/22 2615-003 libqx_vosk.a Error: Options VK_STACK_CREATE and "
            "VK_STACK_INHERIT cannot be combined|\t as options to the vk_init_main routine.  This process cannot make "
            "recordings|\t to the VOSK Error Stack.|");
  EXPECT_EQ(all[1],
            "init -4 = 99, error 99 vosk.cat 1/30 2615-011 libqx_vosk.a Error: An unexpected failure occurred in "
            "the|\t routine vk_init_main.  This process cannot make recordings to the VOSK |\t Error Stack at this "
            "time.  Contact the Tarvo Customer Support Center|\t for assistance in resolving this failure.|");
  EXPECT_EQ(all[2],
            "init 7 = 12, error 12 vosk.cat 1/20 2615-001 libqx_vosk.a Error: The parameter passed to the library|\t "
            "routine vk_init_stack is not valid.  The valid values are:|\t\t VK_STACK|\t\t VK_TRACE|\t\t VK_CREAT|\t\t "
            "VK_INHERIT|\t This process cannot make recordings to the VOSK Error Stack.|");
}

// A text that the library has formatted is kept as it is: the catalogue's has a place for an insert that is not there.
// One without inserts is translated.
TEST_F(EnvProcesses, TranslatedReportsTakeTheCataloguesTextWhereItTakesTheSameInserts) {
  const std::string german = "NLSPATH=" QX_BINARY_DIR "/messages/%l/%N LANG=de_DE.UTF-8 ";
  const std::vector<std::string> none = lines("init 2 init 3", german);
  ASSERT_EQ(none.size(), 2U);
  EXPECT_THAT(none[0], StartsWith("init 2 = 15, error 15 vosk.cat 1/23 2615-004 "));
  EXPECT_THAT(none[0], testing::Not(HasSubstr("previously established")));
  EXPECT_THAT(none[1], testing::AllOf(HasSubstr("VK_STACK_CREATE"), HasSubstr("VK_STACK_INHERIT"),
                                      HasSubstr("vk_init_main"), testing::Not(HasSubstr("cannot be combined"))));
  ASSERT_EQ(std::system("rmdir /var/adm/vosk/stacks"), 0);
  const std::vector<std::string> formatted = lines("init 1", german);
  ASSERT_EQ(formatted.size(), 1U);
  EXPECT_THAT(formatted[0],
              StartsWith("init 1 = 19, error 19 vosk.cat 1/29 2615-010 libqx_vosk.a Error: The VOSK Error Stack "
                         "directory|\t /var/adm/vosk/stacks cannot be accessed."));
}

}  // namespace
