#include "support/interpose.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;

class Interpose : public testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/interposeXXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory_ = pattern;
    path_ = directory_ + "/file";
  }
  void TearDown() override {
    unlink(path_.c_str());
    rmdir(directory_.c_str());
  }
  std::string directory_;
  std::string path_;
};

TEST_F(Interpose, RecordsTheCallsOnOneFileInOrder) {
  Calls calls;
  calls.during([&] {
    int fd = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0640);
    lockf(fd, F_LOCK, 0);
    if (write(fd, "hello", 5) != 5) return;
    lseek(fd, 1, SEEK_SET);
    char buffer[8];
    if (read(fd, buffer, sizeof buffer) != 4) return;
    fchmod(fd, 0600);
    lockf(fd, F_ULOCK, 0);
    close(fd);
    unlink(path_.c_str());
  });
  EXPECT_THAT(calls.log(),
              ElementsAre("open(\"" + path_ + "\", 0xc2, 0640) = fd1", "lockf(fd1, F_LOCK, 0) = 0", "write(fd1, 5) = 5",
                          "lseek(fd1, 1, SEEK_SET) = 1", "read(fd1, 8) = 4", "fchmod(fd1, 0600) = 0",
                          "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0", "unlink(\"" + path_ + "\") = 0"));
  EXPECT_EQ(calls.calls()[2].data, "hello");
  EXPECT_EQ(calls.calls()[2].path, path_);
  EXPECT_THAT(calls.left_open(), IsEmpty());
}

TEST_F(Interpose, RecordsNothingOutsideOfDuring) {
  Calls calls;
  getpid();
  calls.during([] { getppid(); });
  getpid();
  EXPECT_THAT(calls.names(), ElementsAre("getppid"));
}

TEST_F(Interpose, RecordsNothingOfOtherThreads) {
  Calls calls;
  std::thread other;
  calls.during([&] {
    getppid();
    other = std::thread([] { getpid(); });
  });
  other.join();
  EXPECT_EQ(calls.count("getpid"), 0);
  EXPECT_EQ(calls.count("getppid"), 1);
}

