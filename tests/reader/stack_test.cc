// What of a stack file is shown: every record that verifies, whatever is broken beside it.
#include "tools/reader/stack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "reader/builder.h"

using builder::kInode;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

vosk::stack read(const builder::bytes &file, std::optional<std::uint64_t> inode = kInode) {
  return vosk::read_stack(file, inode);
}

std::vector<std::string> damages(const vosk::stack &file) {
  std::vector<std::string> out;
  for (const vosk::damage &d : file.damages)
    out.push_back(std::to_string(d.offset) + " " + d.field + ": " + d.value + ", allowed " + d.allowed);
  return out;
}

std::vector<std::string> details(const vosk::stack &file) {
  std::vector<std::string> out;
  for (const vosk::record &r : file.records) out.emplace_back(r.detail.value_or("(none)"));
  return out;
}

}  // namespace

TEST(Stack, ReadsEveryFieldOfAHandWrittenRecord) {
  builder::bytes file(8192);
  // Header: version 0, first record at 24, next at 24 + 8 + 179 = 211, oldest at 24, size 8192, not wrapped.
  const unsigned char header[24] = {0, 0, 0, 0, 24, 0, 0, 0, 0xD3, 0, 0, 0, 24, 0, 0, 0, 0, 0x20, 0, 0, 0, 0, 0, 0};
  std::copy(std::begin(header), std::end(header), file.begin());
  const std::string body = std::string(
                               "\xB3\0\0\0"
                               "\0\0\0\0"
                               "\0\0\0\0",
                               12) +
                           std::string("75Oh2...2zIZ/.7S..XO.8....................\0", 43) +
                           std::string("75Oh2...2zIZ/./...XO.8....................\0", 43) +
                           std::string("\x00\xF1\x53\x65", 4) +  // 1700000000
                           std::string("mydaemon\0", 9) + std::string("\x67\x12\0\0", 4) + std::string("\1\0\0\0", 4) +
                           std::string("\x4D\0\0\0", 4) + std::string("a.c\0", 4) + std::string("1.0\0", 4) +
                           std::string("prod\0", 5) + std::string("\x0C\0\0\0", 4) + std::string("my.cat\0", 7) +
                           std::string("\1\0\0\0", 4) + std::string("\7\0\0\0", 4) + std::string("%s %d\0", 6) +
                           std::string("\2\0\0\0", 4) +
                           std::string(
                               "\5\0\0\0"
                               "x\0",
                               6) +
                           std::string(
                               "\1\0\0\0"
                               "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
                               12) +
                           std::string("why\0", 4);
  ASSERT_EQ(body.size(), 187u);
  std::copy(body.begin(), body.end(), file.begin() + 24);

  const vosk::stack stack = read(file);
  EXPECT_EQ(stack.kind, vosk::file_kind::stack);
  EXPECT_THAT(damages(stack), IsEmpty());
  EXPECT_FALSE(stack.wrapped);
  EXPECT_EQ(stack.unreadable, 0u);
  EXPECT_EQ(stack.inode, 1234567u);
  ASSERT_EQ(stack.records.size(), 1u);
  const vosk::record &r = stack.records[0];
  EXPECT_EQ(r.offset, 24u);
  EXPECT_EQ(r.length, 179u);
  EXPECT_EQ(r.end(), 211u);
  EXPECT_TRUE(r.intact);
  EXPECT_FALSE(r.cut);
  EXPECT_EQ(vosk::identifier_text(r.eid), "75Oh2...2zIZ/.7S..XO.8....................");
  EXPECT_EQ(vosk::identifier_text(r.associated), "75Oh2...2zIZ/./...XO.8....................");
  EXPECT_EQ(r.time, 1700000000u);
  ASSERT_TRUE(r.id);
  EXPECT_EQ(r.id->seconds, 1700000000);
  EXPECT_EQ(r.id->microseconds, 123456u);
  EXPECT_EQ(r.id->address->text(), "192.168.1.10");
  EXPECT_EQ(r.process, "mydaemon");
  EXPECT_EQ(r.pid, 4711u);
  EXPECT_EQ(r.parent, 1u);
  EXPECT_EQ(r.thread, 77u);
  EXPECT_EQ(r.source, "a.c");
  EXPECT_EQ(r.version, "1.0");
  EXPECT_EQ(r.product, "prod");
  EXPECT_EQ(r.line, 12u);
  EXPECT_EQ(r.catalogue, "my.cat");
  EXPECT_EQ(r.set, 1u);
  EXPECT_EQ(r.number, 7u);
  EXPECT_EQ(r.default_text, "%s %d");
  EXPECT_EQ(r.argument_count, 2u);
  ASSERT_EQ(r.arguments.size(), 2u);
  EXPECT_EQ(r.arguments[0].type, 5u);
  EXPECT_EQ(r.arguments[0].text, "x");
  EXPECT_EQ(r.arguments[1].type, 1u);
  EXPECT_EQ(r.arguments[1].bits, 0xFFFFFFFFFFFFFFFEu);
  EXPECT_EQ(r.detail, "why");
}

