// The text of a System Log message: title, description, and pairs of lines for the detail fields.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <climits>
#include <cstring>
#include <memory>

#include "support/interpose.h"

namespace {

using testing::ElementsAre;

const nl_catd kNoCatalogue = reinterpret_cast<nl_catd>(-1);

struct Message {
  std::int32_t result;
  std::string bytes;  // the whole buffer; what was not written is '?'
  std::string text() const { return bytes.c_str(); }
};

// Both the buffer and the data lie in blocks of exactly their sizes, so that a sanitizer sees a step outside.
Message make(const vk_syslog_tmpl_t &tmpl, const std::string &data, std::int32_t size) {
  const std::size_t bytes = size > 0 ? static_cast<std::size_t>(size) : 0;
  const std::unique_ptr<char[]> buffer(new char[bytes]);
  const std::unique_ptr<char[]> detail(new char[data.size()]);
  std::memset(buffer.get(), '?', bytes);
  std::memcpy(detail.get(), data.data(), data.size());
  const std::int32_t result = vk_mk_syslog_msg_1(&tmpl, detail.get(), static_cast<std::uint32_t>(data.size()),
                                                 buffer.get(), size, kNoCatalogue);
  std::string out(buffer.get(), bytes);
  out.push_back('\0');
  return {result, out};
}

vk_syslog_tmpl_t with(const char *title, const char *text, const std::vector<vk_syslog_field_t> &fields = {}) {
  return {0, title, 1, 1, text, static_cast<std::uint32_t>(fields.size()), fields.data()};
}

std::string word(std::uint32_t value) {
  std::string bytes(4, '\0');
  std::memcpy(bytes.data(), &value, 4);
  return bytes;
}

constexpr std::uint32_t kDecimal = 1, kString = 2, kHex = 3;

vk_syslog_field_t field(std::int32_t length, const char *label, std::uint32_t kind) {
  return {length, 1, 1, label, kind};
}

TEST(SyslogMessage, LinesFollowEachOther) {
  const std::vector<vk_syslog_field_t> fields = {field(4, "Errno", kDecimal), field(6, "Device", kString),
                                                 field(4, "Status", kHex)};
  const std::string data = word(28) + std::string("sda\0\0\0", 6) + word(0xAB);
  const Message message = make(with("Title", "Description", fields), data, 500);
  EXPECT_EQ(message.result, 500);
  EXPECT_EQ(message.text(), "Title\nDescription\nErrno\n28\nDevice\nsda\nStatus\n000000ab\n");
}

TEST(SyslogMessage, UsesAtMost946BytesAndEndsWithAZeroByte) {
  const struct {
    std::int32_t size, result;
  } rows[] = {{2000, 946}, {947, 946}, {946, 946}, {945, 945}, {100, 100}, {2, 2}, {1, 1}};
  const std::string title(3000, 't');
  for (const auto &row : rows) {
    const Message message = make(with(title.c_str(), "d"), "", row.size);
    EXPECT_EQ(message.result, row.result);
    const auto used = static_cast<std::size_t>(row.result);
    EXPECT_EQ(message.bytes.substr(0, used), std::string(used - 1, 't') + '\0') << row.size;
    EXPECT_EQ(message.bytes.substr(used, static_cast<std::size_t>(row.size) - used),
              std::string(static_cast<std::size_t>(row.size) - used, '?'));
  }
}

TEST(SyslogMessage, LastByteOfTheBufferIsZeroAlsoBehindAShortText) {
  const Message message = make(with("T", "D"), "", 2000);
  EXPECT_EQ(message.text(), "T\nD\n");
  EXPECT_EQ(message.bytes[4], '\0');
  EXPECT_EQ(message.bytes[5], '?');
  EXPECT_EQ(message.bytes[944], '?');
  EXPECT_EQ(message.bytes[945], '\0');
  EXPECT_EQ(message.bytes[946], '?');
}

TEST(SyslogMessage, SizeOfZeroOrLessIsReturnedAndNothingIsWritten) {
  for (std::int32_t size : {0, -1, -2000, INT_MIN}) {
    EXPECT_EQ(make(with("Title", "Description"), "", size).result, size);
    const vk_syslog_tmpl_t tmpl = with("Title", "Description");
    EXPECT_EQ(vk_mk_syslog_msg_1(&tmpl, nullptr, 0, nullptr, size, kNoCatalogue), size);
  }
}

// Title "abc", description "de", label "fg", value "-7": 4 + 3 + 3 + 3 characters with their line feeds. Each line is
// bounded by the room that is left; a label or a value that does not fit whole is not begun.
TEST(SyslogMessage, EverySizeFromOneToTheWholeText) {
  const char *const texts[] = {
      "",                   // 1
      "a",                  // 2
      "ab",                 // 3
      "abc",                // 4: the title's line feed falls to the zero byte, no room is left
      "abc\n",              // 5: room for one character of the description, which is the zero byte
      "abc\nd",             // 6
      "abc\nde",            // 7: no room is left behind the description's line feed
      "abc\nde\n",          // 8: the label does not fit
      "abc\nde\n",          // 9
      "abc\nde\nfg",        // 10: the label fits, with its line feed for the zero byte; the value does not
      "abc\nde\nfg\n",      // 11
      "abc\nde\nfg\n",      // 12
      "abc\nde\nfg\n-7",    // 13
      "abc\nde\nfg\n-7\n",  // 14
      "abc\nde\nfg\n-7\n",  // 15
  };
  const std::vector<vk_syslog_field_t> fields = {field(4, "fg", kDecimal)};
  for (std::int32_t size = 1; size <= 15; ++size)
    EXPECT_EQ(make(with("abc", "de", fields), word(static_cast<std::uint32_t>(-7)), size).text(), texts[size - 1])
        << size;
}

TEST(SyslogMessage, EverySizeUpToTheLimitIsKept) {
  const std::vector<vk_syslog_field_t> fields(200, field(0, "label", kString));
  std::string whole = "title\ndescription\n";
  for (int i = 0; i < 200; ++i) whole += "label\nvalue\n";
  for (std::int32_t size = -1; size <= 950; ++size) {
    const Message message = make(with("title", "description", fields), std::string("value\0", 6), size);
    EXPECT_EQ(message.result, std::min(size, 946));
    EXPECT_EQ(message.text(), whole.substr(0, message.text().size())) << size;
    if (size > 0) {
      EXPECT_EQ(message.bytes[static_cast<std::size_t>(std::min(size, 946)) - 1], '\0') << size;
      // A pair has 12 characters; less than that is free at the end.
      EXPECT_LE(std::min(size, 946) - 1 - static_cast<int>(message.text().size()), 6) << size;
    }
  }
}

TEST(SyslogMessage, EmptyOrNullTextsAreEmptyLines) {
  EXPECT_EQ(make(with("", ""), "", 50).text(), "\n\n");
  EXPECT_EQ(make(with(nullptr, nullptr), "", 50).text(), "\n\n");
  EXPECT_EQ(make(with(nullptr, nullptr, {field(4, nullptr, kDecimal)}), word(1), 50).text(), "\n\n\n1\n");
  EXPECT_EQ(make(with("", "", {field(1, "", kString)}), std::string(1, '\0'), 50).text(), "\n\n\n\n");
}

TEST(SyslogMessage, PercentSignsAreText) {
  EXPECT_EQ(make(with("%n%s", "%d%%", {field(3, "%1$s", kString)}), std::string("%n\0", 3), 50).text(),
            "%n%s\n%d%%\n%1$s\n%n\n");
}

TEST(SyslogMessage, KindDecidesHowTheValueIsShown) {
  const struct {
    std::uint32_t kind;
    std::string data;
    const char *value;
  } rows[] = {
      {1, word(0), "0"},
      {1, word(INT_MAX), "2147483647"},
      {1, word(0x80000000U), "-2147483648"},
      {1, word(0xFFFFFFFFU), "-1"},
      {2, std::string("text\0more", 9), "text"},
      {2, std::string("no end"), "no end"},
      {2, std::string("\0", 1), ""},
      {0, word(0xDEADBEEFU), "deadbeef"},
      {3, word(1), "00000001"},
      {4, word(0xABCDEF01U), "abcdef01"},
      {0xFFFFFFFFU, word(0), "00000000"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(make(with("t", "d", {field(4, "label", row.kind)}), row.data, 100).text(),
              std::string("t\nd\nlabel\n") + row.value + "\n");
  }
}

TEST(SyslogMessage, BytesMissingBehindTheDataCountAsZero) {
  for (std::uint32_t kind : {kDecimal, kHex}) {
    for (std::size_t length = 1; length <= 4; ++length) {
      const char *const decimals[] = {"", "1", "513", "197121", "67305985"};
      const char *const hexes[] = {"", "00000001", "00000201", "00030201", "04030201"};
      EXPECT_EQ(make(with("t", "d", {field(4, "l", kind)}), std::string("\1\2\3\4").substr(0, length), 100).text(),
                std::string("t\nd\nl\n") + (kind == kDecimal ? decimals : hexes)[length] + "\n");
    }
  }
}

TEST(SyslogMessage, CursorMovesByTheLengthOfTheFieldWhateverItsKind) {
  const std::string data = word(1) + word(2) + word(3) + word(4);
  const auto values = [&](const std::vector<std::int32_t> &lengths) {
    std::vector<vk_syslog_field_t> fields;
    for (std::int32_t length : lengths) fields.push_back(field(length, "l", kDecimal));
    std::string text = make(with("t", "d", fields), data, 500).text().substr(4);
    std::string found;
    for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at)) {
      const std::size_t end = text.find('\n', at + 1);
      found += text.substr(at + 1, end - at - 1) + " ";
      at = text.find('\n', end + 1);
    }
    return found;
  };
  EXPECT_EQ(values({4, 4, 4, 4}), "1 2 3 4 ");
  EXPECT_EQ(values({8, 4, 0, 0}), "1 3 4 4 ");
  EXPECT_EQ(values({0, 0, 0}), "1 1 1 ");
  EXPECT_EQ(values({12, -4, -8, 4}), "1 4 3 1 ") << "backwards, too";
  EXPECT_EQ(values({1, 1, 1}), "1 33554432 131072 ") << "no alignment is wanted";
}

