// Finding the node's addresses: failing, interrupted and lying kernels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "addresses/interfaces.h"
#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"

namespace {

using interfaces::FakeInterface;
using interfaces::loopback;
using interfaces::many;
using interfaces::slots;
using interfaces::up;
using interfaces::vanished;
using platform::Calls;
using testing::ElementsAre;

constexpr const char *kRoutine = "vk_obtain_ipaddrs";
constexpr std::size_t kListSlots = VK_ADDRESS_MAX + 1;

// The call fails, traces one entry, and its calls are these.
void expect_failure(const std::function<void(Calls &)> &plan, const std::string &text,
                    const std::vector<std::string> &log, std::size_t left_open) {
  for (unsigned choose_one : {0u, 1u}) {
    EdgeBuffer addresses(VK_ADDRESS_SLOT);
    unsigned count = 7;
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          plan(calls);
          const int result =
              calls.during([&] { return vk_obtain_ipaddrs(on, path, addresses.chars(), choose_one, &count); });
          EXPECT_EQ(calls.log_of({"socket", "ioctl"}), log);
          EXPECT_EQ(calls.left_open().size(), left_open);
          interfaces::close_left_open(calls);
          return result;
        },
        -1, {trace_entry(kRoutine, text)});
    EXPECT_TRUE(addresses.untouched());
    EXPECT_EQ(count, 7u);
  }
}

TEST(AddressDiscoveryFailure, WithoutASocket) {
  for (int error : {EMFILE, ENFILE, ENOBUFS, EACCES, EAFNOSUPPORT}) {
    expect_failure(
        [&](Calls &calls) { calls.fail_nth("socket", 1, error); },
        "Cannot create socket - error code " + std::to_string(error) + "\nReturning VOSK_FAILURE(-1) to caller",
        {"socket(2, 0x2, 0) = -1 " + platform::error_name(error)}, 0);
  }
}

// The socket of this failure stays open like that of a success.
TEST(AddressDiscoveryFailure, WithoutAList) {
  for (int error : {ENOTTY, EFAULT, ENOMEM, EADDRNOTAVAIL}) {
    expect_failure([&](Calls &calls) { calls.fail_nth("ioctl", 1, error); },
                   "Cannot issue ioctl(1) on socket - error code " + std::to_string(error) +
                       "\nReturning VOSK_FAILURE(-1) to caller",
                   {"socket(2, 0x2, 0) = fd1", "ioctl(fd1, SIOCGIFCONF, 2560) = -1 " + platform::error_name(error)}, 1);
  }
}

TEST(AddressDiscoveryFailure, WithoutTheFlagsOfAnInterfaceClosesTheSocket) {
  for (int error : {ENODEV, ENXIO, EFAULT, ENOMEM}) {
    expect_failure(
        [&](Calls &calls) {
          calls.fake_interfaces({vanished("eth0", error), up("eth1", "10.0.0.2")});
        },
        "Cannot issue ioctl(2) on socket - error code " + std::to_string(error) +
            "\nReturning VOSK_FAILURE(-1) to caller",
        {"socket(2, 0x2, 0) = fd1", "ioctl(fd1, SIOCGIFCONF, 2560) = 0",
         "ioctl(fd1, SIOCGIFFLAGS, \"eth0\") = -1 " + platform::error_name(error)},
        0);
  }
}

TEST(AddressDiscoveryFailure, ClosesTheSocketOnceAndTracesTheErrnoOfTheFlags) {
  EdgeBuffer addresses(VK_ADDRESS_SLOT);
  expect_result_and_trace(
      [&](int on, const char *path) {
        Calls calls;
        calls.fake_interfaces({vanished("eth0", ENXIO)});
        calls.ignore_path(path == nullptr ? "none" : path);
        calls.fail_nth("close", 1, EIO);
        const int result = calls.during([&] { return vk_obtain_ipaddrs(on, path, addresses.chars(), 1, nullptr); });
        EXPECT_THAT(calls.log_of({"close"}), ElementsAre("close(fd1) = -1 EIO"));
        return result;
      },
      -1,
      {trace_entry(kRoutine, "Cannot issue ioctl(2) on socket - error code 6\nReturning VOSK_FAILURE(-1) to caller")});
}

TEST(AddressDiscoveryFailure, KeepsWhatTheListHadBefore) {
  EdgeBuffer list(kListSlots * VK_ADDRESS_SLOT);
  list.fill('\0');
  unsigned count = 0;
  Calls calls;
  calls.fake_interfaces({loopback("127.0.0.1"), up("eth0", "10.0.0.1"), vanished("eth1", ENODEV)});
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count); }), -1);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(list.bytes(), slots({"127.0.0.1", "10.0.0.1"}, kListSlots));
  EXPECT_EQ(calls.left_open().size(), 0u);
}

