// Finding the node's addresses: which one is chosen, which are listed, and with which calls.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "addresses/interfaces.h"
#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"

namespace {

using interfaces::down;
using interfaces::FakeInterface;
using interfaces::loopback;
using interfaces::loopback_down;
using interfaces::many;
using interfaces::of_family;
using interfaces::slot;
using interfaces::slots;
using interfaces::up;
using interfaces::vanished;
using platform::Calls;
using testing::ElementsAre;

constexpr const char *kRoutine = "vk_obtain_ipaddrs";
constexpr std::size_t kListSlots = VK_ADDRESS_MAX + 1;

struct Node {
  const char *what;
  std::vector<FakeInterface> list;
  const char *chosen;
  std::vector<std::string> listed;
};

const Node kNodes[] = {
    {"nothing", {}, "", {}},
    {"an up loopback", {loopback("127.0.0.1")}, "127.0.0.1", {"127.0.0.1"}},
    {"a loopback that is down", {loopback_down("127.0.0.1")}, "127.0.0.1", {"127.0.0.1"}},
    {"two up loopbacks: the second",
     {loopback("127.0.0.1"), loopback("127.0.0.2", "lo:1")},
     "127.0.0.2",
     {"127.0.0.1", "127.0.0.2"}},
    {"three up loopbacks: the second",
     {loopback("127.0.0.1"), loopback("127.0.0.2", "lo:1"), loopback("127.0.0.3", "lo:2")},
     "127.0.0.2",
     {"127.0.0.1", "127.0.0.2", "127.0.0.3"}},
    {"two up loopbacks before an interface: still the second loopback",
     {loopback("127.0.0.1"), loopback("127.0.0.2", "lo:1"), up("eth0", "10.0.0.1")},
     "127.0.0.2",
     {"127.0.0.1", "127.0.0.2", "10.0.0.1"}},
    {"a loopback that is down before one that is up",
     {loopback_down("127.0.0.1"), loopback("127.0.0.2", "lo:1")},
     "127.0.0.1",
     {"127.0.0.1", "127.0.0.2"}},
    {"a loopback that is down behind one that is up",
     {loopback("127.0.0.2", "lo:1"), loopback_down("127.0.0.1")},
     "127.0.0.1",
     {"127.0.0.2", "127.0.0.1"}},
    {"an interface behind the loopback",
     {loopback("127.0.0.1"), up("eth0", "192.168.1.10")},
     "192.168.1.10",
     {"127.0.0.1", "192.168.1.10"}},
    {"an interface that is down behind the loopback",
     {loopback("127.0.0.1"), down("eth0", "192.168.1.10")},
     "192.168.1.10",
     {"127.0.0.1", "192.168.1.10"}},
    {"one that is down before one that is up",
     {loopback("127.0.0.1"), down("eth0", "10.0.0.1"), up("eth1", "10.0.0.2")},
     "10.0.0.1",
     {"127.0.0.1", "10.0.0.1", "10.0.0.2"}},
    {"an interface before the loopback",
     {up("eth0", "10.0.0.1"), loopback("127.0.0.1")},
     "10.0.0.1",
     {"10.0.0.1", "127.0.0.1"}},
    {"the order of the list, not of the numbers",
     {up("eth9", "10.9.9.9"), up("eth0", "10.0.0.1")},
     "10.9.9.9",
     {"10.9.9.9", "10.0.0.1"}},
    {"other families are passed over",
     {of_family(AF_INET6, "eth0"), of_family(AF_PACKET, "eth1"), of_family(AF_UNSPEC, "eth2"), up("eth3", "10.0.0.3")},
     "10.0.0.3",
     {"10.0.0.3"}},
    {"nothing but other families", {of_family(AF_INET6, "eth0"), of_family(0xFFFF, "eth1")}, "", {}},
    {"an interface that has just gone",
     {vanished("eth0", EADDRNOTAVAIL), up("eth1", "10.0.0.2")},
     "10.0.0.2",
     {"10.0.0.2"}},
    {"nothing but what has gone", {vanished("eth0", EADDRNOTAVAIL), vanished("eth1", EADDRNOTAVAIL)}, "", {}},
    {"the ends of the range",
     {up("eth0", "255.255.255.255"), up("eth1", "0.0.0.0")},
     "255.255.255.255",
     {"255.255.255.255", "0.0.0.0"}},
};

TEST(AddressChoice, FollowsTheOrderOfTheList) {
  for (const Node &node : kNodes) {
    SCOPED_TRACE(node.what);
    for (unsigned choose_one : {1u, 2u, 0x80000000u, UINT_MAX}) {
      EdgeBuffer address(VK_ADDRESS_SLOT);
      address.fill('\0');
      unsigned count = 7;
      Calls calls;
      calls.fake_interfaces(node.list);
      EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), choose_one, &count); }), 0);
      EXPECT_EQ(address.bytes(), slot(node.chosen));
      EXPECT_EQ(count, 1u);  // even where there is none
      interfaces::close_left_open(calls);
    }
  }
}

