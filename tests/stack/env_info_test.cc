// Where the environment says the stack is.
#include "lib/vk_push_stack/env_info.h"

#include <sys/auxv.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>

#include "stack/stack_test.h"
#include "support/edge_buffer.h"

namespace {

using stack_test::kStack;
using stack_test::zeros;
using testing::ElementsAre;
using testing::IsEmpty;

class EnvironmentInformation : public stack_test::StackTest {
 protected:
  EnvironmentInformation() {
    set("VOSKPID", "4711");
    set("VOSKORIG", "4710");
  }
  int look_up(int trace_on = 1) {
    path_.fill('\0');
    owner_ = originator_ = -77;
    return vk::vk_get_env_info(trace_on, trace_on == 1 ? trace_file_.path() : nullptr, path_.chars(), &owner_,
                               &originator_);
  }
  int look_up(platform::Calls &calls) {
    return calls.during([&] { return look_up(); });
  }
  void expect_path(const std::string &path) { EXPECT_EQ(path_.bytes(), path + zeros(4097 - path.size())); }
  static auto entry(const std::string &text) { return ElementsAre(trace_entry("vk_get_env_info", text)); }
  static std::string not_there(const std::string &name) {
    return "Cannot get " + name + " environ value, returning VOSK_INV_ENV(-31)\n";
  }

