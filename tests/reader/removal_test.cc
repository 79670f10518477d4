// Removing a file that others may lock, open, write or exchange at any moment.
#include "tools/reader/removal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>

#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using platform::Calls;
using vosk::removal;

const std::string kPath = std::string(sandbox::kStacks) + "/name", kAside = std::string(sandbox::kStacks) + "/~name",
                  kOther = std::string(sandbox::kStacks) + "/other";

class Removal : public testing::Test {
 protected:
  void SetUp() override {
    (void)std::signal(SIGIO, SIG_IGN);
    directory_ = vosk::unique_fd(open(sandbox::kStacks, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(files::write(kPath, "the file"));
    ASSERT_TRUE(files::write(kOther, "another"));
    seen_ = vosk::open_regular(AT_FDCWD, kPath.c_str()).facts;
  }
  vosk::removal_result remove(Calls &calls, bool really = true) {
    return calls.during([&] { return vosk::remove_unused(directory_.get(), "name", seen_, really); });
  }
  vosk::removal_result remove() {
    Calls calls;
    return remove(calls);
  }
  static void expect(const vosk::removal_result &result, removal what, const std::string &reason) {
    EXPECT_EQ(result.what, what);
    EXPECT_EQ(result.reason, reason);
  }
  // The file, still, or again, in its place.
  static void expect_there(const std::string &content = "the file") {
    EXPECT_EQ(files::read(kPath), content);
    EXPECT_FALSE(files::exists(kAside));
  }

  vosk::unique_fd directory_;
  vosk::file_facts seen_;
};

TEST_F(Removal, TakesAFileThatNobodyUses) {
  Calls dry;
  expect(remove(dry, false), removal::removed, "");
  expect_there();
  expect(remove(), removal::removed, "");
  EXPECT_FALSE(files::exists(kPath));
  EXPECT_FALSE(files::exists(kAside));
  expect(remove(), removal::gone, "it is gone");
}

TEST_F(Removal, LeavesWhatIsNoFileAnyMore) {
  ASSERT_EQ(unlink(kPath.c_str()), 0);
  ASSERT_EQ(symlink(kOther.c_str(), kPath.c_str()), 0);
  EXPECT_EQ(remove().what, removal::changed);
  EXPECT_TRUE(files::exists(kPath));
}

TEST_F(Removal, LeavesAFileThatIsOpen) {
  const vosk::unique_fd reader(open(kPath.c_str(), O_RDONLY | O_CLOEXEC));
  expect(remove(), removal::in_use, "a process has it open");
  expect_there();
}

TEST_F(Removal, LeavesAFileThatWasWritten) {
  ASSERT_TRUE(files::write(kPath, "the file, longer"));
  expect(remove(), removal::changed, "it was written meanwhile");
  expect_there("the file, longer");
}

TEST_F(Removal, LeavesAFileThatDiffersInAnythingFromWhatWasSeen) {
  const vosk::file_facts seen = seen_;
  for (const auto change :
       {+[](vosk::file_facts &f) { ++f.inode; }, +[](vosk::file_facts &f) { ++f.device; },
        +[](vosk::file_facts &f) { ++f.size; }, +[](vosk::file_facts &f) { ++f.modified.seconds; }}) {
    seen_ = seen;
    change(seen_);
    expect(remove(), removal::changed, "it was written meanwhile");
    expect_there();
  }
}

// The name is compared by i-node and device.
TEST_F(Removal, LeavesAFileOfAnotherFileSystem) {
  const std::string elsewhere = std::string(sandbox::kRoot) + "/elsewhere", covering = elsewhere + "/covering";
  ASSERT_EQ(mkdir(elsewhere.c_str(), 0755), 0);
  ASSERT_EQ(mount("tmpfs", elsewhere.c_str(), "tmpfs", 0, nullptr), 0);
  struct stat st {};
  for (int i = 0; i < 1000 && st.st_ino != seen_.inode; ++i) {
    ASSERT_TRUE(files::write(covering, "same number"));
    ASSERT_EQ(stat(covering.c_str(), &st), 0);
    ASSERT_TRUE(st.st_ino == seen_.inode || rename(covering.c_str(), (covering + std::to_string(i)).c_str()) == 0);
  }
  const bool same_number = st.st_ino == seen_.inode;
  Calls calls;
  calls.allow_unused();
  calls.before("fstatat", 1, [&](const platform::Call &) {
    EXPECT_EQ(mount(covering.c_str(), kPath.c_str(), nullptr, MS_BIND, nullptr), 0);
  });
  if (same_number) expect(remove(calls), removal::changed, "another file has its name");
  (void)umount2(kPath.c_str(), MNT_DETACH);
  ASSERT_EQ(umount2(elsewhere.c_str(), MNT_DETACH), 0);
  if (!same_number) GTEST_SKIP() << "i-nodes are numbered otherwise here";
  expect_there();
}

TEST_F(Removal, LeavesAFileWhoseNameCannotBeCompared) {
  const struct {
    const char *call;
    int nth;
  } rows[] = {{"fstatat", 1}, {"fstat", 1}, {"fstatat", 2}, {"fstat", 2}};
  for (const auto &row : rows) {
    Calls calls;
    calls.fail_nth(row.call, row.nth, EIO);
    expect(remove(calls), removal::changed, "another file has its name");
    expect_there();
  }
}

// Such a lock belongs to no process.
TEST_F(Removal, LeavesAFileThatIsLockedByNobody) {
  const vosk::unique_fd holder(open(kPath.c_str(), O_RDWR | O_CLOEXEC));
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(holder.get(), F_OFD_SETLK, &lock), 0);
  expect(remove(), removal::locked, "it is locked");
  expect_there();
}

TEST_F(Removal, LeavesAnotherFileOfTheName) {
  Calls calls;
  calls.before("fstatat", 1, [](const platform::Call &) { ASSERT_EQ(rename(kOther.c_str(), kPath.c_str()), 0); });
  expect(remove(calls), removal::changed, "another file has its name");
  expect_there("another");
}

// Where the kernel does not tell, nothing is removed.
TEST_F(Removal, LeavesAFileOfWhichItCannotBeTold) {
  const struct {
    int nth, error;
    removal what;
    const char *reason;
  } rows[] = {{1, EAGAIN, removal::locked, "it is locked"},
              {1, EACCES, removal::locked, "it is locked"},
              {1, ENOLCK, removal::failed, "it cannot be locked: No locks available"},
              {2, EACCES, removal::failed, "whether it is open cannot be told: Permission denied"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.reason);
    Calls calls;
    calls.fail_nth("fcntl", row.nth, row.error);
    expect(remove(calls), row.what, row.reason);
    expect_there();
  }
}

TEST_F(Removal, PutsBackAFileThatIsOpenedMeanwhile) {
  Calls calls;
  calls.before("fcntl", 3, [](const platform::Call &) {
    EXPECT_EQ(open(kAside.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
  });
  expect(remove(calls), removal::in_use, "a process opens it");
  expect_there();
}

TEST_F(Removal, TellsWhereTheFileIsWhoseNameIsTakenMeanwhile) {
  Calls calls;
  calls.before("fcntl", 3, [](const platform::Call &) {
    EXPECT_EQ(open(kAside.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), -1);
    EXPECT_EQ(rename(kOther.c_str(), kPath.c_str()), 0);
  });
  expect(remove(calls), removal::in_use, "a process opens it; it is now ~name");
  EXPECT_EQ(files::read(kPath), "another");
  EXPECT_EQ(files::read(kAside), "the file");
}

TEST_F(Removal, PutsBackWhatItPutAsideByMistake) {
  Calls calls;
  calls.before("fstatat", 2, [](const platform::Call &) { ASSERT_EQ(rename(kOther.c_str(), kAside.c_str()), 0); });
  expect(remove(calls), removal::changed, "another file has its name");
  expect_there("another");
}

TEST_F(Removal, FindsThatSomebodyElseWasQuicker) {
  Calls calls;
  calls.after("fstatat", 1, [](const platform::Call &) { ASSERT_EQ(unlink(kPath.c_str()), 0); });
  expect(remove(calls), removal::gone, "No such file or directory");
}

TEST_F(Removal, LeavesAFileThatCannotBePutAside) {
  ASSERT_TRUE(files::write(kAside, "in the way"));
  expect(remove(), removal::failed, "File exists");
  EXPECT_EQ(files::read(kPath), "the file");
  EXPECT_EQ(files::read(kAside), "in the way");
}

}  // namespace
