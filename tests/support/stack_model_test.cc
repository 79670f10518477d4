#include "support/stack_model.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "support/files.h"

namespace {

using files::i32;
using files::u32;
using stack_model::File;
using stack_model::Header;
using stack_model::Outcome;
using stack_model::Push;
using stack_model::Record;

std::string zeros(std::size_t count) {
  return std::string(count, '\0');
}
std::string z(const char *text) {
  return std::string(text) + '\0';
}

// The least a record can hold: every text missing or empty.
constexpr std::uint32_t kLeastBody = 4 + 43 + 43 + 4 + 1 + 4 + 4 + 4 + 13 + 15 + 12 + 4 + 1 + 4 + 4 + 1 + 4 + 1;

Record record_of_body(std::uint32_t length) {
  Push push;
  push.detail = std::string(length - kLeastBody, 'd');
  Record record = stack_model::build(push);
  EXPECT_EQ(record.body_length(), length);
  return record;
}

// A file of 8192 bytes with this header and a length word at each of the given places.
File file_with(const Header &header, std::vector<std::pair<std::size_t, std::uint32_t>> lengths) {
  File file;
  file.bytes = u32(header.version) + i32(header.init) + i32(header.recording) + i32(header.earliest) +
               i32(header.size) + static_cast<char>(header.wrap) + header.reserved;
  file.bytes.resize(8192, '\0');
  for (auto [at, length] : lengths) file.bytes.replace(at, 4, u32(length));
  return file;
}

Header header_of(std::int32_t recording, std::int32_t earliest, std::uint8_t wrap) {
  Header header;
  header.recording = recording;
  header.earliest = earliest;
  header.size = 8192;
  header.wrap = wrap;
  return header;
}

TEST(StackModel, AReservationIsZeroBytesBehindOneLine) {
  EXPECT_EQ(stack_model::reserved(16384).bytes, "VKTFO=36    VKTFW=0     VKTFS=16384\n" + zeros(16384 - 36));
  EXPECT_EQ(stack_model::reserved(8192).bytes.substr(0, 36), "VKTFO=36    VKTFW=0     VKTFS=8192 \n");
  EXPECT_EQ(stack_model::reserved(1048576).bytes.substr(0, 37), "VKTFO=36    VKTFW=0     VKTFS=104857" + zeros(1));
  EXPECT_EQ(stack_model::reservation_writes(8192).size(), 9u);  // eight times 1024 zeros, the line
}

TEST(StackModel, ACreatedFileHasTheHeaderOverTheLine) {
  const std::string head("\0\0\0\0\x18\0\0\0\x18\0\0\0\x18\0\0\0\0\x40\0\0\0\0\0\0", 24);
  EXPECT_EQ(files::difference(head + "VKTFS=16384\n" + zeros(16384 - 36), stack_model::created(16384).bytes), "");
}

TEST(StackModel, ARecordHasItsFieldsInOrder) {
  Push push;
  push.identifier = std::string(42, 'I');
  push.associated = std::string(43, 'A');
  push.seconds = 0x01020304;
  push.process_name = "proc";
  push.pid = 11;
  push.parent = 12;
  push.thread = -1;
  push.file = "f.c";
  push.version = "1.2";
  push.product = "prod";
  push.line = 99;
  push.catalogue = "c.cat";
  push.set = 3;
  push.number = 4;
  push.message = "text %s";
  push.arguments = {{5, std::string(100, 's'), 0}, {3, "", 0x1122334455667788}};
  push.detail = "details";
  const std::string body = u32(0) + std::string(42, 'I') + zeros(1) + std::string(43, 'A') + u32(0x01020304) +
                           z("proc") + u32(11) + u32(12) + i32(-1) + z("f.c") + z("1.2") + z("prod") + u32(99) +
                           z("c.cat") + u32(3) + u32(4) + z("text %s") + u32(2) + u32(5) + std::string(64, 's') +
                           zeros(1) + u32(3) + files::u64(0x1122334455667788) + z("details");
  Record record = stack_model::build(push);
  EXPECT_EQ(files::difference(u32(static_cast<std::uint32_t>(body.size())) + u32(0) + body, record.bytes), "");
  EXPECT_FALSE(record.over_length);
}

TEST(StackModel, MissingFieldsHaveTheirSubstitutes) {
  Push push;
  push.line = -1;
  push.set = -1;
  push.number = -5;
  const std::string body = zeros(4 + 43 + 43 + 4 + 1 + 12) + z("unknown_file") + z("no_version_num") +
                           z("qrn_product") + zeros(4 + 1 + 8 + 1 + 4 + 1);
  EXPECT_EQ(body.size(), kLeastBody);
  EXPECT_EQ(files::difference(u32(kLeastBody) + u32(0) + body, stack_model::build(push).bytes), "");
}

TEST(StackModel, ARecordEndsAt1024Bytes) {
  constexpr std::size_t before_message = 8 + kLeastBody - 1 - 4 - 1;
  const struct {
    std::size_t message;
    const char *detail;
    std::size_t size;
    bool over_length;
  } rows[] = {
      {1024 - before_message - 7, "d", 1024, false},   // terminator, count, "d" and its terminator
      {1024 - before_message - 7, "dd", 1024, false},  // no room for the last terminator
      {1024 - before_message - 7, "ddd", 1024, true},
      {1024 - before_message - 1, "", 1024, false},  // no room for the count, which is left out; the end is reached
      {1024 - before_message, "", 1024, false},      // nor for the message's terminator
      {1024 - before_message, "d", 1024, true},
      {1024 - before_message + 1, "", 1024, true},
      {2000, "detail", 1024, true},
      {1024 - before_message - 4, "ab", 1024, false},  // the count does not fit in 3 bytes, "ab" and its zero do
      {1024 - before_message - 5, "", 1024, false},    // the count fits exactly
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << "message of " << row.message << ", detail " << row.detail);
    Push push;
    push.message = std::string(row.message, 'm');
    push.detail = row.detail;
    Record record = stack_model::build(push);
    EXPECT_EQ(record.bytes.size(), row.size);
    EXPECT_EQ(record.over_length, row.over_length);
    EXPECT_EQ(record.bytes.substr(0, 4), u32(static_cast<std::uint32_t>(record.bytes.size() - 8)));
  }
}

