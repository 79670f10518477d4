// Taking apart whatever comes: every byte in every place of an identifier, and identifiers of random bytes, against a
// model of the decoding that shares nothing with the library.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>

#include "identifiers/decoding.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using decoding::eid;
using decoding::Outputs;
using decoding::Values;
using platform::Calls;

constexpr std::string_view kAlphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

class Model {
 public:
  Model() {
    for (unsigned byte = 1; byte < 256; ++byte) {
      const std::size_t place = kAlphabet.find(static_cast<char>(byte));
      digit_[byte] = place != std::string_view::npos ? place : 64;  // outside of the alphabet
    }
  }

  // The node has no address, so no file is looked for.
  int decode(int version, const std::string &text, Values &out) const {
    if (text.find('\0') != std::string::npos) return -3;
    const std::uint64_t header = number(text, 0, 1);
    if (header / 8 > 1) return -99;
    out.version = header / 8 == 1 ? 2 : 1;
    if (header % 8 > 2) return -99;
    out.location = static_cast<unsigned>(header % 8);
    if (version == 1 && out.version == 2) return -99;
    const std::uint64_t seconds = number(text, 7, 6), microseconds = number(text, 13, 4);
    if (seconds == 0 || microseconds >= 1000000) {
      out.seconds = out.microseconds = 0;
      return -36;
    }
    out.seconds = static_cast<std::int64_t>(seconds);
    out.microseconds = static_cast<std::int64_t>(microseconds);
    const char type = text[41];
    if (type != '.' && type != '/') return -5;
    for (std::size_t word = 0; word < (type == '.' ? 1u : 4u); ++word) {
      // Of an IPv4 address all 24 digits are one number; those from the seventh on are beyond the 32 bits that count.
      const std::uint64_t value = number(text, 17 + 6 * word, 6);
      for (std::size_t byte = 0; byte < 4; ++byte) out.address[4 * word + byte] = static_cast<char>(value >> 8 * byte);
    }
    out.ipv6 = type == '/';
    out.on_node = 0;
    return location(version, text, out);
  }

 private:
  std::uint64_t number(const std::string &text, std::size_t at, std::size_t length) const {
    std::uint64_t value = 0;
    for (std::size_t i = length; i-- > 0;) value = value * 64 + digit(text[at + i]);
    return value;
  }
  std::uint64_t digit(char byte) const { return digit_[static_cast<unsigned char>(byte)]; }

  int location(int version, const std::string &text, Values &out) const {
    if (out.location == 0) {
      out.templ_id = static_cast<unsigned>(number(text, 1, 6));
      return out.templ_id == 0 ? -1 : 0;
    }
    if (out.location == 1) return 0;
    if (version == 1) return -1;
    if (text[1] == '.' || text[2] == '.' || text.substr(3, 4) != "....") return -4;
    const std::uint64_t facility = digit(text[1]), priority = digit(text[2]);
    if (facility < 1 || facility > 24 || priority < 1 || priority > 8) return -4;
    out.facility = static_cast<unsigned>(facility - 1) * 8;
    out.priority = static_cast<unsigned>(priority - 1);
    return 0;
  }

  std::uint64_t digit_[256] = {};
};

// Thousands of calls would use the descriptors up, so every call gets the same socket.
class HostileDecoding : public testing::Test {
 protected:
  void SetUp() override {
    fd_ = socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(fd_, 0);
    ASSERT_EQ(fcntl(fd_, F_SETFD, FD_CLOEXEC), 0);
  }
  void TearDown() override { close(fd_); }

  void compare(int version, const std::string &text) {
    identifier_.set(text);
    outputs_.reset();
    Values expected = outputs_.untouched();
    const int code = model_.decode(version, text, expected);
    Calls calls;
    calls.fake_interfaces({});
    calls.return_nth("socket", 0, fd_);
    calls.allow_unused();
    ASSERT_EQ(calls.during([&] { return outputs_.decode(version, 0, nullptr, identifier_.chars()); }), code)
        << "version " << version << " of " << testing::PrintToString(text);
    ASSERT_EQ(outputs_.values(), expected) << "version " << version << " of " << testing::PrintToString(text);
    ASSERT_EQ(calls.count("opendir"), 0);
  }

  int fd_ = -1;
  Model model_;
  EdgeBuffer identifier_{std::string(VK_EID_SIZE, '\0')};
  Outputs outputs_;
};

TEST_F(HostileDecoding, GivesEveryByteInEveryPlaceItsResult) {
  const std::string bases[] = {eid(".sN3BG."),
                               eid("/5Oh2.."),
                               eid("022...."),
                               eid("6sN3BG."),
                               eid("75Oh2.."),
                               eid("822...."),
                               eid("75Oh2..", decoding::kTime, decoding::kAddressIpv6)};
  for (const std::string &base : bases) {
    ASSERT_EQ(base.size(), 42u);
    for (std::size_t place = 0; place < 42; ++place) {
      std::string text = base;
      for (int byte = 0; byte < 256; ++byte) {
        text[place] = static_cast<char>(byte);
        for (int version : {1, 2}) ASSERT_NO_FATAL_FAILURE(compare(version, text));
      }
    }
  }
}

TEST_F(HostileDecoding, GivesRandomBytesTheirResult) {
  std::mt19937 random(20231114);
  constexpr std::string_view kHeaders = "./0678";
  for (int round = 0; round < 20000; ++round) {
    std::string text(42, '\0');
    const bool any_byte = round % 2 == 1;
    for (char &c : text) c = any_byte ? static_cast<char>(random()) : kAlphabet[random() % 64];
    // Most random texts fail at once; these get further.
    if (round % 4 >= 2) text[0] = kHeaders[random() % kHeaders.size()];
    if (round % 8 >= 4) {
      text[16] = "./01"[random() % 4];
      text[41] = "./"[random() % 2];
    }
    if (round % 16 >= 12) text.replace(3, 4, "....");
    for (int version : {1, 2}) ASSERT_NO_FATAL_FAILURE(compare(version, text));
  }
}

// With the trace on every byte goes through it, and none is taken for a conversion.
TEST_F(HostileDecoding, SurvivesItsOwnTrace) {
  ScratchTrace trace;
  std::mt19937 random(20231114);
  for (int round = 0; round < 300; ++round) {
    std::string text = eid(round % 2 == 0 ? "822...." : "6sN3BG.");
    for (int changes = 0; changes < 3; ++changes) text[random() % 42] = "%nsd\x01\n\xFF\x80"[random() % 8];
    identifier_.set(text);
    for (int version : {1, 2}) {
      outputs_.reset();
      Values expected = outputs_.untouched();
      const int code = model_.decode(version, text, expected);
      Calls calls;
      calls.fake_interfaces({});
      calls.return_nth("socket", 0, fd_);
      calls.allow_unused();
      ASSERT_EQ(calls.during([&] { return outputs_.decode(version, 1, trace.path(), identifier_.chars()); }), code)
          << testing::PrintToString(text);
      ASSERT_EQ(outputs_.values(), expected);
    }
  }
}

}  // namespace
