// Identifiers taken apart, and found in any text.
#include "tools/reader/identifier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <random>

#include "reader/builder.h"
#include "reader/ordinary_text.h"
#include "tools/reader/identifier_scan.h"
#include "tools/reader/node.h"

namespace {

constexpr std::int64_t kNow = 1700000000;

// Times mean nothing in instrumented and debug builds.
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
constexpr bool kOptimised = true;
#else
constexpr bool kOptimised = false;
#endif
const std::string kEid = "75Oh2...2zIZ/.7S..XO.8....................";

std::vector<std::size_t> scan(std::string_view text) {
  std::vector<std::size_t> found;
  vosk::identifier_scanner(kNow).scan(text, found);
  return found;
}

}  // namespace

TEST(Identifier, IsTakenApart) {
  const auto id = vosk::decode_identifier(kEid);
  ASSERT_TRUE(id);
  EXPECT_EQ(id->version, 2);
  EXPECT_EQ(id->where, vosk::location::stack);
  EXPECT_EQ(id->inode, 1234567u);
  EXPECT_EQ(id->seconds, 1700000000);
  EXPECT_EQ(id->microseconds, 123456u);
  EXPECT_EQ(id->address->text(), "192.168.1.10");
}

TEST(Identifier, IsWholeWithItsMicrosecondsAndItsAddress) {
  EXPECT_TRUE(vosk::is_whole_identifier(kEid));
  for (const std::string &other :
       {std::string("x"), kEid.substr(0, 13) + ".7o1" + kEid.substr(17), kEid.substr(0, 41) + "0"})
    EXPECT_FALSE(vosk::is_whole_identifier(other)) << other;
}

TEST(Identifier, TellsItsNodeByItsAddress) {
  const vosk::node_address here{false, {192, 168, 1, 10}}, elsewhere{false, {192, 168, 1, 11}};
  vosk::identifier id = *vosk::decode_identifier(kEid);
  EXPECT_EQ(vosk::test_node(id, {elsewhere, here}), vosk::node_test::this_node);
  EXPECT_EQ(vosk::test_node(id, {elsewhere}), vosk::node_test::other_node);
  id.address = std::nullopt;
  EXPECT_EQ(vosk::test_node(id, {elsewhere, here}), vosk::node_test::not_told);
}

TEST(Identifier, IsTakenApartForEachVersionAndLocation) {
  const std::string rest = kEid.substr(7);
  struct {
    std::string text;
    int version;
    vosk::location where;
    std::uint64_t value;  // i-node, template, or facility * 8 + priority
  } const rows[] = {
      {".3....." + rest, 1, vosk::location::error_template, 5},
      {"/3....." + rest, 1, vosk::location::stack, 5},
      {"022...." + rest, 1, vosk::location::system_log, 27},
      {"63....." + rest, 2, vosk::location::error_template, 5},
      {"7zzzzzz" + rest, 2, vosk::location::stack, 0xFFFFFFFFF},
      {"8M6...." + rest, 2, vosk::location::system_log, 191},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.text);
    const auto id = vosk::decode_identifier(row.text);
    ASSERT_TRUE(id);
    EXPECT_EQ(id->version, row.version);
    EXPECT_EQ(id->where, row.where);
    const std::uint64_t value = id->where == vosk::location::stack            ? id->inode
                                : id->where == vosk::location::error_template ? id->template_id
                                                                              : id->facility * 8 + id->priority;
    EXPECT_EQ(value, row.value);
  }
}

