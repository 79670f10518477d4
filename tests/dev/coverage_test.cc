// What "./dev coverage" makes of the figures that were counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "run_shell.h"
#include "support/files.h"

using testing::HasSubstr;
using testing::Not;
using vk::test::run_shell;
using vk::test::shell_result;

namespace {

constexpr const char *kSource =
    "int sign(int n) {\n"
    "  if (n == 0 || n == 1) return n;\n"
    "  std::abort();\n"
    "}\n";

struct line {
  int number, hits, taken, branches;
};

class Coverage : public testing::Test {
 protected:
  Coverage() {
    EXPECT_EQ(run_shell(dir_.path(), "mkdir lib").status, 0);
    EXPECT_TRUE(files::write(dir_ / "lib/sign.cc", kSource));
  }
  shell_result read(const std::vector<line> &lines, const std::string &unreachable) const {
    std::string report = "<class name=\"sign_cc\" filename=\"lib/sign.cc\" line-rate=\"1.0\">\n<methods/>\n<lines>\n";
    for (const line &l : lines) {
      report += "<line number=\"" + std::to_string(l.number) + "\" hits=\"" + std::to_string(l.hits) + "\" branch=\"";
      report += l.branches == 0 ? "false\"/>\n"
                                : "true\" condition-coverage=\"50% (" + std::to_string(l.taken) + "/" +
                                      std::to_string(l.branches) + ")\">\n<conditions>\n</conditions>\n</line>\n";
    }
    EXPECT_TRUE(files::write(dir_ / "report.xml", report + "</lines>\n</class>\n"));
    EXPECT_TRUE(files::write(dir_ / "unreachable", "# a comment\n" + unreachable));
    return run_shell(dir_.path(), "awk -f " QX_SOURCE_DIR "/cmake/dev/coverage.awk unreachable report.xml");
  }

  files::TemporaryDirectory dir_;
};

TEST_F(Coverage, ShowsTheLinesThatWereNotRunAndTheBranchesThatWereNotTaken) {
  const shell_result result = read({{1, 5, 0, 0}, {2, 5, 3, 4}, {3, 0, 0, 0}}, "");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output,
              testing::ContainsRegex("lib/sign[.]cc:2 +1 of 4 branches +if [(]n == 0 .. n == 1[)] return n;\n"));
  EXPECT_THAT(result.output, testing::ContainsRegex("lib/sign[.]cc:3 +not run +std::abort[(][)];\n"));
  EXPECT_THAT(result.output, Not(HasSubstr("lib/sign.cc:1 ")));
}

TEST_F(Coverage, SumsUpByFolder) {
  const shell_result result = read({{1, 5, 0, 0}, {2, 5, 3, 4}, {3, 0, 0, 0}}, "");
  EXPECT_THAT(result.output, testing::ContainsRegex("\nlib +3 +2 +66[.]6 % +4 +3 +75[.]0 %\n"));
  EXPECT_THAT(result.output, testing::ContainsRegex("\nthe libraries +3 +2 +66[.]6 % +4 +3 +75[.]0 %\n"));
}

TEST_F(Coverage, LeavesOutWhatCannotBeReached) {
  const shell_result result = read({{1, 5, 0, 0}, {2, 5, 3, 4}, {3, 0, 0, 2}},
                                   "lib/sign.cc ## 1 ## if (n == 0 || n == 1) return n; ## nobody asks for 1\n"
                                   "lib/sign.cc ## line ## std::abort(); ## never gets here\n");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, Not(HasSubstr("sign.cc")));
  EXPECT_THAT(result.output, testing::ContainsRegex("\nlib +2 +2 +100[.]0 % +3 +3 +100[.]0 %\n"));
  EXPECT_THAT(result.output, HasSubstr("not counted: 1 lines and 3 branches"));
}

TEST_F(Coverage, FailsForAnExcuseThatIsNotNeeded) {
  struct {
    const char *unreachable, *says;
  } const rows[] = {
      {"lib/sign.cc ## 1 ## if (n == 2) return n; ## a line that is gone\n",
       "nothing to excuse: lib/sign.cc: if (n == 2)"},
      {"lib/sign.cc ## line ## std::abort(); ## it is run\n", "nothing to excuse: lib/sign.cc: std::abort();"},
      {"lib/sign.cc ## 2 ## if (n == 0 || n == 1) return n; ## one is enough\n", "excused too much"},
      {"lib/sign.cc ## line ## if (n == 0 || n == 1) return n; ## it is run\n", "excused too much"},
      {"lib/sign.cc ## std::abort(); ## without a number\n",
       "unreachable:2: not FILE ## BRANCHES ## THE LINE ## REASON"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.unreachable);
    const shell_result result = read({{2, 5, 3, 4}, {3, 1, 0, 0}}, row.unreachable);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr(row.says));
  }
}

TEST(Gcov, LeavesOutWhatARunLineNeverGotTo) {
  const files::TemporaryDirectory dir;
  const std::string kept =
      "        3:    2:  if (a && b) c();\nbranch  0 taken 0\nbranch  1 taken 3 (fallthrough)\n"
      "    #####:    3:  if (d) e();\nbranch  0 never executed\nbranch  1 never executed\n"
      "        1*:   4:  if (f) g();\nbranch  0 taken 1\n";
  std::string whole = kept;
  whole.insert(whole.find("    #####"), "branch  2 never executed\nbranch  3 never executed (throw)\n");
  whole += "branch  1 never executed\n";
  EXPECT_TRUE(files::write(dir / "counted", whole));
  EXPECT_TRUE(files::write(dir / "gcov", "#!/bin/sh\ncp counted a.cc.gcov\necho \"Creating 'a.cc.gcov'\"\n"));
  const shell_result result =
      run_shell(dir.path(), "chmod +x gcov && PATH=.:$PATH sh " QX_SOURCE_DIR "/cmake/dev/gcov.sh -b");
  EXPECT_EQ(result.output, "Creating 'a.cc.gcov'\n");
  EXPECT_EQ(files::read(dir / "a.cc.gcov"), kept);
}

}  // namespace
