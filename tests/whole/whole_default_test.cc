// Only VOSKRECLAIM=whole changes anything, and only in files of the library's own version.
#include <gtest/gtest.h>

#include "whole/whole_test.h"

namespace whole_test {
namespace {

class WholeDefault : public WholeTest {
 protected:
  struct Run {
    std::vector<int> codes;
    std::vector<std::string> files;  // after each push
    std::vector<std::string> calls;
  };

  // The same pushes at the same times into the same file; calls are told by name and, unless `lengths` is off, with
  // their arguments.
  Run run(const std::string &start, bool lengths = true) {
    Run out;
    put(start);
    Random random(77);
    for (int i = 0; i < 120; ++i) {
      const Incident incident = ordinary_incident(random, i);
      platform::Calls calls;
      calls.ignore("getenv");
      calls.fixed_clock(1794813087 + i, 5);
      out.codes.push_back(calls.during([&] { return push(incident).code; }));
      for (const std::string &call : lengths ? calls.log() : calls.names()) out.calls.push_back(call);
      out.files.push_back(file());
    }
    return out;
  }
};

TEST_F(WholeDefault, AnyOtherValueIsTheStandardRule) {
  reclaim(nullptr);
  const Run standard = run(fresh_file(8192));
  EXPECT_EQ(standard.codes.back(), 24) << "the pushes are to go beyond the stop";
  for (const char *value :
       {"", " ", "Whole", "WHOLE", "whole ", " whole", "whol", "wholes", "whole\n", "yes", "1", "standard"}) {
    SCOPED_TRACE(value);
    reclaim(value);
    const Run other = run(fresh_file(8192));
    EXPECT_EQ(other.codes, standard.codes);
    EXPECT_EQ(other.calls, standard.calls);
    for (std::size_t i = 0; i < standard.files.size(); ++i)
      ASSERT_EQ(files::difference(standard.files[i], other.files[i]), "") << i;
  }
}

TEST_F(WholeDefault, TheValueIsReadAtEachPush) {
  Random random(1);
  const std::string before = stopped(8192, random);
  EXPECT_EQ(push(incident_of(kLargestBody)).code, 24);
  reclaim("whole");
  EXPECT_TRUE(recorded(push(incident_of(kLargestBody)).code));
  reclaim(nullptr);
  put(before);
  EXPECT_EQ(push(incident_of(kLargestBody)).code, 24);
}

TEST_F(WholeDefault, UntilTheFirstWrapTheBytesAreThoseOfTheStandardRule) {
  const auto fill = [&] {
    put(fresh_file(8192));
    for (int i = 0; i < 20; ++i) {
      platform::Calls calls;
      calls.fixed_clock(1794813087, i);
      EXPECT_TRUE(recorded(calls.during([&] { return push(incident_of(400)).code; })));
    }
    return file();
  };
  reclaim(nullptr);
  const std::string standard = fill();
  reclaim("whole");
  EXPECT_EQ(files::difference(standard, fill()), "");
}

TEST_F(WholeDefault, TheFirstPushOfATreeCreatesTheFileAsEver) {
  reclaim("whole");
  platform::Calls calls;
  calls.fixed_clock(1794813087, 0);
  EXPECT_TRUE(recorded(calls.during([&] { return push(incident_of(400)).code; })));
  const Chain chain = read_chain(file());
  EXPECT_EQ(chain.problem, "");
  EXPECT_EQ(places(chain.records), "24+408 ");
  EXPECT_EQ(file().substr(0, kHeader), (Header{0, 24, 432, 24, 16384, 0, std::string(3, '\0')}.bytes()));
}

// The records of such files are not the library's to tell whole ones from leftovers.
TEST_F(WholeDefault, ForeignVersionsKeepTheStandardRule) {
  for (std::uint32_t version = 8; version <= 56; version += 8) {
    SCOPED_TRACE(version);
    std::string start = fresh_file(8192);
    put_number(start, 0, version);
    reclaim(nullptr);
    const Run standard = run(start, false);
    reclaim("whole");
    const Run whole = run(start, false);
    EXPECT_EQ(whole.codes, standard.codes);
    EXPECT_EQ(whole.calls, standard.calls);
    for (std::size_t i = 0; i < standard.files.size(); ++i)
      ASSERT_EQ(files::difference(standard.files[i], whole.files[i]), "") << i;
  }
}

}  // namespace
}  // namespace whole_test
