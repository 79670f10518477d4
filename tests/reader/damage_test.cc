// Bit by bit and byte by byte: what damage does to a file, and what it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>

#include "proof/instrumented.h"
#include "reader/builder.h"
#include "tools/reader/reclamation.h"
#include "tools/reader/stack.h"

using builder::kInode;

namespace {

// A sanitizer looks at one bit of each byte, a different one each time, and at every seventh length.
constexpr std::size_t kBitStep = proof::kInstrumented ? 8 : 1, kSizeStep = proof::kInstrumented ? 7 : 1;

// A record's bytes as they lie in the file, by offset.
using intact_records = std::map<std::size_t, std::string>;

std::string bytes_of(const vosk::stack &file, const vosk::record &r) {
  return {reinterpret_cast<const char *>(file.bytes.data()) + r.offset, r.size};
}

intact_records records_of(const vosk::stack &file) {
  intact_records out;
  for (const vosk::record &r : file.records) out[r.offset] = bytes_of(file, r);
  return out;
}

const vosk::record *record_from(const vosk::stack &file, std::size_t offset) {
  for (const vosk::record &r : file.records)
    if (r.offset == offset) return &r;
  return nullptr;
}

// The processes of the records that are whole.
std::vector<std::string> intact_ones(const vosk::stack &file) {
  std::vector<std::string> processes;
  for (const vosk::record &r : file.records)
    if (r.intact) processes.emplace_back(r.process.value_or("-"));
  return processes;
}

bool shows(const vosk::stack &file, std::size_t offset, const std::string &bytes) {
  const vosk::record *const r = record_from(file, offset);
  return r != nullptr && r->size == bytes.size() &&
         std::memcmp(file.bytes.data() + offset, bytes.data(), bytes.size()) == 0;
}

// The class of a bit. Structural ones are what a file repeats or what has few values; damage to them is always named.
// Any other changes what a field says, and the record stays.
enum class bit_class { structural, contents };

bit_class class_of(std::size_t offset, const intact_records &records) {
  if (offset < 21) return bit_class::structural;  // version, init offset, positions, size, wrap byte
  if (offset < 24) return bit_class::contents;    // reserved bytes
  for (const auto &[start, bytes] : records) {
    if (offset < start || offset >= start + bytes.size()) continue;
    const std::size_t at = offset - start;
    const bool structural = at < 12                     // length, both zero words
                            || at < 19                  // the identifier's first character and i-node
                            || (at >= 19 && at < 25)    // its seconds
                            || at == 54                 // its terminator
                            || (at >= 98 && at < 102);  // the time
    return structural ? bit_class::structural : bit_class::contents;
  }
  return bit_class::contents;  // free room
}

struct base_file {
  const char *name;
  builder::bytes file;
};

std::vector<base_file> base_files() {
  return {{"never wrapped", builder::never_wrapped_file()},
          {"wrapped", builder::wrapped_file()},
          {"with a cut record", builder::file_with_cut_record()}};
}

}  // namespace

TEST(Damage, IsNamedForEveryStructuralBitAndHidesNoOtherRecord) {
  for (base_file &base : base_files()) {
    SCOPED_TRACE(base.name);
    const intact_records before = records_of(vosk::read_stack(base.file, kInode));
    ASSERT_GT(before.size(), 3u);
    int failures = 0;
    for (std::size_t offset = 0; offset < base.file.size() && failures < 10; ++offset) {
      const bit_class expected = class_of(offset, before);
      for (std::size_t bit = offset % kBitStep; bit < 8; bit += kBitStep) {
        base.file[offset] ^= static_cast<unsigned char>(1 << bit);
        const vosk::stack after = vosk::read_stack(base.file, kInode);
        for (const auto &[start, bytes] : before) {
          const bool hit = offset >= start && offset < start + bytes.size();
          if (!hit && !shows(after, start, bytes)) {
            ++failures;
            ADD_FAILURE() << "bit " << bit << " at " << offset << " hides the record at " << start;
          }
          if (hit && expected == bit_class::contents && record_from(after, start) == nullptr) {
            ++failures;
            ADD_FAILURE() << "bit " << bit << " at " << offset << " (" << offset - start << " in its record) hides it";
          }
        }
        if (after.records.size() > before.size()) {
          ++failures;
          ADD_FAILURE() << "bit " << bit << " at " << offset << " makes a record";
        }
        if (expected == bit_class::structural && after.damages.empty()) {
          ++failures;
          ADD_FAILURE() << "bit " << bit << " at " << offset << " is not named";
        }
        base.file[offset] ^= static_cast<unsigned char>(1 << bit);
      }
    }
  }
}

