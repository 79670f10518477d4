// Making identifiers: what each request yields, with the calls and the trace of both generations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "identifiers/making.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using making::identifier;
using making::kNone;
using making::kStackFile;
using making::Made;
using making::Request;
using platform::Calls;
using testing::ElementsAre;

class Generation : public testing::Test {
 protected:
  Generation() { environment_.set("VOSKADDR", making::kAddress); }

  int make(const Request &request, int trace_on, const char *trace_path, Made &made) {
    Calls calls;
    making::know_everything(calls);
    return calls.during([&] { return making::make(request, trace_on, trace_path, &made.seconds, made.eid.chars()); });
  }

  platform::Environment environment_;
};

struct Yield {
  Request request;
  const char *header_and_field;
};

TEST_F(Generation, YieldsTheIdentifierOfEachRequest) {
  const Yield rows[] = {
      {{1, kStackFile, 0}, "/5Oh2.."},
      {{1, nullptr, 0x12345678}, ".sN3BG."},
      {{1, nullptr, 1}, "./....."},
      {{1, nullptr, 0}, "......."},
      {{2, kStackFile, 0}, "75Oh2.."},
      {{2, kStackFile, 0, 185, 0}, "75Oh2.."},  // the first facility that is none; a priority does not matter then
      {{2, kStackFile, 0, kNone, 9}, "75Oh2.."},
      {{2, nullptr, 0x12345678}, "6sN3BG."},
      {{2, nullptr, 0xFFFFFFFF}, "6zzzzz1"},
      {{2, nullptr, 0, 24, 3}, "822...."},
      {{2, nullptr, 0, 0, 0}, "8//...."},
      {{2, nullptr, 0, 1, 0}, "8//...."},  // not shifted: the low three bits are lost
      {{2, nullptr, 0, 23, 7}, "816...."},
      {{2, nullptr, 0, 184, 7}, "8M6...."},
      // The facility comes last and replaces what was asked for beside it.
      {{2, kStackFile, 0, 24, 3}, "822...."},
      {{2, kStackFile, 0, 184, 0}, "8M/...."},
      {{2, nullptr, 0x12345678, 24, 3}, "822...."},
      {{2, nullptr, 7, 0, 1}, "8/0...."},
      {{2, nullptr, 0}, "6......"},  // nothing asked for
      {{2, nullptr, 0, 185, 9}, "6......"},
  };
  for (const Yield &row : rows) {
    SCOPED_TRACE(row.header_and_field);
    Made made;
    EXPECT_EQ(make(row.request, 0, nullptr, made), 0);
    EXPECT_EQ(made.eid.bytes(), identifier(row.header_and_field) + '\0');
    EXPECT_EQ(made.seconds, making::kSeconds);
  }
}

TEST_F(Generation, YieldsTheExampleThatWasWorkedOutByHand) {
  Made made;
  EXPECT_EQ(make({2, kStackFile, 0}, 0, nullptr, made), 0);
  EXPECT_STREQ(made.eid.chars(), "75Oh2...2zIZ/.7S..XO.8....................");
}

TEST_F(Generation, ReadsTheClockThenTheAddressThenTheFile) {
  const struct {
    Request request;
    std::vector<std::string> log;
  } rows[] = {
      {{1, kStackFile, 0},
       {"gettimeofday() = 0", "getenv(\"VOSKADDR\") = \".XO.8....................\"",
        "stat(\"/var/adm/vosk/stacks/s.1\") = 0"}},
      {{1, nullptr, 9}, {"gettimeofday() = 0", "getenv(\"VOSKADDR\") = \".XO.8....................\""}},
      {{2, kStackFile, 0},
       {"gettimeofday() = 0", "getenv(\"VOSKADDR\") = \".XO.8....................\"",
        "stat(\"/var/adm/vosk/stacks/s.1\") = 0"}},
      {{2, kStackFile, 0, 24, 3},
       {"gettimeofday() = 0", "getenv(\"VOSKADDR\") = \".XO.8....................\"",
        "stat(\"/var/adm/vosk/stacks/s.1\") = 0"}},
      {{2, nullptr, 9, 24, 3}, {"gettimeofday() = 0", "getenv(\"VOSKADDR\") = \".XO.8....................\""}},
      {{1, kStackFile, 9}, {}},
      {{2, kStackFile, 9}, {}},
      {{2, kStackFile, 0, 23, 0}, {}},
  };
  for (const auto &row : rows) {
    Made made;
    Calls calls;
    making::know_everything(calls);
    calls.during([&] { return making::make(row.request, 0, nullptr, &made.seconds, made.eid.chars()); });
    EXPECT_EQ(calls.log(), row.log);
  }
}

