// The calls that reclamation makes, and what happens where one of them fails.
#include <cerrno>
#include <climits>

#include "stack/reclamation_test.h"

namespace {

using stack_test::clearing;
using stack_test::kEnoughRoom;
using stack_test::kNotWrapped;
using stack_test::kWraps;
using stack_test::now_cleared;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class ReclamationCalls : public stack_test::ReclamationTest {
 protected:
  // Two records have to go, the second in two pieces of writing.
  void prepare() {
    make_file(8192, {{24, 134}, {162, 1500}, {1666, 0}});
    header_ = header_of(24, 8192, 24, 8192, 0);
    calls_.ignore_path(trace_.path());
  }
  std::string on_stack(const std::string &name, const std::string &rest) const {
    return name + "(" + std::to_string(fd_) + ", " + rest;
  }
  platform::Calls calls_;
};

TEST_F(ReclamationCalls, AreTwoSeeksAReadAndTheClearingForEachRecord) {
  prepare();
  EXPECT_EQ(calls_.during([&] { return clear(1016, 0); }), 0);
  EXPECT_THAT(calls_.log(),
              ElementsAre(on_stack("lseek", "24, SEEK_SET) = 24"), on_stack("read", "4) = 4"),
                          on_stack("lseek", "24, SEEK_SET) = 24"), on_stack("lseek", "0, SEEK_CUR) = 24"),
                          on_stack("write", "138) = 138"),  //
                          on_stack("lseek", "162, SEEK_SET) = 162"), on_stack("read", "4) = 4"),
                          on_stack("lseek", "162, SEEK_SET) = 162"), on_stack("lseek", "0, SEEK_CUR) = 162"),
                          on_stack("write", "1024) = 1024"), on_stack("write", "480) = 480")));
  expect_cleared({{24, 1666}});
}

TEST_F(ReclamationCalls, EndWithTheReadOfTheLengthZero) {
  prepare();
  EXPECT_EQ(calls_.during([&] {
    header_.control.recording_position = 1666;
    header_.control.earliest_record = 1666;
    header_.control.wrapped = 1;
    return clear(1016, 0);
  }),
            0);
  EXPECT_THAT(calls_.log(), ElementsAre(on_stack("lseek", "1666, SEEK_SET) = 1666"), on_stack("read", "4) = 4")));
}

TEST_F(ReclamationCalls, AreNoneWhereNothingHasToGo) {
  struct QuietRow {
    vk::stack_header header;
    std::vector<std::string> trace;
  };
  for (const QuietRow &row :
       {QuietRow{header_of(24, 24, 24, 8192, 0), {kEnoughRoom, kNotWrapped}},
        QuietRow{header_of(24, 1000, 3000, 8192, 1), {kEnoughRoom, stack_test::space_cleared("1000", "3000")}}}) {
    prepare();
    header_ = row.header;
    EXPECT_EQ(calls_.during([&] { return clear(1016); }), 0);
    EXPECT_THAT(calls_.log_of({"lseek", "read", "write"}), IsEmpty());
    EXPECT_THAT(trace_.take(), ElementsAreArray(entries(row.trace)));
  }
}

struct Fault {
  const char *call;
  int nth;
  int error;
  std::size_t cleared_to;  // from byte 24 on
  std::vector<std::string> trace;
};

std::string failed_seek(const std::string &position, const std::string &error) {
  return "Cannot lseek to position " + position + " in stack - error code " + error +
         "\nReturning VOSK_FILE_CORRUPT(-26)\n";
}
std::string failed_read(const std::string &position, const std::string &error) {
  return "Cannot read from position " + position + " in stack - error code " + error +
         "\nReturning VOSK_FILE_CORRUPT(-26)\n";
}
std::string failed_clear(const std::string &position, const std::string &error) {
  return "Failure in fclear at offset " + position + " in file - error code " + error +
         "\nReturning VOSK_FILE_CORRUPT(-26)\n";
}

TEST_F(ReclamationCalls, EachGiveAFileThatCountsAsCorruptWhenTheyFail) {
  const std::string first = clearing("134", "24"), second = clearing("1500", "162"), cleared = now_cleared("138");
  const Fault rows[] = {
      {"lseek", 1, EIO, 24, {kWraps, failed_seek("24", "5")}},
      {"read", 1, EIO, 24, {kWraps, failed_read("24", "5")}},
      {"lseek", 2, EBADF, 24, {kWraps, failed_seek("24", "9")}},
      {"lseek", 3, EIO, 24, {kWraps, first, failed_clear("24", "5")}},      // where fclear asks for the position
      {"lseek", 3, ESPIPE, 24, {kWraps, first, failed_clear("24", "22")}},  //
      {"write", 1, ENOSPC, 24, {kWraps, first, failed_clear("24", "28")}},
      {"lseek", 4, EIO, 162, {kWraps, first, cleared, failed_seek("162", "5")}},
      {"read", 2, EINTR, 162, {kWraps, first, cleared, failed_read("162", "4")}},
      {"lseek", 5, EIO, 162, {kWraps, first, cleared, failed_seek("162", "5")}},
      {"lseek", 6, EIO, 162, {kWraps, first, cleared, second, failed_clear("162", "5")}},
      {"write", 2, EDQUOT, 162, {kWraps, first, cleared, second, failed_clear("162", "122")}},
      {"write", 3, EIO, 162 + 1024, {kWraps, first, cleared, second, failed_clear("162", "5")}},
  };
  for (const Fault &row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth << " errno " << row.error);
    platform::Calls calls;
    prepare();
    calls.ignore_path(trace_.path());
    calls.fail_nth(row.call, row.nth, row.error);
    EXPECT_EQ(calls.during([&] { return clear(1016); }), -26);
    EXPECT_THAT(trace_.take(), ElementsAreArray(entries(row.trace)));
    expect_cleared({{24, row.cleared_to}});
    // Positions stay; the wrap byte is set in memory, which the caller throws away.
    EXPECT_EQ(files::difference(text(header_of(24, 8192, 24, 8192, 1)), text(header_)), "");
    prepare();
    platform::Calls untraced;
    untraced.fail_nth(row.call, row.nth, row.error);
    EXPECT_EQ(untraced.during([&] { return clear(1016, 0); }), -26);
    expect_cleared({{24, row.cleared_to}});
  }
}

