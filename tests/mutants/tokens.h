// C++ source text cut into tokens, as far as finding something to change in it needs.
#ifndef QX_TESTS_MUTANTS_TOKENS_H
#define QX_TESTS_MUTANTS_TOKENS_H

#include <string>
#include <string_view>
#include <vector>

namespace mutants {

struct Token {
  enum class Kind { kName, kNumber, kText, kCharacter, kPunctuation };
  Kind kind;
  std::string_view text;  // points into the source
  std::size_t at;
  bool in_body;  // within a function's braces
  bool spaced;   // a space or line end on both sides: how this tree writes binary operators and nothing else
};

// The tokens outside of comments, preprocessor lines, attributes and static assertions.
std::vector<Token> tokens_of(std::string_view source);

// The index of the bracket that closes the one at `open`, or the number of tokens.
std::size_t closing(const std::vector<Token> &tokens, std::size_t open);

}  // namespace mutants

#endif
