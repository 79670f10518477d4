// vk_allocate_file: its calls, its failures and its retries, on faked file system figures.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"

namespace {

using foundation::TraceFile;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

using Texts = std::vector<std::string>;

constexpr std::int64_t kUntouched = -777;
constexpr platform::StatfsFigures kPlenty = {1000, 1000, 4096}, kFull = {1000, 49, 4096};

class AllocateFile : public testing::Test {
 protected:
  int allocate(Calls &calls, std::int64_t wanted, std::int64_t min) {
    trace_.hide(calls);
    calls.ignore("gettimeofday");
    calls.ignore("getpid");
    return calls.during([&] { return vk_allocate_file(1, trace_.c_str(), path_.c_str(), wanted, min, &reserved_); });
  }
  static std::string entry(const std::string &message) { return "vk_allocate_file: " + message; }
  static std::string got(int wanted, int granted) {
    return "vk_determine_max_fsize: Requested " + std::to_string(wanted) + " bytes, able to get " +
           std::to_string(granted) + " bytes";
  }
  Texts undone() const { return {"lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0", "unlink(\"" + path_ + "\") = 0"}; }
  // The log's last calls.
  static Texts last(const Calls &calls, std::size_t n) {
    const Texts log = calls.log();
    return n > log.size() ? log : Texts(log.end() - static_cast<std::ptrdiff_t>(n), log.end());
  }

  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "file";
  TraceFile trace_{directory_ / "trace"};
  std::int64_t reserved_ = kUntouched;
};

TEST_F(AllocateFile, MakesItsCallsInOrder) {
  Calls calls;
  calls.statfs_figures({kPlenty});
  EXPECT_EQ(allocate(calls, 2500, 1000), 0);
  EXPECT_EQ(reserved_, 2500);
  EXPECT_THAT(calls.log(),
              ElementsAre("statfs(\"" + directory_.path() + "\") = 0", "open(\"" + path_ + "\", 0x2c2, 0666) = fd1",
                          "lockf(fd1, F_LOCK, 0) = 0", "fchmod(fd1, 0666) = 0", "lseek(fd1, 0, SEEK_CUR) = 0",
                          "write(fd1, 1024) = 1024", "write(fd1, 1024) = 1024", "write(fd1, 452) = 452",
                          "lseek(fd1, 0, SEEK_SET) = 0", "write(fd1, 36) = 36", "statfs(\"" + path_ + "\") = 0",
                          "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"));
  EXPECT_THAT(trace_.entries(), ElementsAre(got(2500, 2500), entry(folded_text("%s reserved (2500 bytes) - returning "
                                                                               "VOSK_SUCCESS(0)\n",
                                                                               path_.c_str()))));
}

TEST_F(AllocateFile, LeavesTheHeaderLineAndZerosBehindIt) {
  struct Row {
    int size;
    std::string header;
  };
  const Row rows[] = {
      {16384, "VKTFO=36    VKTFW=0     VKTFS=16384\n"},  {8192, "VKTFO=36    VKTFW=0     VKTFS=8192 \n"},
      {99999, "VKTFO=36    VKTFW=0     VKTFS=99999\n"},  {100000, "VKTFO=36    VKTFW=0     VKTFS=100000"},
      {1048576, "VKTFO=36    VKTFW=0     VKTFS=104857"}, {37, "VKTFO=36    VKTFW=0     VKTFS=37   \n"},
      {36, "VKTFO=36    VKTFW=0     VKTFS=36   \n"},     {5, "VKTFO=36    VKTFW=0     VKTFS=5    \n"},
      {0, "VKTFO=36    VKTFW=0     VKTFS=0    \n"}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.size);
    Calls calls;
    calls.statfs_figures({kPlenty});
    EXPECT_EQ(allocate(calls, row.size, 0), 0);
    EXPECT_EQ(reserved_, row.size);
    std::string expected = row.header;
    ASSERT_EQ(expected.size(), 36U);
    if (row.size > 36) expected.resize(static_cast<std::size_t>(row.size), '\0');
    EXPECT_EQ(files::difference(expected, *files::read(path_)), "");
    ASSERT_EQ(unlink(path_.c_str()), 0);
  }
}

