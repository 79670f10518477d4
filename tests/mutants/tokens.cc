#include "mutants/tokens.h"

#include <array>
#include <cctype>

namespace mutants {
namespace {

constexpr std::array<std::string_view, 22> kLong = {
    "<<=", ">>=", "<=>", "...", "->", "::", "==", "!=", "<=", ">=", "&&",
    "||",  "<<",  ">>",  "++",  "--", "+=", "-=", "|=", "&=", "*=", "/="};

bool is_word(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

class Scanner {
 public:
  explicit Scanner(std::string_view source) : source_(source) {}

  std::vector<Token> run() {
    while (skip_space()) take();
    return drop_assertions_and_attributes();
  }

 private:
  bool starts(std::string_view text) const { return source_.substr(at_, text.size()) == text; }
  bool at_line_start() const {
    const std::size_t line = source_.find_last_of('\n', at_ == 0 ? 0 : at_ - 1);
    const std::size_t first = line == std::string_view::npos ? 0 : line + 1;
    return source_.substr(first, at_ - first).find_first_not_of(' ') == std::string_view::npos;
  }
  void skip_line() {
    while (at_ < source_.size() && source_[at_] != '\n') at_ += source_[at_] == '\\' ? 2 : 1;
  }
  bool skip_space() {
    while (at_ < source_.size()) {
      if (std::isspace(static_cast<unsigned char>(source_[at_])) != 0) {
        ++at_;
      } else if (starts("//") || (source_[at_] == '#' && at_line_start())) {
        skip_line();
      } else if (starts("/*")) {
        at_ = std::min(source_.find("*/", at_ + 2), source_.size() - 2) + 2;
      } else {
        return true;
      }
    }
    return false;
  }
  std::size_t quoted() const {
    std::size_t end = at_ + 1;
    while (end < source_.size() && source_[end] != source_[at_]) end += source_[end] == '\\' ? 2 : 1;
    return end + 1 - at_;
  }
  std::size_t word() const {
    std::size_t end = at_;
    while (end < source_.size() && (is_word(source_[end]) || (source_[end] == '\'' && is_word(source_[end + 1]))))
      ++end;
    return end - at_;
  }
  void take() {
    const char c = source_[at_];
    if (c == '"') return put(Token::Kind::kText, quoted());
    if (c == '\'') return put(Token::Kind::kCharacter, quoted());
    if (std::isdigit(static_cast<unsigned char>(c)) != 0) return put(Token::Kind::kNumber, word());
    if (is_word(c)) return put(Token::Kind::kName, word());
    for (std::string_view text : kLong) {
      if (starts(text)) return put(Token::Kind::kPunctuation, text.size());
    }
    braces(c);
    put(Token::Kind::kPunctuation, 1);
    if (c == '}' && !bodies_.empty()) bodies_.pop_back();
  }
  void put(Token::Kind kind, std::size_t size) {
    const auto space = [&](std::size_t at) {
      return at >= source_.size() || source_[at] == ' ' || source_[at] == '\n';
    };
    out_.push_back({kind, source_.substr(at_, size), at_, !bodies_.empty() && bodies_.back(),
                    at_ != 0 && space(at_ - 1) && space(at_ + size)});
    at_ += size;
  }
  // A brace opens a function's body, or a block in one, or else a type, a namespace or an initializer.
  void braces(char c) {
    if (c != '{') return;
    const bool inside = !bodies_.empty() && bodies_.back();
    if (inside || out_.empty()) return bodies_.push_back(inside);
    const std::string_view before = out_.back().text;
    bodies_.push_back(before == ")" || before == "noexcept" || before == "const" || before == "override");
  }
  std::vector<Token> drop_assertions_and_attributes() const {
    std::vector<Token> kept;
    for (std::size_t i = 0; i < out_.size(); ++i) {
      const bool attribute = out_[i].text == "[" && i + 1 < out_.size() && out_[i + 1].text == "[";
      if (attribute) {
        i = closing(out_, i);
      } else if (out_[i].text == "static_assert" || out_[i].text == "asm") {
        i = closing(out_, i + 1);
      } else {
        kept.push_back(out_[i]);
      }
    }
    return kept;
  }

  std::string_view source_;
  std::size_t at_ = 0;
  std::vector<bool> bodies_;
  std::vector<Token> out_;
};

}  // namespace

std::vector<Token> tokens_of(std::string_view source) {
  return Scanner(source).run();
}

std::size_t closing(const std::vector<Token> &tokens, std::size_t open) {
  std::size_t depth = 0;
  for (std::size_t i = open; i < tokens.size(); ++i) {
    const std::string_view text = tokens[i].text;
    if (text == "(" || text == "[" || text == "{") ++depth;
    if ((text == ")" || text == "]" || text == "}") && --depth == 0) return i;
  }
  return tokens.size();
}

}  // namespace mutants
