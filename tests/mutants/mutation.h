// Small faults put into a source text, one at a time: what a test suite that is worth something notices.
#ifndef QX_TESTS_MUTANTS_MUTATION_H
#define QX_TESTS_MUTANTS_MUTATION_H

#include <string>
#include <string_view>
#include <vector>

namespace mutants {

struct Mutation {
  std::string kind;  // "relation", "arithmetic", "logic", "constant", "statement", "condition", "row" or "text"
  std::size_t at, length;
  std::string replacement;
  bool in_body;  // of a function; else it belongs to the whole file
};

// Every change there is to make, in the order of the text.
std::vector<Mutation> mutations_of(std::string_view source);

std::string applied(std::string_view source, const Mutation &mutation);

// Its line in the source, from 1; and that line as it stands afterwards, without the spaces around it.
std::size_t line_of(std::string_view source, const Mutation &mutation);
std::string changed_line(std::string_view source, const Mutation &mutation);

}  // namespace mutants

#endif
