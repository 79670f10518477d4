#include "json.h"

#include "escape.h"

namespace vosk {

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

void append_hex(std::string &out, std::string_view bytes) {
  for (const char c : bytes) {
    out += kHexDigits[static_cast<unsigned char>(c) >> 4];
    out += kHexDigits[static_cast<unsigned char>(c) & 15];
  }
}

void append_unit(std::string &out, unsigned unit) {
  const char bytes[] = {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
  out += "\\u";
  append_hex(out, {bytes, sizeof bytes});
}

// `value` is UTF-8. What a terminal could obey is written as its number.
void append_quoted(std::string &out, std::string_view value) {
  out += '"';
  while (!value.empty()) {
    char32_t code = 0;
    const std::size_t length = utf8_length(value, &code);
    if (code == '"' || code == '\\') {
      out += '\\';
      out += value[0];
    } else if (!is_hidden_character(code)) {
      out += value.substr(0, length);
    } else if (code < 0x10000) {
      append_unit(out, code);
    } else {
      append_unit(out, 0xD800 + ((code - 0x10000) >> 10));
      append_unit(out, 0xDC00 + ((code - 0x10000) & 0x3FF));
    }
    value.remove_prefix(length);
  }
  out += '"';
}

}  // namespace

void append_json_text(std::string &out, std::string_view value) {
  if (is_utf8(value)) {
    append_quoted(out, value);
    return;
  }
  out += "{\"hex\":\"";
  append_hex(out, value);
  out += "\"}";
}

void json_object::begin(std::string_view name) {
  if (!empty_) out_ += ',';
  empty_ = false;
  append_quoted(out_, name);
  out_ += ':';
}

json_object &json_object::text(std::string_view name, std::string_view value) {
  begin(name);
  append_json_text(out_, value);
  return *this;
}

json_object &json_object::boolean(std::string_view name, bool value) {
  return literal(name, value ? "true" : "false");
}

json_object &json_object::null(std::string_view name) {
  return literal(name, "null");
}

json_object &json_object::hex(std::string_view name, std::string_view bytes) {
  begin(name);
  out_ += '"';
  append_hex(out_, bytes);
  out_ += '"';
  return *this;
}

json_object &json_object::literal(std::string_view name, std::string_view number) {
  begin(name);
  out_ += number;
  return *this;
}

}  // namespace vosk