TEST_F(AllocateFile, TakesAnExistingFileForReservedAndDoesNotTouchIt) {
  ASSERT_TRUE(files::write(path_, "mine"));
  ASSERT_EQ(chmod(path_.c_str(), 0600), 0);
  Calls calls;
  calls.statfs_figures({kPlenty});
  EXPECT_EQ(allocate(calls, 16384, 8192), 0);
  EXPECT_EQ(reserved_, kUntouched);
  EXPECT_THAT(calls.log(), ElementsAre("statfs(\"" + directory_.path() + "\") = 0",
                                       "open(\"" + path_ + "\", 0x2c2, 0666) = -1 EEXIST"));
  EXPECT_EQ(files::read(path_), "mine");
  struct stat status;
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_THAT(trace_.entries(),
              ElementsAre(got(16384, 16384),
                          entry(folded_text("Can't open %s mode 0x2c2 perm 0x9f6- error 17\n", path_.c_str()))));
}

TEST_F(AllocateFile, RefusesANullPathAndDoesNotNeedTheResult) {
  Calls calls;
  calls.statfs_figures({kPlenty});
  EXPECT_EQ(calls.during([&] { return vk_allocate_file(1, trace_.c_str(), nullptr, 1, 1, &reserved_); }), -4);
  EXPECT_EQ(calls.count("statfs") + calls.count("open"), 0);
  EXPECT_EQ(calls.during([&] { return vk_allocate_file(0, nullptr, path_.c_str(), 100, 1, nullptr); }), 0);
  EXPECT_EQ(reserved_, kUntouched);
  EXPECT_TRUE(files::exists(path_));
}

TEST_F(AllocateFile, PassesOnWhyNoSizeCouldBeFoundAndCreatesNothing) {
  struct Row {
    int error, result;
  };
  for (const Row &row : {Row{ENOENT, -14}, Row{EACCES, -13}, Row{ESTALE, -15}, Row{EIO, -1}}) {
    Calls calls;
    calls.fail_nth("statfs", 1, row.error);
    EXPECT_EQ(allocate(calls, 16384, 8192), row.result);
    EXPECT_EQ(calls.count_all(), 1);
  }
  Calls calls;
  calls.statfs_figures({kFull});
  EXPECT_EQ(allocate(calls, 16384, 8192), -18);
  EXPECT_EQ(calls.count_all(), 1);
  EXPECT_EQ(reserved_, kUntouched);
  EXPECT_FALSE(files::exists(path_));
}

TEST_F(AllocateFile, ClassifiesTheErrorOfTheOpenAndTracesIt) {
  struct Row {
    int error, result;
  };
  const Row rows[] = {{EACCES, -16}, {EROFS, -16},  {ENFILE, -20}, {EMFILE, -20},   {EFBIG, -20},
                      {EDQUOT, -20}, {ENOSPC, -18}, {ENOENT, -1},  {ENOTDIR, -1},   {EISDIR, -1},
                      {ELOOP, -1},   {EPERM, -1},   {EIO, -1},     {ENOMEM, -1},    {ETXTBSY, -1},
                      {EINVAL, -1},  {EAGAIN, -1},  {ENXIO, -1},   {EOVERFLOW, -1}, {ENAMETOOLONG, -1}};
  Texts traced;
  for (const Row &row : rows) {
    SCOPED_TRACE(platform::error_name(row.error));
    Calls calls;
    calls.statfs_figures({kPlenty});
    calls.fail_nth("open", 1, row.error, path_);
    EXPECT_EQ(allocate(calls, 16384, 8192), row.result);
    EXPECT_THAT(calls.names(), ElementsAre("statfs", "open"));
    traced.push_back(got(16384, 16384));
    traced.push_back(entry(folded_text("Can't open %s mode 0x2c2 perm 0x9f6- error %d\n", path_.c_str(), row.error)));
    EXPECT_EQ(trace_.entries(), traced);
  }
  EXPECT_EQ(reserved_, kUntouched);
}