TEST(Stack, ReadsTheThreeBaseFilesWithoutFindingDamage) {
  struct {
    const char *name;
    builder::bytes file;
    std::size_t records;
    bool wrapped;
  } const rows[] = {{"never wrapped", builder::never_wrapped_file(), 6, false},
                    {"wrapped", builder::wrapped_file(), 0, true},
                    {"with a cut record", builder::file_with_cut_record(), 4, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const vosk::stack stack = read(row.file);
    EXPECT_THAT(damages(stack), IsEmpty());
    EXPECT_EQ(stack.wrapped, row.wrapped);
    if (row.records != 0) {
      EXPECT_EQ(stack.records.size(), row.records);
    }
    EXPECT_GT(stack.records.size(), 3u);
    EXPECT_TRUE(std::is_sorted(stack.records.begin(), stack.records.end(),
                               [](const auto &a, const auto &b) { return made_later(b, a); }));
  }
}

TEST(Stack, ReadsWhatACutRecordHolds) {
  const vosk::stack stack = read(builder::file_with_cut_record());
  ASSERT_EQ(stack.records.size(), 4u);
  const vosk::record &r = stack.records[2];
  EXPECT_EQ(r.length, 1016u);
  EXPECT_TRUE(r.cut);
  EXPECT_TRUE(r.intact);
  EXPECT_EQ(r.number, 7u);
  EXPECT_EQ(r.default_text->substr(0, 3), "xxx");
  EXPECT_FALSE(r.argument_count);
  EXPECT_FALSE(r.detail);
}

// A text that ends right at the last byte has no terminator; numbers behind it find no room and are skipped, and a
// short text behind a skipped number can still fit.
TEST(Stack, FollowsTheRulesForFieldsThatFindNoRoom) {
  for (std::size_t spare = 0; spare < 24; ++spare) {
    SCOPED_TRACE(spare);
    builder::record r;
    r.default_text.clear();
    r.arguments = {{1, "", 5}};
    r.detail = "abc";
    const std::size_t without = builder::record_bytes(r).size() - 4 - 12 - 4;  // before the number of arguments
    r.default_text.assign(1024 - without - spare, 'x');
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    const vosk::stack stack = read(m.file());
    EXPECT_THAT(damages(stack), IsEmpty());
    ASSERT_EQ(stack.records.size(), 1u);
    EXPECT_EQ(stack.records[0].default_text, r.default_text);
    EXPECT_EQ(stack.records[0].argument_count.has_value(), spare >= 4);
    EXPECT_EQ(stack.records[0].arguments.size(), spare >= 8 ? 1u : 0u);
    const bool number_fits = spare >= 16;
    EXPECT_EQ(stack.records[0].detail.value_or("").substr(0, 3), number_fits ? std::string("abc").substr(0, spare - 16)
                                                                 : spare < 8 ? ""
                                                                             : std::string("abc").substr(0, spare - 8));
  }
}

// Any text can take the room of the numbers behind it: they are skipped, and shorter texts still follow them.
TEST(Stack, AcceptsEveryRecordWhoseNumbersFoundNoRoom) {
  const std::pair<const char *, std::string builder::record::*> texts[] = {
      {"process", &builder::record::process},     {"source", &builder::record::source},
      {"version", &builder::record::version},     {"product", &builder::record::product},
      {"catalogue", &builder::record::catalogue}, {"default text", &builder::record::default_text}};
  const std::vector<builder::argument> arguments[] = {{}, {{1, "", 5}, {5, "text"}, {5, ""}, {6, "", 1}}};
  for (const auto &[name, text] : texts) {
    for (std::size_t length = 700; length < 1020; ++length) {
      for (const std::vector<builder::argument> &given : arguments) {
        for (const char *detail : {"", "detail"}) {
          builder::record r;
          r.arguments = given;
          r.detail = detail;
          r.*text = std::string(length, 'x');
          const builder::bytes bytes = builder::record_bytes(r);
          if (bytes.size() < 1012) continue;
          builder::model m;
          ASSERT_TRUE(m.push(bytes));
          ASSERT_TRUE(m.push(builder::record_bytes(builder::record().at(1700000001, 0))));
          const vosk::stack stack = read(m.file());
          ASSERT_THAT(damages(stack), IsEmpty()) << name << " of " << length;
          ASSERT_EQ(stack.records.size(), 2u) << name << " of " << length;
          ASSERT_TRUE(stack.records[0].intact);
          ASSERT_EQ(stack.records[0].size, bytes.size());
        }
      }
    }
  }
}

TEST(Stack, ShowsARecordWithoutIdentifier) {
  builder::model m;
  builder::record r;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  r.eid.clear();
  r.detail = "no identifier";
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  const vosk::stack stack = read(m.file());
  EXPECT_THAT(damages(stack), IsEmpty());
  EXPECT_THAT(details(stack), ElementsAre("errno 13", "no identifier"));
  EXPECT_FALSE(stack.records[1].id);
}

TEST(Stack, ShowsARecordWhoseAddressIsNone) {
  builder::model m;
  builder::record r;
  r.eid = builder::stack_eid(kInode, r.seconds, 5, "twenty-five odd characte%");
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  const vosk::stack stack = read(m.file());
  EXPECT_THAT(damages(stack), IsEmpty());
  ASSERT_EQ(stack.records.size(), 1u);
  EXPECT_FALSE(stack.records[0].id->address);
}

TEST(Stack, ReadsACopyByTheInodeThatItsIdentifiersName) {
  const vosk::stack stack = read(builder::never_wrapped_file(), 99);
  EXPECT_EQ(stack.records.size(), 6u);
  EXPECT_THAT(damages(stack), IsEmpty());
  EXPECT_EQ(stack.inode, kInode);
}

TEST(Stack, AcceptsRecordsFromBeforeAndAfterTheFileWasRestored) {
  builder::model m;
  builder::record r;
  for (unsigned i = 0; i < 4; ++i)
    ASSERT_TRUE(m.push(builder::record_bytes(r.at(1700000000 + i, 0, i < 2 ? 500 : 600))));
  const vosk::stack stack = read(m.file(), 600);
  EXPECT_EQ(stack.records.size(), 4u);
  EXPECT_THAT(damages(stack), IsEmpty());
}

TEST(Stack, NamesTheFieldThatKeepsARecordFromVerifying) {
  const std::size_t at = 24;
  struct {
    const char *name;
    std::size_t offset;
    unsigned char xor_with;
    const char *damage;
    bool shown;
  } const rows[] = {
      {"prefix", at + 5, 1, "28 zero word of the prefix: 0x100, allowed 0", false},
      {"body", at + 8, 2, "32 zero word of the body: 0x2, allowed 0", false},
      {"header character", at + 12, 1, "36 first character of the identifier: 6, allowed 7", false},
      {"i-node", at + 13, 1, "37 i-node field of the identifier: 4Oh2.., allowed 5Oh2..", false},
      {"terminator", at + 54, 4, "78 terminator of the identifier: 0x4, allowed 0x0", false},
      {"time", at + 98, 1, "122 time: 1700000001, allowed 1700000000", false},
      {"length", at, 1, "24 length: 201, allowed 200", true},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    builder::bytes file = builder::never_wrapped_file();
    file[row.offset] ^= row.xor_with;
    const vosk::stack stack = read(file);
    EXPECT_THAT(damages(stack), testing::Contains(row.damage));
    EXPECT_EQ(stack.records.size(), row.shown ? 6u : 5u);
  }
}

TEST(Stack, NamesEveryHeaderFieldThatIsOutOfItsRange) {
  struct {
    const char *name;
    std::size_t offset;
    std::uint32_t value;
    const char *damage;
  } const rows[] = {
      {"version 1", 0, 1, "0 version: 1, allowed 0"},
      {"version 16", 0, 16, "0 version: 16, allowed 0"},
      {"init", 4, 25, "4 init offset: 25, allowed 24"},
      {"position before the first record", 8, 23, "8 recording position: 23, allowed 24 to 16388"},
      {"position behind the last", 8, 16389, "8 recording position: 16389, allowed 24 to 16388"},
      {"earliest", 12, 28, "12 earliest record offset: 28, allowed 24"},
      {"size below", 16, 8191, "16 file size: 8191, allowed 8192 to 16384"},
      {"size above", 16, 16385, "16 file size: 16385, allowed 8192 to 16384"},
      {"size of another file", 16, 8193,
       "16 file size: 8193, allowed up to 4 less than the 8192 bytes that the file has"},
      {"wrap", 20, 2, "20 wrap indicator: 2, allowed 0 or 1"},
      {"wrap though nothing came round", 20, 1,
       "20 wrap indicator: 1, allowed 0, as nothing lies behind the recording position"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    builder::bytes file = builder::never_wrapped_file();
    std::memcpy(file.data() + row.offset, &row.value, 4);
    const vosk::stack stack = read(file);
    EXPECT_THAT(damages(stack), testing::Contains(row.damage));
    EXPECT_EQ(stack.records.size(), 6u);
    EXPECT_FALSE(stack.wrapped);
  }
}

TEST(Stack, SaysThatAFileIsNoStack) {
  builder::bytes empty, junk(4000, 0x41), zeros(16384), short_header(23);
  for (const builder::bytes &file : {empty, junk, zeros, short_header})
    EXPECT_EQ(read(file).kind, vosk::file_kind::other) << file.size();
}

TEST(Stack, KnowsAFileThatWasOnlyReserved) {
  builder::bytes file(16384);
  const std::string line = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
  std::copy(line.begin(), line.end(), file.begin());
  EXPECT_EQ(read(file).kind, vosk::file_kind::reserved);
  file[5000] = 'x';  // a trace file
  EXPECT_EQ(read(file).kind, vosk::file_kind::other);
}

// Arguments of 8 bytes each can be made to look like a record.
TEST(Stack, TakesTheOuterOneOfTwoRecordsInOneAnother) {
  builder::record inner, outer;
  inner.detail = "inner";
  const builder::bytes planted = builder::record_bytes(inner);
  for (std::size_t i = 0; i < 40; ++i) outer.arguments.push_back({1, "", 0});
  outer.default_text.clear();
  outer.detail = "outer";
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(outer)));
  builder::bytes file = m.file();
  std::copy(planted.begin(), planted.end(), file.begin() + 24 + 190);
  EXPECT_THAT(details(read(file)), ElementsAre("outer"));
}

