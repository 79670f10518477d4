// The fields of an incident record.
#include "stack/record_test.h"

#include <climits>

namespace {

using files::i32;
using files::u32;
using files::u64;
using stack_test::z;
using stack_test::zeros;

class Record : public stack_test::RecordTest {};

const std::string kEid = z("75Oh2...2zIZ/.7S..XO.8....................");
const std::string kAssociated = z("75Oh2...1zIZ/.7S..XO.8....................");

// The fields up to the source file, all 122 bytes of them, and those from the line on.
const std::string kStart =
    zeros(4) + kEid + kAssociated + u32(1700000000) + z("service") + i32(4711) + i32(4710) + u32(0x89abcdef);
const std::string kSource = z("reader.c") + z("1.4") + z("store");
const std::string kRest = i32(42) + z("store.cat") + i32(2) + i32(9) + z("failed");

std::string record(const std::string &body) {
  return u32(static_cast<std::uint32_t>(body.size())) + zeros(4) + body;
}

// Every byte, so that a mistake in the helpers above shows, too.
TEST_F(Record, HoldsItsFieldsPackedInOneOrder) {
  const char expected[] =
      "\xb0\0\0\0"
      "\0\0\0\0"                                      // 176 bytes behind the prefix
      "\0\0\0\0"                                      //
      "75Oh2...2zIZ/.7S..XO.8....................\0"  //
      "75Oh2...1zIZ/.7S..XO.8....................\0"  //
      "\x00\xf1\x53\x65"                              // 1700000000
      "service\0"                                     //
      "\x67\x12\0\0"
      "\x66\x12\0\0"
      "\xef\xcd\xab\x89"  // process, parent, thread
      "reader.c\0"
      "1.4\0"
      "store\0"     //
      "\x2a\0\0\0"  // line
      "store.cat\0"
      "\x02\0\0\0"
      "\x09\0\0\0"  // catalogue, set, number
      "failed\0"    //
      "\0\0\0\0"    // arguments
      "sector 17";
  EXPECT_EQ(files::difference(std::string(expected, sizeof expected), build(0)), "");
  EXPECT_EQ(files::difference(record(kStart + kSource + kRest + zeros(4) + z("sector 17")), build(0)), "");
}

TEST_F(Record, ReplacesWhatIsFlaggedAsMissing) {
  struct Row {
    std::vector<int> flags;
    std::string body;
  };
  const std::string arguments_and_detail = zeros(4) + z("sector 17");
  const Row rows[] = {
      {{VK_FLAG_NO_FILE_NAME}, kStart + z("unknown_file") + z("1.4") + z("store") + kRest + arguments_and_detail},
      {{VK_FLAG_NO_VERSION}, kStart + z("reader.c") + z("no_version_num") + z("store") + kRest + arguments_and_detail},
      {{VK_FLAG_NO_PRODUCT}, kStart + z("reader.c") + z("1.4") + z("qrn_product") + kRest + arguments_and_detail},
      {{VK_FLAG_BAD_LINE},
       kStart + kSource + i32(0) + z("store.cat") + i32(2) + i32(9) + z("failed") + arguments_and_detail},
      {{VK_FLAG_NO_CATALOGUE},
       kStart + kSource + i32(42) + z("") + i32(2) + i32(9) + z("failed") + arguments_and_detail},
      {{VK_FLAG_BAD_SET},
       kStart + kSource + i32(42) + z("store.cat") + i32(0) + i32(9) + z("failed") + arguments_and_detail},
      {{VK_FLAG_BAD_MSG_NUMBER},
       kStart + kSource + i32(42) + z("store.cat") + i32(2) + i32(0) + z("failed") + arguments_and_detail},
      {{VK_FLAG_NO_DEFAULT_MSG},
       kStart + kSource + i32(42) + z("store.cat") + i32(2) + i32(9) + z("") + arguments_and_detail},
      {{VK_FLAG_NO_FILE_NAME, VK_FLAG_NO_VERSION, VK_FLAG_NO_PRODUCT, VK_FLAG_BAD_LINE, VK_FLAG_NO_CATALOGUE,
        VK_FLAG_BAD_SET, VK_FLAG_BAD_MSG_NUMBER, VK_FLAG_NO_DEFAULT_MSG},
       kStart + z("unknown_file") + z("no_version_num") + z("qrn_product") + i32(0) + z("") + i32(0) + i32(0) + z("") +
           arguments_and_detail},
      // The others say nothing about a field.
      {{VK_FLAG_NO_RESOURCE, VK_FLAG_NO_DETAIL, VK_FLAG_BOTH_DETAILS, VK_FLAG_OVER_LENGTH, VK_FLAG_NO_EID_POINTER,
        VK_FLAG_NO_EID, VK_FLAG_COPY_FAILED},
       kStart + kSource + kRest + arguments_and_detail},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.flags));
    flags_ = {};
    set_flags(row.flags);
    EXPECT_EQ(files::difference(record(row.body), build(0)), "");
  }
}