TEST(AddressChoice, NeedsNoCountAndReplacesWhatWasThere) {
  EdgeBuffer address(VK_ADDRESS_SLOT);
  Calls calls;
  calls.fake_interfaces({});
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, nullptr); }), 0);
  EXPECT_EQ(address.chars()[0], '\0');
  interfaces::close_left_open(calls);
}

TEST(AddressList, HasEveryAddressInTheOrderOfTheList) {
  for (const Node &node : kNodes) {
    SCOPED_TRACE(node.what);
    EdgeBuffer list(node.listed.size() * VK_ADDRESS_SLOT + 1);  // whole slots, and a byte that stays zero
    list.fill('\0');
    unsigned count = 7;
    Calls calls;
    calls.fake_interfaces(node.list);
    EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count); }), 0);
    EXPECT_EQ(list.bytes(), slots(node.listed, node.listed.size()) + '\0');
    EXPECT_EQ(count, 7 + node.listed.size());  // counted on, not set
    interfaces::close_left_open(calls);
  }
}

TEST(AddressList, NeedsNoCount) {
  EdgeBuffer list(2 * VK_ADDRESS_SLOT);
  list.fill('\0');
  Calls calls;
  calls.fake_interfaces(many(2));
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, nullptr); }), 0);
  EXPECT_EQ(list.bytes(), slots({"10.0.0.1", "10.0.0.2"}, 2));
  interfaces::close_left_open(calls);
}

TEST(AddressList, HoldsSixtyFourAddressesOfSeventyAndAnEmptyLastSlot) {
  for (int present : {63, 64, 65, 70}) {
    SCOPED_TRACE(present);
    const int expected = std::min(present, 64);
    std::vector<std::string> texts;
    for (int i = 1; i <= expected; ++i) texts.push_back("10.0.0." + std::to_string(i));
    // The length may tell of all of them, but only the records that fit are there.
    for (std::optional<int> length : {std::optional<int>(), std::optional<int>(present * 40)}) {
      EdgeBuffer list(kListSlots * VK_ADDRESS_SLOT);
      list.fill('\0');
      unsigned count = 0;
      Calls calls;
      calls.fake_interfaces(many(present), length);
      EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count); }), 0);
      EXPECT_EQ(count, static_cast<unsigned>(expected));
      EXPECT_EQ(files::difference(slots(texts, kListSlots), list.bytes()), "");
      EXPECT_EQ(calls.count("ioctl"), 1 + expected);
      interfaces::close_left_open(calls);
    }
  }
}

TEST(AddressDiscovery, AsksForTheFlagsOfEveryRecordUpToTheChosenOne) {
  const std::vector<FakeInterface> list = {loopback("127.0.0.1"), of_family(AF_INET6, "six0"),
                                           vanished("gone0", EADDRNOTAVAIL), down("eth0", "10.0.0.1"),
                                           up("eth1", "10.0.0.2")};
  const std::vector<std::string> asked = {"socket(2, 0x2, 0) = fd1",
                                          "ioctl(fd1, SIOCGIFCONF, 2560) = 0",
                                          "ioctl(fd1, SIOCGIFFLAGS, \"lo\") = 0",
                                          "ioctl(fd1, SIOCGIFFLAGS, \"six0\") = 0",
                                          "ioctl(fd1, SIOCGIFFLAGS, \"gone0\") = -1 EADDRNOTAVAIL",
                                          "ioctl(fd1, SIOCGIFFLAGS, \"eth0\") = 0",
                                          "ioctl(fd1, SIOCGIFFLAGS, \"eth1\") = 0"};
  for (bool choose : {true, false}) {
    EdgeBuffer addresses(kListSlots * VK_ADDRESS_SLOT);
    addresses.fill('\0');
    Calls calls;
    calls.fake_interfaces(list);
    calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, addresses.chars(), choose ? 1 : 0, nullptr); });
    std::vector<std::string> expected = asked;
    if (choose) expected.pop_back();
    EXPECT_EQ(calls.log_of({"socket", "ioctl", "close"}), expected);
    interfaces::close_left_open(calls);
  }
}