TEST(Damage, OfAWrapIndicatorIsNamedWhereRecordsLieBehindThePosition) {
  builder::bytes file = builder::wrapped_file();
  const std::size_t records = vosk::read_stack(file, kInode).records.size();
  file[20] = 0;
  const vosk::stack stack = vosk::read_stack(file, kInode);
  EXPECT_EQ(stack.records.size(), records);
  ASSERT_EQ(stack.damages.size(), 1u);
  EXPECT_EQ(stack.damages[0].field, "wrap indicator");
  EXPECT_EQ(stack.damages[0].allowed, "1, as records lie behind the recording position");
}

TEST(Damage, OfAPositionBehindTheFileIsNamed) {
  builder::bytes file = builder::wrapped_file();
  const std::int32_t behind = 8192 + 64;
  std::memcpy(file.data() + 8, &behind, sizeof behind);
  const vosk::stack stack = vosk::read_stack(file, kInode);
  ASSERT_FALSE(stack.damages.empty());
  EXPECT_EQ(stack.damages[0].field, "recording position");
  EXPECT_EQ(stack.damages[0].value, "8256");
}

// The last nine bytes of one record are the first of another: both are whole, and only one can have been left so.
TEST(Damage, OfTwoWholeRecordsThatOverlapHitsTheOlder) {
  for (const bool second_is_later : {false, true}) {
    SCOPED_TRACE(second_is_later);
    builder::record second;
    second.at(1700000000 + (second_is_later ? 1 : 0), 0);
    second.process = "second";
    const builder::bytes tail = builder::record_bytes(second);
    std::uint64_t start = 0;
    std::memcpy(&start, tail.data(), sizeof start);
    builder::record first;
    first.at(1700000000 + (second_is_later ? 0 : 1), 0);
    first.process = "first";
    first.arguments = {{1, "", start}};
    first.detail.clear();
    const builder::bytes head = builder::record_bytes(first);
    builder::bytes file(8192);
    builder::header h;
    h.recording = static_cast<std::int32_t>(24 + head.size() - 9 + tail.size());
    builder::put_header(file, h);
    std::copy(head.begin(), head.end(), file.begin() + 24);
    std::copy(tail.begin(), tail.end(), file.begin() + 24 + static_cast<std::ptrdiff_t>(head.size()) - 9);
    const vosk::stack stack = vosk::read_stack(file, kInode);
    EXPECT_THAT(intact_ones(stack), testing::ElementsAre(second_is_later ? "second" : "first"));
    const auto named = std::find_if(stack.damages.begin(), stack.damages.end(),
                                    [](const vosk::damage &d) { return d.value.starts_with("overlapped by "); });
    EXPECT_NE(named, stack.damages.end());
  }
}