TEST(StackModel, HeadersAreCheckedFieldByField) {
  const struct {
    const char *name;
    Header header;
    int result;
  } rows[] = {
      {"fresh", header_of(24, 24, 0), 0},
      {"record position 16384 in a smaller file", header_of(16384, 24, 0), 0},
      {"record position 16385", header_of(16385, 24, 0), -26},
      {"record position 23", header_of(23, 24, 0), -26},
      {"earliest 23", header_of(24, 23, 0), -26},
      {"earliest 16385", header_of(24, 16385, 0), -26},
      {"earliest 16384", header_of(24, 16384, 1), 0},
      {"wrap 2", header_of(24, 24, 2), -26},
      {"size 8191", Header{0, 24, 24, 24, 8191, 0}, -26},
      {"size 16384", Header{0, 24, 24, 24, 16384, 0}, 0},
      {"size 16385", Header{0, 24, 24, 24, 16385, 0}, -26},
      {"init 23", Header{0, 23, 24, 24, 8192, 0}, -26},
      {"init 16384", Header{0, 16384, 24, 24, 8192, 0}, 0},
      {"reserved bytes", Header{0, 24, 24, 24, 8192, 0, "abc"}, 0},
      {"version 3", Header{3, 24, 24, 24, 8192, 0}, -26},
      {"version 8", Header{8, -1, -1, -1, -1, 9}, -99},
      {"version 56", Header{56, -1, -1, -1, -1, 9}, -99},
      {"version 64", Header{64, 24, 24, 24, 8192, 0}, -26},
      {"version 12", Header{12, 24, 24, 24, 8192, 0}, -26},
  };
  for (const auto &row : rows) EXPECT_EQ(stack_model::validate(row.header), row.result) << row.name;
}

TEST(StackModel, AFirstPushAppends) {
  File file = stack_model::created(8192);
  Record record = record_of_body(200);
  Outcome outcome = stack_model::push(file, record);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.offset, 24);
  EXPECT_EQ(file.bytes.size(), 8192u);
  EXPECT_EQ(file.bytes.substr(24, 208), record.bytes);
  EXPECT_EQ(file.header().text(), "version 0 init 24 recording 232 earliest 24 size 8192 wrap 0");
  ASSERT_EQ(outcome.writes.size(), 2u);
  EXPECT_EQ(outcome.writes[0].offset, 24);
  EXPECT_EQ(outcome.writes[1].offset, 4);
}

