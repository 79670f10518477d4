// Archives as they are read in place: made here byte by byte, as anybody could.
#include "tools/reader/archive.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

#include "support/files.h"
#include "tools/reader/safe_file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string padded(std::string bytes) {
  bytes.resize((bytes.size() + 511) / 512 * 512);
  return bytes;
}

std::string octal(unsigned long value, int digits) {
  char text[16];
  (void)std::snprintf(text, sizeof text, "%0*lo", digits, value);
  return text;
}

struct header {
  std::string name, size = octal(0, 11), magic = std::string("ustar\0", 6), prefix = "";
  char type = '0';
  std::string sum = "";  // where it is not the right one

  std::string block() const {
    std::string bytes(512, '\0');
    const auto put = [&](std::size_t at, const std::string &text) { bytes.replace(at, text.size(), text); };
    put(0, name);
    put(108, octal(1000, 7));
    put(124, size);
    put(136, octal(1700000000, 11));
    put(148, std::string(8, ' '));
    bytes[156] = type;
    put(257, magic);
    put(345, prefix);
    unsigned long all = 0;
    for (const char byte : bytes) all += static_cast<unsigned char>(byte);
    put(148, sum.empty() ? octal(all, 6) : sum);
    return bytes;
  }
};

std::string member(const std::string &name, const std::string &content) {
  return header{.name = name, .size = octal(content.size(), 11)}.block() + padded(content);
}
std::string before(char type, const std::string &text) {
  return header{.name = "before", .size = octal(text.size(), 11), .type = type}.block() + padded(text);
}
// "LENGTH KEYWORD=VALUE\n", of fewer than 100 characters.
std::string attribute(const std::string &text) {
  const std::size_t rest = text.size() + 2;
  return std::to_string(rest + (rest + 1 < 10 ? 1 : 2)) + " " + text + "\n";
}
const std::string kEnd(1024, '\0');

class Archive : public testing::Test {
 protected:
  int file_of(const std::string &bytes) {
    EXPECT_TRUE(files::write(dir_ / "archive", bytes));
    fd_ = vosk::unique_fd(open((dir_ / "archive").c_str(), O_RDONLY | O_CLOEXEC));
    return fd_.get();
  }
  vosk::archive_contents list(const std::string &bytes) { return vosk::list_archive(file_of(bytes)); }
  std::vector<std::string> names(const std::string &bytes) {
    std::vector<std::string> found;
    const vosk::archive_contents contents = list(bytes);
    EXPECT_EQ(contents.damage, "");
    for (const vosk::archive_member &one : contents.members) found.push_back(one.name);
    return found;
  }
  std::string content(const vosk::archive_member &one) const {
    std::vector<unsigned char> bytes;
    EXPECT_TRUE(vosk::read_member(fd_.get(), one, bytes));
    return {bytes.begin(), bytes.end()};
  }

  files::TemporaryDirectory dir_;
  vosk::unique_fd fd_;
};

TEST_F(Archive, HoldsItsRegularFiles) {
  const vosk::archive_contents contents = list(member("stacks/s", "a stack") + member("e", "") + kEnd);
  ASSERT_EQ(contents.members.size(), 2u);
  EXPECT_EQ(contents.damage, "");
  EXPECT_EQ(contents.members[0].owner, 1000u);
  EXPECT_EQ(contents.members[0].modified.seconds, 1700000000);
  EXPECT_EQ(content(contents.members[0]), "a stack");
  EXPECT_EQ(content(contents.members[1]), "");
}

TEST_F(Archive, NamesAMemberByWhatStandsBeforeIt) {
  const std::string next = member("short", "");
  EXPECT_THAT(names(before('L', std::string("a/long/name\0", 12)) + next + next + kEnd),
              ElementsAre("a/long/name", "short"));
  EXPECT_THAT(names(before('x', attribute("mtime=1.5") + attribute("path=in/attributes")) + next + next + kEnd),
              ElementsAre("in/attributes", "short"));
  EXPECT_THAT(names(header{.name = "n", .prefix = "p/q"}.block() + kEnd), ElementsAre("p/q/n"));
  // Where others keep other things.
  EXPECT_THAT(names(header{.name = "n", .magic = "ustar  ", .prefix = "p/q"}.block() + kEnd), ElementsAre("n"));
}

TEST_F(Archive, HasThePlainNamesOnly) {
  const std::string rows[] = {"", "/a", "a/", "..", "../a", "a/../b", "a/..", "./", "./.."};
  for (const std::string &name : rows) EXPECT_THAT(names(member(name, "") + kEnd), IsEmpty()) << name;
  EXPECT_THAT(names(before('x', attribute(std::string("path=a\0b", 8))) + member("n", "") + kEnd), IsEmpty());
  EXPECT_THAT(names(member("././a", "") + member("...", "") + member("a..b/..c", "") + kEnd),
              ElementsAre("a", "...", "a..b/..c"));
}

