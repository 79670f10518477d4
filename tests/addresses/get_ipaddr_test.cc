// The node's address in 24 characters and a type.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "addresses/interfaces.h"
#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"

namespace {

using interfaces::loopback;
using interfaces::up;
using platform::Calls;

constexpr const char *kRoutine = "vk_get_ipaddr";

const std::string kDiscovered = trace_entry("vk_obtain_ipaddrs", "Returning VOSK_SUCCESS(0) to the caller");

std::string adapter(const std::string &text) {
  return trace_entry("vk_obtain_ipaddrs", "Adapt Info: " + text);
}

TEST(EncodedAddress, HasTwentyFourCharactersAndAType) {
  const struct {
    const char *address, *digits;
  } rows[] = {
      {"127.0.0.1", "z/../."}, {"192.168.1.10", ".XO.8."}, {"10.0.0.1", "8.../."},  {"255.255.255.255", "zzzzz1"},
      {"0.0.0.0", "......"},   {"1.0.0.0", "/....."},      {"0.0.0.128", ".....0"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.address);
    const std::string encoded = std::string(row.digits) + "..................";
    EdgeBuffer address(25), type(1);
    expect_result_and_trace(
        [&](int on, const char *path) {
          address.fill(EdgeBuffer::kUntouched);
          type.fill(EdgeBuffer::kUntouched);
          Calls calls;
          calls.fake_interfaces({up("eth0", row.address)});
          const int result = calls.during([&] { return vk_get_ipaddr(on, path, address.chars(), type.chars()); });
          interfaces::close_left_open(calls);
          return result;
        },
        0,
        {adapter(std::string("eth0 00000001 address=") + row.address + " AF_INET IFF_UP  "), kDiscovered,
         trace_entry(kRoutine, std::string("Obtained IP address ") + row.address + " for this node, encoded as " +
                                   encoded + "\n")});
    EXPECT_EQ(address.bytes(), encoded + '\0');
    EXPECT_EQ(type.bytes(), ".");
  }
}

TEST(EncodedAddress, OfALoneLoopbackIsTheLoopbacks) {
  EdgeBuffer address(25), type(1);
  Calls calls;
  calls.fake_interfaces({loopback("127.0.0.1")});
  EXPECT_EQ(calls.during([&] { return vk_get_ipaddr(0, nullptr, address.chars(), type.chars()); }), 0);
  EXPECT_STREQ(address.chars(), "z/../...................");
  EXPECT_EQ(type.bytes(), ".");
  interfaces::close_left_open(calls);
}

// Without an IPv4 interface there is the empty text, which counts as IPv6.
TEST(EncodedAddress, OfANodeWithoutOneIsDotsOfTypeIpv6) {
  EdgeBuffer address(25), type(1);
  expect_result_and_trace(
      [&](int on, const char *path) {
        Calls calls;
        calls.fake_interfaces({interfaces::of_family(AF_INET6, "eth0")});
        const int result = calls.during([&] { return vk_get_ipaddr(on, path, address.chars(), type.chars()); });
        interfaces::close_left_open(calls);
        return result;
      },
      0,
      {kDiscovered,
       trace_entry(kRoutine, "Obtained IP address  for this node, encoded as ........................\n")});
  EXPECT_EQ(address.bytes(), std::string(24, '.') + '\0');
  EXPECT_EQ(type.bytes(), "/");
}

TEST(EncodedAddress, IsRefusedInTheOrderAddressTypeBeforeAnythingIsAsked) {
  EdgeBuffer address(25), type(1);
  const struct {
    char *address, *type;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, "Parameter ip_addr is set to NULL\nReturning VOSK_INV_PARAM3(-4) to caller"},
      {nullptr, type.chars(), -4, "Parameter ip_addr is set to NULL\nReturning VOSK_INV_PARAM3(-4) to caller"},
      {address.chars(), nullptr, -5, "Parameter ipv6_flag is set to NULL\nReturning VOSK_INV_PARAM4(-5) to caller"},
  };
  for (const auto &row : rows) {
    const auto call = [&](int on, const char *path) { return vk_get_ipaddr(on, path, row.address, row.type); };
    expect_result_and_trace(call, row.code, {trace_entry(kRoutine, row.text)});
    Calls calls;
    calls.during([&] { return call(0, nullptr); });
    EXPECT_EQ(calls.count_all(), 0);
  }
  EXPECT_TRUE(address.untouched());
  EXPECT_TRUE(type.untouched());
}

// This one entry is asked for whatever the trace switch says.
TEST(EncodedAddress, CannotBeHadWithoutAdaptersAndSaysSoEvenWithoutTrace) {
  const std::string always = trace_entry(kRoutine, "Unable to query any net adapters - return VOSK_FAILURE(-1)");
  const std::string traced =
      trace_entry("vk_obtain_ipaddrs", "Cannot create socket - error code 24\nReturning VOSK_FAILURE(-1) to caller");
  ScratchTrace trace;
  EdgeBuffer address(25), type(1);
  const auto fail = [&](int on, const char *path) {
    Calls calls;
    calls.fail_nth("socket", 1, EMFILE);
    return calls.during([&] { return vk_get_ipaddr(on, path, address.chars(), type.chars()); });
  };
  EXPECT_EQ(fail(1, trace.path()), -1);
  EXPECT_THAT(trace.entries(), testing::ElementsAre(traced, always));
  for (int off : {0, 2, -1}) {
    trace.clear();
    EXPECT_EQ(fail(off, trace.path()), -1);
    EXPECT_THAT(trace.entries(), testing::ElementsAre(always));
  }
  EXPECT_EQ(fail(0, nullptr), -1);
  EXPECT_EQ(fail(0, ""), -1);
  EXPECT_EQ(fail(0, "/nowhere/trace"), -1);
  EXPECT_TRUE(address.untouched());
  EXPECT_TRUE(type.untouched());
}

TEST(EncodedAddress, DecodesToTheSameFourBytes) {
  std::mt19937 random(20231114);
  for (int round = 0; round < 500; ++round) {
    unsigned char bytes[4];
    std::string text;
    for (unsigned char &byte : bytes) {
      byte = static_cast<unsigned char>(random());
      text += (text.empty() ? "" : ".") + std::to_string(byte);
    }
    char encoded[25], type;
    Calls calls;
    calls.fake_interfaces({up("eth0", text)});
    ASSERT_EQ(calls.during([&] { return vk_get_ipaddr(0, nullptr, encoded, &type); }), 0);
    interfaces::close_left_open(calls);
    ASSERT_EQ(std::strlen(encoded), 24u);
    ASSERT_EQ(std::string(encoded + 6), std::string(18, '.'));
    EdgeBuffer address(4);
    ASSERT_EQ(vk_conv_ipaddr(0, nullptr, encoded, type, address.chars()), 0);
    ASSERT_EQ(std::memcmp(address.chars(), bytes, 4), 0) << text;
  }
}

}  // namespace
