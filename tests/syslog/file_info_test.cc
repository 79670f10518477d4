// The fixed-width field that says where an incident was detected.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <climits>
#include <cstring>
#include <map>
#include <memory>

#include "support/files.h"
#include "support/trace_file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

struct Flags {
  std::uint32_t entries[VK_FLAG_COUNT] = {};
};

// The field in a block of exactly its size, so that a sanitizer sees a byte behind it.
std::string field(const char *product, const char *file, const char *version, int line, const Flags &flags = {},
                  int trace_on = 0, const char *trace_path = nullptr) {
  const std::unique_ptr<char[]> buffer(new char[46]);
  std::memset(buffer.get(), '?', 46);
  EXPECT_EQ(vk_make_file_info_msg(trace_on, trace_path, buffer.get(), product, file, version, line, flags.entries), 46);
  return {buffer.get(), 46};
}

std::string blanks(std::size_t count) {
  return std::string(count, ' ');
}
std::string of(char letter, std::size_t count) {
  return std::string(count, letter);
}

TEST(FileInfo, ShortTextIsFilledWithBlanks) {
  EXPECT_EQ(field("prod", "/src/a/b.c", "1.2", 17), "prod,b.c,1.2,17" + blanks(31));
}

TEST(FileInfo, FileIsTheLastComponent) {
  const std::pair<const char *, std::string> rows[] = {
      {"b.c", "b.c"}, {"/b.c", "b.c"}, {"/src/a/b.c", "b.c"}, {"src/a/", "a"}, {"///", "/"},
      {".", "."},     {"", "."},       {nullptr, "."},        {"a//b", "b"},
  };
  for (const auto &[path, name] : rows) {
    const std::string text = "p," + name + ",v,1";
    EXPECT_EQ(field("p", path, "v", 1), text + blanks(46 - text.size())) << (path != nullptr ? path : "null");
  }
}

TEST(FileInfo, LineIsASignedDecimal) {
  for (const auto &[line, digits] :
       std::map<int, std::string>{{0, "0"}, {-5, "-5"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}}) {
    const std::string text = "p,f,v," + digits;
    EXPECT_EQ(field("p", "f", "v", line), text + blanks(46 - text.size()));
  }
}

TEST(FileInfo, MissingPiecesHaveTheirFixedTexts) {
  const struct {
    int flag;
    std::string text;
  } rows[] = {
      {5, "prod,unknown_file,1.2,17"},
      {6, "prod,b.c,no_version_num,17"},
      {7, "qrn_product,b.c,1.2,17"},
      {8, "prod,b.c,1.2,0"},
  };
  for (const auto &row : rows) {
    for (std::uint32_t value : {1U, 2U, 0x80000000U}) {
      Flags flags;
      flags.entries[row.flag] = value;
      EXPECT_EQ(field("prod", "/src/a/b.c", "1.2", 17, flags), row.text + blanks(46 - row.text.size()));
    }
  }
}

TEST(FileInfo, NoOtherFlagIsLookedAt) {
  Flags flags;
  for (std::uint32_t &entry : flags.entries) entry = 1;
  for (int flag : {5, 6, 7, 8}) flags.entries[flag] = 0;
  EXPECT_EQ(field("prod", "b.c", "1.2", 17, flags), "prod,b.c,1.2,17" + blanks(31));
}

TEST(FileInfo, WithoutFlagsNothingIsMissing) {
  char buffer[46];
  EXPECT_EQ(vk_make_file_info_msg(0, nullptr, buffer, "prod", "b.c", "1.2", 17, nullptr), 46);
  EXPECT_EQ(std::string(buffer, 46), "prod,b.c,1.2,17" + blanks(31));
}

TEST(FileInfo, EverythingMissingFitsTheField) {
  Flags flags;
  for (std::uint32_t &entry : flags.entries) entry = 1;
  EXPECT_EQ(field(nullptr, nullptr, nullptr, 0, flags), "qrn_product,unknown_file,no_version_num,0" + blanks(5));
}

TEST(FileInfo, TextOfTheFieldsLengthOrMoreIsCutAndMarked) {
  // ",b.c,1.2,17" has 11 characters.
  EXPECT_EQ(field(of('p', 33).c_str(), "b.c", "1.2", 17), of('p', 33) + ",b.c,1.2,17" + blanks(2));
  EXPECT_EQ(field(of('p', 34).c_str(), "b.c", "1.2", 17), of('p', 34) + ",b.c,1.2,17" + blanks(1));
  EXPECT_EQ(field(of('p', 35).c_str(), "b.c", "1.2", 17), of('p', 35) + ",b.c,1.2,1>");
  EXPECT_EQ(field(of('p', 36).c_str(), "b.c", "1.2", 17), of('p', 36) + ",b.c,1.2,>");
  EXPECT_EQ(field(of('p', 37).c_str(), "b.c", "1.2", 17), of('p', 37) + ",b.c,1.2>");
  EXPECT_EQ(field(of('p', 100000).c_str(), "b.c", "1.2", 17), of('p', 45) + ">");
  EXPECT_EQ(field("p", of('f', 100000).c_str(), "1.2", 17), "p," + of('f', 43) + ">");
  EXPECT_EQ(field("p", (of('d', 100000) + "/b.c").c_str(), "1.2", 17), "p,b.c,1.2,17" + blanks(34));
  EXPECT_EQ(field("p", "f", of('v', 100000).c_str(), 17), "p,f," + of('v', 41) + ">");
}

TEST(FileInfo, PercentSignsAreText) {
  EXPECT_EQ(field("%n%s", "%d", "%%", 1), "%n%s,%d,%%,1" + blanks(34));
}

TEST(FileInfo, CutIsTracedWithTheFieldAndTheFullLength) {
  const files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_EQ(vk_create_debug_file(path.c_str()), 0);
  field(of('p', 34).c_str(), "b.c", "1.2", 17, {}, 1, path.c_str());
  field(of('p', 40).c_str(), "b.c", "1.2", 17, {}, 0, path.c_str());
  EXPECT_THAT(trace_file::read(path).summaries(), IsEmpty());
  field(of('p', 35).c_str(), "b.c", "1.2", 17, {}, 1, path.c_str());
  field(of('p', 40).c_str(), "b.c", "1.2", 17, {}, 1, path.c_str());
  EXPECT_THAT(
      trace_file::read(path).summaries(),
      ElementsAre("vk_make_file_info_msg: " +
                      folded_text("File Identification information \"ppppppppppppppppppppppppppppppppppp,b.c,1.2,1\" "
                                  "is 46 chars long, being truncated\nSome information will be lost\n"),
                  "vk_make_file_info_msg: " +
                      folded_text("File Identification information \"pppppppppppppppppppppppppppppppppppppppp,b.c,\" "
                                  "is 51 chars long, being truncated\nSome information will be lost\n")));
}

}  // namespace
