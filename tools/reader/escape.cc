#include "escape.h"

#include <cstdio>

namespace vosk {

namespace {

void append_byte(std::string &out, unsigned char byte) {
  char text[8];
  std::snprintf(text, sizeof text, "\\x%02x", byte);
  out += text;
}

void append_hidden(std::string &out, char32_t code) {
  switch (code) {
    case '\n':
      out += "\\n";
      return;
    case '\t':
      out += "\\t";
      return;
    case '\r':
      out += "\\r";
      return;
    default:
      break;
  }
  if (code < 0x80) {
    append_byte(out, static_cast<unsigned char>(code));
    return;
  }
  char text[16];
  std::snprintf(text, sizeof text, "\\u{%x}", static_cast<unsigned>(code));
  out += text;
}

}  // namespace

bool is_hidden_character(char32_t code) noexcept {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || (code >= 0x200B && code <= 0x200F) ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF ||
         (code >= 0xFFF9 && code <= 0xFFFB) || (code >= 0xE0000 && code <= 0xE007F);
}

std::size_t utf8_length(std::string_view text, char32_t *code) noexcept {
  if (text.empty()) return 0;
  const auto first = static_cast<unsigned char>(text[0]);
  std::size_t length = 1;
  char32_t value = first, smallest = 0;
  if (first >= 0xF0 && first < 0xF5) {
    length = 4, value = first & 0x07u, smallest = 0x10000;
  } else if (first >= 0xE0 && first < 0xF0) {
    length = 3, value = first & 0x0Fu, smallest = 0x800;
  } else if (first >= 0xC2 && first < 0xE0) {
    length = 2, value = first & 0x1Fu, smallest = 0x80;
  } else if (first >= 0x80) {
    return 0;
  }
  if (text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0) != 0x80) return 0;
    value = value << 6 | (next & 0x3Fu);
  }
  if (value < smallest || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  if (code != nullptr) *code = value;
  return length;
}

bool is_utf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const std::size_t length = utf8_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string escaped(std::string_view text, keep what, bool output_is_utf8) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    char32_t code = 0;
    const std::size_t length = utf8_length(text, &code);
    if (length == 0) {
      append_byte(out, static_cast<unsigned char>(text[0]));
      text.remove_prefix(1);
      continue;
    }
    const bool kept = what == keep::lines && (code == '\n' || code == '\t');
    if (is_hidden_character(code) && !kept)
      append_hidden(out, code);
    else if (code >= 0x80 && !output_is_utf8)
      for (const char c : text.substr(0, length)) append_byte(out, static_cast<unsigned char>(c));
    else
      out += text.substr(0, length);
    text.remove_prefix(length);
  }
  return out;
}

}  // namespace vosk
