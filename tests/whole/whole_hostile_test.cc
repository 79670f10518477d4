// Files that nobody's library wrote.
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <algorithm>
#include <array>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

class WholeHostile : public WholeTest {
 protected:
  WholeHostile() { reclaim("whole"); }

  // One push into the file as it is: refused with 24, or recorded with a header that leads to the record, and nothing
  // that was linked is written over without need.
  void push_and_check(const Incident &incident) {
    const std::string before = file();
    const Header old = header_of(before);
    const Pushed pushed = push(incident);
    const std::string after = file();
    if (!recorded(pushed.code)) {
      ASSERT_EQ(pushed.code, 24);
      ASSERT_EQ(files::difference(before, after), "");
      return;
    }
    const Header header = header_of(after);
    ASSERT_TRUE(header.position >= 24 && header.position <= header.size) << header.position;
    ASSERT_TRUE(header.earliest >= 24 && header.earliest <= header.size) << header.earliest;
    ASSERT_EQ(header.init, old.init);
    ASSERT_EQ(header.size, old.size);
    ASSERT_LE(header.wrapped, 1);
    const std::size_t offset = static_cast<std::size_t>(header.position) - incident.size();
    ASSERT_EQ(verified_size(after, offset), incident.size());
    ASSERT_EQ(after.substr(offset + kPrefix + 4, kIdentifier), pushed.identifier);
    ASSERT_NE(verified_size(after, static_cast<std::size_t>(header.earliest)), 0u);
    ASSERT_LE(after.size(), std::max(before.size(), static_cast<std::size_t>(header.size)));

    const Chain linked = read_linked(before);
    if (!linked.problem.empty()) return;
    Expected expected(old.size, linked.records, static_cast<std::size_t>(old.position));
    expected.add(incident.size());
    const Chain chain = read_linked(after);
    ASSERT_EQ(chain.problem, "");
    for (std::size_t i = 0; i + 1 < expected.records().size(); ++i)
      ASSERT_NE(std::find(chain.records.begin(), chain.records.end(), expected.records()[i]), chain.records.end()) << i;
  }

