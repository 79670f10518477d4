#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/vfs.h>

#include "support/sandbox.h"

namespace {

using testing::ElementsAre;

// The order matters: each of the first two would see what the other left, were the directories not fresh.
TEST(SandboxMain, FirstTestFindsItEmpty) {
  EXPECT_THAT(files::list(sandbox::kRoot), ElementsAre("dumps", "stacks"));
  EXPECT_TRUE(files::write(std::string(sandbox::kRoot) + "/left", ""));
}

TEST(SandboxMain, SecondTestFindsItEmpty) {
  EXPECT_THAT(files::list(sandbox::kRoot), ElementsAre("dumps", "stacks"));
  EXPECT_TRUE(files::write(std::string(sandbox::kRoot) + "/left", ""));
}

TEST(SandboxMain, ATestMayMountAnotherSize) {
  sandbox::Options options;
  options.size = "64k";
  ASSERT_EQ(sandbox::fresh(options), "");
  struct statfs figures;
  ASSERT_EQ(statfs(sandbox::kRoot, &figures), 0);
  EXPECT_EQ(figures.f_blocks * static_cast<unsigned long>(figures.f_bsize), 65536u);
}

}  // namespace
