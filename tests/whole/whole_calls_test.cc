// How many system calls a push makes under whole records.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <string_view>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

// The recorded calls that reach the kernel.
bool is_system_call(const platform::Call &call) {
  static constexpr std::array<std::string_view, 16> kNames = {
      "stat",  "fstat",  "fstatat", "statfs", "open",  "lseek",     "read",   "write",
      "close", "unlink", "fchmod",  "lockf",  "fcntl", "getrlimit", "getpid", "getppid"};
  return std::find(kNames.begin(), kNames.end(), call.name) != kNames.end();
}

class WholeCalls : public WholeTest {
 protected:
  // The names of the system calls that a push makes.
  static std::vector<std::string> calls_of(const Incident &incident) {
    platform::Calls calls;
    EXPECT_TRUE(recorded(calls.during([&] { return push(incident).code; })));
    std::vector<std::string> names;
    for (const platform::Call &call : calls.calls())
      if (is_system_call(call)) names.push_back(call.name);
    return names;
  }

  // Those that a push under the standard rule makes into a file that has not wrapped.
  std::vector<std::string> calls_by_default() {
    reclaim(nullptr);
    put(fresh_file(16384));
    return calls_of(incident_of(300));
  }
};

TEST_F(WholeCalls, WithoutAWrapNoneIsAdded) {
  const std::vector<std::string> standard = calls_by_default();
  reclaim("whole");
  put(fresh_file(16384));
  Random random(1);
  Expected expected(16384);
  for (;;) {
    const Incident incident = random_incident(random);
    expected.add(incident.size());
    if (expected.wrapped()) break;
    ASSERT_EQ(calls_of(incident), standard);
  }
  EXPECT_EQ(calls_of(incident_of(kLargestBody)).size(), standard.size() + 4) << "the first wrap";
}

// Two for the header that leads away from the oldest, two for each of the runs of bytes that are cleared: one at the
// file's end and one at its start.
TEST_F(WholeCalls, OfARingAtMostSixAreAddedHoweverManyRecordsAreCleared) {
  const std::size_t standard = calls_by_default().size();
  reclaim("whole");
  Random random(2);
  for (const int size : {8192, 16384}) {
    put(fresh_file(size));
    Expected expected(size);
    std::map<std::size_t, std::size_t> most;  // by the number of records cleared
    for (int i = 0; i < 3000; ++i) {
      const Incident incident = random_incident(random);
      expected.add(incident.size());
      const std::size_t added = calls_of(incident).size() - standard;
      most[expected.cleared()] = std::max(most[expected.cleared()], added);
      ASSERT_LE(added, 6u);
      ASSERT_TRUE(expected.cleared() != 0 || added == 0) << added;
    }
    for (const auto &[cleared, added] : most)
      std::printf("%5d bytes, %zu records cleared: %zu calls and up to %zu more\n", size, cleared, standard, added);
    EXPECT_GE(most.size(), 6u);
  }
}

// What the standard rule left can lie in more places; three writes clear it.
TEST_F(WholeCalls, OfAStoppedFileAtMostEightAreAdded) {
  const std::size_t standard = calls_by_default().size();
  Random random(3);
  std::size_t most = 0;
  for (int i = 0; i < 300; ++i) {
    reclaim(nullptr);
    put(fresh_file(16384));
    for (int refused = between(random, 1, 12); refused > 0;) refused -= !recorded(push(random_incident(random)).code);
    reclaim("whole");
    most = std::max(most, calls_of(random_incident(random)).size() - standard);
  }
  std::printf("stopped: %zu calls and up to %zu more\n", standard, most);
  EXPECT_LE(most, 8u);
  EXPECT_GE(most, 6u);
}

TEST_F(WholeCalls, LeftoversInManyPlacesAreClearedInThreeWritesThatLeaveTheRecords) {
  Random random(4);
  const std::string sound = filled(16384, 0, random);
  const std::size_t standard = calls_by_default().size();
  reclaim("whole");
  put(fresh_file(16384));
  std::string file = fresh_file(16384);
  std::vector<Record> records;
  std::size_t at = kHeader;
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(recorded(push(incident_of(200)).code));
    Record record = search(this->file()).back();
    file.replace(at, 4, "left");
    record.offset = at + 4;
    file.replace(record.offset, record.bytes.size(), record.bytes);
    records.push_back(record);
    at = record.end();
  }
  put_number(file, 8, static_cast<std::uint32_t>(at));
  file[20] = 1;
  put(file);
  EXPECT_EQ(calls_of(incident_of(200)).size() - standard, 8u);
  std::vector<Record> found = search(this->file());
  ASSERT_EQ(found.size(), 21u);
  found.pop_back();
  EXPECT_EQ(found, records);
  EXPECT_EQ(this->file().find("left"), std::string::npos);
}

// Free space that is zero already stays as it is; what lies behind the third run of leftovers is cleared with it.
TEST_F(WholeCalls, WhatIsNotZeroIsClearedExactly) {
  reclaim("whole");
  put(fresh_file(16384));
  ASSERT_TRUE(recorded(push(incident_of(292)).code));
  const std::string record = search(this->file()).front().bytes;
  ASSERT_EQ(record.size(), 300u);
  const std::vector<std::string> begin = {"0, SEEK_SET", "4, SEEK_SET",    "20", "24, SEEK_SET",
                                          "10",          "1000, SEEK_SET", "5"};
  const struct {
    std::size_t last;  // where the third record lies
    std::string behind_second;
    std::vector<std::string> calls;
  } rows[] = {
      {3300, "", {"16383, SEEK_SET", "1", "3600, SEEK_SET", "300", "4, SEEK_SET", "20"}},
      {5000, "xx", {"4000, SEEK_SET", "12384", "5300, SEEK_SET", "300", "4, SEEK_SET", "20"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.last);
    std::string file = fresh_file(16384);
    file.replace(24, 10, 10, 'x');  // up to the first record
    for (const std::size_t at : {std::size_t{34}, std::size_t{3000}, row.last}) file.replace(at, 300, record);
    file.replace(1000, 5, std::string("x\0\0\0x", 5));
    file.replace(4000, row.behind_second.size(), row.behind_second);
    file[16383] = 'x';
    put_number(file, 8, static_cast<std::uint32_t>(row.last + 300));
    file[20] = 1;
    put(file);
    platform::Calls calls;
    calls.ignore("getenv");
    EXPECT_TRUE(recorded(calls.during([&] { return push(incident_of(292)).code; })));
    std::vector<std::string> made, expected = begin;
    for (const std::string &call : calls.log_of({"lseek", "write"})) {
      const std::size_t behind_file = call.find(", ") + 2;
      made.push_back(call.substr(behind_file, call.find(')') - behind_file));
    }
    expected.insert(expected.end(), row.calls.begin(), row.calls.end());
    EXPECT_EQ(made, expected);
  }
}

}  // namespace
}  // namespace whole_test
