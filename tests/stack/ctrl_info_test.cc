// Reading and checking a stack file's header.
#include "lib/vk_push_stack/ctrl_info.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "stack/stack_test.h"

namespace {

using files::i32;
using files::u32;
using stack_test::header;
using testing::ElementsAre;
using testing::IsEmpty;
using vk::reclaim_rule;
using vk::stack_header;

class ControlInformation : public testing::Test {
 protected:
  void TearDown() override {
    if (fd_ != -1) close(fd_);
  }
  // A file that holds just these bytes, opened and positioned somewhere.
  void open_file(const std::string &bytes) {
    if (fd_ != -1) close(fd_);
    ASSERT_TRUE(files::write(path_, bytes));
    fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd_, 0);
    ASSERT_EQ(lseek(fd_, 11, SEEK_SET), 11);
  }
  int read_header(int trace_on = 1, bool may_wait = false) {
    std::memset(&header_, 0x5a, sizeof header_);
    return vk::vk_get_stack_ctrl_info(trace_on, trace_on == 1 ? trace_.path() : nullptr, fd_, &header_, may_wait,
                                      reclaim_rule::standard);
  }
  // The header read, as the bytes of a file.
  std::string bytes_read() const {
    return u32(header_.version) + std::string(reinterpret_cast<const char *>(&header_.control), 20);
  }
  std::string call(const std::string &name, const std::string &rest) const {
    return name + "(" + std::to_string(fd_) + ", " + rest;
  }

  files::TemporaryDirectory directory_;
  std::string path_ = directory_ / "stack";
  stack_test::Trace trace_;
  stack_header header_;
  int fd_ = -1;
};

const std::string kGood = header(0, 24, 24, 24, 16384, 0);

TEST_F(ControlInformation, IsReadWithOneSeekAndTwoReads) {
  open_file(header(0, 24, 5000, 300, 16384, 1) + "records");
  platform::Calls calls;
  EXPECT_EQ(calls.during([&] { return read_header(0); }), 0);
  EXPECT_THAT(calls.log(),
              ElementsAre(call("lseek", "0, SEEK_SET) = 0"), call("read", "4) = 4"), call("read", "20) = 20")));
  EXPECT_EQ(files::difference(header(0, 24, 5000, 300, 16384, 1), bytes_read()), "");
}

auto entry(const std::string &text) {
  return ElementsAre(trace_entry("vk_get_stack_ctrl_info", text));
}

struct Row {
  std::string bytes;
  int result;
  std::string text;  // of the trace
};

std::string fine(const char *numbers) {
  return std::string("Stack file version: VOSK_STACK_VERSION_1 (0x0)\n") + numbers + "\nReturning VOSK_SUCCESS(0)\n";
}
std::string corrupt(const std::string &what) {
  return what + "\nAssuming file is corrupted\nReturning VOSK_FILE_CORRUPT(-26)\n";
}
std::string range(const std::string &what_and_value) {
  return corrupt(what_and_value + " is beyond accpetable range of 8192 and 16384");
}

TEST_F(ControlInformation, IsAcceptedUpToTheBoundsOfEachField) {
  const Row rows[] = {
      {kGood, 0,
       fine("Init offset: 24 bytes, Recording position: 24 bytes\n"
            "Earliest rec offset: 24 bytes, File size: 16384 bytes, Wrapped: 0")},
      {header(0, 24, 24, 24, 8192, 0), 0,
       fine("Init offset: 24 bytes, Recording position: 24 bytes\n"
            "Earliest rec offset: 24 bytes, File size: 8192 bytes, Wrapped: 0")},
      // Positions are not compared with the file size, nor with each other.
      {header(0, 16384, 16384, 16384, 8192, 1), 0,
       fine("Init offset: 16384 bytes, Recording position: 16384 bytes\n"
            "Earliest rec offset: 16384 bytes, File size: 8192 bytes, Wrapped: 1")},
      {header(0, 24, 16384, 25, 8193, 1), 0,
       fine("Init offset: 24 bytes, Recording position: 16384 bytes\n"
            "Earliest rec offset: 25 bytes, File size: 8193 bytes, Wrapped: 1")},
      // The three last bytes are anything.
      {header(0, 25, 26, 27, 16383, 0, "\xff\x01\x80"), 0,
       fine("Init offset: 25 bytes, Recording position: 26 bytes\n"
            "Earliest rec offset: 27 bytes, File size: 16383 bytes, Wrapped: 0")},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    open_file(row.bytes);
    EXPECT_EQ(read_header(), row.result);
    EXPECT_EQ(files::difference(row.bytes, bytes_read()), "");
    EXPECT_THAT(trace_.take(), entry(row.text));
    EXPECT_EQ(files::difference(row.bytes, *files::read(path_)), "");
  }
}