TEST_F(AllocateFile, StartsAgainWithTheSameRequestWhenTheOpenIsInterrupted) {
  Calls calls;
  // The second look at the file system finds less room than the first.
  calls.statfs_figures({kPlenty, {1000, 54, 4096}, kPlenty});
  calls.fail_first("open", 2, EINTR, path_);
  EXPECT_EQ(allocate(calls, 16384, 4096), 0);
  EXPECT_EQ(reserved_, 16384);
  const Texts log = calls.log_of({"statfs", "open"});
  const std::string directory = "statfs(\"" + directory_.path() + "\") = 0";
  EXPECT_THAT(log, ElementsAre(directory, "open(\"" + path_ + "\", 0x2c2, 0666) = -1 EINTR", directory,
                               "open(\"" + path_ + "\", 0x2c2, 0666) = -1 EINTR", directory,
                               "open(\"" + path_ + "\", 0x2c2, 0666) = fd1", "statfs(\"" + path_ + "\") = 0"));
  const std::string interrupted = entry(folded_text("Can't open %s mode 0x2c2 perm 0x9f6- error 4\n", path_.c_str()));
  EXPECT_THAT(
      trace_.entries(),
      ElementsAre(got(16384, 16384), interrupted, got(16384, 8192), interrupted, got(16384, 16384),
                  entry(folded_text("%s reserved (16384 bytes) - returning VOSK_SUCCESS(0)\n", path_.c_str()))));
}

TEST_F(AllocateFile, LeavesNoFileBehindWhenItCannotFinish) {
  struct Row {
    const char *call;
    int nth, error, result;
    std::size_t calls;  // up to and with the failing one
    std::string text;
  };
  const Row rows[] = {
      {"lockf", 1, ENOLCK, -28, 3, "Cannot lock file %s - error 37\n"},
      {"lockf", 1, EINTR, -28, 3, "Cannot lock file %s - error 4\n"},
      {"lockf", 1, EDEADLK, -28, 3, "Cannot lock file %s - error 35\n"},
      {"fchmod", 1, EPERM, -16, 4, "Cannot force permissions on file %s - error 1\n"},
      {"fchmod", 1, EROFS, -16, 4, "Cannot force permissions on file %s - error 30\n"},
      {"lseek", 1, EIO, -18, 5, "Not enough space for fclear(%s,16384) - error 5\n"},
      {"write", 1, ENOSPC, -18, 6, "Not enough space for fclear(%s,16384) - error 28\n"},
      {"write", 9, EDQUOT, -18, 14, "Not enough space for fclear(%s,16384) - error 122\n"},
      {"write", 16, EFBIG, -18, 21, "Not enough space for fclear(%s,16384) - error 27\n"},
      {"statfs", 2, ESTALE, -1, 24, "statfs(%s) failed - error 116\n"},
      {"statfs", 2, ENOENT, -1, 24, "statfs(%s) failed - error 2\n"},
  };
  Texts traced;
  for (const Row &row : rows) {
    SCOPED_TRACE(std::string(row.call) + " " + platform::error_name(row.error));
    Calls calls;
    calls.statfs_figures({kPlenty});
    calls.fail_nth(row.call, row.nth, row.error);
    EXPECT_EQ(allocate(calls, 16384, 8192), row.result);
    EXPECT_EQ(calls.calls().size(), row.calls + 3);
    EXPECT_EQ(calls.calls()[row.calls - 1].error, row.error);
    EXPECT_EQ(last(calls, 3), undone());
    EXPECT_FALSE(files::exists(path_));
    std::string text = row.text;
    traced.push_back(got(16384, 16384));
    traced.push_back(entry(folded_text("%s", text.replace(text.find("%s"), 2, path_).c_str())));
    EXPECT_EQ(trace_.entries(), traced);
  }
  EXPECT_EQ(reserved_, kUntouched);
}

TEST_F(AllocateFile, TracesBeforeItRemovesTheFile) {
  struct Row {
    const char *call;
    int nth;
  };
  // An empty name: the reservation itself breaks the rule.
  for (const Row &row : {Row{"lockf", 1}, Row{"fchmod", 1}, Row{"write", 1}, Row{"statfs", 2}, Row{"", 0}}) {
    SCOPED_TRACE(row.call);
    Calls calls;
    calls.statfs_figures({kPlenty, kFull});
    if (row.nth != 0) calls.fail_nth(row.call, row.nth, EIO);
    std::size_t traced_before = 0;
    const std::size_t before = trace_.entries().size();
    calls.before(
        "lockf", 2, [&](const platform::Call &) { traced_before = trace_.entries().size(); }, path_);
    EXPECT_LT(allocate(calls, 16384, 8192), 0);
    EXPECT_EQ(traced_before, before + 2);
  }
}

