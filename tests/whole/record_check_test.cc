// Telling whole records from leftovers, in buffers of exactly their size.
#include "vk_push_stack/record_check.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/edge_buffer.h"
#include "support/stack_model.h"
#include "whole/stack_reading.h"

namespace whole_test {
namespace {

// 31 + 50 * 64 + 42 * 64^2 + 62 * 64^3 + 42 * 64^4 + 1 * 64^5: the digits T m e y e /.
constexpr std::uint32_t kSeconds = 1794813087;
const std::string kEid = "7aaaaaaTmeye/bbbbXO.8...................";

stack_model::Push push() {
  stack_model::Push push;
  push.identifier = kEid + std::string(42 - kEid.size(), '.');
  push.seconds = kSeconds;
  push.process_name = "s1";
  push.file = "f";
  push.version = "v";
  push.product = "p";
  push.message = "message";
  push.detail = "details";
  return push;
}

vk::checked_record look(const std::string &bytes) {
  const std::vector<unsigned char> exact(bytes.begin(), bytes.end());
  return vk::check_record(exact);
}

// The size of a record that is intact, too.
std::size_t check(const std::string &bytes) {
  const vk::checked_record found = look(bytes);
  return found.intact ? found.size : 0;
}

TEST(RecordCheck, AcceptsWhatPushesWrite) {
  const struct {
    const char *what;
    std::function<void(stack_model::Push &)> change;
  } rows[] = {
      {"as it is", [](auto &) {}},
      {"nothing but what is never missing", [](auto &p) { p.process_name = p.message = p.detail = p.catalogue = ""; }},
      {"substitutes", [](auto &p) { p.file = p.version = p.product = ""; }},
      {"an associated identifier of any bytes",
       [](auto &p) { p.associated = std::string("\x81\0\0\0\0\0\0\0\0\0\0\0\x37", 13) + std::string(30, '\xff'); }},
      {"no identifier", [](auto &p) { p.identifier = "", p.seconds = 0; }},
      {"no identifier but an associated one",
       [](auto &p) { p.identifier = "", p.seconds = 0, p.associated = kEid.substr(0, 40) + "zzz"; }},
      {"any address", [](auto &p) { p.identifier = kEid.substr(0, 17) + std::string(25, '\xee'); }},
      {"arguments",
       [](auto &p) {
         p.arguments = {{1, "", 7}, {5, std::string(100, 's'), 0}, {6, "", ~0ull}, {5, "", 0}};
       }},
      {"a cut text", [](auto &p) { p.detail = std::string(2000, 'd'); }},
      {"a cut process name", [](auto &p) { p.process_name = std::string(2000, 'n'); }},
      {"no identifier and a cut process name",
       [](auto &p) { p.identifier = "", p.seconds = 0, p.process_name = std::string(2000, 'n'); }},
      {"a process name that leaves no room", [](auto &p) { p.process_name = std::string(922, 'n'); }},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    stack_model::Push changed = push();
    row.change(changed);
    const std::string record = stack_model::build(changed).bytes;
    EXPECT_EQ(check(record), record.size());
    EXPECT_EQ(check(record + "behind it"), record.size());
    EXPECT_EQ(check(record.substr(0, record.size() - 1)), 0u) << "one byte is missing";
  }
}

TEST(RecordCheck, AcceptsRecordsInWhichAnyFieldHadNoRoom) {
  std::size_t cut = 0, below_the_end = 0;
  for (std::size_t message = 700; message < 1000; ++message) {
    for (const std::size_t detail : {std::size_t{0}, std::size_t{1}, std::size_t{9}, std::size_t{600}}) {
      for (int type : {0, 1, 5}) {
        SCOPED_TRACE(testing::Message() << message << " " << detail << " " << type);
        stack_model::Push full = push();
        full.message = std::string(message, 'm');
        full.detail = std::string(detail, 'd');
        if (type != 0) full.arguments = {{type, "", 0xff}, {1, "", 0x0102030405060708}, {type, "text", 1}};
        const stack_model::Record record = stack_model::build(full);
        ASSERT_EQ(check(record.bytes), record.bytes.size());
        cut += record.over_length;
        below_the_end += record.bytes.size() > 1016 && record.bytes.size() < 1024;
      }
    }
  }
  EXPECT_GT(cut, 100u);
  EXPECT_GT(below_the_end, 20u);
}

// Cut records are as long as they are because a field had no room; shorter ones have room for any field.
TEST(RecordCheck, TakesABodyWithoutItsLastFieldsForCutOnlyFromTheLastEightBytesOn) {
  for (const std::size_t body : {1007, 1008, 1009, 1016}) {
    SCOPED_TRACE(body);
    stack_model::Push full = push();
    full.detail = std::string(2000, 'd');
    std::string record = stack_model::build(full).bytes.substr(0, kPrefix + body);
    put_number(record, 0, static_cast<std::uint32_t>(body));
    record.back() = 'd';
    EXPECT_EQ(look(record).size, record.size());
    EXPECT_EQ(look(record).intact, body > 1008);
  }
}

using Damage = std::function<void(std::string &)>;
Damage put(std::size_t at, std::uint32_t value) {
  return [=](std::string &record) { put_number(record, at, value); };
}

TEST(RecordCheck, RefusesHeadsThatDoNotAgree) {
  const struct {
    const char *what;
    Damage damage;
  } rows[] = {
      {"no length", put(0, 0)},
      {"shorter than any record", put(0, 131)},
      {"longer than any record", put(0, 1017)},
      {"a huge length", put(0, 0xFFFFFFFF)},
      {"a length that overflows", put(0, 0xFFFFFFF8)},
      {"the reserved word", put(4, 1)},
      {"the zero word", put(8, 0x01000000)},
      {"another header", [](std::string &r) { r[12] = '8'; }},
      {"no header", [](std::string &r) { r[12] = '\0'; }},
      {"an identifier that ends early", [](std::string &r) { r[12 + 41] = '\0'; }},
      {"an identifier that does not end", [](std::string &r) { r[12 + 42] = '.'; }},
      {"a digit of the seconds", [](std::string &r) { r[12 + 7] = 'U'; }},
      {"the last digit of the seconds", [](std::string &r) { r[12 + 12] = '0'; }},
      {"a second later", put(98, kSeconds + 1)},
      {"no time", put(98, 0)},
      {"no identifier but a time", [](std::string &r) { r.replace(12, 43, 43, '\0'); }},
  };
  const std::string sound = stack_model::build(push()).bytes;
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    std::string record = sound;
    row.damage(record);
    record.resize(2000, 'x');
    EXPECT_EQ(look(record).size, 0u);
  }
}

// The record is whole all the same, unless it has neither an identifier nor its names.
TEST(RecordCheck, FieldsThatDoNotAgreeMakeARecordThatIsNotIntact) {
  stack_model::Push identified = push(), nameless = push();
  nameless.identifier = "";
  nameless.seconds = 0;
  const std::string sound = stack_model::build(identified).bytes, unidentified = stack_model::build(nameless).bytes;
  const auto size = static_cast<std::uint32_t>(sound.size());
  const struct {
    const char *what;
    Damage damage;
    bool names = true;
  } rows[] = {
      {"one byte less", put(0, size - 8 - 1)},
      {"one byte more", put(0, size - 8 + 1)},
      {"a count of arguments", put(size - 12, 1)},
      {"many arguments", put(size - 12, 0xFFFFFFFF)},
      {"no source file", [](std::string &r) { r[117] = '\0'; }, false},
      {"no version", [](std::string &r) { r[119] = '\0'; }, false},
      {"no product", [](std::string &r) { r[121] = '\0'; }, false},
      {"a text that does not end", [](std::string &r) { r[155] = 'x'; }},
  };
  ASSERT_EQ(sound.substr(117, 6), std::string("f\0v\0p\0", 6));
  ASSERT_EQ(size, 156u);
  for (const std::string &whole : {sound, unidentified}) {
    ASSERT_EQ(check(whole + std::string(2000, 'x')), size);
    for (const auto &row : rows) {
      SCOPED_TRACE(row.what);
      std::string record = whole;
      row.damage(record);
      const std::size_t said = number_at(record, 0) + kPrefix;
      record.resize(2000, 'x');
      EXPECT_FALSE(look(record).intact);
      EXPECT_EQ(look(record).size, whole == sound || row.names ? said : 0);
    }
  }
}

// The standard rule can take the last three bytes of the newest record for the oldest one and clear them.
TEST(RecordCheck, AcceptsARecordWhoseLastThreeBytesAreCleared) {
  stack_model::Push nameless = push();
  nameless.identifier = "";
  nameless.seconds = 0;
  for (const stack_model::Push &pushed : {push(), nameless}) {
    std::string record = stack_model::build(pushed).bytes;
    record.replace(record.size() - 3, 3, 3, '\0');
    EXPECT_EQ(look(record).size, record.size());
  }
}

// A byte that stayed in front of cleared space reads as a length in front of zeros, and those as no identifier, no
// time and empty texts.
TEST(RecordCheck, RefusesALeftoverByteInFrontOfClearedSpace) {
  for (std::uint32_t length = 1; length <= 1016; ++length) {
    std::string leftover(1100, '\0');
    put_number(leftover, 0, length);
    ASSERT_EQ(look(leftover).size, 0u) << length;
  }
}

TEST(RecordCheck, ReadsNothingBehindTheBytesThatItIsGiven) {
  const auto look_in_front_of_an_edge = [](const std::string &bytes) {
    EdgeBuffer exact(bytes);
    return vk::check_record({reinterpret_cast<const unsigned char *>(exact.chars()), exact.size()});
  };
  const std::string record = stack_model::build(push()).bytes;
  for (std::size_t size = 0; size < record.size(); ++size)
    ASSERT_EQ(look_in_front_of_an_edge(record.substr(0, size)).size, 0u) << size;
  // Bodies that end anywhere, with a length that says so.
  for (std::size_t size = 8; size < record.size(); ++size) {
    std::string cut = record.substr(0, size);
    put_number(cut, 0, static_cast<std::uint32_t>(size - 8));
    const vk::checked_record found = look_in_front_of_an_edge(cut);
    ASSERT_EQ(found.size, size < 140 ? 0u : size) << size;
    ASSERT_FALSE(found.intact) << size;
  }
}

}  // namespace
}  // namespace whole_test