  static std::uint32_t boundary(Random &random) {
    static constexpr std::array<std::uint32_t, 26> kValues = {
        0,    1,    20,   23,   24,    25,    28,    32,    161,   1024,  8183,       8184,       8191,
        8192, 8193, 8196, 8197, 16383, 16384, 16385, 16388, 16389, 12000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return kValues[static_cast<std::size_t>(between(random, 0, kValues.size() - 1))];
  }
};

TEST_F(WholeHostile, AnyBytesBehindAValidHeader) {
  Random random(11);
  for (int i = 0; i < 1500; ++i) {
    SCOPED_TRACE(i);
    const int size = between(random, 8192, 16384);
    std::string file = fresh_file(size);
    // Mostly zeros, so that lengths and zero words come about.
    const int density = between(random, 1, 40);
    for (std::size_t at = kHeader; at < file.size(); ++at)
      if (between(random, 0, density) == 0) file[at] = static_cast<char>(between(random, 0, 255));
    put_number(file, 8, static_cast<std::uint32_t>(between(random, 24, size + 4)));
    put_number(file, 12, static_cast<std::uint32_t>(between(random, 24, size)));
    file[20] = static_cast<char>(between(random, 0, 1));
    put(file);
    for (int pushes = 0; pushes < 2; ++pushes) ASSERT_NO_FATAL_FAILURE(push_and_check(random_incident(random)));
  }
}

TEST_F(WholeHostile, RecordsCutAndMovedAndAnyHeader) {
  Random random(12);
  std::vector<std::string> files;
  for (int i = 0; i < 6; ++i) files.push_back(filled(i % 2 ? 8192 : 16384, i / 2, random));
  int taken = 0;
  for (int i = 0; i < 3000; ++i) {
    SCOPED_TRACE(i);
    std::string file = files[static_cast<std::size_t>(between(random, 0, 5))];
    const std::string &other = files[static_cast<std::size_t>(between(random, 0, 5))];
    for (int moves = between(random, 0, 4); moves > 0; --moves) {
      const auto from = static_cast<std::size_t>(between(random, 24, 8000));
      const auto to = static_cast<std::size_t>(between(random, 24, 8000));
      const auto length = static_cast<std::size_t>(between(random, 1, 3000));
      const std::string part = other.substr(from, std::min(length, file.size() - to));
      file.replace(to, part.size(), part);
    }
    // Often a field of the header, seldom the version.
    for (const std::size_t at : {4, 8, 12, 16, 20})
      if (between(random, 0, 5) == 0) put_number(file, at, boundary(random));
    if (between(random, 0, 3) == 0) put_number(file, 12, static_cast<std::uint32_t>(between(random, 24, 8192)));
    if (between(random, 0, 3) == 0) put_number(file, 8, static_cast<std::uint32_t>(between(random, 24, 8192)));
    if (between(random, 0, 9) == 0) file.resize(static_cast<std::size_t>(between(random, 0, 8192)) + 24);
    put(file);
    const bool readable = file.size() >= kHeader + 1024;
    for (int pushes = 0; pushes < 3 && readable; ++pushes) {
      const std::int32_t position = header_of(this->file()).position;
      ASSERT_NO_FATAL_FAILURE(push_and_check(random_incident(random)));
      taken += header_of(this->file()).position != position;
    }
    if (!readable) push(random_incident(random));
  }
  EXPECT_GT(taken, 1000);
}

TEST_F(WholeHostile, AnInitOffsetOtherThan24IsWhereTheRingStarts) {
  Random random(13);
  for (const int first : {25, 100, 1000, 4000, 7000}) {
    SCOPED_TRACE(first);
    std::string file = fresh_file(8192);
    for (const std::size_t at : {4, 8, 12}) put_number(file, at, static_cast<std::uint32_t>(first));
    put(file);
    std::int32_t lowest = 8192;
    for (int i = 0; i < 200; ++i) {
      ASSERT_NO_FATAL_FAILURE(push_and_check(random_incident(random)));
      lowest = std::min(lowest, header_of(this->file()).earliest);
    }
    EXPECT_EQ(lowest, first);
  }
}

// Half a record in front of linked ones says that it reaches into them.
TEST_F(WholeHostile, AFakeInFrontOfALinkedRecordDoesNotCoverIt) {
  put(fresh_file(8192));
  for (int i = 0; i < 20; ++i) ASSERT_TRUE(recorded(push(incident_of(492)).code));
  // Records of 500 bytes: four in front, of which the oldest is damaged, and a gap of 500 bytes in front of the others.
  std::string file = this->file();
  Header header = header_of(file);
  const auto earliest = static_cast<std::size_t>(header.earliest), position = static_cast<std::size_t>(header.position);
  ASSERT_GE(earliest, position);
  const std::size_t second = earliest + 500;
  const std::vector<Record> behind = read_linked(file).records;
  std::fill(file.begin() + static_cast<std::ptrdiff_t>(earliest), file.begin() + static_cast<std::ptrdiff_t>(second),
            '\0');
  put_number(file, 12, static_cast<std::uint32_t>(second));
  put_number(file, 24 + 8, 0xFFFFFFFF);
  // The fake: 1016 bytes from 200 bytes in front, a head taken from a record, and more arguments than there is room.
  const std::size_t fake = second - 200;
  file.replace(fake, 140, behind.front().bytes, 0, 140);
  put_number(file, fake, 1016);
  put_number(file, fake + 123 + 4 + 1 + 8, 0);  // no message text, so that the count comes next
  file.replace(fake + 123, 4 + 1 + 8 + 1, 14, '\0');
  put_number(file, fake + 123 + 14, 0xFFFFFFFF);
  ASSERT_EQ(verified_size(file, fake), 1024u);
  put(file);
  ASSERT_TRUE(recorded(push(incident_of(kSmallestBody)).code));
  const std::vector<Record> found = search(this->file());
  for (const Record &record : behind)
    EXPECT_TRUE(record.offset < second || std::find(found.begin(), found.end(), record) != found.end())
        << record.offset;
}

// The earliest offset leads to a record whose length is wrong; it ends in the midst of the third one.
TEST_F(WholeHostile, ALengthThatReachesIntoLaterRecordsHidesNoneOfThem) {
  put(fresh_file(8192));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(recorded(push(incident_of(292)).code));
  std::string file = this->file();
  const std::vector<Record> before = read_chain(file).records;
  ASSERT_EQ(before.size(), 3u);
  put_number(file, before[0].offset, 2 * 300 + 100);
  put(file);
  const Pushed pushed = push(incident_of(292));
  ASSERT_TRUE(recorded(pushed.code));
  const std::vector<Record> after = search(this->file());
  ASSERT_EQ(after.size(), 3u);
  EXPECT_EQ(after[0], before[1]);
  EXPECT_EQ(after[1], before[2]);
  EXPECT_EQ(after[2].identifier(), pushed.identifier);
}

// Everything that a caller can choose is chosen so that from the associated identifier on the record reads as another.
TEST_F(WholeHostile, ARecordInsideTheArgumentsOfARecordIsNoRecord) {
  environment_.set("VOSKPNAME", "process");
  std::string associated =
      std::string("\xf8\x03\0\0\0\0\0\0\0\0\0\0", 12) + "7aaaaaa" + "V3KMV/" + std::string(18, 'a');
  ASSERT_EQ(associated.size(), kIdentifier);
  const std::string source = std::string(31, 'f') + "aaaa" + "process";  // its seconds are 0x61616161
  const auto push_fake = [&] {
    vk_eid_t eid = {};
    platform::Calls calls;
    calls.fixed_clock(0x69696969, 0);  // no zero byte in the time
    return calls.during([&] {
      return vk_push_stack_1(&eid, associated.c_str(), "r", "product", source.c_str(), "elevenchars", 0x01010101, 0,
                             "details", nullptr, "c", 0x01010101, 0x01010101, "message");
    });
  };
  put(fresh_file(8192));
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(recorded(push(incident_of(500)).code));
  ASSERT_TRUE(recorded(push_fake()));
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(recorded(push(incident_of(500)).code));
  std::string file = this->file();
  const std::vector<Record> records = read_chain(file).records;
  ASSERT_EQ(records.size(), 13u);
  const std::size_t fake = records[8].offset + kPrefix + 4 + kIdentifier;
  ASSERT_EQ(verified_size(file, fake), 1024u) << "the fake is to deceive the test's own reader";
  // With the first record damaged, nothing leads to the others.
  put_number(file, 24 + 8, 0xFFFFFFFF);
  put(file);
  ASSERT_TRUE(recorded(push(incident_of(500)).code));
  const std::vector<Record> found = search(this->file());
  ASSERT_EQ(found.size(), 13u);
  for (std::size_t i = 1; i < records.size(); ++i) EXPECT_EQ(found[i - 1], records[i]) << i;
}

// It would be older than the records that then lie between it and the newest one, and lead past them.
TEST_F(WholeHostile, WhatLiesAtThePositionGivesWayWhereTheRingStartsAgain) {
  put(fresh_file(8192));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(recorded(push(incident_of(292)).code));
  const std::vector<Record> records = read_chain(file()).records;
  ASSERT_EQ(records.size(), 3u);
  std::string file = fresh_file(8192);
  file.replace(8192 - 300, 300, records[0].bytes);
  file.replace(8192 - 600, 300, records[2].bytes);
  file.replace(8192 - 900, 300, records[1].bytes);
  for (const std::size_t at : {8, 12}) put_number(file, at, 8192 - 300);
  file[20] = 1;
  put(file);
  const Pushed pushed = push(incident_of(301));
  ASSERT_TRUE(recorded(pushed.code));
  const Chain chain = read_chain(this->file());
  EXPECT_EQ(chain.problem, "");
  EXPECT_EQ(places(chain.records), "7292+300 7592+300 24+309 ");
}

TEST_F(WholeHostile, WhereNoRecordStaysTheNewOneIsTheEarliest) {
  put(fresh_file(8192));
  ASSERT_TRUE(recorded(push(incident_of(292)).code));
  std::string file = fresh_file(8192);
  file.replace(8192 - 300, 300, search(this->file()).front().bytes);
  for (const std::size_t at : {8, 12}) put_number(file, at, 8192 - 300);
  file[20] = 1;
  put(file);
  ASSERT_TRUE(recorded(push(incident_of(301)).code));
  const Chain chain = read_chain(this->file());
  EXPECT_EQ(chain.problem, "");
  EXPECT_EQ(places(chain.records), "24+309 ");
}

}  // namespace
}  // namespace whole_test