TEST_F(Interpose, FailsTheNthCallWithoutMakingIt) {
  Calls calls;
  calls.fail_nth("unlink", 2, EROFS);
  int fd = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
  close(fd);
  calls.during([&] {
    EXPECT_EQ(unlink("/nowhere/at/all"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(unlink(path_.c_str()), -1);
    EXPECT_EQ(errno, EROFS);
  });
  EXPECT_EQ(access(path_.c_str(), F_OK), 0);
  EXPECT_EQ(calls.faults(), 1);
  EXPECT_THAT(calls.log(),
              ElementsAre("unlink(\"/nowhere/at/all\") = -1 ENOENT", "unlink(\"" + path_ + "\") = -1 EROFS"));
}

TEST_F(Interpose, InterruptsTheFirstCallsThenMakesThem) {
  Calls calls;
  calls.fail_first("open", 2, EINTR);
  int fd = calls.during([&] {
    int result = -1;
    do result = open("/dev/null", O_RDONLY);
    while (result == -1 && errno == EINTR);
    return result;
  });
  EXPECT_GE(fd, 0);
  EXPECT_EQ(calls.count("open"), 3);
  EXPECT_THAT(calls.left_open(), ElementsAre(std::pair<int, std::string>(fd, "/dev/null")));
  close(fd);
}

TEST_F(Interpose, FailsOnlyOnTheNamedFile) {
  Calls calls;
  calls.fail_all("write", ENOSPC, path_);
  int sink = open("/dev/null", O_WRONLY);
  calls.during([&] {
    int fd = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(write(sink, "a", 1), 1);
    EXPECT_EQ(write(fd, "a", 1), -1);
    EXPECT_EQ(errno, ENOSPC);
    close(fd);
  });
  close(sink);
  EXPECT_EQ(calls.faults(), 1);
}

TEST_F(Interpose, ShortensAWriteAndARead) {
  Calls calls;
  calls.short_nth("write", 1, 3);
  calls.short_nth("read", 1, 2);
  char buffer[8] = "";
  calls.during([&] {
    int fd = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
    errno = 0;
    EXPECT_EQ(write(fd, "hello", 5), 3);
    EXPECT_EQ(errno, 0);
    lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(read(fd, buffer, sizeof buffer), 2);
    EXPECT_EQ(read(fd, buffer + 2, sizeof buffer - 2), 1);
    close(fd);
  });
  EXPECT_STREQ(buffer, "hel");
}

TEST_F(Interpose, FailsTheKthCallOfAnyName) {
  for (int k = 1; k <= 3; ++k) {
    SCOPED_TRACE(k);
    Calls calls;
    calls.fail_kth(k, EIO);
    calls.during([&] {
      getpid();  // cannot fail, is not counted
      struct stat status;
      EXPECT_EQ(stat("/", &status), k == 1 ? -1 : 0);
      int fd = open("/dev/null", O_RDONLY);
      EXPECT_EQ(fd == -1, k == 2);
      int closed = close(fd);
      EXPECT_EQ(closed == -1, k != 1);  // k = 2: of no descriptor
    });
    EXPECT_EQ(calls.faults(), 1);
    EXPECT_THAT(calls.left_open(), IsEmpty());
  }
}

TEST_F(Interpose, AFailingCloseClosesAllTheSame) {
  Calls calls;
  calls.fail_nth("close", 1, EIO);
  int fd = open("/dev/null", O_RDONLY);
  calls.during([&] { EXPECT_EQ(close(fd), -1); });
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(Interpose, APlannedFailureThatNeverHappensFailsTheTest) {
  EXPECT_NONFATAL_FAILURE(
      {
        Calls calls;
        calls.fail_nth("lockf", 2, ENOLCK);
        calls.during([] { getpid(); });
      },
      "never happened");
  Calls calls;
  calls.fail_nth("lockf", 2, ENOLCK);
  calls.allow_unused();
}

TEST_F(Interpose, HooksRunUnrecordedBeforeAndAfter) {
  Calls calls;
  std::vector<std::string> seen;
  calls.before("stat", 2, [&](const platform::Call &call) {
    seen.push_back("before " + call.arguments);
    getppid();
  });
  calls.after("stat", 0, [&](const platform::Call &call) { seen.push_back("after " + call.result); });
  calls.during([] {
    struct stat status;
    stat("/", &status);
    stat("/nowhere", &status);
  });
  EXPECT_THAT(seen, ElementsAre("after 0", "before \"/nowhere\"", "after -1 ENOENT"));
  EXPECT_EQ(calls.count("getppid"), 0);
}

TEST_F(Interpose, FixesTheClockAndMovesItByStep) {
  Calls calls;
  calls.fixed_clock(1000000000, 999999, 2);
  struct timeval first, second;
  struct timespec third;
  calls.during([&] {
    gettimeofday(&first, nullptr);
    gettimeofday(&second, nullptr);
    clock_gettime(CLOCK_REALTIME, &third);
  });
  EXPECT_EQ(first.tv_sec, 1000000000);
  EXPECT_EQ(first.tv_usec, 999999);
  EXPECT_EQ(second.tv_sec, 1000000001);
  EXPECT_EQ(second.tv_usec, 1);
  EXPECT_EQ(third.tv_nsec, 3000);
}

TEST_F(Interpose, LocalTimesAreKnownInUtc) {
  platform::UtcZone zone;
  Calls calls;
  char text[32];
  time_t moment = 86400;
  struct tm parts;
  calls.during([&] {
    ctime_r(&moment, text);
    localtime_r(&moment, &parts);
  });
  EXPECT_STREQ(text, "Fri Jan  2 00:00:00 1970\n");
  EXPECT_EQ(parts.tm_mday, 2);
  EXPECT_THAT(calls.log(),
              ElementsAre("ctime_r(86400) = \"Fri Jan  2 00:00:00 1970\\n\"", "localtime_r(86400) = pointer"));
}

TEST_F(Interpose, GivesStatfsFiguresOneAfterTheOther) {
  Calls calls;
  calls.statfs_figures({{100, 50, 512}, {200, 7, 4096}});
  struct statfs a, b, c;
  calls.during([&] {
    EXPECT_EQ(statfs("/", &a), 0);
    EXPECT_EQ(statfs("/", &b), 0);
    EXPECT_EQ(statfs("/", &c), 0);
  });
  EXPECT_EQ(a.f_blocks, 100u);
  EXPECT_EQ(a.f_bavail, 50u);
  EXPECT_EQ(a.f_bsize, 512);
  EXPECT_EQ(b.f_bavail, 7u);
  EXPECT_EQ(c.f_bavail, 7u);
}

TEST_F(Interpose, FakesTheStatusOfOnePath) {
  Calls calls;
  calls.fake_stat("stat", "/a/socket", {0140777, 77, 3, 0});
  struct stat faked, real;
  calls.during([&] {
    EXPECT_EQ(stat("/a/socket", &faked), 0);
    EXPECT_EQ(stat("/", &real), 0);
  });
  EXPECT_EQ(faked.st_mode, 0140777u);
  EXPECT_EQ(faked.st_ino, 77u);
  EXPECT_TRUE(S_ISDIR(real.st_mode));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST_F(Interpose, FakesTheEntriesOfADirectory) {
  Calls calls;
  calls.fake_directory({{"one", 11, DT_REG}, {"two", 12, DT_REG}});
  std::vector<std::string> names;
  calls.during([&] {
    DIR *directory = opendir("/some/where");
    struct dirent entry, *found = nullptr;
    while (readdir_r(directory, &entry, &found) == 0 && found != nullptr) names.push_back(entry.d_name);
    closedir(directory);
  });
  EXPECT_THAT(names, ElementsAre("one", "two"));
  EXPECT_THAT(calls.names(), ElementsAre("opendir", "readdir_r", "readdir_r", "readdir_r", "closedir"));
}

TEST_F(Interpose, AFailedReadOfADirectoryReturnsTheErrorNumber) {
  Calls calls;
  calls.fail_nth("readdir_r", 1, EBADF);
  calls.during([&] {
    DIR *directory = opendir("/");
    struct dirent entry, *found = nullptr;
    EXPECT_EQ(readdir_r(directory, &entry, &found), EBADF);
    closedir(directory);
  });
  EXPECT_THAT(calls.log(), ElementsAre("opendir(\"/\") = pointer", "readdir_r(\"/\") = EBADF", "closedir(\"/\") = 0"));
}
#pragma GCC diagnostic pop

TEST_F(Interpose, FakesTheInterfaceList) {
  Calls calls;
  calls.fake_interfaces({{"lo", "127.0.0.1", IFF_UP | IFF_LOOPBACK},
                         {"a-name-of-16-byt", "10.1.2.3", IFF_UP},
                         {"gone", "10.1.2.4", 0, EADDRNOTAVAIL}});
  char buffer[2560];
  std::memset(buffer, 0, sizeof buffer);
  struct ifconf list;
  list.ifc_len = sizeof buffer;
  list.ifc_buf = buffer;
  struct ifreq records[3];
  int results[3];
  calls.during([&] {
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ioctl(fd, SIOCGIFCONF, &list);
    for (int i = 0; i < 3; ++i) {
      std::memcpy(&records[i], buffer + i * static_cast<int>(sizeof(struct ifreq)), sizeof(struct ifreq));
      results[i] = ioctl(fd, SIOCGIFFLAGS, &records[i]);
    }
    close(fd);
  });
  EXPECT_EQ(list.ifc_len, 3 * 40);
  EXPECT_EQ(records[0].ifr_flags, IFF_UP | IFF_LOOPBACK);
  EXPECT_EQ(records[1].ifr_flags, IFF_UP);
  EXPECT_THAT(results, ElementsAre(0, 0, -1));
  struct sockaddr_in address;
  std::memcpy(&address, buffer + 40 + 16, sizeof address);
  EXPECT_EQ(address.sin_addr.s_addr, inet_addr("10.1.2.3"));
  EXPECT_THAT(calls.log_of({"socket", "ioctl"}),
              ElementsAre("socket(2, 0x2, 0) = fd1", "ioctl(fd1, SIOCGIFCONF, 2560) = 0",
                          "ioctl(fd1, SIOCGIFFLAGS, \"lo\") = 0", "ioctl(fd1, SIOCGIFFLAGS, \"a-name-of-16-byt\") = 0",
                          "ioctl(fd1, SIOCGIFFLAGS, \"gone\") = -1 EADDRNOTAVAIL"));
}

TEST_F(Interpose, TheInterfaceListMayLieAboutItsLength) {
  Calls calls;
  calls.fake_interfaces({{"lo", "127.0.0.1", IFF_UP}}, 4000);
  char buffer[80];
  struct ifconf list;
  list.ifc_len = sizeof buffer;
  list.ifc_buf = buffer;
  calls.during([&] { ioctl(0, SIOCGIFCONF, &list); });
  EXPECT_EQ(list.ifc_len, 4000);
}

TEST_F(Interpose, FakesPrivilegeAndLimitsAndProcessIds) {
  Calls calls;
  calls.fake_auxval(AT_SECURE, 1);
  calls.fake_rlimit(RLIMIT_FSIZE, 100, 200);
  calls.return_all("getpid", 4711);
  struct rlimit limit;
  calls.during([&] {
    EXPECT_EQ(getauxval(AT_SECURE), 1u);
    EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(getpid(), 4711);
  });
  EXPECT_EQ(limit.rlim_cur, 100u);
  EXPECT_EQ(limit.rlim_max, 200u);
}

TEST_F(Interpose, RecordsTheSystemLogWithoutSending) {
  Calls calls;
  calls.during([] {
    openlog("service", LOG_PID | LOG_NDELAY, LOG_DAEMON);
    syslog(LOG_ERR, "%s and %d", "text", 5);
    closelog();
  });
  EXPECT_THAT(calls.log(), ElementsAre("openlog(\"service\", 0x9, 24) = 0",
                                       "syslog(3, \"%s and %d\", \"text and 5\") = 0", "closelog() = 0"));
  EXPECT_EQ(calls.calls()[1].data, "text and 5");
}

TEST_F(Interpose, RecordsTheEnvironment) {
  static char assignment[] = "QX_INTERPOSE_TEST=a\001b";
  Calls calls;
  calls.during([] {
    putenv(assignment);
    getenv("QX_INTERPOSE_TEST");
    getenv("QX_INTERPOSE_MISSING");
  });
  EXPECT_THAT(calls.log(),
              ElementsAre("putenv(\"QX_INTERPOSE_TEST=a\\x01b\") = 0", "getenv(\"QX_INTERPOSE_TEST\") = \"a\\x01b\"",
                          "getenv(\"QX_INTERPOSE_MISSING\") = null"));
  unsetenv("QX_INTERPOSE_TEST");
}

TEST_F(Interpose, FailsAnAllocation) {
  Calls calls;
  calls.fail_nth("malloc", 2, ENOMEM);
  void *volatile first = nullptr;
  void *volatile second = nullptr;
  void *volatile third = nullptr;
  calls.during([&] {
    first = std::malloc(10);
    second = std::malloc(10);
    third = std::calloc(1, 10);
  });
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_NE(third, nullptr);
  EXPECT_EQ(calls.count("allocation"), 3);
  EXPECT_THAT(calls.log(), IsEmpty());
  std::free(first);
  std::free(third);
}

TEST_F(Interpose, TellsWhichBlocksWereNotReleased) {
  Calls calls;
  void *volatile kept = nullptr;
  void *volatile grown = nullptr;
  calls.during([&] {
    kept = std::calloc(3, 5);
    void *volatile released = std::malloc(20);
    grown = std::malloc(30);
    grown = std::realloc(grown, 3000);
    std::free(released);
  });
  EXPECT_THAT(calls.unreleased(), testing::ElementsAre(15, 3000));
  std::free(kept);
  std::free(grown);
  EXPECT_EQ(calls.unreleased().size(), 2U) << "a release outside of the recording counted";
  calls.clear();
  EXPECT_THAT(calls.unreleased(), IsEmpty());
}

TEST_F(Interpose, LeavesIgnoredCallsAlone) {
  Calls calls;
  calls.ignore("getpid");
  calls.ignore_path(path_);
  calls.fail_all("write", ENOSPC);
  calls.allow_unused();
  calls.during([&] {
    getpid();
    int fd = open(path_.c_str(), O_RDWR | O_CREAT, 0600);
    EXPECT_EQ(write(fd, "a", 1), 1);
    close(fd);
  });
  EXPECT_THAT(calls.log(), IsEmpty());
}

}  // namespace