  EdgeBuffer path_{4097};
  int owner_ = 0, originator_ = 0;
};

TEST_F(EnvironmentInformation, NamesTheFileAndBothProcesses) {
  EXPECT_EQ(look_up(), -24);
  expect_path(kStack);
  EXPECT_EQ(owner_, 4711);
  EXPECT_EQ(originator_, 4710);
  EXPECT_THAT(trace_file_.take(), entry("VOSK Error Stack File: /var/adm/vosk/stacks/stack\nExists: no\n"
                                        "Returning -24 to caller\n"));
  put_stack("");
  EXPECT_EQ(look_up(), 0);
  expect_path(kStack);
  EXPECT_THAT(trace_file_.take(), entry("VOSK Error Stack File: /var/adm/vosk/stacks/stack\nExists: yes\n"
                                        "Returning 0 to caller\n"));
}

TEST_F(EnvironmentInformation, AsksForTheVariablesInOneOrderAndThenForTheFile) {
  platform::Calls calls;
  EXPECT_EQ(calls.during([&] { return look_up(0); }), -24);
  EXPECT_THAT(calls.log(),
              ElementsAre("getenv(\"VOSKSTACK\") = \"/var/adm/vosk/stacks/stack\"", "getenv(\"VOSKPID\") = \"4711\"",
                          "getenv(\"VOSKORIG\") = \"4710\"", "stat(\"/var/adm/vosk/stacks\") = 0",
                          "stat(\"/var/adm/vosk/stacks/stack\") = -1 ENOENT"));
}

TEST_F(EnvironmentInformation, EndsWithTheFirstVariableThatIsNotThere) {
  unset("VOSKORIG");
  EXPECT_EQ(look_up(), -31);
  EXPECT_EQ(owner_, 4711);
  EXPECT_THAT(trace_file_.take(), entry(not_there("VOSKORIG")));
  unset("VOSKPID");
  EXPECT_EQ(look_up(), -31);
  EXPECT_THAT(trace_file_.take(), entry(not_there("VOSKPID")));
  unset("VOSKSTACK");
  EXPECT_EQ(look_up(), -31);
  EXPECT_THAT(trace_file_.take(), entry(not_there("VOSKSTACK")));
  expect_path("");
}

TEST_F(EnvironmentInformation, ReadsNumbersAsDecimals) {
  struct Row {
    const char *text;
    int value;
  };
  for (const Row &row : {Row{"", 0},
                         {"0", 0},
                         {"-1", -1},
                         {" \t\n42", 42},
                         {"+7", 7},
                         {"12abc", 12},
                         {"abc", 0},
                         {"0x10", 0},
                         {"010", 10},
                         {"2147483647", INT_MAX},
                         {"2147483648", INT_MAX},
                         {"99999999999999999999999999", INT_MAX},
                         {"-2147483648", INT_MIN},
                         {"-2147483649", INT_MIN},
                         {"-99999999999999999999999999", INT_MIN},
                         {"- 5", 0},
                         {"--5", 0}}) {
    SCOPED_TRACE(row.text);
    set("VOSKPID", row.text);
    set("VOSKORIG", row.text);
    EXPECT_EQ(look_up(0), -24);
    EXPECT_EQ(owner_, row.value);
    EXPECT_EQ(originator_, row.value);
  }
}

// Of these results only two come with the path, and none of them with a trace of this routine.
TEST_F(EnvironmentInformation, PassesOnWhatTheTestOfTheFileSays) {
  struct Row {
    const char *failing;
    int error, result;
    bool path_given;
  };
  for (const Row &row : {Row{kStack, EACCES, -25, true}, Row{kStack, ENOTDIR, -14, false}, Row{kStack, EIO, -1, false},
                         Row{sandbox::kStacks, EACCES, -13, false}, Row{sandbox::kStacks, ENOENT, -14, false}}) {
    SCOPED_TRACE(row.result);
    platform::Calls calls;
    calls.ignore_path(trace_file_.path());
    calls.fail_nth("stat", 1, row.error, row.failing);
    EXPECT_EQ(look_up(calls), row.result);
    expect_path(row.path_given ? kStack : "");
    const std::vector<std::string> traced = trace_file_.take();
    if (row.result == -1)
      EXPECT_THAT(traced, ElementsAre(testing::StartsWith("vk_test_for_file: ")));
    else
      EXPECT_THAT(traced, IsEmpty());
  }
  ASSERT_EQ(mkdir(kStack, 0777), 0);
  EXPECT_EQ(look_up(), -23);
  expect_path(kStack);
  EXPECT_THAT(trace_file_.take(), IsEmpty());

  set("VOSKSTACK", "");
  EXPECT_EQ(look_up(), -2);
  expect_path("");
}

TEST_F(EnvironmentInformation, TakesAPathUpTo4095BytesAndCutsNone) {
  const auto path_of = [](std::size_t size) {
    std::string path;
    while (path.size() < size) path += path.size() + 2 <= size ? "/." : "/";
    return path;
  };
  set("VOSKSTACK", path_of(4095));
  EXPECT_EQ(look_up(0), -23);  // the root directory
  expect_path(path_of(4095));
  set("VOSKSTACK", path_of(4096));
  EXPECT_EQ(look_up(0), -1);
  expect_path("");
  set("VOSKSTACK", path_of(200000));
  EXPECT_EQ(look_up(0), -1);
  expect_path("");
}

TEST_F(EnvironmentInformation, AsksForEveryPointerFirst) {
  char path[4097] = {};
  int number = 0;
  const char *const to = trace_file_.path();
  unset("VOSKSTACK");
  EXPECT_EQ(vk::vk_get_env_info(1, to, nullptr, nullptr, nullptr), -4);
  EXPECT_THAT(trace_file_.take(), entry("stack_filename invalid (0x0), returning VOSK_INV_PARAM3(-4)\n"));
  EXPECT_EQ(vk::vk_get_env_info(1, to, path, nullptr, nullptr), -5);
  EXPECT_THAT(trace_file_.take(), entry("env_owner ptr invalid (0x0), returning VOSK_INV_PARAM4(-5)\n"));
  EXPECT_EQ(vk::vk_get_env_info(1, to, path, &number, nullptr), -6);
  EXPECT_THAT(trace_file_.take(), entry("env_orig ptr invalid (0x0), returning VOSK_INV_PARAM5(-6)\n"));
  EXPECT_EQ(vk::vk_get_env_info(0, nullptr, nullptr, nullptr, nullptr), -4);
  EXPECT_EQ(vk::vk_get_env_info(0, nullptr, path, nullptr, nullptr), -5);
  EXPECT_EQ(vk::vk_get_env_info(0, nullptr, path, &number, nullptr), -6);
}

TEST_F(EnvironmentInformation, TrustsARaisedProcessWithPlainNamesInTheStackDirectoryOnly) {
  struct Row {
    const char *path;
    bool trusted;
  };
  const Row rows[] = {{"/var/adm/vosk/stacks/name", true},
                      {"/var/adm/vosk/stacks/.name", true},
                      {"/var/adm/vosk/stacks/..name", true},
                      {"/var/adm/vosk/stacks/...", true},
                      {"/var/adm/vosk/stacks/ ", true},
                      {"/var/adm/vosk/stacks", false},
                      {"/var/adm/vosk/stacks/", false},
                      {"/var/adm/vosk/stacks/.", false},
                      {"/var/adm/vosk/stacks/..", false},
                      {"/var/adm/vosk/stacks/a/b", false},
                      {"/var/adm/vosk/stacks/name/", false},
                      {"/var/adm/vosk/stacks/../stacks/name", false},
                      {"/var/adm/vosk/stacks//name", false},
                      {"/var/adm/vosk/stacksname", false},
                      {"/var/adm/vosk/stackx/name", false},
                      {"//var/adm/vosk/stacks/name", false},
                      {"var/adm/vosk/stacks/name", false},
                      {"/etc/passwd", false},
                      {"name", false},
                      {"", false}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.path);
    set("VOSKSTACK", row.path);
    platform::Calls calls;
    calls.ignore_path(trace_file_.path());
    calls.fake_auxval(AT_SECURE, 1);
    EXPECT_EQ(look_up(calls), row.trusted ? -24 : -31);
    expect_path(row.trusted ? row.path : "");
    const std::vector<std::string> traced = trace_file_.take();
    if (!row.trusted) {
      EXPECT_THAT(traced, entry(not_there("VOSKSTACK")));
      EXPECT_THAT(calls.log_of({"stat", "open"}), IsEmpty());
    }
  }
}

TEST_F(EnvironmentInformation, IsTracedForOneOnly) {
  for (int trace_on : {0, 2, -1}) {
    EXPECT_EQ(vk::vk_get_env_info(trace_on, trace_file_.path(), path_.chars(), &owner_, &originator_), -24);
    EXPECT_EQ(vk::vk_get_env_info(trace_on, trace_file_.path(), nullptr, &owner_, &originator_), -4);
  }
  EXPECT_THAT(trace_file_.take(), IsEmpty());
}

}  // namespace
