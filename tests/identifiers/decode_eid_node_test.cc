// Whether an identifier was made on this node, with faked, failing and real interface lists and a real directory.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "identifiers/decoding.h"
#include "qx_vosk.h"
#include "support/sandbox.h"
#include "support/scratch_trace.h"

namespace {

using decoding::eid;
using decoding::Outputs;
using decoding::slot;
using platform::Calls;

constexpr std::string_view kAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// The encoded form of 10.0.0.1 to 10.0.0.70: the last byte is the most significant.
std::string address_of(unsigned last) {
  const std::uint32_t number = 10 | last << 24;
  std::string text;
  for (unsigned i = 0; i < 6; ++i) text += kAlphabet[number >> (6 * i) & 63];
  return text + "...................";
}

std::vector<platform::FakeInterface> many(unsigned count) {
  std::vector<platform::FakeInterface> list;
  for (unsigned i = 1; i <= count; ++i) {
    platform::FakeInterface interface;
    interface.name = "eth" + std::to_string(i);
    interface.address = "10.0.0." + std::to_string(i);
    list.push_back(interface);
  }
  return list;
}

unsigned on_node(Calls &calls, const std::string &identifier, int version = 2) {
  Outputs outputs;
  EXPECT_EQ(calls.during([&] { return outputs.decode(version, 0, nullptr, identifier.c_str()); }), 0);
  decoding::close_left_open(calls);
  return outputs.values().on_node;
}

TEST(NodeTest, SeesSixtyFourAddressesAndNoMore) {
  const struct {
    unsigned present, last, on_node;
  } rows[] = {{1, 1, 1},   {1, 2, 0},   {19, 19, 1}, {20, 20, 1}, {20, 21, 0}, {21, 21, 1}, {63, 63, 1},
              {63, 64, 0}, {64, 64, 1}, {64, 1, 1},  {64, 65, 0}, {70, 64, 1}, {70, 65, 0}, {70, 70, 0}};
  EXPECT_EQ(address_of(1), "8.../....................");
  for (const auto &row : rows) {
    for (int version : {1, 2}) {
      SCOPED_TRACE(std::to_string(row.last) + " of " + std::to_string(row.present));
      Calls calls;
      calls.fake_interfaces(many(row.present));
      EXPECT_EQ(on_node(calls, eid(".sN3BG.", decoding::kTime, address_of(row.last)), version), row.on_node);
    }
  }
}

TEST(NodeTest, FindsAnAddressWhateverItsInterface) {
  const struct {
    const char *what;
    int flags;
  } rows[] = {{"down", 0}, {"up", IFF_UP}, {"loopback", IFF_UP | IFF_LOOPBACK}, {"loopback, down", IFF_LOOPBACK}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Calls calls;
    std::vector<platform::FakeInterface> list = many(2);
    list[1].flags = row.flags;
    calls.fake_interfaces(list);
    EXPECT_EQ(on_node(calls, eid("6sN3BG.", decoding::kTime, address_of(2))), 1u);
  }
}

TEST(NodeTest, IsMadeForEveryLocation) {
  for (const char *start : {"6sN3BG.", "75Oh2..", "822....", ".sN3BG.", "/5Oh2..", "022...."}) {
    SCOPED_TRACE(start);
    Calls calls;
    decoding::on_a_node_with(calls, {"192.168.1.10"});
    calls.fake_directory({{"s.1", 1234567}});
    EXPECT_EQ(on_node(calls, eid(start)), 1u);
  }
}

// The discovery's own result is not looked at: what it found before it failed counts.
TEST(NodeTest, MakesTheBestOfAFailedDiscovery) {
  const std::string identifier = eid("6sN3BG.", decoding::kTime, address_of(1));
  {
    Calls calls;
    calls.fail_nth("socket", 1, EMFILE);
    EXPECT_EQ(on_node(calls, identifier), 0u);
  }
  {
    Calls calls;
    calls.fail_nth("ioctl", 1, ENOMEM);
    EXPECT_EQ(on_node(calls, identifier), 0u);
  }
  std::vector<platform::FakeInterface> list = many(3);
  list[1].flags_error = ENODEV;
  Calls calls;
  calls.fake_interfaces(list);
  EXPECT_EQ(on_node(calls, identifier), 1u);
  Calls behind;
  behind.fake_interfaces(list);
  EXPECT_EQ(on_node(behind, eid("6sN3BG.", decoding::kTime, address_of(3))), 0u);
}

TEST(NodeTest, KnowsNoNodeByAnIpv6AddressNorByNone) {
  const std::string encoded[] = {
      decoding::kAddressIpv6, std::string(24, '.') + "/",  // what a node without an address puts there
      ".XO.8.................../",                         // an IPv4 address under the wrong type: c0a8:10a::
      "..............kzz1.XO.8./",                         // ::ffff:192.168.1.10
  };
  for (const std::string &address : encoded) {
    SCOPED_TRACE(address);
    Calls calls;
    decoding::on_a_node_with(calls, {"192.168.1.10"});
    EXPECT_EQ(on_node(calls, eid("6sN3BG.", decoding::kTime, address)), 0u);
  }
}

TEST(NodeTest, FailsOnANodeWithoutAddresses) {
  Calls calls;
  calls.fake_interfaces({});
  EXPECT_EQ(on_node(calls, eid("6sN3BG.")), 0u);
}

// --- The real thing ---

std::string made_for(const std::string &path, int version) {
  std::int64_t seconds = 0;
  vk_eid_t made = {};
  EXPECT_EQ(version == 1 ? vk_generate_eid(0, nullptr, path.c_str(), 0, &seconds, made)
                         : vk_generate_eid_2(0, nullptr, path.c_str(), 0, ~0u, ~0u, &seconds, made),
            0);
  return made;
}

TEST(Decoding, OfARealIdentifierFindsItsFileOnItsNodeOnly) {
  sandbox::Options here;
  here.network = true;
  here.ip = sandbox::network::veth_down_behind_loopback("192.168.1.10");
  RUN_IN_SANDBOX(here, [] {
    char encoded[26] = {};
    ASSERT_EQ(vk_get_ipaddr(0, nullptr, encoded, encoded + 24), 0);
    ASSERT_STREQ(encoded, decoding::kAddress);
    platform::Environment environment;
    environment.set("VOSKADDR", encoded);
    const std::string path = std::string(sandbox::kStacks) + "/stack.of.a.test";
    ASSERT_TRUE(files::write(path, ""));
    ASSERT_TRUE(files::write(std::string(sandbox::kStacks) + "/another", ""));
    for (int version : {1, 2}) {
      const std::string identifier = made_for(path, version);
      Outputs outputs;
      EXPECT_EQ(outputs.decode(version, 0, nullptr, identifier.c_str()), 0);
      EXPECT_EQ(outputs.values().on_node, 1u);
      EXPECT_EQ(outputs.values().names, slot("stack.of.a.test"));
      EXPECT_EQ(outputs.values().address.substr(0, 4), decoding::kAddressBytes);

      // The same identifier from 192.168.1.11.
      std::string foreign = identifier;
      foreign.replace(17, 6, ".XO.9.");
      Outputs others;
      EXPECT_EQ(others.decode(version, 0, nullptr, foreign.c_str()), 0);
      EXPECT_EQ(others.values().on_node, 0u);
      EXPECT_EQ(others.values().names, others.untouched().names);
    }
    const std::string identifier = made_for(path, 2);
    ASSERT_EQ(link(path.c_str(), (path + ".linked").c_str()), 0);
    Outputs both(2);
    EXPECT_EQ(both.decode(2, 0, nullptr, identifier.c_str()), 0);
    const std::string names = both.values().names;
    EXPECT_TRUE(names == slot("stack.of.a.test") + slot("stack.of.a.test.linked") ||
                names == slot("stack.of.a.test.linked") + slot("stack.of.a.test"));

    ASSERT_EQ(unlink(path.c_str()), 0);
    ASSERT_EQ(unlink((path + ".linked").c_str()), 0);
    Outputs gone;
    EXPECT_EQ(gone.decode(2, 0, nullptr, identifier.c_str()), -24);
    EXPECT_EQ(gone.values().on_node, 1u);
    EXPECT_EQ(gone.values().version, 2u);
    EXPECT_EQ(gone.values().location, 1u);
    EXPECT_EQ(gone.values().ipv6, 0u);
    EXPECT_EQ(gone.values().names, gone.untouched().names);

    ASSERT_EQ(rename(sandbox::kStacks, (std::string(sandbox::kRoot) + "/elsewhere").c_str()), 0);
    Outputs nowhere;
    EXPECT_EQ(nowhere.decode(2, 0, nullptr, identifier.c_str()), -14);
  });
}

TEST(Decoding, OfARealIdentifierMayNotBeAllowedToLook) {
  sandbox::Options here;
  here.network = true;
  here.ip = sandbox::network::loopback_up();
  here.user = sandbox::kNobody;
  here.directory_mode = 0700;
  RUN_IN_SANDBOX(here, [] {
    Outputs outputs;
    EXPECT_EQ(outputs.decode(2, 0, nullptr, eid("75Oh2..", decoding::kTime, "z/../....................").c_str()), -13);
    EXPECT_EQ(outputs.values().on_node, 1u);
  });
}

TEST(Decoding, OfAnIdentifierFromANodeWithoutAnAddressIsOnNoNode) {
  sandbox::Options here;
  here.network = true;
  RUN_IN_SANDBOX(here, [] {
    char encoded[26] = {};
    ASSERT_EQ(vk_get_ipaddr(0, nullptr, encoded, encoded + 24), 0);
    Outputs outputs;
    EXPECT_EQ(outputs.decode(2, 0, nullptr, eid("75Oh2..", decoding::kTime, encoded).c_str()), 0);
    EXPECT_EQ(outputs.values().on_node, 0u);
    EXPECT_EQ(outputs.values().ipv6, 1u);
    EXPECT_EQ(outputs.values().address, std::string(16, '\0'));
  });
}

}  // namespace