// A caller that gives null pointers has the flags set.
TEST_F(Record, OfNothingButMissingFieldsHas166BytesBehindItsPrefix) {
  in_ = {};
  in_.message_set = in_.message_number = in_.line = INT_MIN;
  context_ = {};
  EdgeBuffer none(zeros(43));
  context_.eid = none.chars();
  set_flags({VK_FLAG_NO_FILE_NAME, VK_FLAG_NO_VERSION, VK_FLAG_NO_PRODUCT, VK_FLAG_BAD_LINE, VK_FLAG_NO_CATALOGUE,
             VK_FLAG_BAD_SET, VK_FLAG_BAD_MSG_NUMBER, VK_FLAG_NO_DEFAULT_MSG});
  const std::string body = zeros(4 + 43 + 43 + 4 + 1 + 12) + z("unknown_file") + z("no_version_num") +
                           z("qrn_product") + zeros(4 + 1 + 4 + 4 + 1 + 4 + 1);
  EXPECT_EQ(files::difference(record(body), build(0)), "");
}

TEST_F(Record, CopiesAnAssociatedIdentifierAsItLies) {
  struct Row {
    const char *what, *text;
    std::string field;
  };
  char with_zeros[43] = {'a', '\0', 'b'};
  with_zeros[42] = 'z';
  char full[43];
  std::memset(full, '\xff', sizeof full);
  char first_is_zero[43] = {'\0', 'x'};
  EdgeBuffer edge_with_zeros(std::string(with_zeros, 43)), edge_full(std::string(full, 43));
  EdgeBuffer edge_empty(std::string(first_is_zero, 1));
  const Row rows[] = {{"null", nullptr, zeros(43)},
                      {"empty", edge_empty.chars(), zeros(43)},
                      {"with zero bytes", edge_with_zeros.chars(), std::string("a\0b", 3) + zeros(39) + "z"},
                      {"without a zero byte", edge_full.chars(), std::string(43, '\xff')}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    in_.assoc_fid = row.text;
    EXPECT_EQ(build(0).substr(8 + 4 + 43, 43), row.field);
  }
}

TEST_F(Record, HasAnEmptyTextForANullProcessNameOrDetail) {
  context_.process_name = nullptr;
  context_.detail = nullptr;
  EXPECT_EQ(files::difference(record(zeros(4) + kEid + kAssociated + u32(1700000000) + z("") + i32(4711) + i32(4710) +
                                     u32(0x89abcdef) + kSource + kRest + zeros(4) + z("")),
                              build(0)),
            "");
}

TEST_F(Record, KeepsNumbersOfAnySizeThatAreNotFlagged) {
  in_.line = INT_MAX;
  in_.message_set = INT_MAX;
  in_.message_number = 0;
  context_.seconds = 0xffffffff;
  context_.pid = INT_MIN;
  context_.parent = 0;
  context_.thread = 0xffffffff;
  EXPECT_EQ(files::difference(record(zeros(4) + kEid + kAssociated + "\xff\xff\xff\xff" + z("service") +
                                     std::string("\0\0\0\x80\0\0\0\0\xff\xff\xff\xff", 12) + kSource +
                                     "\xff\xff\xff\x7f" + z("store.cat") + std::string("\xff\xff\xff\x7f\0\0\0\0", 8) +
                                     z("failed") + zeros(4) + z("sector 17")),
                              build(0)),
            "");
}