TEST(StackModel, ReclamationFollowsItsSteps) {
  // Every push has a body of 200 bytes, so it needs 204.
  const struct {
    const char *name;
    Header header;
    std::vector<std::pair<std::size_t, std::uint32_t>> lengths;
    int code;
    const char *result;   // the header afterwards
    std::int64_t offset;  // of the record
    std::size_t first_zeroed, zeroed;
  } rows[] = {
      {"the tail is exactly what is needed",
       header_of(7988, 24, 0),
       {{24, 300}},
       0,
       "version 0 init 24 recording 8196 earliest 24 size 8192 wrap 0",
       7988,
       0,
       0},
      {"one byte less wraps onto nothing",
       header_of(7989, 24, 0),
       {},
       0,
       "version 0 init 24 recording 232 earliest 24 size 8192 wrap 1",
       24,
       0,
       0},
      {"wraps over one record",
       header_of(8100, 24, 0),
       {{24, 300}},
       0,
       "version 0 init 24 recording 232 earliest 328 size 8192 wrap 1",
       24,
       24,
       304},
      {"wraps over two, since equal is not enough",
       header_of(8100, 24, 0),
       {{24, 200}, {228, 40}},
       0,
       "version 0 init 24 recording 232 earliest 272 size 8192 wrap 1",
       24,
       24,
       248},
      {"enough was cleared before",
       header_of(232, 437, 1),
       {{437, 100}},
       0,
       "version 0 init 24 recording 440 earliest 437 size 8192 wrap 1",
       232,
       0,
       0},
      {"what was cleared before is just not enough",
       header_of(232, 436, 1),
       {{436, 100}},
       0,
       "version 0 init 24 recording 440 earliest 540 size 8192 wrap 1",
       232,
       436,
       104},
      {"no more records resets to 24",
       header_of(232, 328, 1),
       {},
       0,
       "version 0 init 24 recording 440 earliest 24 size 8192 wrap 1",
       232,
       0,
       0},
      {"the reset is to 24 whatever the init offset",
       Header{0, 100, 232, 328, 8192, 1},
       {},
       0,
       "version 0 init 100 recording 440 earliest 24 size 8192 wrap 1",
       232,
       0,
       0},
      {"the wrap is to the init offset",
       Header{0, 100, 8100, 24, 8192, 0},
       {{100, 300}},
       0,
       "version 0 init 100 recording 308 earliest 404 size 8192 wrap 1",
       100,
       100,
       304},
      {"an earliest offset behind the position counts nothing",
       header_of(1000, 24, 1),
       {{24, 300}},
       0,
       "version 0 init 24 recording 1208 earliest 328 size 8192 wrap 1",
       1000,
       24,
       304},
      {"a length up to the file size",
       header_of(232, 328, 1),
       {{328, 8192 - 328 - 4}},
       0,
       "version 0 init 24 recording 440 earliest 8192 size 8192 wrap 1",
       232,
       328,
       8192 - 328},
      {"a length beyond the file size",
       header_of(232, 328, 1),
       {{328, 8192 - 328 - 3}},
       24,
       "version 0 init 24 recording 232 earliest 328 size 8192 wrap 1",
       -1,
       0,
       0},
      {"a length with the high bit",
       header_of(232, 328, 1),
       {{328, 0x80000000}},
       24,
       "version 0 init 24 recording 232 earliest 328 size 8192 wrap 1",
       -1,
       0,
       0},
      {"what was cleared before the fault stays cleared",
       header_of(232, 328, 1),
       {{328, 50}, {382, 9000}},
       24,
       "version 0 init 24 recording 232 earliest 328 size 8192 wrap 1",
       -1,
       328,
       54},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    File file = file_with(row.header, row.lengths);
    // Make zeroing visible: fill the stretch that is to be zeroed, but for the length words in it.
    for (std::size_t i = row.first_zeroed; i < row.first_zeroed + row.zeroed; ++i) {
      bool length_word = false;
      for (auto [at, length] : row.lengths) length_word = length_word || (i >= at && i < at + 4);
      if (!length_word) file.bytes[i] = 'x';
    }
    Record record = record_of_body(200);
    std::string expected = file.bytes;
    expected.replace(row.first_zeroed, row.zeroed, zeros(row.zeroed));
    if (row.offset >= 0) {
      auto at = static_cast<std::size_t>(row.offset);
      expected.resize(std::max(expected.size(), at + record.bytes.size()));
      expected.replace(at, record.bytes.size(), record.bytes);
    }
    Outcome outcome = stack_model::push(file, record);
    EXPECT_EQ(outcome.code, row.code);
    EXPECT_EQ(outcome.routine, row.code == 0 ? "" : "vk_clear_records");
    EXPECT_EQ(outcome.offset, row.offset);
    EXPECT_EQ(file.header().text(), row.result);
    EXPECT_EQ(files::difference(expected.substr(24), file.bytes.substr(24)), "");
  }
}

