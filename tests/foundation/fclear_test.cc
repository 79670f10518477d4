// fclear: a run of zero bytes at the current position.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"

namespace {

using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;

class Fclear : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(files::write(path_, std::string(4000, 'x')));
    fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd_, 0);
  }
  void TearDown() override { close(fd_); }
  std::string number(const char *format) const {  // "lseek(%, 0, SEEK_CUR)" with the descriptor for the %
    std::string text = format;
    return text.replace(text.find('%'), 1, std::to_string(fd_));
  }
  std::string bytes() const { return *files::read(path_); }

  files::TemporaryDirectory directory_;
  std::string path_ = directory_ / "file";
  int fd_ = -1;
};

TEST_F(Fclear, WritesPiecesOf1024BytesAndReturnsTheLength) {
  Calls calls;
  ASSERT_EQ(lseek(fd_, 100, SEEK_SET), 100);
  EXPECT_EQ(calls.during([&] { return fclear(fd_, 2500); }), 2500);
  EXPECT_THAT(calls.log(), ElementsAre("getrlimit(RLIMIT_FSIZE) = 0", number("lseek(%, 0, SEEK_CUR) = 100"),
                                       number("write(%, 1024) = 1024"), number("write(%, 1024) = 1024"),
                                       number("write(%, 452) = 452")));
  EXPECT_EQ(lseek(fd_, 0, SEEK_CUR), 2600) << "the position is not moved back";
  EXPECT_EQ(files::difference(std::string(100, 'x') + std::string(2500, '\0') + std::string(1400, 'x'), bytes()), "");
}

TEST_F(Fclear, ClearsExactlyTheLengthAroundThePieceSize) {
  struct Row {
    int length, writes;
  };
  for (const Row &row :
       {Row{1, 1}, Row{1023, 1}, Row{1024, 1}, Row{1025, 2}, Row{2047, 2}, Row{2048, 2}, Row{2049, 3}}) {
    SCOPED_TRACE(row.length);
    ASSERT_TRUE(files::write(path_, std::string(4000, 'x')));
    ASSERT_EQ(lseek(fd_, 7, SEEK_SET), 7);
    Calls calls;
    EXPECT_EQ(calls.during([&] { return fclear(fd_, row.length); }), row.length);
    EXPECT_EQ(calls.count("write"), row.writes);
    const auto length = static_cast<std::size_t>(row.length);
    EXPECT_EQ(
        files::difference(std::string(7, 'x') + std::string(length, '\0') + std::string(3993 - length, 'x'), bytes()),
        "");
  }
}

// The end of the run is looked at before the sign of the length, as an unsigned number.
TEST_F(Fclear, ChecksTheEndOfTheRunFirstAndWritesNothingForALengthOfZeroOrLess) {
  struct Row {
    off_t position;
    std::int64_t length;
    int result;
    int error;
  };
  const Row rows[] = {{0, 0, 0, 0},
                      {100, 0, 0, 0},
                      {100, -50, -50, 0},
                      {100, -100, -100, 0},
                      {100, -101, -1, EFBIG},
                      {0, -1, -1, EFBIG},
                      {1, -1, -1, 0},
                      {0x7fffffff, 0, 0, 0},
                      {0x7fffffff, 1, -1, EFBIG},
                      {0x80000000, 0, -1, EFBIG},
                      {0x80000000, -1, -1, 0},
                      {0x80000000, -2, -2, 0},
                      {0, 0x80000000, -1, EFBIG},
                      {0, INT64_MAX, -1, EFBIG},
                      {1, INT64_MAX, -1, EFBIG},
                      {0, INT64_MIN, -1, EFBIG},
                      {0, -0x100000000, -1, EFBIG},
                      {2000, 0x7fffffff - 1999, -1, EFBIG}};
  for (const Row &row : rows) {
    SCOPED_TRACE(std::to_string(row.position) + " and " + std::to_string(row.length));
    ASSERT_EQ(lseek(fd_, row.position, SEEK_SET), row.position);
    Calls calls;
    int error = 0;
    EXPECT_EQ(calls.during([&] {
      errno = 0;
      const int result = fclear(fd_, row.length);
      error = errno;
      return result;
    }),
              row.result);
    EXPECT_EQ(error, row.error);
    EXPECT_EQ(calls.count("write"), 0);
  }
  EXPECT_EQ(bytes(), std::string(4000, 'x'));
}

