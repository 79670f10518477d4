// Which records the ring reader finds, and in which order, in files laid out by hand.
#include "vk_push_stack/record_ring.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/stack_model.h"
#include "whole/stack_reading.h"

namespace whole_test {
namespace {

stack_model::Push push() {
  stack_model::Push push;
  push.identifier = "7aaaaaaTmeye/" + std::string(29, '.');
  push.seconds = 1794813087;  // Tmeye/
  push.file = push.version = push.product = "x";
  return push;
}

// A record of exactly so many bytes.
std::string record(std::size_t size) {
  stack_model::Push pushed = push();
  pushed.detail = std::string(size - vk::kBodyMin - kPrefix, 'd');
  return stack_model::build(pushed).bytes;
}

// One whose last text does not end: whole, but not intact.
std::string torn(std::string bytes) {
  bytes.back() = 'x';
  return bytes;
}

// One whose length says more than it has.
std::string reaching(std::size_t size, std::size_t said) {
  std::string bytes = record(size);
  put_number(bytes, 0, static_cast<std::uint32_t>(said - kPrefix));
  return bytes;
}

// One whose arguments are another record, as anyone can push it: both are intact.
constexpr std::size_t kInner = 12 * 12, kInnerAt = 8 + 4 + 86 + 4 + 1 + 12 + 6 + 4 + 1 + 8 + 1 + 4;
std::string nesting() {
  const std::string inner = record(kInner);
  stack_model::Push pushed = push();
  for (std::size_t at = 0; at < inner.size(); at += 12) {
    stack_model::Argument argument;
    std::memcpy(&argument.type, inner.data() + at, 4);
    std::memcpy(&argument.value, inner.data() + at + 4, 8);
    pushed.arguments.push_back(argument);
  }
  const std::string outer = stack_model::build(pushed).bytes;
  EXPECT_EQ(outer.substr(kInnerAt, kInner), inner);
  return outer;
}

struct Piece {
  std::size_t at;
  std::string bytes;
};

struct Row {
  const char *what;
  vk::stack_file::control header;  // start of the ring, recording position, earliest offset, file size, wrapped
  std::vector<Piece> pieces;
  bool linked;
  const char *records;         // "24+200 224+300", oldest first
  std::size_t position;        // the end of the newest
  std::size_t length = 8192;   // of the file
  std::size_t limit = length;  // where records end at the latest
};

// A file's image, with memory on both sides that nobody may touch. What lies behind the file's end is not zero, so that
// it shows where it is looked at; a piece may reach there.
class Image {
 public:
  Image(std::size_t length, const std::vector<Piece> &pieces) {
    if (memory_ == MAP_FAILED || mprotect(start(), kRoom, PROT_READ | PROT_WRITE) != 0) std::abort();
    image().end = std::min(length, sizeof image().bytes);
    std::memset(image().bytes, 0xee, sizeof image().bytes);
    std::memset(image().bytes, 0, image().end);
    for (const Piece &piece : pieces) {
      const std::size_t room = sizeof image().bytes - piece.at;
      std::memcpy(image().bytes + piece.at, piece.bytes.data(), std::min(piece.bytes.size(), room));
    }
  }
  ~Image() { munmap(memory_, kAll); }
  Image(const Image &) = delete;
  Image &operator=(const Image &) = delete;
  vk::stack_image &image() { return *reinterpret_cast<vk::stack_image *>(start()); }

 private:
  static constexpr std::size_t kPart = 1 << 16, kRoom = kPart, kAll = 3 * kPart;
  static_assert(sizeof(vk::stack_image) <= kRoom);
  char *start() { return static_cast<char *>(memory_) + kPart; }

