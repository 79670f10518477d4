// A record printed as JSON holds everything that its bytes hold.
#include "tools/reader/json.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "reader/builder.h"
#include "tools/json.h"
#include "tools/reader/stack.h"
#include "tools/vosk/record_text.h"

using tool::json;

namespace {

std::string unhex(const std::string &digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

std::string text_of(const json &value) {
  if (value.is_null()) return {};
  return value.is_string() ? value.text() : unhex(value["hex"]);
}

// Writes a record's bytes from its JSON object. An absent field was cut off or found no room.
class rebuilder {
 public:
  explicit rebuilder(const json &line) : line_(line) {}

  std::string run() {
    out_ = std::string(12, '\0');
    fixed("identifier");
    fixed("associated");
    number("stored_time");
    text("process");
    for (const char *name : {"pid", "parent", "thread"}) number(name);
    for (const char *name : {"source", "version", "product"}) text(name);
    number("line");
    text("catalogue");
    number("set");
    number("number");
    text("default_text");
    number("argument_count");
    for (const json &argument : line_["arguments"].elements()) add_argument(argument);
    if (line_.contains("rest")) out_ += unhex(line_["rest"]);
    text("detail");
    const std::int64_t length = line_["length"].number();
    for (int i = 0; i < 4; ++i) out_[static_cast<std::size_t>(i)] = static_cast<char>(length >> (8 * i));
    return out_;
  }

 private:
  void fixed(const char *name) {
    std::string bytes = text_of(line_[name]);
    bytes.resize(43, '\0');
    out_ += bytes;
  }
  void number(const char *name) {
    if (!line_.contains(name)) return;
    add_number(line_[name]);
  }
  void add_number(const json &value) {
    for (int i = 0; i < 4; ++i) out_ += static_cast<char>(value.number() >> (8 * i));
  }
  void add_text(const json &value) {
    out_ += text_of(value);
    if (out_.size() < 1024) out_ += '\0';
  }
  void text(const char *name) {
    if (line_.contains(name)) add_text(line_[name]);
  }
  void add_argument(const json &argument) {
    add_number(argument["type"]);
    if (argument.contains("text")) add_text(argument["text"]);
    if (argument.contains("bits")) out_ += unhex(argument["bits"]);
  }

  const json &line_;
  std::string out_;
};

}  // namespace

TEST(Json, HoldsEveryByteOfAHundredThousandRecords) {
  std::mt19937 random(5);
  const std::string path = "/stack";
  std::size_t records = 0, failures = 0;
  for (unsigned run = 0; records < 100000 && failures < 10; ++run) {
    builder::model m(16384);
    for (unsigned i = 0; m.control().wrapped == 0 && i < 200; ++i)
      if (!m.push(builder::record_bytes(builder::random_record(random, 1700000000 + i)))) break;
    const vosk::stack file = vosk::read_stack(m.file(), builder::kInode);
    for (const vosk::record &r : file.records) {
      vosk::json_line line("record");
      vosk::record_members(line, {&path, &r}, "");
      const json parsed = json::parse(line.take());
      const std::string expected(reinterpret_cast<const char *>(file.bytes.data()) + r.offset, r.size);
      if (!parsed.valid() || rebuilder(parsed).run() != expected) {
        ++failures;
        ADD_FAILURE() << "run " << run << ", offset " << r.offset << ": " << parsed;
      }
      ++records;
    }
  }
}

TEST(Json, WritesEveryCharacterSoThatAParserGetsItBack) {
  std::mt19937 random(6);
  for (int run = 0; run < 20000; ++run) {
    std::string text(random() % 12, '\0');
    for (char &c : text) c = static_cast<char>(random());
    if (run % 2 == 0) text += run % 4 == 0 ? "\xE2\x80\xAE\xF3\xA0\x80\x81" : "\xC2\x85\x7F\"\\\n";
    vosk::json_line line("text");
    line.text("value", text);
    const json parsed = json::parse(line.take());
    ASSERT_TRUE(parsed.valid());
    ASSERT_EQ(text_of(parsed["value"]), text);
  }
}

TEST(Json, KeepsFromATerminalWhatItWouldObey) {
  vosk::json_line line("text");
  line.text("value", "\x1b[31m \xC2\x9B\x31m \xE2\x80\xAE");
  EXPECT_EQ(line.take(), R"({"type":"text","schema":1,"value":"\u001b[31m \u009b1m \u202e"})"
                         "\n");
}