TEST(StackModel, ARecordMayRunFourBytesPastTheFile) {
  File file = file_with(header_of(7988, 24, 0), {});
  stack_model::push(file, record_of_body(200));
  EXPECT_EQ(file.bytes.size(), 8196u);
}

TEST(StackModel, ClearingIsWrittenInPiecesOf1024) {
  File file = file_with(header_of(8100, 24, 0), {{24, 2000}});
  Outcome outcome = stack_model::push(file, record_of_body(200));
  ASSERT_EQ(outcome.writes.size(), 4u);
  EXPECT_EQ(outcome.writes[0].offset, 24);
  EXPECT_EQ(outcome.writes[0].bytes.size(), 1024u);
  EXPECT_EQ(outcome.writes[1].offset, 1048);
  EXPECT_EQ(outcome.writes[1].bytes.size(), 980u);
}

TEST(StackModel, CorruptFilesStayAsTheyAre) {
  const struct {
    std::string bytes;
    const char *routine;
  } rows[] = {
      {"", "vk_get_stack_ctrl_info"},
      {"VKTFO=36    VKTFW=0", "vk_get_stack_ctrl_info"},
      {zeros(8192), "vk_get_stack_ctrl_info"},
      {std::string(8192, 'x'), "vk_get_stack_ctrl_info"},
      {std::string("\x10\0", 2), "vk_clear_records"},  // version 16 with nothing but zeros behind it
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.bytes.substr(0, 20));
    File file{row.bytes};
    Outcome outcome = stack_model::push(file, record_of_body(200));
    EXPECT_EQ(outcome.code, 24);
    EXPECT_EQ(outcome.message, 41);
    EXPECT_EQ(outcome.routine, row.routine);
    EXPECT_EQ(file.bytes, row.bytes);
  }
}

TEST(StackModel, AnUncheckedVersionIsUsedAsItStands) {
  File negative = file_with(Header{16, 24, -500, 24, 8192, 0}, {});
  Outcome outcome = stack_model::push(negative, record_of_body(200));
  EXPECT_EQ(outcome.code, 41);
  EXPECT_EQ(outcome.message, 43);
  EXPECT_EQ(outcome.position, -500);
  EXPECT_TRUE(outcome.writes.empty());

  File huge = file_with(Header{16, 24, 0x7ffffff0, 24, 0x7fffffff, 0}, {});
  huge.bytes.resize(8192);
  outcome = stack_model::push(huge, record_of_body(200));  // no room behind: starts again
  EXPECT_EQ(outcome.offset, 24);

  File far = file_with(Header{16, 24, 0x70000000, 24, 0x7fffffff, 0}, {});
  outcome = stack_model::push(far, record_of_body(200));
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(far.size(), 0x70000000 + 208);
  EXPECT_EQ(far.header().recording, 0x70000000 + 208);

  File step = file_with(Header{16, 24, 8100, 24, 0x7fffffff, 1}, {{24, 16388 - 24 - 3}});
  outcome = stack_model::push(step, record_of_body(200));
  EXPECT_EQ(outcome.code, 24);
  EXPECT_EQ(outcome.routine, "vk_clear_records");
  step = file_with(Header{16, 24, 8100, 24, 0x7fffffff, 1}, {{24, 16388 - 24 - 4}});
  EXPECT_EQ(stack_model::push(step, record_of_body(200)).code, 0);
  EXPECT_EQ(step.bytes.size(), 16388u);

  File below = file_with(Header{16, 24, 100, -4, 8192, 1}, {});
  outcome = stack_model::push(below, record_of_body(200));
  EXPECT_EQ(outcome.code, 24);
  EXPECT_EQ(outcome.routine, "vk_clear_records");
}