TEST(Stack, PutsTheRecordOfAStoppedWriterLast) {
  builder::model m;
  builder::record r;
  for (unsigned i = 0; i < 3; ++i) ASSERT_TRUE(m.push(builder::record_bytes(r.at(1700000000 + i, 0))));
  builder::bytes file = m.file();
  r.at(1700000009, 0).detail = "not linked";
  const builder::bytes last = builder::record_bytes(r);
  std::copy(last.begin(), last.end(), file.begin() + m.control().recording);
  const vosk::stack stack = read(file);
  EXPECT_THAT(damages(stack), IsEmpty());
  ASSERT_EQ(stack.records.size(), 4u);
  EXPECT_EQ(stack.records[3].detail, "not linked");
}

TEST(Stack, OrdersByAgeAfterAWrap) {
  const vosk::stack stack = read(builder::wrapped_file());
  ASSERT_GT(stack.records.size(), 4u);
  EXPECT_GT(stack.records.front().offset, stack.records.back().offset);
}

TEST(Stack, KeepsShowingARecordWhoseTextsRunTogether) {
  builder::bytes file = builder::never_wrapped_file();
  const std::size_t terminator = 24 + 102 + 8;  // of the process name
  ASSERT_EQ(file[terminator], 0);
  file[terminator] = 1;
  const vosk::stack stack = read(file);
  ASSERT_EQ(stack.records.size(), 6u);
  EXPECT_EQ(stack.records[0].process->substr(0, 9), "mydaemon\x01");
}