TEST(SyslogMessage, FieldThatBeginsOutsideOfTheDataEndsTheText) {
  const std::string data = word(1) + word(2);
  const auto text = [&](std::int32_t first, std::int32_t second) {
    return make(with("t", "d", {field(first, "a", kDecimal), field(second, "b", kDecimal), field(0, "c", kDecimal)}),
                data, 500)
        .text();
  };
  EXPECT_EQ(text(4, 0), "t\nd\na\n1\nb\n2\nc\n2\n");
  EXPECT_EQ(text(8, 0), "t\nd\na\n1\n");
  EXPECT_EQ(text(7, 1), "t\nd\na\n1\nb\n0\n");
  EXPECT_EQ(text(9, -8), "t\nd\na\n1\n");
  EXPECT_EQ(text(-1, 4), "t\nd\na\n1\n");
  EXPECT_EQ(text(4, -5), "t\nd\na\n1\nb\n2\n");
  EXPECT_EQ(text(INT_MAX, 4), "t\nd\na\n1\n");
  EXPECT_EQ(text(INT_MIN, 4), "t\nd\na\n1\n");
}

TEST(SyslogMessage, NoFieldIsShownWithoutData) {
  const std::vector<vk_syslog_field_t> fields = {field(4, "label", kDecimal)};
  EXPECT_EQ(make(with("t", "d", fields), "", 100).text(), "t\nd\n");
  char buffer[100];
  const vk_syslog_tmpl_t tmpl = with("t", "d", fields);
  EXPECT_EQ(vk_mk_syslog_msg_1(&tmpl, nullptr, 4, buffer, sizeof buffer, kNoCatalogue), 100);
  EXPECT_STREQ(buffer, "t\nd\n");
}

