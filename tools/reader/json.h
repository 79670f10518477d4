// Writes JSON objects, one a line. Independent of the locale.
#ifndef TOOLS_READER_JSON_H
#define TOOLS_READER_JSON_H

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace vosk {

inline constexpr int kJsonSchema = 1;

// An object that is open for further members.
//
//   json_line line("record");
//   line.text("process", name).number("pid", pid);
//   line.object("message", [&](json_object &message) { message.number("set", 1); });
//   out.write(line.take());
class json_object {
 public:
  explicit json_object(std::string &out) : out_(out) { out_ += '{'; }
  void close() { out_ += '}'; }

  // A text that is UTF-8 as a string, any other as {"hex": "..."}.
  json_object &text(std::string_view name, std::string_view value);
  json_object &boolean(std::string_view name, bool value);
  json_object &null(std::string_view name);
  // Lower-case digits, two a byte, in the order of the bytes.
  json_object &hex(std::string_view name, std::string_view bytes);

  template <std::integral T>
  json_object &number(std::string_view name, T value) {
    return literal(name, std::to_string(value));
  }

  // A number that has been written already.
  json_object &literal(std::string_view name, std::string_view number);

  template <class Fill>
  json_object &object(std::string_view name, Fill fill) {
    begin(name);
    json_object inner(out_);
    fill(inner);
    inner.close();
    return *this;
  }

  // An array; `write_item` is called for each item with the text to append its value to.
  template <class Items, class Write>
  json_object &array(std::string_view name, const Items &items, Write write_item) {
    begin(name);
    out_ += '[';
    bool first = true;
    for (const auto &item : items) {
      if (!first) out_ += ',';
      first = false;
      write_item(item, out_);
    }
    out_ += ']';
    return *this;
  }

 private:
  void begin(std::string_view name);

  std::string &out_;
  bool empty_ = true;
};

struct json_buffer {
  std::string line;
};

// A whole line: an object that begins with its type and the schema's number.
class json_line : private json_buffer, public json_object {
 public:
  explicit json_line(std::string_view type) : json_object(line) { text("type", type).number("schema", kJsonSchema); }
  std::string take() {
    close();
    return std::move(line) + "\n";
  }
};

// Appends a text as the value of a member.
void append_json_text(std::string &out, std::string_view value);

}  // namespace vosk

#endif