TEST(Stack, KeepsShowingARecordWhoseFieldsDoNotEndAtItsLength) {
  builder::bytes file = builder::never_wrapped_file();
  const vosk::stack before = read(file);
  const auto count = static_cast<std::size_t>(before.records[1].default_text->data() -
                                              reinterpret_cast<const char *>(before.bytes.data())) +
                     before.records[1].default_text->size() + 1;
  ASSERT_EQ(file[count], 1);
  file[count] = 3;
  const vosk::stack stack = read(file);
  ASSERT_EQ(stack.records.size(), 6u);
  EXPECT_FALSE(stack.records[1].intact);
  EXPECT_EQ(stack.records[1].source, "worker.c");
  ASSERT_EQ(stack.damages.size(), 1u);
  EXPECT_EQ(stack.damages[0].field, "fields");
  EXPECT_EQ(stack.damages[0].offset, stack.records[1].offset);
}

TEST(Stack, IsOneBeforeItsFirstRecord) {
  const vosk::stack stack = read(builder::model().file());
  EXPECT_EQ(stack.kind, vosk::file_kind::stack);
  EXPECT_THAT(damages(stack), IsEmpty());
  EXPECT_THAT(stack.records, IsEmpty());
}

// Such a header alone makes a file a stack, if all but one of its fields are right.
TEST(Stack, IsOneByItsHeaderUnlessTwoFieldsAreWrong) {
  builder::bytes file(9000);
  builder::put_header(file, {});
  EXPECT_EQ(read(file).kind, vosk::file_kind::stack) << "another size";
  file[0] = 1;
  EXPECT_EQ(read(file).kind, vosk::file_kind::other) << "another size and version";
  file.resize(8192);
  EXPECT_EQ(read(file).kind, vosk::file_kind::stack) << "another version";
}

