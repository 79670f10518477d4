// vk_allocate_file on real file systems: small ones, full ones, read-only ones, and as another user.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kUntouched = -777;
constexpr char kFile[] = "/var/adm/vosk/stacks/file";

struct Answer {
  int result;
  std::int64_t reserved;
  bool operator==(const Answer &) const = default;
};
void PrintTo(const Answer &answer, std::ostream *out) {
  *out << answer.result << " reserving " << answer.reserved;
}

Answer allocate(const char *path, std::int64_t wanted, std::int64_t min) {
  Answer answer = {0, kUntouched};
  answer.result = vk_allocate_file(0, nullptr, path, wanted, min, &answer.reserved);
  return answer;
}

unsigned long available() {
  struct statfs figures;
  return statfs(sandbox::kStacks, &figures) == 0 ? figures.f_bavail : 0;
}

// A file system of 1 MiB has 256 blocks of 4096 bytes: 12 are reserved, so 244 may be used.
TEST(AllocateFileForReal, LeavesFivePercentOfASmallFileSystem) {
  if (sysconf(_SC_PAGESIZE) != 4096) CANNOT_RUN_HERE("the pages, which are the blocks, are not of 4096 bytes");
  struct Row {
    unsigned long left;  // blocks available before
    Answer answer;       // wanting 16384, at least 4096
  };
  const Row rows[] = {
      {100, {0, 16384}},       {18, {0, 16384}},  // 238 + 4 + 1 < 244
      {17, {0, 8192}},                            // 239 + 4 + 1 = 244
      {16, {0, 8192}},                            // 240 + 2 + 1 < 244
      {15, {-18, kUntouched}},                    // 241 + 2 + 1 = 244
      {12, {-18, kUntouched}},                    // exactly five percent are left
      {11, {-18, kUntouched}},                    // less
      {0, {-18, kUntouched}},
  };
  sandbox::Options options;
  options.size = "1m";
  options.timeout = 120;
  RUN_IN_SANDBOX(options, [&] {
    for (const Row &row : rows) {
      SCOPED_TRACE(row.left);
      ASSERT_TRUE(sandbox::fill(row.left));
      ASSERT_EQ(available(), row.left);
      EXPECT_EQ(allocate(kFile, 16384, 4096), row.answer);
      if (row.answer.result == 0) {
        EXPECT_EQ(files::read(kFile)->size(), static_cast<std::size_t>(row.answer.reserved));
        EXPECT_EQ(available(), row.left - static_cast<unsigned long>(row.answer.reserved) / 4096);
        EXPECT_GE(available(), 12U) << "the rule holds afterwards";
        EXPECT_EQ(unlink(kFile), 0);
      }
      EXPECT_THAT(files::list(sandbox::kStacks), IsEmpty());
      ASSERT_TRUE(sandbox::remove_filling());
    }
  });
}

TEST(AllocateFileForReal, TriesSmallerWhereOthersTookTheRoomMeanwhile) {
  if (sysconf(_SC_PAGESIZE) != 4096) CANNOT_RUN_HERE("the pages, which are the blocks, are not of 4096 bytes");
  sandbox::Options options;
  options.size = "1m";
  RUN_IN_SANDBOX(options, [] {
    Calls calls;
    // Between the look at the file system and the reservation somebody leaves 20 blocks, then gives some back.
    calls.before("open", 1, [](const platform::Call &) { ASSERT_TRUE(sandbox::fill(20)); });
    calls.after("unlink", 1, [](const platform::Call &) {
      ASSERT_TRUE(sandbox::remove_filling());
      ASSERT_TRUE(sandbox::fill(30));
    });
    std::int64_t reserved = kUntouched;
    EXPECT_EQ(calls.during([&] { return vk_allocate_file(0, nullptr, kFile, 40960, 8192, &reserved); }), 0);
    EXPECT_EQ(reserved, 32768) << "10 blocks of 20 would leave 10, 8 of 30 leave 22";
    EXPECT_EQ(available(), 22U);
    EXPECT_THAT(files::list(sandbox::kStacks), ElementsAre("file"));
  });
}

TEST(AllocateFileForReal, RemovesTheFileWhenTheSpaceRunsOutWhileReserving) {
  sandbox::Options options;
  options.size = "256k";
  RUN_IN_SANDBOX(options, [] {
    ASSERT_TRUE(sandbox::fill(2));
    Calls calls;
    calls.statfs_figures({{1000, 1000, 4096}});
    std::int64_t reserved = kUntouched;
    EXPECT_EQ(calls.during([&] { return vk_allocate_file(0, nullptr, kFile, 16384, 8192, &reserved); }), -18);
    EXPECT_EQ(reserved, kUntouched);
    EXPECT_EQ(calls.count("write"), static_cast<int>(2 * sysconf(_SC_PAGESIZE) / 1024 + 1));
    EXPECT_EQ(calls.calls()[calls.calls().size() - 4].error, ENOSPC);
    EXPECT_THAT(files::list(sandbox::kStacks), IsEmpty());
    EXPECT_EQ(available(), 2U);
  });
}

TEST(AllocateFileForReal, HasNoSpaceWhereNoFileCanBeMade) {
  sandbox::Options options;
  options.inodes = "3";  // the root and its two directories
  RUN_IN_SANDBOX(options, [] { EXPECT_EQ(allocate(kFile, 16384, 8192), (Answer{-18, kUntouched})); });
}

TEST(AllocateFileForReal, IsNotPermittedOnAReadOnlyFileSystem) {
  sandbox::Options options;
  options.read_only = true;
  RUN_IN_SANDBOX(options, [] {
    EXPECT_EQ(allocate(kFile, 16384, 8192), (Answer{-16, kUntouched}));
    EXPECT_THAT(files::list(sandbox::kStacks), IsEmpty());
  });
}