TEST_F(ReclamationCalls, AreGoneOnWithWhereAWriteOfZerosIsInterruptedOrShort) {
  prepare();
  calls_.fail_nth("write", 1, EINTR);
  calls_.short_nth("write", 3, 1000);
  EXPECT_EQ(calls_.during([&] { return clear(1016, 0); }), 0);
  EXPECT_EQ(calls_.count("write"), 4);
  expect_cleared({{24, 1666}});
}

TEST_F(ReclamationCalls, AreNotMadeForAMissingDescriptorOrHeader) {
  prepare();
  const auto call = [&](int fd, vk::stack_header *header) {
    return calls_.during([&] { return vk::vk_clear_records(1, trace_.path(), fd, header, 200); });
  };
  EXPECT_EQ(call(-1, nullptr), -4);
  EXPECT_THAT(trace_.take(),
              ElementsAreArray(entries({"Invalid file descriptor -1 - returning VOSK_INV_PARAM3(-4)\n"})));
  EXPECT_EQ(call(INT_MIN, &header_), -4);
  EXPECT_THAT(trace_.take(),
              ElementsAreArray(entries({"Invalid file descriptor -2147483648 - returning VOSK_INV_PARAM3(-4)\n"})));
  EXPECT_EQ(call(0, nullptr), -5);
  EXPECT_THAT(trace_.take(),
              ElementsAreArray(entries({"Invalid ctrl info ptr 0x0 - returning VOSK_INV_PARAM4(-5)\n"})));
  EXPECT_EQ(calls_.during([] { return vk::vk_clear_records(0, nullptr, -1, nullptr, 200); }), -4);
  EXPECT_EQ(calls_.during([] { return vk::vk_clear_records(0, nullptr, 0, nullptr, 200); }), -5);
  EXPECT_THAT(calls_.log_of({"lseek", "read", "write"}), IsEmpty());
}

TEST_F(ReclamationCalls, AreTracedForOneOnly) {
  prepare();
  for (int trace_on : {0, 2, -1}) {
    header_ = header_of(24, 24, 24, 8192, 0);
    EXPECT_EQ(vk::vk_clear_records(trace_on, trace_.path(), fd_, &header_, 200), 0);
  }
  EXPECT_THAT(trace_.take(), IsEmpty());
}

}  // namespace
