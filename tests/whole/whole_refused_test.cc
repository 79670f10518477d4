// What is refused under whole records: all that the standard rule refuses, but for the position's upper bound.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/cu_double.h"
#include "support/trace_file.h"
#include "whole/whole_test.h"

namespace whole_test {
namespace {

using testing::ElementsAre;

class WholeRefused : public WholeTest {
 protected:
  struct Outcome {
    int code;
    std::vector<std::string> reports;
    std::vector<std::string> trace;  // of the header's check
    std::string file;
  };
  Outcome push_into(const std::string &bytes, const char *rule) {
    reclaim(rule);
    put(bytes);
    const std::string trace = stack() + ".trace";
    files::write(trace, "");
    unlink(trace.c_str());
    environment_.set("VOSKDEBUG", trace);
    cu_double::reset();
    const int code = push(incident_of(300)).code;
    return {code, cu_double::reports(), trace_file::read(trace).messages("vk_get_stack_ctrl_info"), file()};
  }
};

TEST_F(WholeRefused, CorruptHeadersAreRefusedAsByTheStandardRule) {
  const struct {
    const char *what;
    std::size_t at;
    std::uint32_t value;
  } rows[] = {
      {"version", 0, 1},           {"version", 0, 7},       {"version", 0, 9},           {"version", 0, 64},
      {"version", 0, 0xFFFFFFFF},  {"init offset", 4, 23},  {"init offset", 4, 16385},   {"init offset", 4, 0x80000000},
      {"position", 8, 0},          {"position", 8, 23},     {"position", 8, 0xFFFFFFFF}, {"position", 8, 16389},
      {"position", 8, 0x7FFFFFFF}, {"earliest", 12, 23},    {"earliest", 12, 16385},     {"earliest", 12, 0xFFFFFFFF},
      {"file size", 16, 0},        {"file size", 16, 8191}, {"file size", 16, 16385},    {"file size", 16, 0x80000000},
      {"wrap byte", 20, 2},        {"wrap byte", 20, 255},
  };
  Random random(1);
  const std::string sound = filled(16384, 1, random);
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.what << " " << row.value);
    std::string corrupt = sound;
    put_number(corrupt, row.at, row.value);
    const Outcome standard = push_into(corrupt, nullptr), whole = push_into(corrupt, "whole");
    EXPECT_EQ(whole.code, 24);
    EXPECT_EQ(whole.code, standard.code);
    EXPECT_EQ(whole.reports, standard.reports);
    EXPECT_EQ(whole.trace, standard.trace);
    EXPECT_EQ(files::difference(corrupt, whole.file), "");
    EXPECT_EQ(files::difference(corrupt, standard.file), "");
  }
}

TEST_F(WholeRefused, FilesTooShortForAHeaderAreRefusedAsByTheStandardRule) {
  for (const std::size_t size : {std::size_t{1}, std::size_t{4}, std::size_t{12}, std::size_t{17}}) {
    SCOPED_TRACE(size);
    const std::string cut = fresh_file(8192).substr(0, size);
    const Outcome standard = push_into(cut, nullptr), whole = push_into(cut, "whole");
    EXPECT_EQ(whole.code, 24);
    EXPECT_EQ(whole.reports, standard.reports);
    EXPECT_EQ(whole.trace, standard.trace);
    EXPECT_EQ(files::difference(cut, whole.file), "");
  }
}

TEST_F(WholeRefused, ThePositionMayLieFourBytesBehindTheFileSizeAndNoMore) {
  const struct {
    int size, position, standard, whole;
  } rows[] = {
      {8192, 24, 0, 0},     {8192, 8192, 0, 0},    {8192, 8193, 0, 0},    {8192, 8196, 0, 0},
      {8192, 8197, 0, 24},  {8192, 16384, 0, 24},  {16380, 16384, 0, 0},  {16379, 16384, 0, 24},
      {16384, 16384, 0, 0}, {16384, 16385, 24, 0}, {16384, 16388, 24, 0}, {16384, 16389, 24, 24},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.position << " in " << row.size);
    std::string bytes = fresh_file(row.size);
    put_number(bytes, 8, static_cast<std::uint32_t>(row.position));
    const Outcome standard = push_into(bytes, nullptr), whole = push_into(bytes, "whole");
    EXPECT_EQ(recorded(standard.code) ? 0 : standard.code, row.standard);
    EXPECT_EQ(recorded(whole.code) ? 0 : whole.code, row.whole);
    if (row.whole == 0) continue;
    EXPECT_EQ(files::difference(bytes, whole.file), "");
    EXPECT_THAT(whole.reports,
                testing::Contains("24: vosk.cat 1/41 (\"" + stack() + "\", \"vk_get_stack_ctrl_info\")"));
    EXPECT_THAT(whole.trace, ElementsAre(trace_file::folded_text(
                                 "Current recording position %d is beyond accpetable range of 8192 and 16384\n"
                                 "Assuming file is corrupted\nReturning VOSK_FILE_CORRUPT(-26)\n",
                                 row.position)));
  }
}