TEST(AddressDiscovery, LeavesItsSocketOpenAndClosesItOnExec) {
  EdgeBuffer list(kListSlots * VK_ADDRESS_SLOT);
  for (unsigned choose_one : {0u, 1u}) {
    Calls calls;
    calls.fake_interfaces(many(3));
    EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), choose_one, nullptr); }), 0);
    ASSERT_EQ(calls.left_open().size(), 1u);
    const int fd = calls.left_open()[0].first;
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(calls.count("close"), 0);
    interfaces::close_left_open(calls);
  }
}

TEST(AddressDiscovery, LeavesOneRealSocketPerCall) {
  EdgeBuffer list(kListSlots * VK_ADDRESS_SLOT);
  list.fill('\0');
  const auto before = files::descriptors();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, nullptr), 0);
  const auto after = files::descriptors();
  EXPECT_EQ(after.size(), before.size() + 3);
  for (const auto &[fd, target] : after) {
    if (before.count(fd) != 0) continue;
    EXPECT_THAT(target, testing::StartsWith("socket:"));
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    close(fd);
  }
}

TEST(AddressDiscovery, TracesEveryInterfaceThatItLooksAt) {
  const std::string returning = trace_entry(kRoutine, "Returning VOSK_SUCCESS(0) to the caller");
  const auto adapter = [](const std::string &text) { return trace_entry(kRoutine, "Adapt Info: " + text); };
  const struct {
    std::vector<FakeInterface> list;
    unsigned choose_one;
    std::vector<std::string> entries;
  } rows[] = {
      {{}, 1, {returning}},
      {{}, 0, {returning}},
      {{loopback("127.0.0.1"), down("eth0", "10.0.0.1"), up("eth1", "10.0.0.2")},
       1,
       {adapter("lo 00000009 address=127.0.0.1 AF_INET IFF_UP IFF_LOOPBACK"),
        adapter("eth0 00000000 address=10.0.0.1 AF_INET    "), returning}},
      {{loopback("127.0.0.1"), down("eth0", "10.0.0.1"), up("eth1", "10.0.0.2"), loopback_down("127.0.0.2")},
       0,
       {adapter("lo 00000009 address=127.0.0.1 AF_INET IFF_UP IFF_LOOPBACK"),
        adapter("eth0 00000000 address=10.0.0.1 AF_INET    "),
        adapter("eth1 00000001 address=10.0.0.2 AF_INET IFF_UP  "),
        adapter("lo 00000009 address=127.0.0.2 AF_INET IFF_UP IFF_LOOPBACK"), returning}},
      {{of_family(AF_INET6, "six0"), vanished("gone0", EADDRNOTAVAIL)}, 0, {returning}},
      // All sixteen flags, without a sign; a name that fills its field.
      {{interfaces::one("abcdefghijklmnop", "10.0.0.1", 0xFFFE)},
       1,
       {adapter("abcdefghijklmnop 0000fffe address=10.0.0.1 AF_INET   IFF_LOOPBACK"), returning}},
  };
  for (const auto &row : rows) {
    EdgeBuffer addresses(kListSlots * VK_ADDRESS_SLOT);
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          calls.fake_interfaces(row.list);
          const int result =
              calls.during([&] { return vk_obtain_ipaddrs(on, path, addresses.chars(), row.choose_one, nullptr); });
          interfaces::close_left_open(calls);
          return result;
        },
        0, row.entries);
  }
}

}  // namespace