TEST_F(Fclear, FillsUpToTheLastByteBelowTwoGigabytes) {
  ASSERT_EQ(lseek(fd_, 0x7fffffff - 10, SEEK_SET), 0x7fffffff - 10);
  EXPECT_EQ(fclear(fd_, 10), 10);
  EXPECT_EQ(lseek(fd_, 0, SEEK_END), 0x7fffffff);
}

TEST_F(Fclear, RefusesANegativeDescriptorWithoutACallOnIt) {
  for (int fd : {-1, -2, INT_MIN}) {
    Calls calls;
    calls.ignore("getrlimit");
    errno = 0;
    EXPECT_EQ(calls.during([&] { return fclear(fd, 10); }), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_THAT(calls.log(), IsEmpty());
  }
}

TEST_F(Fclear, RefusesWhatHasNoPosition) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  int pair[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
  for (int fd : {ends[0], ends[1], pair[0]}) {
    errno = 0;
    EXPECT_EQ(fclear(fd, 10), -1);
    EXPECT_EQ(errno, EINVAL);
  }
  for (int fd : {ends[0], ends[1], pair[0], pair[1]}) close(fd);
  errno = 0;
  EXPECT_EQ(fclear(ends[0], 10), -1);
  EXPECT_EQ(errno, EBADF) << "any other error of the seek stays";
}

TEST_F(Fclear, LeavesTheErrorOfAFailedSeekOtherThanOfAPipe) {
  for (int error : {EIO, EOVERFLOW, EINVAL, ENXIO}) {
    Calls calls;
    calls.fail_nth("lseek", 1, error);
    errno = 0;
    EXPECT_EQ(calls.during([&] { return fclear(fd_, 10); }), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(calls.count("write"), 0);
  }
}

TEST_F(Fclear, RepeatsAnInterruptedWrite) {
  Calls calls;
  calls.fail_first("write", 3, EINTR);
  EXPECT_EQ(calls.during([&] { return fclear(fd_, 1500); }), 1500);
  EXPECT_THAT(
      calls.log_of({"write"}),
      ElementsAre(number("write(%, 1024) = -1 EINTR"), number("write(%, 1024) = -1 EINTR"),
                  number("write(%, 1024) = -1 EINTR"), number("write(%, 1024) = 1024"), number("write(%, 476) = 476")));
}

TEST_F(Fclear, ContinuesAShortWriteWhereItStopped) {
  Calls calls;
  calls.short_nth("write", 1, 100);
  calls.short_nth("write", 3, 1);
  EXPECT_EQ(calls.during([&] { return fclear(fd_, 2500); }), 2500);
  EXPECT_THAT(calls.log_of({"write"}),
              ElementsAre(number("write(%, 1024) = 100"), number("write(%, 1024) = 1024"), number("write(%, 1024) = 1"),
                          number("write(%, 1024) = 1024"), number("write(%, 351) = 351")));
  EXPECT_EQ(files::difference(std::string(2500, '\0') + std::string(1500, 'x'), bytes()), "");
}

TEST_F(Fclear, StopsAtAFailedWriteWithItsErrorAndLeavesTheZeros) {
  for (int error : {ENOSPC, EDQUOT, EFBIG, EIO, EAGAIN, EBADF}) {
    SCOPED_TRACE(platform::error_name(error));
    ASSERT_TRUE(files::write(path_, std::string(4000, 'x')));
    ASSERT_EQ(lseek(fd_, 0, SEEK_SET), 0);
    Calls calls;
    calls.fail_nth("write", 2, error);
    errno = 0;
    EXPECT_EQ(calls.during([&] { return fclear(fd_, 2500); }), -1);
    EXPECT_EQ(errno, error);
    EXPECT_EQ(calls.count("write"), 2);
    EXPECT_EQ(files::difference(std::string(1024, '\0') + std::string(2976, 'x'), bytes()), "");
  }
}

TEST_F(Fclear, DoesNotGoOnForEverWhereNothingIsWritten) {
  Calls calls;
  calls.return_nth("write", 2, 0);
  errno = 0;
  EXPECT_EQ(calls.during([&] { return fclear(fd_, 2500); }), -1);
  EXPECT_NE(errno, 0);
  EXPECT_EQ(calls.count("write"), 2);
}

TEST_F(Fclear, FailsOnADescriptorThatIsOpenForReadingOnly) {
  const int fd = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  errno = 0;
  EXPECT_EQ(fclear(fd, 1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(fclear(fd, 0), 0) << "nothing is written";
  close(fd);
}

}  // namespace