  void *memory_ = mmap(nullptr, kAll, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
};

std::string places(const vk::record_ring &ring) {
  std::string out;
  for (const vk::extent &found : ring)
    out += (out.empty() ? "" : " ") + std::to_string(found.begin) + "+" + std::to_string(found.end - found.begin);
  return out;
}

void expect_rows(const std::vector<Row> &rows) {
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    Image image(row.length, row.pieces);
    const vk::record_ring ring(image.image(), row.header);
    EXPECT_EQ(ring.linked(), row.linked);
    EXPECT_EQ(places(ring), row.records);
    EXPECT_EQ(ring.position(), row.position);
    EXPECT_EQ(ring.limit(), row.limit);
    EXPECT_EQ(ring.count(), static_cast<std::size_t>(ring.end() - ring.begin()));
  }
}

// From the start of a file of 8192 bytes to its end.
std::string whole_file() {
  std::string bytes;
  for (int i = 0; i < 7; ++i) bytes += record(1024);
  return bytes + record(1000);
}

TEST(RecordRing, FollowsTheLinksFromTheEarliestRecordToTheNewest) {
  const std::string two = record(200) + record(300);
  expect_rows({
      {"a fresh file", {24, 24, 24, 8192, 0, {}}, {}, true, "", 24},
      {"a file that has not wrapped", {24, 524, 24, 8192, 0, {}}, {{24, two}}, true, "24+200 224+300", 524},
      {"the older ones lie behind",
       {24, 524, 5000, 8192, 1, {}},
       {{24, two}, {5000, two}},
       true,
       "5000+200 5200+300 24+200 224+300",
       524},
      {"all lie behind", {24, 24, 5000, 8192, 1, {}}, {{5000, two}}, true, "5000+200 5200+300", 24},
      {"the wrap indicator is not needed for that",
       {24, 224, 5000, 8192, 0, {}},
       {{24, record(200)}, {5000, two}},
       true,
       "5000+200 5200+300 24+200",
       224},
      {"the ring starts elsewhere",
       {1000, 1500, 5000, 8192, 1, {}},
       {{24, two}, {1000, two}, {5000, two}},
       true,
       "5000+200 5200+300 1000+200 1200+300",
       1500},
      {"torn records are records, too",
       {24, 224, 5000, 8192, 1, {}},
       {{24, torn(record(200))}, {5000, torn(record(200)) + record(300)}},
       true,
       "5000+200 5200+300 24+200",
       224},
      {"a full ring",
       {24, 1048, 1048, 8192, 1, {}},
       {{24, whole_file()}},
       true,
       "1048+1024 2072+1024 3096+1024 4120+1024 5144+1024 6168+1024 7192+1000 24+1024",
       1048},
      {"a full ring whose oldest is the first",
       {24, 24, 24, 8192, 1, {}},
       {{24, whole_file()}},
       true,
       "24+1024 1048+1024 2072+1024 3096+1024 4120+1024 5144+1024 6168+1024 7192+1000",
       24},
      {"equal offsets without a wrap", {24, 224, 224, 8192, 0, {}}, {{24, two}}, true, "", 224},
      {"equal offsets at the end", {24, 8192, 8192, 8192, 0, {}}, {{24, two}}, true, "", 8192},
  });
}

TEST(RecordRing, EndsFourBytesBehindTheFileSizeOrWithTheFile) {
  const Row past = {"", {24, 24, 7992, 8192, 1, {}}, {{7992, record(204)}}, true, "7992+204", 24, 8196};
  Row row = past;
  expect_rows({row});
  row.what = "five bytes are too many";
  row.pieces = {{7992, record(205)}};
  row.length = 9000;
  row.linked = false;
  row.records = "";
  row.limit = 8196;
  expect_rows({row});
  row = past;
  row.what = "the last byte is missing";
  row.length = row.limit = 8195;
  row.pieces = {{7992, record(204)}};
  row.linked = false;
  row.records = "";
  expect_rows({row});
  expect_rows({
      {"the newest one ends with the file",
       {24, 8192, 24, 8192, 0, {}},
       {{24, whole_file()}},
       true,
       "24+1024 1048+1024 2072+1024 3096+1024 4120+1024 5144+1024 6168+1024 7192+1000",
       8192},
      {"the newest one ends behind it",
       {24, 8192, 7992, 8192, 0, {}},
       {{7992, record(204)}},
       true,
       "7992+204",
       8196,
       8196},
      {"the largest file", {24, 24, 16000, 16384, 1, {}}, {{16000, record(388)}}, true, "16000+388", 24, 16388},
      {"a file that was cut", {24, 224, 24, 8192, 0, {}}, {{24, record(200)}}, true, "24+200", 224, 224},
      {"one that was cut in a record", {24, 224, 24, 8192, 0, {}}, {{24, record(200)}}, false, "", 224, 223},
  });
}

// The search finds the records all the same.
TEST(RecordRing, IsNotLinkedWhereTheHeaderLeadsAstray) {
  const std::string two = record(200) + record(300);
  expect_rows({
      {"the earliest offset is behind the end",
       {24, 8193, 8193, 8192, 0, {}},
       {{24, two}},
       false,
       "24+200 224+300",
       8193},
      {"behind where the file was cut",
       {24, 700, 700, 8192, 0, {}},
       {{24, two}, {540, record(150)}, {700, two}},
       false,
       "24+200 224+300",
       700,
       600},
      {"nothing at the earliest offset, and nothing behind it",
       {24, 524, 5000, 8192, 1, {}},
       {{24, two}},
       false,
       "24+200 224+300",
       524},
      {"leftovers at the earliest offset",
       {24, 524, 5000, 8192, 1, {}},
       {{24, two}, {5000, "left"}},
       false,
       "24+200 224+300",
       524},
      {"leftovers behind the older records",
       {24, 524, 5000, 8192, 1, {}},
       {{24, two}, {5000, two + "left" + two}},
       false,
       "5000+200 5200+300 5504+200 5704+300 24+200 224+300",
       524},
      {"a byte at the very end",
       {24, 524, 5000, 8192, 1, {}},
       {{24, two}, {5000, two}, {8191, "x"}},
       false,
       "5000+200 5200+300 24+200 224+300",
       524},
      {"the newer records end early", {24, 525, 24, 8192, 0, {}}, {{24, two}}, false, "24+200 224+300", 525},
      {"the newest reaches beyond the position", {24, 523, 24, 8192, 0, {}}, {{24, two}}, false, "24+200 224+300", 524},
      {"the position is one byte in a record", {24, 225, 24, 8192, 0, {}}, {{24, two}}, false, "24+200 224+300", 524},
      {"the ring starts behind the position",
       {1000, 999, 5000, 8192, 1, {}},
       {{24, two}, {5000, two}},
       false,
       "5000+200 5200+300 24+200 224+300",
       999},
      {"a full ring without a first record", {24, 524, 524, 8192, 1, {}}, {{24, two}}, false, "24+200 224+300", 524},
  });
}

TEST(RecordRing, FindsTheOlderRecordsThatTheEarliestOffsetHides) {
  const std::string two = record(200) + record(300);
  expect_rows({
      {"behind the position",
       {24, 224, 24, 8192, 1, {}},
       {{24, record(200)}, {224, two}},
       true,
       "224+200 424+300 24+200",
       224},
      {"behind what is left of another",
       {24, 224, 24, 8192, 1, {}},
       {{24, record(200) + "left"}, {7692, two}},
       true,
       "7692+200 7892+300 24+200",
       224},
      {"but not where nothing has wrapped",
       {24, 224, 24, 8192, 0, {}},
       {{24, record(200)}, {300, two}},
       true,
       "24+200",
       224},
      {"and not where the earliest offset is another",
       {24, 424, 224, 8192, 1, {}},
       {{24, record(200) + record(200)}, {424, two}},
       true,
       "224+200",
       424},
      {"linked records keep their extents although others lie inside",
       {24, 792, 24, 8192, 1, {}},
       {{24, nesting() + torn(nesting()) + record(200)}, {5000, two}},
       true,
       "5000+200 5200+300 24+284 308+284 592+200",
       792},
  });
}

TEST(RecordRing, SearchesEveryOffsetWhereTheLinksEnd) {
  const std::string two = record(200) + record(300);
  expect_rows({
      {"the one at the position is the oldest",
       {24, 400, 300, 8192, 1, {}},
       {{24, record(200)}, {400, two}},
       false,
       "400+200 600+300 24+200",
       400},
      {"none is older than the position", {24, 7000, 24, 8192, 1, {}}, {{25, two}}, false, "25+200 225+300", 7000},
      {"the first byte, and the last ones",
       {24, 4000, 4000, 8192, 1, {}},
       {{24, record(140)}, {8192 - 140, record(140)}},
       false,
       "8052+140 24+140",
       4000},
      {"leftovers of any length between them",
       {24, 4000, 4000, 8192, 1, {}},
       {{25, record(140)}, {167, record(140)}, {310, record(140) + "xyz" + record(140)}},
       false,
       "25+140 167+140 310+140 453+140",
       4000},
      {"a torn one stays, right in front of another",
       {24, 4000, 4000, 8192, 1, {}},
       {{24, torn(record(200)) + record(200)}},
       false,
       "24+200 224+200",
       4000},
      {"one that reaches into another does not",
       {24, 4000, 4000, 8192, 1, {}},
       {{24, reaching(200, 201) + record(200)}},
       false,
       "224+200",
       4000},
      {"nor one that reaches over others",
       {24, 4000, 4000, 8192, 1, {}},
       {{24, reaching(200, 800) + two + record(200)}},
       false,
       "224+200 424+300 724+200",
       4000},
      {"an intact one stays, whatever lies inside",
       {24, 4000, 4000, 8192, 1, {}},
       {{24, nesting()}},
       false,
       "24+284",
       4000},
      {"unless the header leads to what lies inside",
       {24, 4000, 24 + kInnerAt, 8192, 1, {}},
       {{24, nesting()}},
       false,
       "163+144",
       4000},
      {"and to what follows it",
       {24, 4000, 24 + kInnerAt + 300, 8192, 1, {}},
       {{24, std::string(300, 'x') + nesting().substr(0, kInnerAt + kInner) + two}},
       false,
       "463+144 607+200 807+300",
       4000},
      {"what follows ends where all ends",
       {24, 4000, 7792, 8192, 0, {}},
       {{7792, record(200) + record(205)}},
       false,
       "7792+200",
       4000,
       9000,
       8196},
      {"a torn one does not lead on: what it covers counts",
       {24, 4000, 24, 8192, 0, {}},
       {{24, reaching(200, 500) + two}},
       false,
       "224+200 424+300",
       4000},
  });
}

// As many as there can be: all of the smallest size, from the first byte to the last.
TEST(RecordRing, HoldsAsManyRecordsAsFit) {
  constexpr std::size_t kSmallest = vk::kBodyMin + kPrefix, kAll = (16388 - 24) / kSmallest;
  std::string all;
  for (std::size_t i = 0; i < kAll; ++i) all += record(kSmallest);
  for (const std::size_t first : {std::size_t{24}, 16388 - all.size()}) {
    for (const std::int32_t position : {24, 16384}) {
      Image image(16388, {{first, all}});
      const vk::record_ring ring(image.image(), {24, position, 24, 16384, 1, {}});
      EXPECT_EQ(ring.count(), kAll);
      for (std::size_t i = 0; i < ring.count(); ++i) EXPECT_EQ(ring[i].begin, first + i * kSmallest);
    }
  }
}

}  // namespace
}  // namespace whole_test
