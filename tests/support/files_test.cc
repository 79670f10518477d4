#include "support/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

TEST(Files, WhatIsWrittenIsReadAndListed) {
  files::TemporaryDirectory directory;
  std::string bytes("a\0b", 3);
  EXPECT_TRUE(files::write(directory / "two", bytes));
  EXPECT_TRUE(files::write(directory / "one", ""));
  EXPECT_EQ(files::read(directory / "two"), bytes);
  EXPECT_EQ(files::read(directory / "three"), std::nullopt);
  EXPECT_THAT(files::list(directory.path()), ElementsAre("one", "two"));
  EXPECT_TRUE(files::exists(directory / "one"));
  EXPECT_FALSE(files::exists(directory / "three"));
}

TEST(Files, TheDirectoryGoesWithItsContents) {
  std::string path;
  {
    files::TemporaryDirectory directory;
    path = directory.path();
    files::write(directory / "file", "x");
  }
  EXPECT_FALSE(files::exists(path));
}

TEST(Files, ALockOfThisOrAnotherProcessIsSeen) {
  files::TemporaryDirectory directory;
  std::string path = directory / "file";
  files::write(path, "text");
  EXPECT_FALSE(files::locked(path));
  int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(lockf(fd, F_LOCK, 0), 0);
  pid_t child = fork();
  if (child == 0) _exit(files::locked(path) ? 0 : 1);
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(files::locked(path));
  close(fd);
  EXPECT_FALSE(files::locked(path));
}

TEST(Files, OpenDescriptorsAreListedWithTheirFiles) {
  auto before = files::descriptors();
  int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  auto during = files::descriptors();
  close(fd);
  EXPECT_EQ(during.size(), before.size() + 1);
  EXPECT_EQ(during[fd], "/dev/null");
  EXPECT_EQ(files::descriptors(), before);
}

TEST(Files, ADifferenceNamesItsPlace) {
  EXPECT_EQ(files::difference("same", "same"), "");
  EXPECT_EQ(files::difference("abc", "abd"), "first difference at byte 2, expected 63, found 64; sizes 3 and 3");
  EXPECT_EQ(files::difference("abc", "ab"), "first difference at byte 2, expected 63, found (end); sizes 3 and 2");
}

}  // namespace
