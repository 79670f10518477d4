// vk_debug on headers that nobody wrote in good faith: every byte of the file is only data.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "foundation/trace_bytes.h"
#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"

namespace {

using foundation::entry_of;
using foundation::header;
using foundation::kEnd;
using foundation::kRecycle;
using foundation::over;
using foundation::write_entry;
using platform::Calls;

class HostileTrace : public testing::Test {
 protected:
  std::string bytes() const { return *files::read(path_); }
  files::TemporaryDirectory directory_;
  const std::string path_ = directory_ / "trace";
};

TEST_F(HostileTrace, IsUnusableWithoutItsKeysAndIsNotRepaired) {
  const std::string zero(1, '\0');
  const std::string headers[] = {
      "VKTFX=36    VKTFW=0     VKTFS=16384\n",
      "VKTFO=36    VKTFX=0     VKTFS=16384\n",
      "VKTFO=36    VKTFW=0     VKTFX=16384\n",
      "vktfo=36    VKTFW=0     VKTFS=16384\n",
      "VKTFO 36    VKTFW=0     VKTFS=16384\n",
      "VKTFO=36    VKTFW=0                \n",
      "VKTFO=36    VKTFW=0          VKTFS16",
      "                              VKTFO=",
      "VKTFW=0     VKTFS=16384             ",
      "VKTFO=36   " + zero + "VKTFW=0     VKTFS=16384\n",  // a zero byte ends the text
      "VKTFO=36    VKTFW=0    " + zero + "VKTFS=16384\n",
      zero + "KTFO=36    VKTFW=0     VKTFS=16384\n",
      std::string(36, '\0'),
      std::string(36, '\xff'),
      std::string(36, '%'),
  };
  for (const std::string &text : headers) {
    SCOPED_TRACE(text);
    ASSERT_EQ(text.size(), 36U);
    const std::string before = over(std::string(16384, 'o'), 0, text);
    ASSERT_TRUE(files::write(path_, before));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(write_entry(path_, 100), -26);
    EXPECT_EQ(files::difference(before, bytes()), "");
  }
}

TEST_F(HostileTrace, IsUnusableWithoutAWholeHeader) {
  const std::string whole = header(36, 0, 16384);
  for (std::size_t length = 0; length < 36; ++length) {
    ASSERT_TRUE(files::write(path_, whole.substr(0, length)));
    EXPECT_EQ(write_entry(path_, 100), -26);
    EXPECT_EQ(bytes(), whole.substr(0, length));
  }
  ASSERT_TRUE(files::write(path_, whole));
  EXPECT_EQ(write_entry(path_, 100), 0) << "a header alone is enough to go on";
}

TEST_F(HostileTrace, IsReadFieldByField) {
  struct Row {
    const char *what;
    std::string header;
    int offset, wraps, size;  // as read
  };
  const Row rows[] = {
      {"the usual", "VKTFO=500   VKTFW=3     VKTFS=16384\n", 500, 3, 16384},
      {"another order", "VKTFS=16384 VKTFW=3     VKTFO=500  \n", 500, 3, 16384},
      {"the first of two counts", "VKTFO=500 VKTFO=9VKTFW=3VKTFS=16384\n", 500, 3, 16384},
      {"five characters are read", "VKTFO=0050099VKTFW=3   VKTFS=1638400", 500, 3, 16384},
      {"leading blanks", "VKTFO=  500 VKTFW=    3 VKTFS=16384\n", 500, 3, 16384},
      {"a sign", "VKTFO=+500  VKTFW=+3    VKTFS=16384\n", 500, 3, 16384},
      {"text behind the number", "VKTFO=500xx VKTFW=3-3   VKTFS=16384\n", 500, 3, 16384},
      {"no blanks between", "VKTFO=500VKTFW=3VKTFS=16384         ", 500, 3, 16384},
      {"hexadecimal is none", "VKTFO=500   VKTFW=0x9   VKTFS=16384\n", 500, 0, 16384},
      {"no digit is 0", "VKTFO=500   VKTFW=wraps VKTFS=16384\n", 500, 0, 16384},
      {"a minus", "VKTFO=500   VKTFW=-9999 VKTFS=16384\n", 500, -9999, 16384},
      {"one key within another's value", "VKTFO=500   VKTFW=VKTFS=16384       ", 500, 0, 16384},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(row.header.size(), 36U);
    ASSERT_TRUE(files::write(path_, over(std::string(16384, '\0'), 0, row.header)));
    EXPECT_EQ(write_entry(path_, 100), 0);
    std::string expected = header(row.offset + 100, row.wraps, row.size);
    expected.resize(500, '\0');
    expected += entry_of(100) + kEnd;
    expected.resize(16384, '\0');
    EXPECT_EQ(files::difference(expected, bytes()), "");
  }
}

TEST_F(HostileTrace, IsAnsweredWithinItsRules) {
  struct Row {
    const char *what;
    int offset, size, result;
    std::string first;  // the header afterwards
  };
  const Row rows[] = {
      {"an offset before the start", -5, 16384, -26, header(-5, 0, 16384)},
      {"the lowest offset", -9999, 16384, -26, header(-9999, 0, 16384)},
      {"an offset within the header", 0, 16384, 0, header(100, 0, 16384)},
      {"the header's last byte", 35, 16384, 0, header(135, 0, 16384)},
      {"an offset at the end", 16384, 16384, 0, header(136, 1, 16384)},
      {"an offset beyond the end", 20000, 16384, 0, header(136, 1, 16384)},
      {"a size of 0: the zeros would begin before the file", 36, 0, -26, header(36, 0, 0)},
      {"a negative size", 36, -9999, -26, header(36, 0, -9999)},
      {"a size just behind the header", 36, 36, 0, header(136, 1, 36)},
      {"22 bytes of room: -1 zeros, which looks like a failure", 100, 122, -26, header(100, 0, 122)},
      {"21 bytes of room: -2 zeros", 100, 121, 0, header(136, 1, 121)},
      {"23 bytes of room: no zeros", 100, 123, 0, header(136, 1, 123)},
      {"a size larger than the file", 36, 99999, 0, header(136, 0, 99999)},
      {"an offset in the room that is not there", 50000, 99999, 0, header(50100, 0, 99999)},
      {"both as large as they can be", 99999, 99999, 0, header(136, 1, 99999)},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_TRUE(files::write(path_, over(std::string(16384, 'o'), 0, header(row.offset, 0, row.size))));
    EXPECT_EQ(write_entry(path_, 100), row.result);
    EXPECT_EQ(bytes().substr(0, 36), row.first);
    EXPECT_LE(bytes().size(), 99999U + 142 + 22) << "five digits bound what a header can ask for";
  }
}

// Whatever the header says, the call ends and does a bounded amount of work.
TEST_F(HostileTrace, NeverCostsMoreThanTheLargestFile) {
  std::mt19937 random(99);
  const std::string alphabet("VKTFOWS=0123456789-+ \n\0x", 25);
  for (int i = 0; i < 500; ++i) {
    std::string text =
        header(std::uniform_int_distribution(-9999, 99999)(random), std::uniform_int_distribution(-99, 99999)(random),
               std::uniform_int_distribution(-9999, 99999)(random))
            .substr(0, 36);
    text.resize(36, ' ');
    for (int k = std::uniform_int_distribution(0, 3)(random); k > 0; --k)
      text[std::uniform_int_distribution<std::size_t>(0, 35)(random)] =
          alphabet[std::uniform_int_distribution<std::size_t>(0, alphabet.size() - 1)(random)];
    ASSERT_TRUE(files::write(path_, text + std::string(2000, "o\x01\0"[i % 3])));
    Calls calls;
    const int result = write_entry(calls, path_, 100);
    EXPECT_TRUE(result == 0 || result == -26) << text << result;
    EXPECT_LT(calls.count("write"), 200);
    EXPECT_LE(calls.count("read"), 2);
    EXPECT_LE(bytes().size(), 99999U + 142 + 22);
  }
}

}  // namespace
