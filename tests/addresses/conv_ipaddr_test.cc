// Decoding an encoded address.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"

namespace {

constexpr const char *kRoutine = "vk_conv_ipaddr";

struct Encoded {
  const char *text, *digits, *traced;
};

TEST(AddressDecoder, GivesTheFourBytesOfAnIpv4Address) {
  const Encoded rows[] = {
      {"192.168.1.10", ".XO.8...................", "0xa01a8c0"},
      {"127.0.0.1", "z/../...................", "0x100007f"},
      {"255.255.255.255", "zzzzz1..................", "0xffffffff"},
      {"0.0.0.0", "........................", "0x0"},
      {"192.168.1.10", ".XO.8", "0xa01a8c0"},  // dots on the right add nothing
      {"192.168.1.10", ".XO.8............................................", "0xa01a8c0"},
      {"255.255.255.255", "zzzzzz..................", "0xffffffff"},  // the low 32 bits of 36
      {"192.168.1.10", ".XO.8.zzzzzzzzzzzzzzzzzz", "0xa01a8c0"},
  };
  for (const Encoded &row : rows) {
    SCOPED_TRACE(row.digits);
    EdgeText digits(row.digits);
    EdgeBuffer address(4);
    expect_result_and_trace(
        [&](int on, const char *path) { return vk_conv_ipaddr(on, path, digits.chars(), '.', address.chars()); }, 0,
        {trace_entry(kRoutine,
                     std::string("IP Address representation ") + row.digits + " converted to " + row.traced)});
    unsigned char expected[4];
    ASSERT_EQ(inet_pton(AF_INET, row.text, expected), 1);
    EXPECT_EQ(std::memcmp(address.chars(), expected, 4), 0);
  }
}

// The trace has the first word only and the letters of the others.
TEST(AddressDecoder, GivesTheSixteenBytesOfAnIpv6Address) {
  const Encoded rows[] = {
      {"2001:db8::1", "U2E1s0................/.", "0xb80d0120lxlxlx"},
      {"::1", "....................../.", "0x0lxlxlx"},
      {"::", "........................", "0x0lxlxlx"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "zzzzz1zzzzz1zzzzz1zzzzz1", "0xfffffffflxlxlx"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", "zzzzzzzzzzzzzzzzzzzzzzzz", "0xfffffffflxlxlx"},
      {"100::200:0:300:0:400:0", "/.....0.....1.....2.....", "0x1lxlxlx"},
      // A text that ends early has the digit 0 in every missing place.
      {"100::", "/", "0x1lxlxlx"},
      {"100::200:0:0:0:0:0", "/.....0", "0x1lxlxlx"},
      {"100::200:0:300:0:400:0", "/.....0.....1.....2", "0x1lxlxlx"},
      // What stands behind the 24th character is not read.
      {"2001:db8::1", "U2E1s0................/.zzzz", "0xb80d0120lxlxlx"},
  };
  for (const Encoded &row : rows) {
    SCOPED_TRACE(row.digits);
    EdgeText digits(row.digits);
    EdgeBuffer address(16);
    expect_result_and_trace(
        [&](int on, const char *path) { return vk_conv_ipaddr(on, path, digits.chars(), '/', address.chars()); }, 0,
        {trace_entry(kRoutine,
                     std::string("IP Address representation ") + row.digits + " converted to " + row.traced)});
    unsigned char expected[16];
    ASSERT_EQ(inet_pton(AF_INET6, row.text, expected), 1);
    EXPECT_EQ(std::memcmp(address.chars(), expected, 16), 0);
  }
}

TEST(AddressDecoder, RefusesNothingToDecodeBeforeTheType) {
  EdgeBuffer address(16);
  for (const char *nothing : {static_cast<const char *>(nullptr), ""}) {
    for (char type : {'.', '/', 'x'}) {
      expect_result_and_trace(
          [&](int on, const char *path) { return vk_conv_ipaddr(on, path, nothing, type, address.chars()); }, -4,
          {trace_entry(kRoutine,
                       "Invalid pointer or string provided for IP address - returning VOSK_INV_PARAM3(-4) to caller")});
    }
  }
  EXPECT_TRUE(address.untouched());
}

TEST(AddressDecoder, RefusesEveryOtherType) {
  EdgeBuffer address(16);
  for (int byte = 0; byte < 256; ++byte) {
    const char type = static_cast<char>(byte);
    if (type == '.' || type == '/') continue;
    EXPECT_EQ(vk_conv_ipaddr(0, nullptr, "U2E1s0................/.", type, address.chars()), -5) << byte;
  }
  expect_result_and_trace(
      [&](int on, const char *path) { return vk_conv_ipaddr(on, path, ".XO.8.", 'x', address.chars()); }, -5,
      {trace_entry(kRoutine, "Invalid IP address type provided: 'x' - returning VOSK_INV_PARAM4(-5) to caller")});
  expect_result_and_trace(
      [&](int on, const char *path) { return vk_conv_ipaddr(on, path, ".XO.8.", '%', address.chars()); }, -5,
      {trace_entry(kRoutine, "Invalid IP address type provided: '%' - returning VOSK_INV_PARAM4(-5) to caller")});
  EXPECT_TRUE(address.untouched());
}

}  // namespace