TEST(SyslogMessage, NoFieldsIsNoFields) {
  vk_syslog_tmpl_t tmpl = with("t", "d");
  tmpl.nfields = 3;
  tmpl.fields = nullptr;
  EXPECT_EQ(make(tmpl, word(1), 100).text(), "t\nd\n");
  const std::vector<vk_syslog_field_t> fields = {field(4, "label", kDecimal)};
  tmpl.nfields = 0;
  tmpl.fields = fields.data();
  EXPECT_EQ(make(tmpl, word(1), 100).text(), "t\nd\n");
}

TEST(SyslogMessage, NothingIsTriedBehindAFieldThatDoesNotFit) {
  const std::string data = std::string("a long value that does not fit\0", 31) + std::string("v\0", 2);
  EXPECT_EQ(make(with("t", "d", {field(31, "l", kString), field(2, "m", kString)}), data, 20).text(), "t\nd\nl\n");
  EXPECT_EQ(
      make(with("t", "d", {field(31, "a long label that does not fit", kString), field(2, "m", kString)}), data, 20)
          .text(),
      "t\nd\n");
}

TEST(SyslogMessage, LeadingWordIsNotLookedAt) {
  vk_syslog_tmpl_t tmpl = with("t", "d");
  tmpl.reserved = 0xFFFFFFFFU;
  EXPECT_EQ(make(tmpl, "", 100).text(), "t\nd\n");
}

// What is asked of the catalogue: set, number and default, and nothing that there is no room for.
TEST(SyslogMessage, CatalogueIsAskedForEachTextThatIsReached) {
  std::vector<vk_syslog_field_t> fields = {{4, 5, 6, "label", 1}, {4, 7, 8, nullptr, 1}};
  vk_syslog_tmpl_t tmpl = {0, "title", 3, 4, "text", 2, fields.data()};
  const auto asked = [&](std::int32_t size) {
    char buffer[100];
    platform::Calls calls;
    const std::string data = word(1) + word(2);
    calls.during([&] { vk_mk_syslog_msg_1(&tmpl, data.data(), 8, buffer, size, kNoCatalogue); });
    return calls.log();
  };
  EXPECT_THAT(asked(100), ElementsAre("catgets(3, 4, \"text\") = \"text\"", "catgets(5, 6, \"label\") = \"label\"",
                                      "catgets(7, 8, \"\") = \"\""));
  EXPECT_THAT(asked(6), ElementsAre());
  EXPECT_THAT(asked(7), ElementsAre("catgets(3, 4, \"text\") = \"text\""));
  EXPECT_THAT(asked(11), ElementsAre("catgets(3, 4, \"text\") = \"text\""));
  EXPECT_THAT(asked(12), ElementsAre("catgets(3, 4, \"text\") = \"text\"", "catgets(5, 6, \"label\") = \"label\""));
}

}  // namespace
