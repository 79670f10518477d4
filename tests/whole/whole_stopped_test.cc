// Files on which the standard rule has come to a stop go on under whole records.
#include <gtest/gtest.h>

#include <algorithm>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

class WholeStopped : public WholeTest {
 protected:
  // The whole records of a file, oldest first.
  static std::vector<Record> by_age(const std::string &file) {
    std::vector<Record> records = search(file);
    const auto position = static_cast<std::size_t>(header_of(file).position);
    const auto older =
        std::find_if(records.begin(), records.end(), [&](const Record &r) { return r.offset >= position; });
    std::rotate(records.begin(), older, records.end());
    return records;
  }

  // Pushes into `before`, which the standard rule has stopped, and compares: nothing but what has to give way is gone.
  void push_and_compare(const std::string &before, const Incident &incident) {
    const Header old = header_of(before);
    Expected expected(old.size, by_age(before), static_cast<std::size_t>(old.position));
    expected.add(incident.size());
    reclaim("whole");
    put(before);
    const Pushed pushed = push(incident);
    ASSERT_TRUE(recorded(pushed.code)) << pushed.code;

    const std::string after = file();
    ASSERT_EQ(header_problem(after), "");
    std::vector<Record> kept = by_age(after);
    ASSERT_EQ(places(kept), places(expected.records()));
    EXPECT_EQ(kept.back().identifier(), pushed.identifier);
    expected.newest().bytes = kept.back().bytes;
    for (std::size_t i = 0; i < kept.size(); ++i) ASSERT_EQ(kept[i], expected.records()[i]) << i;
    const Header header = header_of(after);
    EXPECT_EQ(static_cast<std::size_t>(header.earliest), kept.front().offset);
    EXPECT_EQ(static_cast<std::size_t>(header.position), expected.position());
    EXPECT_EQ(header.reserved, old.reserved);
    EXPECT_EQ(without(after, kept).find_first_not_of('\0', kHeader), std::string::npos) << "leftovers";
  }

  // The file with these records blotted out.
  static std::string without(std::string file, const std::vector<Record> &records) {
    for (const Record &record : records)
      std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(record.offset), record.bytes.size(), '\0');
    return file;
  }
};

TEST_F(WholeStopped, TwoHundredFilesTakeTheNextPushAndKeepWhatNeedNotGo) {
  Random random(200);
  int never_wrapped = 0, at_the_end = 0, inside_leftovers = 0;
  for (int i = 0; i < 200; ++i) {
    SCOPED_TRACE(i);
    const std::string before = stopped(i % 2 == 0 ? 16384 : 8192, random);
    ASSERT_NE(before, "") << "the standard rule has not come to a stop";
    const Header header = header_of(before);
    never_wrapped += header.wrapped == 0;
    inside_leftovers += verified_size(before, static_cast<std::size_t>(header.earliest)) == 0;
    // A push of an ordinary size, the largest, and the smallest: one of them fits at the end where the refused one
    // did not.
    ASSERT_NO_FATAL_FAILURE(push_and_compare(before, ordinary_incident(random, i)));
    ASSERT_NO_FATAL_FAILURE(push_and_compare(before, incident_of(kLargestBody)));
    ASSERT_NO_FATAL_FAILURE(push_and_compare(before, incident_of(kSmallestBody)));
    at_the_end += header.wrapped == 0 && header_of(file()).position > header.position;
  }
  EXPECT_GT(never_wrapped, 50);
  EXPECT_GT(inside_leftovers, 100);
  EXPECT_GT(at_the_end, 20);
}

TEST_F(WholeStopped, FilesThatWereRefusedSeveralPushesOfAllSizesKeepWhatNeedNotGo) {
  Random random(201);
  for (int i = 0; i < 200; ++i) {
    SCOPED_TRACE(i);
    reclaim(nullptr);
    put(fresh_file(between(random, 8192, 16384)));
    for (int refused = between(random, 1, 5); refused > 0;) refused -= !recorded(push(random_incident(random)).code);
    const std::string before = file();
    for (int size = 0; size < 3; ++size) ASSERT_NO_FATAL_FAILURE(push_and_compare(before, random_incident(random)));
  }
}

TEST_F(WholeStopped, AfterTheNextWrapNothingIsLeftOfTheStandardRule) {
  Random random(202);
  for (int i = 0; i < 40; ++i) {
    SCOPED_TRACE(i);
    const std::string before = stopped(8192, random);
    reclaim("whole");
    for (int wraps = 0; wraps < 2;) {
      const std::int32_t position = header_of(file()).position;
      ASSERT_TRUE(recorded(push(random_incident(random)).code));
      wraps += header_of(file()).position < position;
    }
    EXPECT_EQ(read_chain(file()).problem, "");
  }
}

TEST_F(WholeStopped, ARecordPastTheEndOfTheFileStaysUntilItsTurn) {
  for (const int size : {8192, 16384}) {
    for (std::size_t past = 1; past <= 4; ++past) {
      SCOPED_TRACE(testing::Message() << size << " and " << past);
      reclaim(nullptr);
      put(fresh_file(size));
      std::size_t room = static_cast<std::size_t>(size) - kHeader;
      for (; room > 1024 + 300; room -= 1024) ASSERT_TRUE(recorded(push(incident_of(kLargestBody)).code));
      ASSERT_TRUE(recorded(push(incident_of(room - 300 - kPrefix)).code));
      ASSERT_TRUE(recorded(push(incident_of(300 + past - kPrefix)).code));
      const std::string before = file();
      ASSERT_EQ(header_of(before).position, size + static_cast<int>(past));
      ASSERT_EQ(before.size(), static_cast<std::size_t>(size) + past);
      ASSERT_NO_FATAL_FAILURE(push_and_compare(before, incident_of(kSmallestBody)));
      const Record last = search(before).back();
      EXPECT_EQ(search(file()).back(), last);

      // It goes as the others do, and what it had behind the file size goes with it.
      Expected expected(size, by_age(file()), static_cast<std::size_t>(header_of(file()).position));
      while (expected.records().front().offset != last.offset) {
        ASSERT_TRUE(recorded(push(incident_of(500)).code));
        expected.add(508);
        ASSERT_EQ(places(by_age(file())), places(expected.records()));
      }
      ASSERT_TRUE(recorded(push(incident_of(kLargestBody)).code));
      expected.add(1024);
      EXPECT_EQ(places(by_age(file())), places(expected.records()));
      EXPECT_EQ(read_chain(file()).problem, "");
    }
  }
}

TEST_F(WholeStopped, AStandardPushThatWasKilledAnywhereLeavesAFileThatGoesOn) {
  // Its header is the old one; what it cleared or wrote already is not what that says.
  Random random(203);
  for (int i = 0; i < 60; ++i) {
    SCOPED_TRACE(i);
    reclaim(nullptr);
    put(fresh_file(8192));
    std::string before, after;
    do {
      before = file();
      if (!recorded(push(ordinary_incident(random, i)).code)) put(fresh_file(8192));
      after = file();
    } while (header_of(after).wrapped == 0);
    for (const bool all_written : {true, false}) {
      std::string torn = all_written ? after : before;
      torn.replace(0, kHeader, before, 0, kHeader);
      if (!all_written) std::fill_n(torn.begin() + 24, 400, '\0');
      ASSERT_NO_FATAL_FAILURE(push_and_compare(torn, incident_of(kLargestBody)));
      ASSERT_NO_FATAL_FAILURE(push_and_compare(torn, incident_of(kSmallestBody)));
    }
  }
}

}  // namespace
}  // namespace whole_test