TEST_F(ControlInformation, IsCorruptOnePastTheBoundsOfEachField) {
  const Row rows[] = {
      {header(0, 24, 24, 24, 8191, 0), -26, range("File size 8191")},
      {header(0, 24, 24, 24, 16385, 0), -26, range("File size 16385")},
      {header(0, 24, 24, 24, 0, 0), -26, range("File size 0")},
      {header(0, 24, 24, 24, -16384, 0), -26, range("File size -16384")},
      {header(0, 24, 24, 24, INT_MIN, 0), -26, range("File size -2147483648")},
      {header(0, 24, 23, 24, 16384, 0), -26, range("Current recording position 23")},
      {header(0, 24, 16385, 24, 16384, 0), -26, range("Current recording position 16385")},
      {header(0, 24, -1, 24, 16384, 0), -26, range("Current recording position -1")},
      {header(0, 24, INT_MAX, 24, 16384, 0), -26, range("Current recording position 2147483647")},
      {header(0, 24, 24, 23, 16384, 0), -26, range("Earliest record location 23")},
      {header(0, 24, 24, 16385, 16384, 0), -26, range("Earliest record location 16385")},
      {header(0, 24, 24, INT_MIN, 16384, 0), -26, range("Earliest record location -2147483648")},
      {header(0, 23, 24, 24, 16384, 0), -26, range("Initial record offset 23")},
      {header(0, 16385, 24, 24, 16384, 0), -26, range("Initial record offset 16385")},
      {header(0, -24, 24, 24, 16384, 0), -26, range("Initial record offset -24")},
      {header(0, 24, 24, 24, 16384, 2), -26, corrupt("File wrap indicator 0x2 is not one of 0x1 or 0x0")},
      {header(0, 24, 24, 24, 16384, 255), -26, corrupt("File wrap indicator 0xff is not one of 0x1 or 0x0")},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    open_file(row.bytes);
    EXPECT_EQ(read_header(), row.result);
    EXPECT_THAT(trace_.take(), entry(row.text));
    EXPECT_EQ(files::difference(row.bytes, *files::read(path_)), "");
  }
}

// Each row mends the fault that the row before was refused for.
TEST_F(ControlInformation, IsCheckedFieldByFieldInOneOrder) {
  const Row rows[] = {
      {header(1, 1, 1, 1, 1, 9), -26, corrupt("Stack version 0x1 is not a supported version")},
      {header(0, 1, 1, 1, 1, 9), -26, range("File size 1")},
      {header(0, 1, 1, 1, 8192, 9), -26, range("Current recording position 1")},
      {header(0, 1, 24, 1, 8192, 9), -26, range("Earliest record location 1")},
      {header(0, 1, 24, 24, 8192, 9), -26, range("Initial record offset 1")},
      {header(0, 24, 24, 24, 8192, 9), -26, corrupt("File wrap indicator 0x9 is not one of 0x1 or 0x0")},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    open_file(row.bytes);
    EXPECT_EQ(read_header(), row.result);
    EXPECT_THAT(trace_.take(), entry(row.text));
  }
}

