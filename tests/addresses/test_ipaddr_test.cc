// Looking an address up in a list.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "addresses/interfaces.h"
#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/scratch_trace.h"

namespace {

using interfaces::slots;

constexpr const char *kRoutine = "vk_test_ipaddr";

// A list that ends with the first byte of its empty slot.
std::string list_of(const std::vector<std::string> &texts) {
  return slots(texts, texts.size()) + '\0';
}

TEST(AddressLookup, FindsTheFirstSlotThatIsEqual) {
  const std::string longest = "ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255";  // 45 characters
  const struct {
    const char *address;
    std::vector<std::string> list;
    int index;
  } rows[] = {
      {"10.0.0.1", {"10.0.0.1"}, 0},
      {"10.0.0.3", {"10.0.0.1", "10.0.0.2", "10.0.0.3"}, 2},
      {"10.0.0.1", {"10.0.0.2", "10.0.0.1", "10.0.0.1"}, 1},
      {"::1", {"10.0.0.1", "::1"}, 1},
      {longest.c_str(), {"10.0.0.1", longest}, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.address);
    EdgeText address(row.address);
    EdgeBuffer list(list_of(row.list));
    expect_result_and_trace(
        [&](int on, const char *path) { return vk_test_ipaddr(on, path, address.chars(), list.chars()); }, 0,
        {trace_entry(kRoutine, std::string("Match found for address ") + row.address + " at index " +
                                   std::to_string(row.index) + "\nReturning VOSK_SUCCESS(0)")});
  }
}

TEST(AddressLookup, FailsAtTheEmptySlot) {
  const struct {
    const char *address;
    std::vector<std::string> list;
  } rows[] = {
      {"10.0.0.1", {"10.0.0.2"}},
      {"10.0.0.1", {"10.0.0.10", "10.0.0.11", "110.0.0.1"}},  // neither the start nor the end of another
      {"10.0.0.10", {"10.0.0.1"}},
      {" 10.0.0.1", {"10.0.0.1"}},
      {"::1", {"::2", "127.0.0.1"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.address);
    EdgeText address(row.address);
    EdgeBuffer list(list_of(row.list));
    expect_result_and_trace(
        [&](int on, const char *path) { return vk_test_ipaddr(on, path, address.chars(), list.chars()); }, -1,
        {trace_entry(kRoutine, std::string("No matches fo address ") + row.address + " found in " +
                                   std::to_string(row.list.size()) +
                                   " known base addresses\nAssuming this address not on this node\n"
                                   "Returning VOSK_FAILURE(-1)")});
  }
}

TEST(AddressLookup, LooksAtNothingBehindTheEmptySlot) {
  EdgeBuffer list(slots({"10.0.0.2", "", "10.0.0.1"}, 3));
  EXPECT_EQ(vk_test_ipaddr(0, nullptr, "10.0.0.1", list.chars()), -1);
}

// Slots and addresses that nothing ends: 46 characters are compared, no more.
TEST(AddressLookup, ComparesFortySixCharacters) {
  const std::string full(46, '1');
  EdgeBuffer list(full + '\0');
  EXPECT_EQ(vk_test_ipaddr(0, nullptr, EdgeBuffer(full).chars(), list.chars()), 0);
  EXPECT_EQ(vk_test_ipaddr(0, nullptr, EdgeText(full + "2").chars(), list.chars()), 0);
  EXPECT_EQ(vk_test_ipaddr(0, nullptr, EdgeText(full.substr(1)).chars(), list.chars()), -1);
  EXPECT_EQ(vk_test_ipaddr(0, nullptr, EdgeText(full.substr(1) + "2").chars(), list.chars()), -1);
}

TEST(AddressLookup, RefusesInTheOrderAddressList) {
  constexpr const char *kNoAddress = "Invalid string provided for ip_addr\nReturning VOSK_INV_PARAM3(-4)";
  constexpr const char *kNoList = "Invalid array provided for ip_list\nReturning VOSK_INV_PARAM4(-5)";
  const struct {
    const char *address, *list;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, kNoAddress}, {"", nullptr, -4, kNoAddress}, {"", "10.0.0.1", -4, kNoAddress},
      {"10.0.0.1", nullptr, -5, kNoList}, {"10.0.0.1", "", -5, kNoList},
  };
  for (const auto &row : rows) {
    expect_result_and_trace([&](int on, const char *path) { return vk_test_ipaddr(on, path, row.address, row.list); },
                            row.code, {trace_entry(kRoutine, row.text)});
  }
}

}  // namespace
