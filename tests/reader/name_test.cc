// What the names of stacks and of copies, and addresses, are taken for.
#include <gtest/gtest.h>

#include "tools/reader/collection.h"
#include "tools/reader/detail_path.h"
#include "tools/reader/escape.h"
#include "tools/reader/identifier.h"
#include "tools/reader/originator.h"

TEST(StackName, TellsWhoMadeItAndWhen) {
  const auto name = vosk::parse_stack_name("/var/adm/vosk/stacks/a.b.4711.20231114.221320");
  ASSERT_TRUE(name);
  EXPECT_EQ(name->pid, 4711);
  for (const char *other :
       {"job", "job.1", "1.20231114.221320", "job..20231114.221320", "job.x.20231114.221320", "job.1x.20231114.221320",
        "job.99999999999.20231114.221320", "job.0.20231114.221320", "job.-1.20231114.221320", "job.1.20231314.221320",
        "job.1.20231114.221360x", "job.1.20231114.2213200", "job.1.2023114.221320", "job.1.20231114.22132"})
    EXPECT_FALSE(vosk::parse_stack_name(other)) << other;
}

TEST(CitedCopy, LiesDirectlyInTheDirectoryOfCopies) {
  const std::string dumps = vosk::kDumpDirectory;
  EXPECT_EQ(vosk::cited_copy(dumps + "/job.1.20231114.221320"), "job.1.20231114.221320");
  for (const std::string &other : {std::string(), dumps, dumps + "/", dumps + "x/name", dumps + "/.", dumps + "/..",
                                   dumps + "/inner/name", std::string("/tmp/name")})
    EXPECT_FALSE(vosk::cited_copy(other)) << other;
}

TEST(Address, IsALoopbackOfItsFamily) {
  vosk::node_address address;
  EXPECT_TRUE(address.none());
  address.bytes[0] = 127;
  EXPECT_TRUE(address.loopback());
  address.ipv6 = true;
  EXPECT_FALSE(address.loopback());
  address.bytes[15] = 1;
  EXPECT_FALSE(address.loopback());
  address.bytes[0] = 0;
  EXPECT_TRUE(address.loopback());
  EXPECT_EQ(address.text(), "::1");
}

TEST(HiddenCharacters, AreThoseThatShowNothingOrTurnTheText) {
  struct {
    char32_t first, last;
  } const ranges[] = {{0, 0x1F},        {0x7F, 0x9F},     {0xAD, 0xAD},     {0x200B, 0x200F},  {0x2028, 0x202E},
                      {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
  for (const auto &range : ranges) {
    SCOPED_TRACE(static_cast<unsigned>(range.first));
    EXPECT_TRUE(vosk::is_hidden_character(range.first));
    EXPECT_TRUE(vosk::is_hidden_character(range.last));
    EXPECT_FALSE(vosk::is_hidden_character(range.last + 1));
    if (range.first > 0) {
      EXPECT_FALSE(vosk::is_hidden_character(range.first - 1));
    }
  }
  EXPECT_EQ(vosk::utf8_length(""), 0u);
}
