#include "journal_entry.h"

#include <charconv>
#include <cstdint>

namespace vosk {

namespace {

void append_utf8(std::string &out, std::uint32_t code) {
  const auto put = [&](std::uint32_t byte) { out += static_cast<char>(byte); };
  if (code < 0x80) {
    put(code);
  } else if (code < 0x800) {
    put(0xC0 | code >> 6);
    put(0x80 | (code & 0x3F));
  } else if (code < 0x10000) {
    put(0xE0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3F));
    put(0x80 | (code & 0x3F));
  } else {
    put(0xF0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3F));
    put(0x80 | (code >> 6 & 0x3F));
    put(0x80 | (code & 0x3F));
  }
}

// Goes through one flat object.
class object_cursor {
 public:
  explicit object_cursor(std::string_view text) : text_(text) {}

  bool take(char c) {
    skip_blanks();
    if (text_.empty() || text_[0] != c) return false;
    text_.remove_prefix(1);
    return true;
  }

  bool take_string(std::string &out) {
    out.clear();
    if (!take('"')) return false;
    while (!text_.empty()) {
      const std::size_t plain = text_.find_first_of("\"\\");
      if (plain == std::string_view::npos) return false;
      out += text_.substr(0, plain);
      const char stop = text_[plain];
      text_.remove_prefix(plain + 1);
      if (stop == '"') return true;
      if (!take_escape(out)) return false;
    }
    return false;
  }

  // A string, a list of bytes, a number or a word such as null.
  bool take_value(std::string &out) {
    skip_blanks();
    if (text_.starts_with('"')) return take_string(out);
    if (text_.starts_with('[')) return take_bytes(out);
    const std::size_t end = text_.find_first_of(",}]{[\" ");
    if (end == std::string_view::npos || end == 0) return false;
    out = text_.substr(0, end);
    text_.remove_prefix(end);
    return true;
  }

 private:
  void skip_blanks() {
    while (!text_.empty() && (text_[0] == ' ' || text_[0] == '\t')) text_.remove_prefix(1);
  }

  bool take_bytes(std::string &out) {
    out.clear();
    (void)take('[');
    if (take(']')) return true;
    do {
      skip_blanks();
      unsigned byte = 0;
      const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), byte);
      if (error != std::errc() || byte > 255) return false;
      text_.remove_prefix(static_cast<std::size_t>(end - text_.data()));
      out += static_cast<char>(byte);
    } while (take(','));
    return take(']');
  }

  bool take_escape(std::string &out) {
    if (text_.empty()) return false;
    const char c = text_[0];
    text_.remove_prefix(1);
    constexpr std::string_view kNames = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
    if (const std::size_t at = kNames.find(c); at != std::string_view::npos) {
      out += kMeanings[at];
      return true;
    }
    std::uint32_t code = 0;
    if (c != 'u' || !take_unit(code)) return false;
    if (code >= 0xD800 && code < 0xDC00 && text_.starts_with("\\u")) {
      std::uint32_t low = 0;
      text_.remove_prefix(2);
      if (!take_unit(low) || low < 0xDC00 || low > 0xDFFF) return false;
      code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
    }
    append_utf8(out, code);
    return true;
  }

  bool take_unit(std::uint32_t &code) {
    if (text_.size() < 4) return false;
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + 4, code, 16);
    if (error != std::errc() || end != text_.data() + 4) return false;
    text_.remove_prefix(4);
    return true;
  }

  std::string_view text_;
};

}  // namespace

std::optional<journal_entry> parse_journal_entry(std::string_view line, std::string_view wanted) {
  if (!line.starts_with('{')) return std::nullopt;
  const bool may_be =
      line.find(wanted) != std::string_view::npos || line.find("\"MESSAGE\":[") != std::string_view::npos;
  if (!may_be) return std::nullopt;
  journal_entry entry;
  object_cursor at(line);
  std::string name, value, sent_by;
  bool is_one = false;
  (void)at.take('{');
  do {
    if (!at.take_string(name) || !at.take(':') || !at.take_value(value)) break;
    if (name == "MESSAGE") {
      entry.message = value;
      is_one = true;
    } else if (name == "SYSLOG_IDENTIFIER") {
      entry.process = value;
    } else if (name == "_HOSTNAME") {
      entry.host = value;
    } else if (name == "SYSLOG_PID") {
      entry.pid = value;
    } else if (name == "_PID") {
      sent_by = value;
    }
  } while (at.take(','));
  if (!is_one) return std::nullopt;
  if (entry.pid.empty()) entry.pid = sent_by;
  return entry;
}

}  // namespace vosk