TEST(AllocateFileForReal, IsRefusedToAnotherUserByTheDirectory) {
  if (geteuid() != 0) CANNOT_RUN_HERE("another user needs real root");
  struct Row {
    unsigned mode;
    Answer answer;
  };
  const Row rows[] = {{0777, {0, 16384}},
                      {0755, {-16, kUntouched}},
                      {0744, {-16, kUntouched}},  // cannot be searched, but its figures can be asked for
                      {0711, {-16, kUntouched}}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.mode);
    sandbox::Options options;
    options.user = sandbox::kNobody;
    options.directory_mode = row.mode;
    RUN_IN_SANDBOX(options, [&] { EXPECT_EQ(allocate(kFile, 16384, 8192), row.answer); });
  }
  RUN_IN_SANDBOX(sandbox::Options{}, [] {
    ASSERT_EQ(mkdir("/var/adm/vosk/closed", 0700), 0);
    ASSERT_EQ(mkdir("/var/adm/vosk/closed/inner", 0777), 0);
    ASSERT_TRUE(sandbox::drop_to(sandbox::kNobody));
    EXPECT_EQ(allocate("/var/adm/vosk/closed/inner/file", 16384, 8192), (Answer{-13, kUntouched}));
  });
}

TEST(AllocateFileForReal, NeedsTheDirectory) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "plain", ""));
  EXPECT_EQ(allocate((directory / "missing/file").c_str(), 16384, 8192), (Answer{-14, kUntouched}));
  EXPECT_EQ(allocate((directory / "plain/file").c_str(), 16384, 8192), (Answer{-1, kUntouched}));
  EXPECT_EQ(allocate(std::string(5000, 'x').c_str(), 16384, 8192), (Answer{-1, kUntouched}));
}

TEST(AllocateFileForReal, GivesEverybodyAccessWhateverTheUmask) {
  RUN_IN_SANDBOX(sandbox::Options{}, [] {
    for (mode_t mask : {0077U, 0777U, 0U, 0022U}) {
      SCOPED_TRACE(mask);
      umask(mask);
      EXPECT_EQ(allocate(kFile, 16384, 8192), (Answer{0, 16384}));
      struct stat status;
      ASSERT_EQ(stat(kFile, &status), 0);
      EXPECT_EQ(status.st_mode & 07777U, 0666U);
      EXPECT_EQ(umask(0), mask) << "the umask stays";
      ASSERT_EQ(unlink(kFile), 0);
    }
  });
}

TEST(AllocateFileForReal, TakesWhateverHasTheNameForReserved) {
  RUN_IN_SANDBOX(sandbox::Options{}, [] {
    ASSERT_EQ(mkdir("/var/adm/vosk/stacks/dir", 0777), 0);
    ASSERT_EQ(symlink("nowhere", "/var/adm/vosk/stacks/link"), 0);
    ASSERT_EQ(mkfifo("/var/adm/vosk/stacks/fifo", 0666), 0);
    for (const char *name : {"dir", "link", "fifo"})
      EXPECT_EQ(allocate((std::string(sandbox::kStacks) + "/" + name).c_str(), 16384, 8192), (Answer{0, kUntouched}));
    EXPECT_FALSE(files::exists("/var/adm/vosk/stacks/nowhere")) << "no link is followed";
  });
}

// Whether another process finds the file locked.
bool locked_for_others(const char *path) {
  const pid_t child = fork();
  if (child == 0) {
    const int fd = open(path, O_RDWR);
    _exit(fd >= 0 && lockf(fd, F_TEST, 0) != 0 ? 1 : 0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

TEST(AllocateFileForReal, HoldsTheLockUntilTheFileIsComplete) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "file";
  Calls calls;
  calls.statfs_figures({{1000, 1000, 4096}});
  int seen = 0;
  for (const char *call : {"fchmod", "write", "statfs"}) {
    calls.after(
        call, 0,
        [&](const platform::Call &) {
          if (files::exists(path)) {
            ++seen;
            EXPECT_TRUE(locked_for_others(path.c_str()));
          }
        },
        path);
  }
  EXPECT_EQ(calls.during([&] { return vk_allocate_file(0, nullptr, path.c_str(), 4096, 1, nullptr); }), 0);
  EXPECT_EQ(seen, 1 + 5 + 1);
  EXPECT_FALSE(locked_for_others(path.c_str()));
  EXPECT_THAT(calls.left_open(), IsEmpty());
}

// Of several processes that create the same file, one gets a size and the others find it reserved.
TEST(AllocateFileForReal, GivesTheSizeToOneOfSeveralRacingProcesses) {
  RUN_IN_SANDBOX(sandbox::Options{}, [] {
    for (int round = 0; round < 20; ++round) {
      int gate[2];
      ASSERT_EQ(pipe(gate), 0);
      pid_t children[6];
      for (pid_t &child : children) {
        child = fork();
        if (child != 0) continue;
        char byte;
        close(gate[1]);
        while (read(gate[0], &byte, 1) == -1) continue;  // until the gate is closed
        const Answer answer = allocate(kFile, 16384, 8192);
        _exit(answer == Answer{0, 16384} ? 1 : answer == Answer{0, kUntouched} ? 2 : 3);
      }
      close(gate[0]);
      close(gate[1]);
      int counts[4] = {};
      for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        ++counts[WIFEXITED(status) ? WEXITSTATUS(status) : 3];
      }
      EXPECT_EQ(counts[1], 1);
      EXPECT_EQ(counts[2], 5);
      ASSERT_EQ(unlink(kFile), 0);
    }
  });
}

}  // namespace
