#include "mutants/mutation.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <initializer_list>
#include <map>

#include "mutants/tokens.h"

namespace mutants {
namespace {

using Kind = Token::Kind;
using Words = std::initializer_list<std::string_view>;

bool is_one_of(std::string_view text, Words words) {
  return std::find(words.begin(), words.end(), text) != words.end();
}

struct Change {
  const char *kind;
  std::vector<const char *> to;
};

// Only where they stand between spaces: there they are no template brackets, pointers or signs.
const std::map<std::string_view, Change> kBinary = {
    {"==", {"relation", {"!="}}},     {"!=", {"relation", {"=="}}},      {"<", {"relation", {"<=", ">="}}},
    {"<=", {"relation", {"<", ">"}}}, {">", {"relation", {">=", "<="}}}, {">=", {"relation", {">", "<"}}},
    {"&&", {"logic", {"||"}}},        {"||", {"logic", {"&&"}}},         {"+", {"arithmetic", {"-"}}},
    {"-", {"arithmetic", {"+"}}},     {"*", {"arithmetic", {"/"}}},      {"/", {"arithmetic", {"*"}}},
    {"%", {"arithmetic", {"*"}}},     {"|", {"arithmetic", {"&"}}},      {"&", {"arithmetic", {"|"}}},
    {"^", {"arithmetic", {"|"}}},     {"<<", {"arithmetic", {">>"}}},    {">>", {"arithmetic", {"<<"}}},
    {"+=", {"arithmetic", {"-="}}},   {"-=", {"arithmetic", {"+="}}},    {"*=", {"arithmetic", {"/="}}},
    {"/=", {"arithmetic", {"*="}}},   {"|=", {"arithmetic", {"&="}}},    {"&=", {"arithmetic", {"|="}}}};
const std::map<std::string_view, Change> kUnary = {{"++", {"arithmetic", {"--"}}}, {"--", {"arithmetic", {"++"}}}};

bool is_result_code(std::string_view name) {
  if (name.substr(0, 5) != "VOSK_" && name.substr(0, 3) != "VK_") return false;
  return std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::islower(c) == 0; });
}

char another(char c) {
  if (c == 'z' || c == 'Z') return static_cast<char>(c - 25);
  return c == '9' ? '0' : static_cast<char>(c + 1);
}

class Finder {
 public:
  explicit Finder(std::string_view source) : source_(source), tokens_(tokens_of(source)) {}

  std::vector<Mutation> run() {
    for (i_ = 0; i_ < tokens_.size(); ++i_) {
      switch (tokens_[i_].kind) {
        case Kind::kPunctuation:
          operators();
          rows();
          break;
        case Kind::kNumber:
          numbers();
          break;
        case Kind::kCharacter:
          characters();
          break;
        case Kind::kText:
          texts();
          break;
        case Kind::kName:
          names();
          break;
      }
      statements();
    }
    return out_;
  }

 private:
  const Token &token() const { return tokens_[i_]; }
  std::string_view text(std::size_t i) const { return i < tokens_.size() ? tokens_[i].text : std::string_view(); }
  std::size_t end_of(std::size_t i) const { return tokens_[i].at + tokens_[i].text.size(); }
  std::string between(std::size_t first, std::size_t last) const {  // both tokens included
    return std::string(source_.substr(tokens_[first].at, end_of(last) - tokens_[first].at));
  }
  void put(const char *kind, std::size_t first, std::size_t last, std::string replacement) {
    out_.push_back(
        {kind, tokens_[first].at, end_of(last) - tokens_[first].at, std::move(replacement), token().in_body});
  }
  void put(const char *kind, std::string replacement) { put(kind, i_, i_, std::move(replacement)); }