TEST_F(ControlInformation, OfSevenForeignVersionsIsTakenAsItLies) {
  for (const char *number : {"8", "10", "18", "20", "28", "30", "38"}) {  // hexadecimal, as the trace shows it
    SCOPED_TRACE(number);
    const auto version = static_cast<std::uint32_t>(std::stoul(number, nullptr, 16));
    const std::string bytes = header(version, -1, INT_MAX, INT_MIN, 7, 200, "abc");
    open_file(bytes);
    EXPECT_EQ(read_header(), -99);
    EXPECT_EQ(files::difference(bytes, bytes_read()), "");
    EXPECT_THAT(trace_.take(), entry("Stack file version: UNKNOWN (0x" + std::string(number) +
                                     ")\nInit offset: -1 bytes, Recording position: 2147483647 bytes\n"
                                     "Earliest rec offset: -2147483648 bytes, File size: 7 bytes\n"
                                     "Returning VOSK_UNSUPPORTED(-99)\n"));
  }
}

TEST_F(ControlInformation, OfAnyOtherVersionIsCorrupt) {
  struct VersionRow {
    std::uint32_t version;
    const char *hex;
  };
  for (const VersionRow &row : {VersionRow{1, "1"},
                                {3, "3"},
                                {7, "7"},
                                {9, "9"},
                                {12, "c"},
                                {15, "f"},
                                {17, "11"},
                                {55, "37"},
                                {57, "39"},
                                {64, "40"},
                                {0x10000, "10000"},
                                {0x80000000, "80000000"},
                                {0x80000008, "80000008"},
                                {0xfffffff8, "fffffff8"},
                                {0x46544b56, "46544b56"}}) {
    SCOPED_TRACE(row.hex);
    open_file(header(row.version, 24, 24, 24, 16384, 0));
    EXPECT_EQ(read_header(), -26);
    EXPECT_THAT(trace_.take(),
                entry(corrupt("Stack version 0x" + std::string(row.hex) + " is not a supported version")));
  }
}

TEST_F(ControlInformation, CountsMissingBytesAsZero) {
  const Row rows[] = {
      {"", -26, range("File size 0")},
      {std::string("\0\0", 2), -26, range("File size 0")},
      {std::string("\x08", 1), -99,
       "Stack file version: UNKNOWN (0x8)\nInit offset: 0 bytes, Recording position: 0 bytes\n"
       "Earliest rec offset: 0 bytes, File size: 0 bytes\nReturning VOSK_UNSUPPORTED(-99)\n"},
      {kGood.substr(0, 4), -26, range("File size 0")},
      {kGood.substr(0, 16), -26, range("File size 0")},
      {kGood.substr(0, 17), -26, range("File size 0")},  // the low byte of 16384
      {kGood.substr(0, 18), 0,
       fine("Init offset: 24 bytes, Recording position: 24 bytes\n"
            "Earliest rec offset: 24 bytes, File size: 16384 bytes, Wrapped: 0")},
      {header(0, 24, 24, 24, 16384, 1).substr(0, 20), 0,
       fine("Init offset: 24 bytes, Recording position: 24 bytes\n"
            "Earliest rec offset: 24 bytes, File size: 16384 bytes, Wrapped: 0")},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.bytes.size() << " bytes");
    open_file(row.bytes);
    EXPECT_EQ(read_header(), row.result);
    EXPECT_EQ(files::difference(row.bytes + stack_test::zeros(24 - row.bytes.size()), bytes_read()), "");
    EXPECT_THAT(trace_.take(), entry(row.text));
  }
}

TEST_F(ControlInformation, IsCorruptWhereTheFileCannotBeRead) {
  struct Fault {
    const char *call;
    int nth;
    const char *text;
  };
  const Fault rows[] = {
      {"lseek", 1, "Cannot lseek to position 0 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n"},
      {"read", 1, "Cannot read from position 0 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n"},
      {"read", 2, "Cannot read from position 4 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n"},
  };
  for (const Fault &row : rows) {
    SCOPED_TRACE(row.text);
    open_file(kGood);
    platform::Calls calls;
    calls.ignore_path(trace_.path());
    calls.fail_nth(row.call, row.nth, EIO);
    EXPECT_EQ(calls.during([&] { return read_header(); }), -26);
    EXPECT_THAT(trace_.take(), entry(row.text));
  }
}