// What has no identifier is a record only if it tells where it comes from, as far as it was not cut.
TEST(Records, WithoutAnIdentifierTellTheirOrigin) {
  struct {
    const char *what;
    void (*change)(builder::record &);
    std::size_t intact;
  } const rows[] = {
      {"whole", [](builder::record &) {}, 1},
      {"no source", [](builder::record &r) { r.source.clear(); }, 0},
      {"no version", [](builder::record &r) { r.version.clear(); }, 0},
      {"no product", [](builder::record &r) { r.product.clear(); }, 0},
      {"cut before them", [](builder::record &r) { r.process.assign(1000, 'p'); }, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    builder::record r;
    r.eid.clear();
    r.time = 0;
    row.change(r);
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    EXPECT_EQ(intact_ones(vosk::read_stack(m.file(), kInode)).size(), row.intact);
  }
}

TEST(Damage, ByTruncationLeavesEveryRecordThatIsStillThere) {
  for (const base_file &base : base_files()) {
    SCOPED_TRACE(base.name);
    const intact_records before = records_of(vosk::read_stack(base.file, kInode));
    for (std::size_t size = 0; size < base.file.size(); size += kSizeStep) {
      const vosk::stack after =
          vosk::read_stack({base.file.begin(), base.file.begin() + static_cast<std::ptrdiff_t>(size)}, kInode);
      for (const auto &[start, bytes] : before)
        ASSERT_TRUE(start + bytes.size() > size || shows(after, start, bytes))
            << "cut at " << size << ", record at " << start;
      const bool unnoticed = after.kind == vosk::file_kind::stack && after.damages.empty();
      ASSERT_FALSE(size >= 24 && unnoticed) << size;
    }
  }
}

TEST(Damage, IsNotSeenInWhatTheStandardReclamationLeaves) {
  std::mt19937 random(20240131);
  std::size_t wrapped = 0, refused = 0;
  for (int run = 0; run < 400; ++run) {
    SCOPED_TRACE(run);
    builder::model m(run % 2 == 0 ? 8192 : 8192 + static_cast<std::int32_t>(random() % 8193));
    for (unsigned i = 0; i < 300; ++i) {
      builder::record r = builder::random_record(random, 1700000000 + i);
      if (run % 3 == 0 && r.eid.empty()) r.at(1700000000 + i, 0);
      const bool taken = m.push(builder::record_bytes(r));
      if (!taken) ++refused;
      if (m.control().wrapped == 0 && i % 16 != 0) continue;
      const vosk::stack file = vosk::read_stack(m.file(), kInode);
      ASSERT_EQ(file.kind, vosk::file_kind::stack);
      // A record that reclamation has cleared in part is damaged; nothing else may be.
      for (const vosk::damage &d : file.damages) {
        const bool partly_cleared = std::any_of(file.records.begin(), file.records.end(), [&](const vosk::record &rec) {
          return !rec.intact && rec.offset == d.offset;
        });
        ASSERT_TRUE(partly_cleared) << d.offset << " " << d.field << ": " << d.value << ", allowed " << d.allowed
                                    << ", push " << i << " recording " << m.control().recording << " earliest "
                                    << m.control().earliest;
      }
      if (!taken) break;
    }
    wrapped += m.control().wrapped;
  }
  EXPECT_GT(wrapped, 100u);
  EXPECT_GT(refused, 100u);
}

// The record that was pushed last is always there, and each one that the model still has whole.
TEST(Records, AreShownAsLongAsTheirBytesAreWhole) {
  std::mt19937 random(7);
  for (int run = 0; run < 600; ++run) {
    builder::model m(8192 + static_cast<std::int32_t>(random() % 8193));
    std::map<std::size_t, builder::bytes> pushed;
    for (unsigned i = 0; i < 200; ++i) {
      const builder::bytes bytes = builder::record_bytes(builder::random_record(random, 1700000000 + i));
      if (!m.push(bytes)) break;
      pushed[m.last_offset()] = bytes;
      if (i % 8 != 0) continue;
      const vosk::stack file = vosk::read_stack(m.file(), kInode);
      intact_records expected;
      for (const auto &[at, content] : pushed)
        if (std::equal(content.begin(), content.end(), m.file().begin() + static_cast<std::ptrdiff_t>(at)))
          expected[at] = {content.begin(), content.end()};
      intact_records shown;
      for (const vosk::record &r : file.records)
        if (r.intact) shown[r.offset] = bytes_of(file, r);
      ASSERT_EQ(shown, expected) << "run " << run << " push " << i;
    }
  }
}

TEST(NextPush, IsForetoldAsTheModelThenTakesIt) {
  std::mt19937 random(99);
  std::size_t taken = 0, refused = 0;
  builder::record small;
  small.process = small.source = small.version = small.product = "p";
  small.catalogue.clear();
  small.default_text = "0123456789";
  small.arguments.clear();
  small.detail = "x";
  for (int run = 0; run < 400; ++run) {
    builder::model m(8192 + static_cast<std::int32_t>(random() % 8193));
    bool stopped = false;
    for (unsigned i = 0; i < 20 + random() % 200 && !stopped; ++i)
      stopped = !m.push(builder::record_bytes(builder::random_record(random, 1700000000 + i)));
    const vosk::push_outlook outlook = vosk::next_push(vosk::read_stack(m.file(), kInode));
    builder::record next = small;
    next.at(1800000000, 0);
    builder::bytes bytes = builder::record_bytes(next);
    next.detail.assign(168 - (bytes.size() - 1), 'x');
    bytes = builder::record_bytes(next);
    ASSERT_EQ(bytes.size(), 168u);
    ASSERT_EQ(m.push(bytes), outlook.taken()) << "run " << run << ": " << outlook.reason;
    (outlook.taken() ? taken : refused) += 1;
  }
  EXPECT_GT(taken, 50u);
  EXPECT_GT(refused, 50u);
}

// Headers as nobody checks them: whether a recording goes through is decided by its own steps.
TEST(NextPush, IsForetoldForHeadersOfEveryKind) {
  const std::string past = "the last record ran past the end of the file, so the recording position is 16386",
                    invalid = "the header is not valid";
  struct {
    const char *what;
    vosk::stack_header header;  // version, init, recording, earliest, size, wrapped
    std::string reason;         // empty: it is taken
  } const rows[] = {
      {"as it should be", {0, 24, 9000, 9000, 16384, 1}, ""},
      {"past the end", {0, 24, 16386, 24, 16384, 1}, past},
      {"past the end, and damaged", {0, 25000, 16386, 24, 16384, 1}, invalid},
      {"a foreign version", {8, 24, 9000, 9000, 16384, 1}, ""},
      {"the last foreign version", {56, 24, 9000, 9000, 16384, 1}, ""},
      {"no version", {12, 24, 9000, 9000, 16384, 1}, invalid},
      {"no version any more", {64, 24, 9000, 9000, 16384, 1}, invalid},
      {"a length that the file ends in",
       {0, 24, 8190, 8190, 16384, 1},
       "reclamation reads 65535 at offset 8190 as a record's length, which leads past the end of the file"},
      {"foreign, and written before the file", {8, 24, -5, 24, 16384, 0}, invalid},
      {"foreign, and wrapped to before it", {8, -5, 16384, 24, 16384, 0}, invalid},
      {"foreign, and cleared before it", {8, 24, 9000, -2, 16384, 1}, invalid},
      {"foreign, and nothing to clear before it", {8, -5, 9000, -2, 16384, 0}, ""},
      {"foreign, and of any size",
       {8, 24, 8190, 8190, 2000000000, 1},
       "reclamation reads 65535 at offset 8190 as a record's length, which leads past the end of the file"},
  };
  vosk::stack file;
  file.kind = vosk::file_kind::stack;
  file.bytes.assign(8192, 0);
  file.bytes[8190] = file.bytes[8191] = 0xFF;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    file.header = row.header;
    const vosk::push_outlook outlook = vosk::next_push(file);
    EXPECT_EQ(outlook.reason, row.reason);
    EXPECT_EQ(outlook.taken(), row.reason.empty());
  }
}