TEST_F(Record, StoresEveryTypeOfArgumentButATextInEightBytes) {
  set_arguments({number_argument(CU_ARG_INT, 0xffffffffffffffff), number_argument(CU_ARG_UINT, 4000000000),
                 number_argument(CU_ARG_LONG, 0x8000000000000000), number_argument(CU_ARG_ULONG, 0x0102030405060708),
                 text_argument("sda"), number_argument(CU_ARG_DOUBLE, 0x3ff8000000000000),
                 number_argument(CU_ARG_POINTER, 0x7fff12345678), number_argument(CU_ARG_CHAR, 'c'),
                 number_argument(0, 1), number_argument(-1, 2), number_argument(1000, 3)});
  const std::string arguments = i32(11) +                                                      //
                                i32(1) + std::string(8, '\xff') +                              //
                                i32(2) + std::string("\x00\x28\x6b\xee\0\0\0\0", 8) +          //
                                i32(3) + std::string("\0\0\0\0\0\0\0\x80", 8) +                //
                                i32(4) + std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8) +  //
                                i32(5) + std::string("sda\0", 4) +                             //
                                i32(6) + std::string("\0\0\0\0\0\0\xf8\x3f", 8) +              //
                                i32(7) + std::string("\x78\x56\x34\x12\xff\x7f\0\0", 8) +      //
                                i32(8) + std::string("c\0\0\0\0\0\0\0", 8) +                   //
                                i32(0) + u64(1) + i32(-1) + u64(2) + i32(1000) + u64(3);
  EXPECT_EQ(files::difference(record(kStart + kSource + kRest + arguments + z("sector 17")), build(0)), "");
}

TEST_F(Record, CutsATextArgumentTo64Bytes) {
  struct Row {
    std::size_t given, stored;
  };
  for (const Row &row : {Row{0, 0}, {1, 1}, {63, 63}, {64, 64}, {65, 64}, {100, 64}}) {
    SCOPED_TRACE(row.given);
    EdgeText text(std::string(row.given, 'a'));
    set_arguments({text_argument(text.chars()), number_argument(CU_ARG_INT, 7)});
    EXPECT_EQ(files::difference(record(kStart + kSource + kRest + i32(2) + i32(5) + z(std::string(row.stored, 'a')) +
                                       i32(1) + u64(7) + z("sector 17")),
                                build(0)),
              "");
  }
}

TEST_F(Record, ReadsNoMoreThan64BytesOfATextArgument) {
  EdgeBuffer unending(std::string(64, 'a'));
  set_arguments({text_argument(unending.chars())});
  EXPECT_EQ(
      files::difference(record(kStart + kSource + kRest + i32(1) + i32(5) + z(std::string(64, 'a')) + z("sector 17")),
                        build(0)),
      "");
}

TEST_F(Record, TakesANullTextArgumentForAnEmptyOne) {
  set_arguments({text_argument(nullptr)});
  EXPECT_EQ(files::difference(record(kStart + kSource + kRest + i32(1) + i32(5) + z("") + z("sector 17")), build(0)),
            "");
}

// What libqx_cu counted stays, even where it handed out no arguments.
TEST_F(Record, StatesTheCountOfArgumentsAsItWasGiven) {
  for (std::int32_t count : {0, 1, 5, -1, INT_MAX}) {
    SCOPED_TRACE(count);
    context_.args = nullptr;
    context_.arg_count = count;
    EXPECT_EQ(files::difference(record(kStart + kSource + kRest + i32(count) + z("sector 17")), build(0)), "");
  }
  set_arguments({text_argument("x")});
  context_.arg_count = 0;
  EXPECT_EQ(files::difference(record(kStart + kSource + kRest + i32(0) + z("sector 17")), build(0)), "");
  context_.arg_count = -3;
  EXPECT_EQ(files::difference(record(kStart + kSource + kRest + i32(-3) + z("sector 17")), build(0)), "");
}

}  // namespace