TEST_F(ControlInformation, AsksForADescriptorFirstAndThenForABlock) {
  EXPECT_EQ(vk::vk_get_stack_ctrl_info(1, trace_.path(), -1, nullptr, false, reclaim_rule::standard), -4);
  EXPECT_THAT(trace_.take(), ElementsAre("vk_get_stack_ctrl_info: Invalid VOSK Error Stack file descriptor -1"));
  EXPECT_EQ(vk::vk_get_stack_ctrl_info(1, trace_.path(), INT_MIN, &header_, true, reclaim_rule::standard), -4);
  EXPECT_THAT(trace_.take(),
              ElementsAre("vk_get_stack_ctrl_info: Invalid VOSK Error Stack file descriptor -2147483648"));
  EXPECT_EQ(vk::vk_get_stack_ctrl_info(1, trace_.path(), 0, nullptr, false, reclaim_rule::standard), -5);
  EXPECT_THAT(trace_.take(), ElementsAre("vk_get_stack_ctrl_info: Invalid buffer address 0x0"));
  EXPECT_EQ(vk::vk_get_stack_ctrl_info(0, nullptr, -1, nullptr, false, reclaim_rule::standard), -4);
  EXPECT_EQ(vk::vk_get_stack_ctrl_info(0, nullptr, 0, nullptr, false, reclaim_rule::standard), -5);
}

TEST_F(ControlInformation, IsTracedForOneOnly) {
  open_file(kGood);
  for (int trace_on : {0, 2, -1}) {
    EXPECT_EQ(vk::vk_get_stack_ctrl_info(trace_on, trace_.path(), fd_, &header_, false, reclaim_rule::standard), 0);
  }
  EXPECT_THAT(trace_.take(), IsEmpty());
}

// The standard rule lets a record run up to 4 bytes past the file size.
TEST_F(ControlInformation, UnderWholeRecordsHasItsPositionInTheFileOrFourBytesBehind) {
  const struct {
    std::int32_t position, size;
    int result;
  } rows[] = {{24, 8192, 0},     {8192, 8192, 0},     {8196, 8192, 0},       {8197, 8192, -26}, {9000, 8192, -26},
              {16388, 16384, 0}, {16389, 16384, -26}, {INT_MAX, 16384, -26}, {23, 16384, -26}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.position);
    open_file(header(0, 24, row.position, 24, row.size, 1));
    EXPECT_EQ(vk::vk_get_stack_ctrl_info(1, trace_.path(), fd_, &header_, false, reclaim_rule::whole), row.result);
    const std::string number = std::to_string(row.position);
    EXPECT_THAT(trace_.take(), row.result == 0 ? entry(fine(("Init offset: 24 bytes, Recording position: " + number +
                                                             " bytes\n" + "Earliest rec offset: 24 bytes, File size: " +
                                                             std::to_string(row.size) + " bytes, Wrapped: 1")
                                                                .c_str()))
                                               : entry(range("Current recording position " + number)));
  }
}

