// Records that do not fit into their 1024 bytes.
#include "stack/record_test.h"

namespace {

using files::i32;
using files::u32;
using files::u64;
using stack_test::z;
using stack_test::zeros;

// A record in which only the details are longer than nothing; 100 bytes of body stand in front of the source file.
class CutRecord : public stack_test::RecordTest {
 protected:
  CutRecord() {
    in_.assoc_fid = nullptr;
    in_.source_file = in_.source_version = in_.product_name = in_.catalogue_name = in_.default_message = "";
    context_.process_name = "";
    context_.detail = "";
    context_.eid = none_.chars();
    context_.seconds = 0;
    in_.line = in_.message_set = in_.message_number = 1;
    context_.pid = context_.parent = 1;
    context_.thread = 1;
  }
  EdgeBuffer none_{zeros(43)};
};

std::string record(const std::string &body) {
  return u32(static_cast<std::uint32_t>(body.size())) + zeros(4) + body;
}
std::string x(std::size_t count) {
  return std::string(count, 'x');
}

const std::string kOne = i32(1);
const std::string kIdentifiers = zeros(4 + 43 + 43 + 4);            // 94 bytes
const std::string kProcess = kOne + kOne + kOne;                    // 12
const std::string kMessage = z("") + kOne + kOne + z("") + i32(0);  // catalogue to argument count, 14
// All 128 bytes of body in front of the details.
const std::string kAllButDetail = kIdentifiers + z("") + kProcess + z("") + z("") + z("") + kOne + kMessage;
constexpr std::size_t kDetailRoom = 1016 - 128;

TEST_F(CutRecord, IsOneOfWhichATextLosesAByte) {
  ASSERT_EQ(kAllButDetail.size(), 128u);
  struct Row {
    std::size_t given;
    std::string detail;
    int result;
  };
  const Row rows[] = {
      {kDetailRoom - 2, z(x(kDetailRoom - 2)), 0},  // one byte is left
      {kDetailRoom - 1, z(x(kDetailRoom - 1)), 0},  // the zero byte is the last one
      {kDetailRoom, x(kDetailRoom), 0},             // fits, without a zero byte
      {kDetailRoom + 1, x(kDetailRoom), -38},       //
      {5000, x(kDetailRoom), -38},                  //
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.given);
    const std::string detail = x(row.given);
    context_.detail = detail.c_str();
    EXPECT_EQ(files::difference(record(kAllButDetail + row.detail), build(row.result)), "");
  }
}

TEST_F(CutRecord, HoldsADefaultMessageOf2000BytesUpToByte1024) {
  const std::string message = x(2000);
  in_.default_message = message.c_str();
  const std::string start = kIdentifiers + z("") + kProcess + z("") + z("") + z("") + kOne + z("") + kOne + kOne;
  const std::string built = build(-38);
  EXPECT_EQ(built.size(), 1024u);
  EXPECT_EQ(files::difference(record(start + x(1016 - start.size())), built), "");
}

// The text that fills the record exactly is no cut, and neither is an empty one behind it.
TEST_F(CutRecord, IsNotCutByEmptyTextsBehindItsEnd) {
  const std::string name = x(1016 - 94);
  context_.process_name = name.c_str();
  EXPECT_EQ(files::difference(record(kIdentifiers + name), build(0)), "");

  // With its zero byte it does.
  const std::string shorter = x(1016 - 94 - 1);
  context_.process_name = shorter.c_str();
  EXPECT_EQ(files::difference(record(kIdentifiers + z(shorter)), build(0)), "");
}

TEST_F(CutRecord, IsCutByTheFirstTextBehindItsEndThatIsNotEmpty) {
  const std::string name = x(1016 - 94);
  context_.process_name = name.c_str();
  const char **const texts[] = {&in_.source_file,    &in_.source_version,  &in_.product_name,
                                &in_.catalogue_name, &in_.default_message, &context_.detail};
  for (const char **text : texts) {
    *text = "y";
    EXPECT_EQ(files::difference(record(kIdentifiers + name), build(-38)), "");
    *text = "";
  }
  flags_[VK_FLAG_NO_FILE_NAME] = 1;  // the substitute is a text like any other
  EXPECT_EQ(files::difference(record(kIdentifiers + name), build(-38)), "");
}