TEST_F(AllocateFile, HasReleasedTheFileBeforeItTracesTheSuccess) {
  Calls calls;
  calls.statfs_figures({kPlenty});
  std::size_t traced_before = 9;
  calls.after(
      "close", 1, [&](const platform::Call &) { traced_before = trace_.entries().size(); }, path_);
  EXPECT_EQ(allocate(calls, 16384, 8192), 0);
  EXPECT_EQ(traced_before, 1U);
  EXPECT_EQ(trace_.entries().size(), 2U);
}

TEST_F(AllocateFile, CannotReserveMoreThanTwoGigabytes) {
  Calls calls;
  calls.statfs_figures({{1U << 30, 1U << 30, 4096}});
  EXPECT_EQ(allocate(calls, 0x180000000, 8192), -18);
  EXPECT_EQ(calls.count("write"), 0);
  EXPECT_EQ(last(calls, 3), undone());
  EXPECT_THAT(
      trace_.entries(),
      ElementsAre(got(-2147483647 - 1, -2147483647 - 1),
                  entry(folded_text("Not enough space for fclear(%s,-2147483648) - error 27\n", path_.c_str()))));
}

TEST_F(AllocateFile, DoesNotLookAtTheResultOfTheHeaderLine) {
  struct Row {
    const char *call;
    int nth;
  };
  // The seek before the header line is the second one; its write comes after the 16 of the zeros.
  for (const Row &row : {Row{"lseek", 2}, Row{"write", 17}}) {
    SCOPED_TRACE(row.call);
    Calls calls;
    calls.statfs_figures({kPlenty});
    calls.fail_nth(row.call, row.nth, EIO);
    EXPECT_EQ(allocate(calls, 16384, 8192), 0);
    EXPECT_EQ(calls.count("write"), 17);
    EXPECT_EQ(reserved_, 16384);
    ASSERT_EQ(unlink(path_.c_str()), 0);
  }
  Calls calls;  // nor at those of the last unlock and close
  calls.statfs_figures({kPlenty});
  calls.fail_nth("lockf", 2, EIO);
  calls.fail_nth("close", 1, EIO);
  EXPECT_EQ(allocate(calls, 16384, 8192), 0);
}

TEST_F(AllocateFile, TriesSmallerWhereTheReservationItselfBrokeTheRule) {
  struct Row {
    const char *what;
    std::int64_t block_size, wanted, min;
    int retries_needed;  // how many reservations break the rule; a large number is all of them
    std::vector<int> sizes;
    int result;
  };
  const Row rows[] = {
      {"second try", 1024, 16384, 8192, 1, {16384, 14336}, 0},
      {"last try", 1024, 16384, 8192, 3, {16384, 14336, 12288, 10240}, 0},
      {"8192 itself is not tried", 1024, 16384, 8192, 99, {16384, 14336, 12288, 10240}, -18},
      {"the floor is not the caller's minimum", 1024, 16384, 100, 99, {16384, 14336, 12288, 10240}, -18},
      {"8193 is tried", 1024, 16385, 100, 99, {16385, 14337, 12289, 10241, 8193}, -18},
      {"one block of 4096 more than the floor", 4096, 24576, 100, 99, {24576, 16384}, -18},
      {"no second try", 4096, 16384, 100, 99, {16384}, -18},
      {"no second try below the floor", 4096, 5000, 100, 99, {5000}, -18},
      {"large blocks", 65536, 1048576, 8192, 7, {1048576, 917504, 786432, 655360, 524288, 393216, 262144, 131072}, 0},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_TRUE(files::write(trace_.c_str(), foundation::fresh_trace(99999)));
    Calls calls;
    std::vector<platform::StatfsFigures> figures;
    for (int i = 0; i < static_cast<int>(row.sizes.size()); ++i) {
      figures.push_back({100000, 100000, row.block_size});
      figures.push_back({100000, i < row.retries_needed ? 4999U : 5000U, row.block_size});
    }
    calls.statfs_figures(figures);
    EXPECT_EQ(allocate(calls, row.wanted, row.min), row.result);
    EXPECT_EQ(calls.count("statfs"), 2 * static_cast<int>(row.sizes.size()));

    Texts traced;
    for (std::size_t i = 0; i < row.sizes.size(); ++i) {
      traced.push_back(got(row.sizes[i], row.sizes[i]));
      if (i + 1 < row.sizes.size() || row.result != 0) traced.push_back(entry("Didn't leave 5% space - trying again"));
    }
    if (row.result == 0) {
      EXPECT_EQ(reserved_, row.sizes.back());
      traced.push_back(
          entry(folded_text("%s reserved (%d bytes) - returning VOSK_SUCCESS(0)\n", path_.c_str(), row.sizes.back())));
      EXPECT_EQ(files::read(path_)->size(), static_cast<std::size_t>(row.sizes.back()));
      ASSERT_EQ(unlink(path_.c_str()), 0);
    } else {
      EXPECT_EQ(reserved_, kUntouched);
      traced.push_back(entry("Minimum space not available"));
      EXPECT_FALSE(files::exists(path_));
      EXPECT_EQ(last(calls, 3).back(), "unlink(\"" + path_ + "\") = 0");
    }
    EXPECT_EQ(trace_.entries(), traced);
    reserved_ = kUntouched;
  }
}