TEST_F(Archive, PassesOverWhatIsNoFile) {
  for (const char type : {'1', '2', '3', '5', '6', 'S', 'g'})
    EXPECT_THAT(names(header{.name = "n", .type = type}.block() + kEnd), IsEmpty()) << type;
  EXPECT_THAT(names(header{.name = "n", .type = '\0'}.block() + kEnd), ElementsAre("n"));
}

TEST_F(Archive, TakesTheSizeFromAttributes) {
  const std::string block = header{.name = "n", .size = "not read"}.block();
  const vosk::archive_contents contents =
      list(before('x', attribute("size=7")) + block + padded("content") + member("m", "") + kEnd);
  EXPECT_EQ(contents.damage, "");
  ASSERT_EQ(contents.members.size(), 2u);
  EXPECT_EQ(content(contents.members[0]), "content");
}

TEST_F(Archive, EndsAtAttributesThatAreNone) {
  const std::string rows[] = {"x",
                              "0 a=b\n",
                              "99 a=b\n",
                              "6 a=b ",
                              "99999999999999999999 a=b\n",
                              "-6 a=b\n",
                              "6_a=b\n",
                              "2\n",
                              "7 abcd\n",
                              attribute("size=") + "x",
                              attribute("size="),
                              attribute("size=x"),
                              attribute("size=7x"),
                              attribute("size=-1"),
                              attribute("size=99999999999999999999")};
  for (const std::string &text : rows) {
    SCOPED_TRACE(text);
    const vosk::archive_contents contents = list(member("m", "") + before('x', text) + member("n", "") + kEnd);
    EXPECT_EQ(contents.damage, "the attributes of a member are damaged");
    EXPECT_EQ(contents.members.size(), 1u) << "what was read before it counts";
  }
}

TEST_F(Archive, EndsAtWhatIsNoMember) {
  const std::string wide(65537, 'a');
  const struct {
    std::string bytes;
    const char *damage;
  } rows[] = {
      {"", "it ends before its end mark"},
      {std::string(511, '\0'), "it ends before its end mark"},
      {header{.name = "n", .magic = "USTAR"}.block(), "the header of a member is damaged"},
      {header{.name = "n", .sum = "000000"}.block(), "the header of a member is damaged"},
      {header{.name = "n", .sum = "0000x0"}.block(), "the header of a member is damaged"},
      {header{.name = "n", .size = "0000008"}.block(), "the size of a member is no number"},
      {header{.name = "n", .size = octal(1, 11)}.block(), "a member ends behind the end of the archive"},
      {before('x', attribute("size=1")) + header{.name = "n"}.block(), "a member ends behind the end of the archive"},
      {before('L', wide), "the attributes of a member are too long"},
  };
  for (const auto &row : rows) {
    const vosk::archive_contents contents = list(member("m", "") + row.bytes);
    EXPECT_EQ(contents.damage, row.damage);
    EXPECT_EQ(contents.members.size(), 1u);
  }
}

TEST_F(Archive, IsKnownByItsFirstBlock) {
  EXPECT_TRUE(vosk::is_archive(file_of(member("m", ""))));
  EXPECT_FALSE(vosk::is_archive(file_of(member("m", "").substr(0, 511))));
  EXPECT_FALSE(vosk::is_archive(file_of(std::string(512, '\0'))));
  EXPECT_FALSE(vosk::is_archive(-1));
}

TEST_F(Archive, CannotReadAMemberThatIsCutOff) {
  const vosk::archive_contents contents = list(member("m", "content") + kEnd);
  ASSERT_EQ(contents.members.size(), 1u);
  std::vector<unsigned char> bytes;
  EXPECT_FALSE(vosk::read_member(file_of(member("m", "").substr(0, 512)), contents.members[0], bytes));
  EXPECT_EQ(errno, EIO);
}

TEST(ArchiveMember, KnowsItsNameAndItsDirectory) {
  const struct {
    const char *name, *base, *directory;
  } rows[] = {{"m", "m", nullptr}, {"logs/m", "m", "logs"}, {"a/logs/m", "m", "logs"}, {"logs/a/m", "m", "a"}};
  for (const auto &row : rows) {
    vosk::archive_member one;
    one.name = row.name;
    EXPECT_EQ(one.base_name(), row.base);
    EXPECT_EQ(one.is_in("logs"), row.directory != nullptr && std::string(row.directory) == "logs") << row.name;
  }
}

}  // namespace