// Room for the zero byte behind the name and `left` bytes more.
TEST_F(CutRecord, SkipsNumbersThatDoNotFitAndGoesOnBehindThem) {
  struct Row {
    std::size_t left;
    std::string behind;
    int result;
  };
  const Row rows[] = {
      // "ab" of the source file stands where a process number would have been too long.
      {0, "", -38},
      {1, "a", -38},
      {2, "ab", 0},
      {3, z("ab"), 0},
      {4, kOne, -38},
      {5, kOne + "a", -38},
      {7, kOne + z("ab"), 0},
      {11, kOne + kOne + z("ab"), 0},
      {12, kOne + kOne + kOne, -38},
      {15, kProcess + z("ab"), 0},
      // The empty texts take what is left, and then the line has no room.
      {18, kProcess + z("ab") + zeros(2) + "c", 0},
      {19, kProcess + z("ab") + zeros(2) + z("c"), 0},
      {20, kProcess + z("ab") + zeros(2) + z("c") + zeros(1), 0},
      {21, kProcess + z("ab") + zeros(2) + kOne, -38},
      {22, kProcess + z("ab") + zeros(2) + kOne + "c", 0},
  };
  in_.source_file = "ab";
  for (const Row &row : rows) {
    SCOPED_TRACE(row.left);
    in_.catalogue_name = row.left >= 18 ? "c" : "";
    const std::string name = x(1016 - 94 - 1 - row.left);
    context_.process_name = name.c_str();
    EXPECT_EQ(files::difference(record(kIdentifiers + z(name) + row.behind), build(row.result)), "");
  }
}

TEST_F(CutRecord, SkipsTheValueOfAnArgumentThatDoesNotFit) {
  struct Row {
    std::size_t left;  // behind the argument count
    std::string arguments_and_detail;
    int result;
  };
  const Row rows[] = {
      // A number, type and value, then the text "pq", then the details "d".
      {0, "", -38},
      {3, "pq" + zeros(1), -38},
      {4, i32(1), -38},
      {7, i32(1) + z("pq"), -38},
      {8, i32(1) + i32(5), -38},
      {10, i32(1) + i32(5) + "pq", -38},
      {11, i32(1) + i32(5) + z("pq"), -38},
      {12, i32(1) + u64(7), -38},  // value, then no room for the text
      {16, i32(1) + u64(7) + i32(5), -38},
      {18, i32(1) + u64(7) + i32(5) + "pq", -38},
      {19, i32(1) + u64(7) + i32(5) + z("pq"), -38},
      {20, i32(1) + u64(7) + i32(5) + z("pq") + "d", 0},
      {21, i32(1) + u64(7) + i32(5) + z("pq") + z("d"), 0},
  };
  set_arguments({number_argument(CU_ARG_INT, 7), text_argument("pq")});
  context_.detail = "d";
  const std::string start = kIdentifiers + z("") + kProcess + z("") + z("") + z("") + kOne + z("") + kOne + kOne;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.left);
    const std::string message = x(1016 - start.size() - 1 - 4 - row.left);
    in_.default_message = message.c_str();
    EXPECT_EQ(files::difference(record(start + z(message) + i32(2) + row.arguments_and_detail), build(row.result)), "");
  }
}

// A cut text is the end, whatever room smaller fields would have had.
TEST_F(CutRecord, HasNothingBehindACutText) {
  set_arguments({text_argument("abcdef"), number_argument(CU_ARG_INT, 7)});
  const std::string start = kIdentifiers + z("") + kProcess + z("") + z("") + z("") + kOne + z("") + kOne + kOne;
  const std::string message = x(1016 - start.size() - 1 - 4 - 4 - 3);
  in_.default_message = message.c_str();
  EXPECT_EQ(files::difference(record(start + z(message) + i32(2) + i32(5) + "abc"), build(-38)), "");
}

}  // namespace
