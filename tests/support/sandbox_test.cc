#include "support/sandbox.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>

namespace {

using sandbox::Options;
using sandbox::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Sandbox, HasTheDirectoriesAndLeavesTheMachineAlone) {
  std::vector<std::string> before = files::list("/var");
  RUN_IN_SANDBOX(Options(), [&] {
    EXPECT_THAT(files::list(sandbox::kRoot), ElementsAre("dumps", "stacks"));
    EXPECT_THAT(files::list(sandbox::kStacks), IsEmpty());
    EXPECT_TRUE(files::write(std::string(sandbox::kStacks) + "/made", "x"));
    for (const std::string &name : before) EXPECT_TRUE(files::exists("/var/" + name)) << name;
    EXPECT_FALSE(files::list("/var/lib").empty());  // what was in the old entries is still to be seen
  });
  EXPECT_EQ(files::list("/var"), before);
}

TEST(Sandbox, CarriesFailuresSkipsAndDeathsToTheParent) {
  Outcome failed = sandbox::run(Options(), [] { EXPECT_EQ(1, 2) << "marked text"; });
  if (failed.kind == Outcome::kRefused) CANNOT_RUN_HERE(failed.text);
  EXPECT_EQ(failed.kind, Outcome::kFailed);
  EXPECT_THAT(failed.text, HasSubstr("marked text"));
  Outcome skipped = sandbox::run(Options(), [] { GTEST_SKIP() << "no reason"; });
  EXPECT_EQ(skipped.kind, Outcome::kSkipped);
  Outcome killed = sandbox::run(Options(), [] { raise(SIGKILL); });
  EXPECT_EQ(killed.kind, Outcome::kFailed);
  EXPECT_THAT(killed.text, HasSubstr("signal"));
  Options brief;
  brief.timeout = 1;
  Outcome late = sandbox::run(brief, [] { pause(); });
  EXPECT_EQ(late.kind, Outcome::kFailed);
  EXPECT_THAT(late.text, HasSubstr("did not end"));
  EXPECT_EQ(sandbox::run(Options(), [] {}).kind, Outcome::kPassed);
}

TEST(Sandbox, AnEarlierFailureIsNotTheChilds) {
  EXPECT_NONFATAL_FAILURE(ADD_FAILURE() << "expected", "expected");
  EXPECT_EQ(sandbox::run_child([] {}).kind, Outcome::kPassed);
}

TEST(Sandbox, HasTheSizeThatWasAskedForAndFillsUp) {
  Options options;
  options.size = "256k";
  RUN_IN_SANDBOX(options, [] {
    struct statfs figures;
    ASSERT_EQ(statfs(sandbox::kStacks, &figures), 0);
    EXPECT_EQ(figures.f_blocks * static_cast<unsigned long>(figures.f_bsize), 262144u);
    ASSERT_TRUE(sandbox::fill(3));
    ASSERT_EQ(statfs(sandbox::kStacks, &figures), 0);
    EXPECT_EQ(figures.f_bavail, 3u);
    EXPECT_FALSE(files::write(std::string(sandbox::kStacks) + "/file", std::string(20000, 'x')));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_TRUE(sandbox::remove_filling());
  });
}

TEST(Sandbox, HasTheNumberOfFilesThatWasAskedFor) {
  Options options;
  options.inodes = "4";  // its root and the two directories take three
  RUN_IN_SANDBOX(options, [] {
    EXPECT_TRUE(files::write(std::string(sandbox::kStacks) + "/one", ""));
    EXPECT_FALSE(files::write(std::string(sandbox::kStacks) + "/two", ""));
    EXPECT_EQ(errno, ENOSPC);
  });
}

TEST(Sandbox, MayBeReadOnlyOrWithoutDirectories) {
  Options options;
  options.read_only = true;
  RUN_IN_SANDBOX(options, [] {
    EXPECT_FALSE(files::write(std::string(sandbox::kStacks) + "/file", ""));
    EXPECT_EQ(errno, EROFS);
    EXPECT_TRUE(sandbox::remount(false));
    EXPECT_TRUE(files::write(std::string(sandbox::kStacks) + "/file", ""));
  });
  Options bare;
  bare.directories = false;
  RUN_IN_SANDBOX(bare, [] { EXPECT_THAT(files::list(sandbox::kRoot), IsEmpty()); });
}

TEST(Sandbox, MayRunAsAnotherUser) {
  Options options;
  options.user = sandbox::kNobody;
  options.directory_mode = 0755;
  RUN_IN_SANDBOX(options, [] {
    EXPECT_EQ(geteuid(), sandbox::kNobody);
    EXPECT_FALSE(files::write(std::string(sandbox::kStacks) + "/file", ""));
    EXPECT_EQ(errno, EACCES);
  });
}

// The addresses in the kernel's order, each with a mark for its flags.
std::vector<std::string> addresses() {
  std::vector<std::string> found;
  char buffer[2560];
  struct ifconf list;
  list.ifc_len = sizeof buffer;
  list.ifc_buf = buffer;
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (ioctl(fd, SIOCGIFCONF, &list) != 0) found.push_back("failed");
  for (int i = 0; i < list.ifc_len / static_cast<int>(sizeof(struct ifreq)); ++i) {
    struct ifreq record = list.ifc_req[i];
    struct sockaddr_in address;
    memcpy(&address, &record.ifr_addr, sizeof address);
    ioctl(fd, SIOCGIFFLAGS, &record);
    found.push_back(std::string(inet_ntoa(address.sin_addr)) + ((record.ifr_flags & IFF_UP) != 0 ? " up" : " down") +
                    ((record.ifr_flags & IFF_LOOPBACK) != 0 ? " loopback" : ""));
  }
  close(fd);
  return found;
}

TEST(Sandbox, HasTheNetworkThatWasAskedFor) {
  const struct {
    const char *name;
    std::vector<std::string> commands;
    std::vector<std::string> expected;
  } rows[] = {
      {"none", {}, {}},
      {"loopback down", sandbox::network::loopback_down(), {"127.0.0.1 down loopback"}},
      {"loopback up", sandbox::network::loopback_up(), {"127.0.0.1 up loopback"}},
      {"two loopback addresses",
       sandbox::network::two_loopback_addresses(),
       {"127.0.0.1 up loopback", "127.0.0.2 up loopback"}},
      {"a veth that is down behind the loopback",
       sandbox::network::veth_down_behind_loopback("10.9.8.7"),
       {"127.0.0.1 up loopback", "10.9.8.7 down"}},
      {"one down, one up, no loopback address",
       sandbox::network::veth_down_then_up("10.1.1.1", "10.2.2.2"),
       {"10.1.1.1 down", "10.2.2.2 up"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    Options options;
    options.network = true;
    options.ip = row.commands;
    RUN_IN_SANDBOX(options, [&] { EXPECT_EQ(addresses(), row.expected); });
  }
}

TEST(Sandbox, AWrongNetworkCommandIsRefusedWithItsText) {
  Options options;
  options.network = true;
  options.ip = {"link add nonsense type nothing"};
  Outcome plain = sandbox::run(Options(), [] {});
  if (plain.kind == Outcome::kRefused) CANNOT_RUN_HERE(plain.text);
  Outcome outcome = sandbox::run(options, [] {});
  EXPECT_EQ(outcome.kind, Outcome::kRefused);
  EXPECT_THAT(outcome.text, HasSubstr("iproute2"));
}

}  // namespace