TEST(Stack, NamesAPositionAtTheEndOfAnOlderRecord) {
  builder::bytes file = builder::never_wrapped_file();
  const vosk::stack before = read(file);
  const auto third_end = static_cast<std::int32_t>(before.records[2].end());
  std::memcpy(file.data() + 8, &third_end, sizeof third_end);
  const vosk::stack stack = read(file);
  EXPECT_THAT(damages(stack), ElementsAre("8 recording position: " + std::to_string(third_end) + ", allowed " +
                                          std::to_string(before.records[5].end())));
  EXPECT_FALSE(stack.wrapped);
}

// The first record is the newest one.
TEST(Stack, JudgesTheOffsetsOfAWrappedFileByWhatLiesThere) {
  builder::record newest, other;
  newest.at(1700000100, 0);
  other.at(1700000000, 0);
  const builder::bytes one = builder::record_bytes(newest), two = builder::record_bytes(other);
  const auto size = static_cast<std::int32_t>(one.size());
  ASSERT_GT(size, 200);
  struct {
    const char *what;
    std::int32_t first, second;  // where the records start; 0: not there
    std::int32_t cleared_to;     // from the start on
    std::int32_t recording, earliest;
    std::vector<std::string> damages;
  } const rows[] = {
      {"the newest record is cleared in part", 24, 0, 24 + size - 10, 24 + size, 24 + size - 10, {}},
      {"the same, and the offset was not moved",
       24,
       0,
       24 + size - 10,
       24 + size,
       24,
       {"8 recording position: " + std::to_string(24 + size) + ", allowed the end of a record"}},
      {"an offset in the newest record, behind cleared room", 100, 0, 0, 100 + size, 250, {}},
      {"an offset in the newest record, and nothing is cleared",
       24,
       0,
       0,
       24 + size,
       150,
       {"12 earliest record offset: 150, allowed 24, or behind the recording position"}},
      {"an offset in a record that is not linked",
       24,
       24 + size,
       0,
       24 + size,
       24 + size + 50,
       {"12 earliest record offset: " + std::to_string(24 + size + 50) + ", allowed not inside a record"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    builder::bytes file(8192);
    std::copy(one.begin(), one.end(), file.begin() + row.first);
    if (row.second != 0) std::copy(two.begin(), two.end(), file.begin() + row.second);
    if (row.cleared_to != 0) std::fill(file.begin() + 24, file.begin() + row.cleared_to, 0);
    builder::put_header(file, {.recording = row.recording, .earliest = row.earliest, .wrapped = 1});
    const vosk::stack stack = read(file);
    EXPECT_EQ(damages(stack), row.damages);
    EXPECT_TRUE(stack.wrapped);
  }
}

// Without a position to go by, the oldest record is behind the widest step back in time.
TEST(Stack, OrdersByTheWidestStepBackWhereThePositionIsDamaged) {
  builder::model m;
  for (const unsigned at : {200u, 300u, 100u, 150u, 140u, 160u}) {
    builder::record r;
    r.at(1700000000 + at, 0).detail = std::to_string(at);
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
  }
  builder::bytes file = m.file();
  builder::put_header(file, {.recording = 20000, .wrapped = 1});
  EXPECT_THAT(details(read(file)), ElementsAre("100", "150", "140", "160", "200", "300"));
  // At the end of a file that can take no more, the first one is the newest, which is not linked yet.
  builder::put_header(file, {.recording = m.control().recording, .size = INT32_MIN, .wrapped = 1});
  EXPECT_THAT(details(read(file)), ElementsAre("300", "100", "150", "140", "160", "200"));
}

TEST(Stack, NamesEveryInodeThatADamagedFieldCanHaveHad) {
  builder::model m;
  builder::record r;
  for (unsigned i = 0; i < 5; ++i)
    ASSERT_TRUE(m.push(builder::record_bytes(r.at(1700000000 + i, 0, i < 3 ? 500 : 600))));
  builder::bytes file = m.file();
  const std::size_t second = 24 + builder::record_bytes(r).size();
  file[second + 13] = 'z';
  EXPECT_THAT(damages(read(file, 600)),
              testing::Contains(std::to_string(second + 13) +
                                " i-node field of the identifier: z5...., allowed M7.... or o5...."));
}

// A record without an identifier whose fields and length disagree is one only where it follows something known.
TEST(Stack, ShowsADamagedRecordWithoutIdentifierOnlyWhereItCanBeOne) {
  builder::record without;
  without.eid.clear();
  without.detail = "damaged";
  builder::bytes damaged = builder::record_bytes(without);
  damaged.back() = 'x';  // the last terminator
  const builder::bytes whole = builder::record_bytes({});
  for (const std::size_t gap : {0u, 50u}) {
    SCOPED_TRACE(gap);
    builder::bytes file(8192);
    std::copy(whole.begin(), whole.end(), file.begin() + 24);
    const auto at = 24 + static_cast<std::ptrdiff_t>(whole.size());
    std::fill_n(file.begin() + at, gap, 1);
    std::copy(damaged.begin(), damaged.end(), file.begin() + at + static_cast<std::ptrdiff_t>(gap));
    const auto end = static_cast<std::int32_t>(at + static_cast<std::ptrdiff_t>(gap + damaged.size()));
    builder::put_header(file, {.recording = end});
    const vosk::stack stack = read(file);
    EXPECT_EQ(stack.records.size(), gap == 0 ? 2u : 1u);
    ASSERT_EQ(stack.damages.size(), 1u);
    EXPECT_EQ(stack.damages[0].field, gap == 0 ? "fields" : "records");
    EXPECT_EQ(stack.damages[0].offset, static_cast<std::size_t>(at));
  }
}