  void operators() {
    const auto binary = kBinary.find(token().text);
    if (binary != kBinary.end() && token().spaced) {
      for (const char *to : binary->second.to) put(binary->second.kind, to);
    }
    const auto unary = kUnary.find(token().text);
    if (unary != kUnary.end()) put(unary->second.kind, unary->second.to[0]);
    if (token().text == "!") put("logic", "");
  }
  // Two rows of a table change places; where rows are a key and its value, they exchange the values.
  void rows() {
    if (token().text != "{") return;
    const std::size_t end = closing(tokens_, i_);
    if (text(end + 1) != "," || text(end + 2) != "{") return;
    const std::size_t other = end + 2, other_end = closing(tokens_, other);
    if (other_end >= tokens_.size()) return;
    const std::size_t value = value_of(i_, end), other_value = value_of(other, other_end);
    const std::size_t from = value == 0 || other_value == 0 ? i_ : value, to = from == i_ ? end : end - 1;
    const std::size_t other_from = from == i_ ? other : other_value, other_to = from == i_ ? other_end : other_end - 1;
    const std::string row = between(from, to), other_row = between(other_from, other_to);
    if (row == other_row) return;
    const std::size_t gap = end_of(to);
    put("row", from, other_to, other_row + std::string(source_.substr(gap, tokens_[other_from].at - gap)) + row);
  }
  // Where the second of exactly two entries begins, or 0.
  std::size_t value_of(std::size_t open, std::size_t close) const {
    std::size_t value = 0;
    for (std::size_t i = open + 1; i < close; ++i) {
      if (text(i) == "(" || text(i) == "[" || text(i) == "{") i = closing(tokens_, i);
      if (text(i) != ",") continue;
      if (value != 0) return 0;
      value = i + 1;
    }
    return value;
  }
  void numbers() {
    const std::string number(token().text);
    put("constant", "(" + number + " + 1)");
    if (number.find_first_not_of("0xu'") != std::string::npos) put("constant", "(" + number + " - 1)");
  }
  void characters() {
    std::string changed(token().text);
    char &c = changed[changed.size() - 2];
    c = changed[1] == '\\' ? (c == '0' ? '1' : c == 'n' ? 't' : 'n') : static_cast<char>(c + 1);
    if (changed != "'''" && changed != "'\\'") put("constant", changed);
  }
  // One byte, chosen by the text itself, that is no part of an escape or a conversion.
  void texts() {
    const std::string_view all = token().text;
    std::vector<std::size_t> places;
    for (std::size_t i = 1; i + 1 < all.size(); ++i) {
      if (all[i] == '\\') {
        ++i;
      } else if (all[i] == '%') {
        while (i + 1 < all.size() && std::isalpha(static_cast<unsigned char>(all[i])) == 0) ++i;
      } else if (std::isalnum(static_cast<unsigned char>(all[i])) != 0) {
        places.push_back(i);
      }
    }
    if (places.empty() || text(i_ - 1) == "extern") return;
    std::string changed(all);
    std::uint32_t mixed = 0;
    for (const char byte : all) mixed = mixed * 31 + static_cast<unsigned char>(byte);
    char &c = changed[places[mixed % places.size()]];
    c = another(c);
    put("text", changed);
  }
  void names() {
    if (token().text == "true") put("constant", "false");
    if (token().text == "false") put("constant", "true");
    if (is_result_code(token().text) && text(i_ + 1) != "(" && text(i_ - 1) != "case" && token().text != "VK_TRACE")
      put("constant", "(" + std::string(token().text) + " + 1)");
    if (token().text == "if" && text(i_ + 1) == "(" && token().in_body) {
      const std::size_t end = closing(tokens_, i_ + 1);
      put("condition", i_ + 1, end, "(false)");
    }
  }
  // A call or an assignment is left out; what declares something or leaves a routine stays.
  void statements() {
    if (!token().in_body || i_ == 0 || !starts_statement()) return;
    if (is_one_of(token().text, {"break", "continue"}) && text(i_ + 1) == ";") return put("statement", i_, i_, "");
    std::size_t i = i_;
    if (text(i) == "(" && text(i + 1) == "void") i = i + 3;
    while (is_one_of(text(i), {"*", "++", "--"})) ++i;
    if (i >= tokens_.size() || tokens_[i].kind != Kind::kName) return;
    if (is_one_of(text(i), {"return", "if", "for", "while", "switch", "do", "else", "case", "default", "using", "const",
                            "static", "constexpr", "goto", "static_assert", "sizeof", "public", "private"}))
      return;
    i = behind_expression(i);
    if (is_one_of(text(i), {"=", "+=", "-=", "*=", "/=", "|=", "&=", "++", "--"})) {
      while (i < tokens_.size() && text(i) != ";")
        i = is_one_of(text(i), {"(", "[", "{"}) ? closing(tokens_, i) + 1 : i + 1;
    }
    if (text(i) == ";") put("statement", i_, i - 1, "");
  }
  bool starts_statement() const {
    const std::string_view before = text(i_ - 1);
    if (is_one_of(before, {";", "{", "}", "else"})) return true;
    if (before == ":") return follows_label();
    if (before != ")") return false;
    // The head of an if or a loop stands before it.
    std::size_t depth = 0;
    for (std::size_t i = i_ - 1; i != 0; --i) {
      if (text(i) == ")") ++depth;
      if (text(i) == "(" && --depth == 0) return is_one_of(text(i - 1), {"if", "for", "while"});
    }
    return false;
  }
  // And not the colon of "a ? b : c".
  bool follows_label() const {
    for (std::size_t i = i_ - 1; i != 0; --i) {
      if (is_one_of(text(i), {"case", "default"})) return true;
      if (is_one_of(text(i), {"?", ";", "{", "}"})) return false;
    }
    return false;
  }
  // Names, calls, indexes and members that follow each other.
  std::size_t behind_expression(std::size_t i) const {
    ++i;
    while (i < tokens_.size()) {
      if (is_one_of(text(i), {"(", "["})) {
        i = closing(tokens_, i) + 1;
      } else if (is_one_of(text(i), {"::", ".", "->"})) {
        i += 2;
      } else {
        break;
      }
    }
    return i;
  }

  std::string_view source_;
  std::vector<Token> tokens_;
  std::size_t i_ = 0;
  std::vector<Mutation> out_;
};

std::string on_one_line(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c != '\n' && (c != ' ' || out.empty() || out.back() != ' ')) out += c;
  }
  return out;
}

}  // namespace

std::vector<Mutation> mutations_of(std::string_view source) {
  return Finder(source).run();
}

std::string applied(std::string_view source, const Mutation &mutation) {
  std::string out(source);
  return out.replace(mutation.at, mutation.length, mutation.replacement);
}

std::size_t line_of(std::string_view source, const Mutation &mutation) {
  return 1 +
         static_cast<std::size_t>(std::count(source.begin(), source.begin() + static_cast<long>(mutation.at), '\n'));
}

std::string changed_line(std::string_view source, const Mutation &mutation) {
  if (mutation.kind == "statement") return "without " + on_one_line(source.substr(mutation.at, mutation.length));
  const std::string after = applied(source, mutation);
  const std::size_t before = mutation.at == 0 ? std::string::npos : after.find_last_of('\n', mutation.at - 1);
  const std::size_t begin = after.find_first_not_of(" ", before == std::string::npos ? 0 : before + 1);
  const std::size_t end = after.find('\n', begin);
  return after.substr(begin, (end == std::string::npos ? after.size() : end) - begin);
}

}  // namespace mutants