const std::string kTimeEntry =
    trace_entry("vk_get_base_64_time",
                "Time of day value 1700000000 secs 123456 usecs converted to base-64 rep of .2zIZ/.7S.\n"
                "Returning VOSK_SUCCESS(0) to caller\n");
const std::string kInodeEntry =
    trace_entry("vk_get_base_64_inode",
                "File /var/adm/vosk/stacks/s.1 i-node is 1234567\nBase-64 representation is 5Oh2..\n"
                "Returning VOSK_SUCCESS(0) to the caller\n");
const std::string kSelectorEntry = trace_entry(
    "vk_get_base_64_selector", "Facility 3 and priority 3 translated to code \"22....\" - returning VOSK_SUCCESS(0)");

std::string header_entry(const std::string &location, const std::string &code, const std::string &character) {
  return trace_entry("vk_get_base_64_hdr", "Combined version code 0x0 and location 0x" + location +
                                               " into header code 0x" + code + "\nBase-64 equiv: " + character +
                                               "\nReturning VOSK_SUCCESS(0) to the caller\n");
}
std::string template_entry(const std::string &id, const std::string &field) {
  return trace_entry("vk_get_base_64_templ", "Converted template ID " + id + " to base-64 value of " + field +
                                                 "\nReturning VOSK_SUCCESS(0) to the caller\n");
}
// Both generations trace under the same name.
std::string created_entry(const std::string &header_and_field) {
  return trace_entry("vk_generate_eid", "Created VOSK Error ID " + identifier(header_and_field) +
                                            "\nReturning VOSK_SUCCESS(0) to caller\n");
}

TEST_F(Generation, TracesEveryStep) {
  const struct {
    Request request;
    std::vector<std::string> entries;
  } rows[] = {
      {{1, kStackFile, 0}, {kTimeEntry, header_entry("1", "1", "/"), kInodeEntry, created_entry("/5Oh2..")}},
      {{1, nullptr, 0},
       {kTimeEntry, header_entry("0", "0", "."), template_entry("0", "......"), created_entry(".......")}},
      {{2, kStackFile, 0}, {kTimeEntry, header_entry("1", "9", "7"), kInodeEntry, created_entry("75Oh2..")}},
      {{2, nullptr, 305419896},
       {kTimeEntry, header_entry("0", "8", "6"), template_entry("305419896", "sN3BG."), created_entry("6sN3BG.")}},
      {{2, nullptr, 0, 24, 3}, {kTimeEntry, header_entry("2", "a", "8"), kSelectorEntry, created_entry("822....")}},
      {{2, kStackFile, 0, 24, 3},
       {kTimeEntry, header_entry("1", "9", "7"), kInodeEntry, header_entry("2", "a", "8"), kSelectorEntry,
        created_entry("822....")}},
      {{2, nullptr, 1, 24, 3},
       {kTimeEntry, header_entry("0", "8", "6"), template_entry("1", "/....."), header_entry("2", "a", "8"),
        kSelectorEntry, created_entry("822....")}},
      {{2, nullptr, 0}, {kTimeEntry, created_entry("6......")}},
  };
  for (const auto &row : rows) {
    Made made;
    expect_result_and_trace([&](int on, const char *path) { return make(row.request, on, path, made); }, 0,
                            row.entries);
  }
}

TEST_F(Generation, TellsTwoMomentsApartButNotTwoCallsInOneMicrosecond) {
  for (int version : {1, 2}) {
    std::string eids[3];
    for (int i = 0; i < 3; ++i) {
      Made made;
      Calls calls;
      making::know_everything(calls);
      calls.fixed_clock(making::kSeconds, i < 2 ? 5 : 6);
      calls.during([&] { return making::make({version, kStackFile, 0}, 0, nullptr, &made.seconds, made.eid.chars()); });
      eids[i] = made.eid.bytes();
    }
    EXPECT_EQ(eids[0], eids[1]);
    EXPECT_NE(eids[1], eids[2]);
  }
}

TEST_F(Generation, NamesARealFileByItsInode) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "stack", ""));
  struct stat status;
  ASSERT_EQ(stat((directory / "stack").c_str(), &status), 0);
  for (int version : {1, 2}) {
    Made made;
    ASSERT_EQ(making::make({version, (directory / "stack").c_str(), 0}, 0, nullptr, &made.seconds, made.eid.chars()),
              0);
    char field[7] = {};
    vk_selector_substr(made.eid.chars(), field);
    EXPECT_EQ(vk_a64l(field), status.st_ino & 0xFFFFFFFFF);
    EXPECT_EQ(vk_a64l(made.eid.bytes().substr(7, 6).c_str()), static_cast<std::uint64_t>(made.seconds));
    EXPECT_EQ(made.eid.bytes().substr(17), std::string(making::kAddress) + '\0');
  }
}

}  // namespace
