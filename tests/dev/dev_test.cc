#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "run_shell.h"
#include "support/files.h"

namespace fs = std::filesystem;
using testing::HasSubstr;
using vk::test::all_groups;
using vk::test::run_shell;
using vk::test::shell_result;

static std::string contents(const std::string &path) {
  return files::read(path).value_or("");
}

static std::set<std::string> names(const std::string &text, const std::string &expression) {
  const std::vector<std::string> found = all_groups(text, expression);
  return {found.begin(), found.end()};
}

TEST(Dev, HelpListsEveryCommandThatThereIs) {
  const shell_result help = run_shell(QX_SOURCE_DIR, "./dev help");
  EXPECT_EQ(help.status, 0);
  const std::set<std::string> commands = names(contents(QX_SOURCE_DIR "/dev"), "^cmd_([a-z]+)[(][)]");
  EXPECT_GE(commands.size(), 9U);
  EXPECT_EQ(names(help.output, "^  ([a-z]+) "), commands);
}

TEST(Dev, WithoutACommandShowsTheHelp) {
  EXPECT_EQ(run_shell(QX_SOURCE_DIR, "./dev").output, run_shell(QX_SOURCE_DIR, "./dev help").output);
}

TEST(Dev, RefusesWhatItDoesNotKnow) {
  struct {
    const char *command, *says;
  } const rows[] = {
      {"./dev frobnicate", "no command 'frobnicate'"},
      {"./dev check frobnicate", "no check 'frobnicate'"},
      {"./dev deps frobnicate", "no package group 'frobnicate'"},
      {"sh fuzz/run.sh ten", "'ten' is not a number of seconds"},
      {"sh cmake/dev/packages.sh frobnicate", "usage: packages.sh"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.command);
    const shell_result result = run_shell(QX_SOURCE_DIR, row.command);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.output, HasSubstr(row.says));
  }
}

TEST(Dev, WorksFromAnyDirectory) {
  EXPECT_EQ(run_shell("/", QX_SOURCE_DIR "/dev help").status, 0);
}

// A machine of which only the commands given are known: PATH leads to nothing else.
class Packages : public testing::Test {
 protected:
  Packages() {
    for (const char *tool : {"sh", "cat", "dirname", "env", "grep", "mktemp", "rm", "sed", "sort", "tr"})
      fs::create_symlink(
          fs::exists(fs::path("/usr/bin") / tool) ? fs::path("/usr/bin") / tool : fs::path("/bin") / tool, bin_ / tool);
    user(0);
    installed("exit 1");
    apt_get("");
  }
  void script(const std::string &name, const std::string &text) {
    ASSERT_TRUE(files::write(bin_ / name, "#!/bin/sh\n" + text + "\n"));
    fs::permissions(bin_ / name, fs::perms::owner_all);
  }
  void user(int uid) { script("id", "echo " + std::to_string(uid)); }
  void installed(const std::string &answer) { script("dpkg-query", answer); }
  void apt_get(const std::string &then) { script("apt-get", "echo \"$DEBIAN_FRONTEND: $*\" >>" + log() + "\n" + then); }
  void sudo() { script("sudo", "echo \"sudo $1\" >>" + log() + "\nshift\nexec \"$@\""); }
  void without(const char *tool) { fs::remove(bin_ / tool); }
  std::string log() const { return bin_ / "log"; }
  shell_result packages(const std::string &arguments) {
    return run_shell(QX_SOURCE_DIR,
                     "PATH=" + bin_.path() + " TMPDIR=" + bin_.path() + " sh cmake/dev/packages.sh " + arguments);
  }

 private:
  files::TemporaryDirectory bin_;
};

TEST_F(Packages, AreLeftAloneWhereNoneIsMissing) {
  installed("echo installed");
  EXPECT_EQ(packages("install build test check").status, 0);
  EXPECT_FALSE(files::exists(log()));
  EXPECT_EQ(packages("present build").status, 0);
}

TEST_F(Packages, ThatWereRemovedButNotPurgedAreMissing) {
  installed("echo config-files");
  EXPECT_EQ(packages("present build").status, 1);
}

TEST_F(Packages, AreInstalledByRootAndOnlyTheMissingOnes) {
  installed("case $4 in cmake) exit 1 ;; *) echo installed ;; esac");
  EXPECT_EQ(packages("install build").status, 0);
  const std::string calls = contents(log());
  EXPECT_THAT(calls, testing::ContainsRegex(
                         "noninteractive: .*update\nnoninteractive: .*install --no-install-recommends cmake\n"));
}

TEST_F(Packages, AreInstalledThroughSudoThatAsksNobodyWhereNobodyIsThere) {
  user(1000);
  sudo();
  EXPECT_EQ(packages("install build").status, 0);
  EXPECT_THAT(contents(log()), HasSubstr("sudo -n\nnoninteractive: "));
}

TEST_F(Packages, AreNamedWhereNobodyMayInstallThem) {
  user(1000);
  const shell_result result = packages("install build");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("cmake"));
  EXPECT_THAT(result.output, HasSubstr("run this as root, or install sudo"));
  EXPECT_FALSE(files::exists(log()));
}

TEST_F(Packages, ThatCannotBeInstalledAreAFailureThatShowsWhatAptSaid) {
  apt_get("echo no such package\nexit 100");
  const shell_result result = packages("install build");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("no such package"));
}

TEST_F(Packages, AreOnlyNamedWhereTheSystemIsNotDebian) {
  without("dpkg-query");
  const shell_result result = packages("install build");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("not a Debian system"));
  EXPECT_FALSE(files::exists(log()));
  EXPECT_EQ(packages("present build").status, 1);
}

TEST(Scripts, PassShellcheck) {
  const shell_result result = run_shell(QX_SOURCE_DIR,
                                        "shellcheck -x dev .ci/run $(find cmake tests bench fuzz tools examples debian "
                                        "-name '*.sh' 2>/dev/null)");
  EXPECT_EQ(result.status, 0) << result.output;
}