TEST_F(AllocateFile, RetriesFromTheSizeThatItReserved) {
  Calls calls;
  // 81920 are wanted; 935 + 12 + 1 < 950 grants 49152. Then 49152 - 2 * 1024 are asked for.
  calls.statfs_figures({{1000, 65, 4096}, {1000, 49, 1024}, {1000, 1000, 1024}});
  EXPECT_EQ(allocate(calls, 81920, 100), 0);
  EXPECT_EQ(reserved_, 47104);
  EXPECT_THAT(
      trace_.entries(),
      ElementsAre(got(81920, 49152), entry("Didn't leave 5% space - trying again"), got(47104, 47104),
                  entry(folded_text("%s reserved (47104 bytes) - returning VOSK_SUCCESS(0)\n", path_.c_str()))));
}

TEST_F(AllocateFile, UndoesInTheSameOrderBeforeARetry) {
  Calls calls;
  calls.statfs_figures({{1000, 1000, 1024}, {1000, 49, 1024}, {1000, 1000, 1024}});
  EXPECT_EQ(allocate(calls, 16384, 8192), 0);
  const Texts log = calls.log_of({"statfs", "open", "lockf", "close", "unlink"});
  const std::string directory = "statfs(\"" + directory_.path() + "\") = 0", file = "statfs(\"" + path_ + "\") = 0",
                    open = "open(\"" + path_ + "\", 0x2c2, 0666) = fd";
  EXPECT_THAT(log, ElementsAre(directory, open + "1", "lockf(fd1, F_LOCK, 0) = 0", file, "lockf(fd1, F_ULOCK, 0) = 0",
                               "close(fd1) = 0", "unlink(\"" + path_ + "\") = 0", directory, open + "2",
                               "lockf(fd2, F_LOCK, 0) = 0", file, "lockf(fd2, F_ULOCK, 0) = 0", "close(fd2) = 0"));
}

TEST_F(AllocateFile, CountsABlockSizeBelowOneOfTheNewFileAsAFailure) {
  Calls calls;
  calls.statfs_figures({kPlenty, {1000, 49, 0}});
  EXPECT_EQ(allocate(calls, 16384, 8192), -1);
  EXPECT_EQ(last(calls, 3), undone());
}

TEST_F(AllocateFile, TracesWhenTracingIsExactlyOne) {
  for (int trace_on : {0, 2, -1, 0x101}) {
    Calls calls;
    calls.statfs_figures({{1000, 1000, 1024}, {1000, 49, 1024}});
    EXPECT_EQ(calls.during([&] { return vk_allocate_file(trace_on, trace_.c_str(), path_.c_str(), 9000, 1, nullptr); }),
              -18);
    EXPECT_EQ(calls.count("open"), 1);
    EXPECT_EQ(calls.count("gettimeofday"), 0);
  }
  EXPECT_THAT(trace_.entries(), IsEmpty());
}

}  // namespace