TEST(Identifier, IsRefusedWithItsReason) {
  struct {
    std::string text;
    const char *why;
  } const rows[] = {
      {"", "it does not have 42 characters"},
      {kEid + ".", "it does not have 42 characters"},
      {"1" + kEid.substr(1), "its first character names no version and location"},
      {"9" + kEid.substr(1), "its first character names no version and location"},
      {"_" + kEid.substr(1), "its first character names no version and location"},
      {"6......" + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {"8.2...." + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {"8N2...." + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {"827...." + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {"82....." + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {"822...x" + kEid.substr(7), "its location field (characters 2 to 7) is not valid"},
      {kEid.substr(0, 7) + "......" + kEid.substr(13), "its seconds (characters 8 to 13) are not valid"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.text);
    std::string why;
    EXPECT_FALSE(vosk::decode_identifier(row.text, &why));
    EXPECT_EQ(why, row.why);
  }
}

TEST(Identifier, IsNotWholeWithoutMicrosecondsAndAddress) {
  EXPECT_TRUE(vosk::is_whole_identifier(kEid));
  EXPECT_TRUE(vosk::is_whole_identifier(kEid.substr(0, 17) + std::string(24, '.') + "/"));
  EXPECT_FALSE(vosk::is_whole_identifier(kEid.substr(0, 13) + ".7o1" + kEid.substr(17)));
  EXPECT_FALSE(vosk::is_whole_identifier(kEid.substr(0, 22) + "2" + kEid.substr(23))) << "an address of 33 bits";
  EXPECT_FALSE(vosk::is_whole_identifier(kEid.substr(0, 30) + "/" + kEid.substr(31)));
  EXPECT_FALSE(vosk::is_whole_identifier(kEid.substr(0, 41) + "2"));
}

TEST(Scan, FindsTenThousandIdentifiersBesideAnything) {
  const std::string beside[] = {".",  "/",    "'",         "\"", ":::",      "#012",  "\x1b[31m", "\x1b[0m",
                                "\n", "\r\n", " ",         "=",  "",         "...",   "//",       "a",
                                "0",  "zzzz", ")",         ",",  "\xc3\xbc", "/var/", "-",        "_",
                                ">",  "[",    "2615-000 ", "\t", "%",        "\\",    "+",        "*"};
  std::mt19937 random(4);
  std::string text;
  std::vector<std::size_t> planted;
  for (int i = 0; i < 10000; ++i) {
    const std::uint64_t seconds = 631152000 + random() % (1700000000 - 631152000);
    const std::string place =
        random() % 2 != 0 ? "7" + builder::digits(random() % 50000000, 6)
                          : "8" + builder::digits(1 + random() % 24, 1) + builder::digits(1 + random() % 8, 1) + "....";
    const std::string address = random() % 8 == 0 ? std::string(24, '.') + "/"
                                                  : builder::digits(random() & 0xFFFFFFFF, 6) + std::string(19, '.');
    text += beside[random() % std::size(beside)];
    planted.push_back(text.size());
    text += place + builder::digits(seconds, 6) + builder::digits(random() % 1000000, 4) + address;
    text += beside[random() % std::size(beside)];
    if (random() % 4 == 0) text += "\n";
  }
  const std::vector<std::size_t> found = scan(text);
  std::size_t missed = 0;
  for (const std::size_t at : planted)
    if (!std::binary_search(found.begin(), found.end(), at)) {
      ++missed;
      ADD_FAILURE() << "missed: " << text.substr(at > 10 ? at - 10 : 0, 62);
      if (missed > 5) break;
    }
  EXPECT_EQ(found.size(), planted.size());
}

TEST(Scan, TakesOnlyTimesFrom1990ToTomorrow) {
  const auto at = [](std::int64_t seconds) { return builder::stack_eid(5, static_cast<std::uint64_t>(seconds), 1); };
  EXPECT_THAT(scan(at(631152000)), testing::SizeIs(1));
  EXPECT_THAT(scan(at(631151999)), testing::SizeIs(0));
  EXPECT_THAT(scan(at(kNow + 86400)), testing::SizeIs(1));
  EXPECT_THAT(scan(at(kNow + 86401)), testing::SizeIs(0));
}

// 64 MB of what logs hold: words, paths, hashes, keys, mail in base 64.
TEST(Scan, FindsNoneInOrdinaryLogsAndIsFast) {
  builder::ordinary_text lines(9);
  std::string text;
  while (text.size() < (std::size_t{64} << 20)) lines.append_line(text);
  const std::clock_t start = std::clock();
  EXPECT_THAT(scan(text), testing::IsEmpty());
  const double seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
  std::printf("%.0f MB/s\n", 64 / seconds);
  if (kOptimised) {
    EXPECT_LT(seconds, 64.0 / 100) << "1 GB must take less than 10 s";
  }
}

TEST(Scan, KnowsWhatCanBeScannedBeforeMoreIsRead) {
  using vosk::identifier_scanner;
  EXPECT_EQ(identifier_scanner::complete_part(""), 0u);
  EXPECT_EQ(identifier_scanner::complete_part("a line\n"), 7u);
  EXPECT_EQ(identifier_scanner::complete_part("a line\nan unfinished 75Oh2"), 21u);
  EXPECT_EQ(identifier_scanner::complete_part(std::string(1000, 'a')), 918u);
}
