// The node's address in real networks, each in a namespace of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "addresses/interfaces.h"
#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/sandbox.h"

namespace {

using interfaces::slots;

struct Network {
  const char *what;
  std::vector<std::string> commands;
  const char *chosen, *encoded;
  std::vector<std::string> listed;
};

const Network kNetworks[] = {
    {"no interface with an address", {}, "", "......................../", {}},
    {"the loopback only", sandbox::network::loopback_up(), "127.0.0.1", "z/../....................", {"127.0.0.1"}},
    {"the loopback only, down",
     sandbox::network::loopback_down(),
     "127.0.0.1",
     "z/../....................",
     {"127.0.0.1"}},
    {"two addresses of the loopback: the second",
     sandbox::network::two_loopback_addresses(),
     "127.0.0.2",
     "z/..0....................",
     {"127.0.0.1", "127.0.0.2"}},
    {"an interface that is down behind the loopback",
     sandbox::network::veth_down_behind_loopback("192.168.1.10"),
     "192.168.1.10",
     ".XO.8....................",
     {"127.0.0.1", "192.168.1.10"}},
    {"one that is down before one that is up, and a loopback without an address",
     sandbox::network::veth_down_then_up("192.168.1.10", "10.0.0.1"),
     "192.168.1.10",
     ".XO.8....................",
     {"192.168.1.10", "10.0.0.1"}},
};

TEST(AddressOfARealNetwork, IsChosenListedAndEncoded) {
  for (const Network &network : kNetworks) {
    SCOPED_TRACE(network.what);
    sandbox::Options options;
    options.network = true;
    options.ip = network.commands;
    RUN_IN_SANDBOX(options, [&] {
      EdgeBuffer address(VK_ADDRESS_SLOT);
      unsigned count = 7;
      EXPECT_EQ(vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, &count), 0);
      EXPECT_STREQ(address.chars(), network.chosen);
      EXPECT_EQ(count, 1u);

      EdgeBuffer list((VK_ADDRESS_MAX + 1) * VK_ADDRESS_SLOT);
      list.fill('\0');
      count = 0;
      EXPECT_EQ(vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count), 0);
      EXPECT_EQ(count, network.listed.size());
      EXPECT_EQ(list.bytes(), slots(network.listed, VK_ADDRESS_MAX + 1));

      EdgeBuffer encoded(25), type(1);
      EXPECT_EQ(vk_get_ipaddr(0, nullptr, encoded.chars(), type.chars()), 0);
      EXPECT_EQ(encoded.chars() + type.bytes(), network.encoded);
    });
  }
}

// Seventy addresses on one interface: the kernel's list has room for 64.
TEST(AddressOfARealNetwork, IsOneOfSixtyFourWhereThereAreMore) {
  sandbox::Options options;
  options.network = true;
  options.ip = {"link set lo up"};
  for (int i = 2; i <= 70; ++i) options.ip.push_back("addr add 127.0.0." + std::to_string(i) + "/8 dev lo");
  RUN_IN_SANDBOX(options, [] {
    EdgeBuffer list((VK_ADDRESS_MAX + 1) * VK_ADDRESS_SLOT);
    list.fill('\0');
    unsigned count = 0;
    EXPECT_EQ(vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count), 0);
    EXPECT_EQ(count, 64u);
    EXPECT_STREQ(list.chars() + 63 * VK_ADDRESS_SLOT, "127.0.0.64");
    EXPECT_EQ(list.bytes().substr(64 * VK_ADDRESS_SLOT), slots({}, 1));
  });
}

// The trace of a real interface: names, flags and properties as the kernel has them.
TEST(AddressOfARealNetwork, HasAnInterfaceNameOfFifteenCharacters) {
  sandbox::Options options;
  options.network = true;
  options.ip = {"link add abcdefghijklmno type veth peer name other", "addr add 10.0.0.1/24 dev abcdefghijklmno"};
  RUN_IN_SANDBOX(options, [] {
    platform::Calls calls;
    EdgeBuffer address(VK_ADDRESS_SLOT);
    EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, nullptr); }), 0);
    EXPECT_STREQ(address.chars(), "10.0.0.1");
    EXPECT_THAT(calls.log_of({"ioctl"}), testing::Contains("ioctl(fd1, SIOCGIFFLAGS, \"abcdefghijklmno\") = 0"));
  });
}

}  // namespace
