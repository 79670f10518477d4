// What the package's scripts do with the directories for records, where systemd-tmpfiles is not there to do it. The
// package itself is tried by "./dev packages".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "dev/run_shell.h"
#include "support/files.h"
#include "support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using vk::test::run_shell;
using vk::test::shell_result;

class MaintainerScripts : public testing::Test {
 protected:
  MaintainerScripts() {
    fs::create_directory(bin_);
    for (const char *program : {"install", "rmdir"})
      succeeds("ln -s \"$(command -v " + std::string(program) + ")\" " + bin_);
  }
  static shell_result run(const std::string &command) { return run_shell(sandbox::kRoot, "umask 027; " + command); }
  static std::string succeeds(const std::string &command) {
    const shell_result result = run(command);
    EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
    return result.output;
  }
  // With a PATH on which there is no systemd-tmpfiles. Returns what the script prints.
  std::string script(const std::string &name, const std::string &arguments) const {
    return succeeds("PATH=" + bin_ + " /bin/sh " QX_SOURCE_DIR "/debian/libqx-vosk-common." + name + " " + arguments);
  }
  // Of a directory or what is there in its place.
  static std::string state(const std::string &path) { return succeeds("stat -c '%F %a %U' " + path); }

  files::TemporaryDirectory folder_;
  const std::string bin_ = folder_ / "bin", elsewhere_ = folder_ / "elsewhere";
};

TEST_F(MaintainerScripts, MakeTheDirectoriesForEverybodyAlsoWhereTheyWereAndAgain) {
  for (const char *before : {"rmdir stacks dumps", "chmod 0700 stacks dumps", ":"}) {
    SCOPED_TRACE(before);
    succeeds(before);
    EXPECT_EQ(script("postinst", "configure"), "");
    EXPECT_EQ(state("stacks"), "directory 1777 root\n");
    EXPECT_EQ(state("dumps"), "directory 1777 root\n");
  }
}

TEST_F(MaintainerScripts, LeaveAloneWhatIsInADirectorysPlace) {
  for (const std::string &other : {"mkdir -m 0755 " + elsewhere_ + "; ln -s " + elsewhere_ + " stacks",
                                   std::string("ln -s /nowhere/at/all stacks"), std::string("echo text >stacks")}) {
    SCOPED_TRACE(other);
    succeeds("rmdir stacks; " + other);
    const std::string before = state("stacks");
    EXPECT_THAT(script("postinst", "configure"), HasSubstr("\"/var/adm/vosk/stacks\" is not a directory"));
    EXPECT_EQ(state("stacks"), before);
    EXPECT_EQ(state("dumps"), "directory 1777 root\n");
    script("postrm", "purge");
    EXPECT_EQ(state("stacks"), before);
    EXPECT_FALSE(fs::exists(sandbox::kDumps));
    if (fs::exists(elsewhere_)) {
      EXPECT_EQ(state(elsewhere_), "directory 755 root\n") << "it was opened to everybody";
    }
    succeeds("rm stacks; mkdir stacks");
  }
}

TEST_F(MaintainerScripts, PurgeEmptyDirectoriesAndPassOverMountPoints) {
  EXPECT_EQ(script("postrm", "purge"), "");  // /var/adm/vosk is a mount point in here
  EXPECT_TRUE(files::list(sandbox::kRoot).empty());
  EXPECT_EQ(script("postrm", "purge"), "") << "where nothing is left";
  succeeds("mkdir stacks dumps; mount -t tmpfs none stacks");
  EXPECT_EQ(script("postrm", "purge"), "");
  EXPECT_THAT(files::list(sandbox::kRoot), testing::ElementsAre("stacks"));
  succeeds("umount stacks");
}

TEST_F(MaintainerScripts, LeaveWhatUsersRecorded) {
  succeeds("echo record >stacks/daemon.1.20261121.120000; chmod 000 stacks/*; echo copy >'dumps/a copy'");
  for (const char *action : {"remove", "purge"}) {
    EXPECT_EQ(script("postrm", action), "");
    EXPECT_EQ(succeeds("find stacks dumps -type f | sort"), "dumps/a copy\nstacks/daemon.1.20261121.120000\n");
  }
  succeeds("rm dumps/*");
  script("postrm", "purge");
  EXPECT_THAT(files::list(sandbox::kRoot), testing::ElementsAre("stacks"));
}

}  // namespace