TEST(AddressDiscoveryFailure, OfALaterInterfaceDoesNotGiveTheFallback) {
  EdgeBuffer address(VK_ADDRESS_SLOT);
  unsigned count = 7;
  Calls calls;
  calls.fake_interfaces({loopback("127.0.0.1"), vanished("eth1", ENODEV)});
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, &count); }), -1);
  EXPECT_TRUE(address.untouched());
  EXPECT_EQ(count, 7u);
}

TEST(AddressDiscovery, IsRepeatedAsOftenAsItIsInterrupted) {
  for (int times : {1, 2, 50}) {
    EdgeBuffer address(VK_ADDRESS_SLOT);
    Calls calls;
    std::vector<FakeInterface> list = {loopback("127.0.0.1"), up("eth0", "10.0.0.1")};
    for (FakeInterface &interface : list) interface.flags_eintr = times;
    calls.fake_interfaces(list);
    calls.fail_first("socket", times, EINTR);
    calls.fail_first("ioctl", times, EINTR);
    EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, nullptr); }), 0);
    EXPECT_STREQ(address.chars(), "10.0.0.1");
    std::vector<std::string> log;
    const auto repeated = [&](const std::string &call, const std::string &result) {
      for (int i = 0; i < times; ++i) log.push_back(call + " = -1 EINTR");
      log.push_back(call + " = " + result);
    };
    repeated("socket(2, 0x2, 0)", "fd1");
    repeated("ioctl(fd1, SIOCGIFCONF, 2560)", "0");
    repeated("ioctl(fd1, SIOCGIFFLAGS, \"lo\")", "0");
    repeated("ioctl(fd1, SIOCGIFFLAGS, \"eth0\")", "0");
    EXPECT_EQ(calls.log_of({"socket", "ioctl", "close"}), log);
    interfaces::close_left_open(calls);
  }
}

// A record counts while its offset is below the length; the list never has more than 64.
TEST(AddressDiscovery, ReadsAsManyRecordsAsTheLengthTellsButNoneBeyondTheBuffer) {
  const struct {
    int present, length, listed;
  } rows[] = {{70, 0, 0},     {70, 1, 1},       {70, 39, 1},       {70, 40, 1},      {70, 41, 2},
              {70, 80, 2},    {70, 81, 3},      {70, 2559, 64},    {70, 2560, 64},   {70, 2561, 64},
              {70, 2800, 64}, {70, 4096, 64},   {70, INT_MAX, 64}, {70, -1, 0},      {70, -40, 0},
              {70, -41, 0},   {70, INT_MIN, 0}, {64, INT_MAX, 64}, {64, 1 << 20, 64}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.length);
    EdgeBuffer list(kListSlots * VK_ADDRESS_SLOT);
    list.fill('\0');
    unsigned count = 0;
    Calls calls;
    calls.fake_interfaces(many(row.present), row.length);
    EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, list.chars(), 0, &count); }), 0);
    EXPECT_EQ(count, static_cast<unsigned>(row.listed));
    EXPECT_EQ(calls.count("ioctl"), 1 + row.listed);
    EXPECT_EQ(list.bytes()[static_cast<std::size_t>(row.listed) * VK_ADDRESS_SLOT], '\0');
    interfaces::close_left_open(calls);
  }
}

// Records that the kernel did not fill are zeros: no interface has the empty name.
TEST(AddressDiscovery, AsksForTheFlagsOfRecordsThatAreNotThere) {
  expect_failure(
      [](Calls &calls) { calls.fake_interfaces({}, 40); },
      "Cannot issue ioctl(2) on socket - error code 19\nReturning VOSK_FAILURE(-1) to caller",
      {"socket(2, 0x2, 0) = fd1", "ioctl(fd1, SIOCGIFCONF, 2560) = 0", "ioctl(fd1, SIOCGIFFLAGS, \"\") = -1 ENODEV"},
      0);
}

TEST(AddressDiscovery, TakesNamesOfSixteenBytesWhole) {
  EdgeBuffer address(VK_ADDRESS_SLOT);
  Calls calls;
  calls.fake_interfaces({loopback("127.0.0.1", "abcdefghijklmnop"), up("abcdefghijklmnoq", "10.0.0.1")});
  EXPECT_EQ(calls.during([&] { return vk_obtain_ipaddrs(0, nullptr, address.chars(), 1, nullptr); }), 0);
  EXPECT_THAT(calls.log_of({"ioctl"}),
              ElementsAre("ioctl(fd1, SIOCGIFCONF, 2560) = 0", "ioctl(fd1, SIOCGIFFLAGS, \"abcdefghijklmnop\") = 0",
                          "ioctl(fd1, SIOCGIFFLAGS, \"abcdefghijklmnoq\") = 0"));
  EXPECT_STREQ(address.chars(), "10.0.0.1");
  interfaces::close_left_open(calls);
}

}  // namespace