// The read of the control information goes on behind it, and again where it brought less than the file is to hold.
TEST_F(ControlInformation, ComesWithTheWholeFileWhereThatIsAskedFor) {
  struct ImageRow {
    const char *what;
    std::int32_t size;         // as the header says
    std::size_t length;        // of the file
    std::size_t end;           // of what is seen of it
    long long first;           // what the first read brings at most
    std::vector<int> returns;  // of the reads behind the version
  };
  const ImageRow rows[] = {
      {"as long as it says", 8192, 8192, 8192, 20000, {8188}},
      {"the largest", 16384, 16384, 16384, 20000, {16380}},
      {"a record of the standard rule runs past the size", 8192, 8196, 8196, 20000, {8192}},
      {"much longer", 8192, 20000, 16388, 20000, {16384}},
      {"a short read", 8192, 8192, 8192, 1000, {1000, 7188}},
      {"a read that ends in front of the last byte", 8192, 8192, 8192, 8187, {8187, 1}},
      {"a short read of a longer file", 8192, 20000, 16388, 1000, {1000, 15384}},
      {"a read of all that it says", 8192, 20000, 8192, 8188, {8188}},
      {"a file that was cut", 8192, 8191, 8191, 20000, {8187, 0}},
      {"a file of a header", 8192, 24, 24, 20000, {20, 0}},
      {"a short read of what is too large", 16385, 16384, 16384, 1000, {1000, 15380}},
      {"all that there can be", 16385, 16384, 16384, 20000, {16380}},
      {"a size below zero", -1, 8192, 1004, 1000, {1000}},
  };
  for (const ImageRow &row : rows) {
    SCOPED_TRACE(row.what);
    std::string bytes = header(0, 24, 24, 24, row.size, 0);
    while (bytes.size() < row.length) bytes += static_cast<char>('a' + bytes.size() % 23);
    open_file(bytes);
    struct {
      vk::stack_image image;
      char behind[8192];
    } memory;
    std::memset(&memory, 0x5a, sizeof memory);
    platform::Calls calls;
    calls.short_nth("read", 2, row.first);
    calls.during([&] {
      return vk::vk_get_stack_ctrl_info(0, nullptr, fd_, &header_, false, reclaim_rule::whole, &memory.image);
    });
    std::vector<std::string> reads = {call("read", "4) = 4")};
    std::size_t at = 4;
    for (const int count : row.returns) {
      reads.push_back(call("read", std::to_string(16388 - at) + ") = " + std::to_string(count)));
      at += static_cast<std::size_t>(count);
    }
    EXPECT_EQ(calls.log_of({"read"}), reads);
    EXPECT_EQ(memory.image.end, row.end);
    const std::string seen(reinterpret_cast<const char *>(memory.image.bytes), sizeof memory.image.bytes);
    EXPECT_EQ(files::difference(bytes.substr(4, row.end - 4), seen.substr(4, row.end - 4)), "");
    EXPECT_EQ(seen.find_first_not_of('\0', row.end), std::string::npos) << "what lies behind the end is zero";
    EXPECT_EQ(std::string(memory.behind, sizeof memory.behind), std::string(sizeof memory.behind, '\x5a'));
    EXPECT_EQ(files::difference(bytes.substr(4, 20), bytes_read().substr(4)), "");
  }
}

// While its creator is still at work a file is empty, or begins with the reservation's text line.
TEST_F(ControlInformation, OfAnUnfinishedFileIsWaitedForWithoutATraceWhereThatIsAllowed) {
  const std::string line = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
  struct WaitRow {
    std::string bytes;
    int waiting, decided;
  };
  const WaitRow rows[] = {
      {"", vk::kStackUnfinished, -26},
      {line + stack_test::zeros(100), vk::kStackUnfinished, -26},
      {line.substr(0, 4), vk::kStackUnfinished, -26},
      {line.substr(0, 3), -26, -26},          // no such state
      {"VKTG" + line.substr(4), -26, -26},    //
      {stack_test::zeros(1), -26, -26},       //
      {stack_test::zeros(16384), -26, -26},   //
      {kGood, 0, 0},                          //
      {header(16, 0, 0, 0, 0, 0), -99, -99},  //
      {header(0, 24, 23, 24, 16384, 0) + line, -26, -26},
  };
  for (const WaitRow &row : rows) {
    SCOPED_TRACE(row.bytes.substr(0, 40));
    open_file(row.bytes);
    EXPECT_EQ(read_header(1, true), row.waiting);
    EXPECT_EQ(trace_.take().size(), row.waiting == vk::kStackUnfinished ? 0u : 1u);
    EXPECT_EQ(read_header(1, false), row.decided);
    EXPECT_EQ(trace_.take().size(), 1u);
  }
}

}  // namespace