TEST_F(WholeRefused, AFirstRecordWithoutRoomBehindItIsCorrupt) {
  // 308 bytes from there on: the last offset that has room, and the next.
  for (const int first : {16384 - 308, 16384 - 307, 16384}) {
    SCOPED_TRACE(first);
    std::string bytes = fresh_file(16384);
    put_number(bytes, 4, static_cast<std::uint32_t>(first));
    put_number(bytes, 8, 16200);
    put_number(bytes, 12, 16200);
    const Outcome outcome = push_into(bytes, "whole");
    if (first == 16384 - 308) {
      EXPECT_TRUE(recorded(outcome.code));
      EXPECT_EQ(header_of(outcome.file).position, 16384);
    } else {
      EXPECT_EQ(outcome.code, 24);
      EXPECT_THAT(outcome.reports, testing::Contains("24: vosk.cat 1/41 (\"" + stack() + "\", \"vk_clear_records\")"));
      EXPECT_EQ(files::difference(bytes, outcome.file), "");
      EXPECT_EQ(trace_file::read(stack() + ".trace").messages("vk_clear_records").back(),
                trace_file::folded_text("fclear to position %d in file would corrupt the file - \n"
                                        "Returning VOSK_FILE_CORRUPT(-26)\n",
                                        first + 308));
    }
  }
}

// The header that leads away, and the clearing of the oldest record: each a seek and a write.
TEST_F(WholeRefused, ACallThatFailsWhileRoomIsMadeIsTracedAndEndsThePush) {
  const struct {
    const char *call;
    int nth;
    std::size_t offset;  // of what was to be written; the record that gives way stands behind the header
    const char *text;
  } rows[] = {
      {"lseek", 2, 4, "Cannot lseek to position 4 in stack - error code 5"},
      {"write", 1, 4, "Failure in fclear at offset 4 in file - error code 5"},
      {"lseek", 3, 24, "Cannot lseek to position 24 in stack - error code 5"},
      {"write", 2, 24, "Failure in fclear at offset 24 in file - error code 5"},
  };
  reclaim("whole");
  put(fresh_file(8192));
  for (int i = 0; i < 16; ++i) ASSERT_TRUE(recorded(push(incident_of(492)).code));
  const std::string full = file();
  const std::string trace = stack() + ".trace";
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth);
    put(full);
    unlink(trace.c_str());
    environment_.set("VOSKDEBUG", trace);
    cu_double::reset();
    platform::Calls calls;
    calls.fail_nth(row.call, row.nth, EIO, stack());
    EXPECT_EQ(calls.during([] { return push(incident_of(492)).code; }), 24);
    EXPECT_THAT(cu_double::reports(),
                testing::Contains("24: vosk.cat 1/41 (\"" + stack() + "\", \"vk_clear_records\")"));
    EXPECT_EQ(trace_file::read(trace).messages("vk_clear_records").back(),
              trace_file::folded_text("%s\nReturning VOSK_FILE_CORRUPT(-26)\n", row.text));
    EXPECT_FALSE(files::locked(stack()));
    const std::string left = file();
    if (row.offset == 4) {
      EXPECT_EQ(files::difference(full, left), "");
    }
    put(full);
    environment_.unset("VOSKDEBUG");
    platform::Calls untraced;
    untraced.fail_nth(row.call, row.nth, EIO, stack());
    EXPECT_EQ(untraced.during([] { return push(incident_of(492)).code; }), 24);
    EXPECT_EQ(files::difference(left, file()), "");
  }
}

}  // namespace
}  // namespace whole_test