TEST(StackModel, APartOfAWriteCanBeApplied) {
  File file{"abcdef"};
  stack_model::apply(file, {2, "XYZ"}, 2);
  EXPECT_EQ(file.bytes, "abXYef");
  stack_model::apply(file, {8, "!"});
  EXPECT_EQ(file.bytes, std::string("abXYef\0\0!", 9));
}

TEST(StackModel, AFileIsComparedAlsoFarBehindItsEnd) {
  files::TemporaryDirectory directory;
  std::string path = directory / "file";
  ASSERT_TRUE(files::write(path, "abc"));
  File file{"abc"};
  EXPECT_EQ(stack_model::difference(file, path), "");
  EXPECT_EQ(stack_model::difference(File{"abd"}, path),
            "first difference at byte 2, expected 64, found 63; sizes 3 and 3");
  EXPECT_EQ(stack_model::difference(File{"abcd"}, path), "sizes 4 and 3");
  EXPECT_THAT(stack_model::difference(file, directory / "none"), testing::HasSubstr("No such file"));
  stack_model::apply(file, {1 << 24, "old"});
  stack_model::apply(file, {(1 << 24) + 1, "xyz"});
  int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(pwrite(fd, "oxyz", 4, 1 << 24), 4);
  EXPECT_EQ(stack_model::difference(file, path), "");
  ASSERT_EQ(pwrite(fd, "!", 1, (1 << 24) + 2), 1);
  close(fd);
  EXPECT_THAT(stack_model::difference(file, path), testing::HasSubstr("behind 16777217: first difference at byte 1"));
}

TEST(StackModel, RecordsAreReadBack) {
  File file = stack_model::created(16384);
  Push push;
  push.identifier = std::string(42, 'i');
  push.process_name = "name";
  push.pid = 77;
  push.message = "%s %d";
  push.arguments = {{5, "word", 0}, {1, "", 12}};
  push.detail = "what happened";
  stack_model::push(file, stack_model::build(push));
  push.pid = 78;
  stack_model::push(file, stack_model::build(push));
  auto records = stack_model::records(file.bytes);
  ASSERT_TRUE(records.has_value());
  ASSERT_EQ(records->size(), 2u);
  auto decoded = stack_model::decode(records->at(1));
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(decoded->push.identifier, std::string(42, 'i') + zeros(1));
  EXPECT_EQ(decoded->push.process_name, "name");
  EXPECT_EQ(decoded->push.pid, 78);
  EXPECT_EQ(decoded->push.file, "unknown_file");
  EXPECT_EQ(decoded->count, 2);
  EXPECT_EQ(decoded->push.arguments.at(0).text, "word");
  EXPECT_EQ(decoded->push.arguments.at(1).value, 12u);
  EXPECT_EQ(decoded->push.detail, "what happened");
}

TEST(StackModel, TornRecordsAreNotReadBack) {
  Push push;
  push.detail = "detail";
  std::string whole = stack_model::build(push).bytes;
  ASSERT_TRUE(stack_model::decode(whole).has_value());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    std::string part = whole.substr(0, size);
    EXPECT_FALSE(stack_model::decode(part).has_value()) << size;
    if (size < 8) continue;
    part.replace(0, 4, u32(static_cast<std::uint32_t>(size - 8)));
    EXPECT_FALSE(stack_model::decode(part).has_value()) << size << " with its length";
  }
  push.message = std::string(2000, 'm');
  EXPECT_FALSE(stack_model::decode(stack_model::build(push).bytes).has_value());
  std::string file = stack_model::created(8192).bytes;
  file.replace(8, 4, i32(100));  // a position without records before it
  EXPECT_FALSE(stack_model::records(file).has_value());
}

}  // namespace
