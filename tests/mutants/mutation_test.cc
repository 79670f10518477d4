// Which small faults the mutation program makes of which source text.
#include "mutants/mutation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> made_of(const std::string &source) {
  std::vector<std::string> out;
  for (const mutants::Mutation &m : mutants::mutations_of(source))
    out.push_back(m.kind + ": " + mutants::changed_line(source, m));
  return out;
}

TEST(Mutations, TurnRelationsAround) {
  EXPECT_THAT(made_of("bool f() { return a < b; }"),
              ElementsAre("relation: bool f() { return a <= b; }", "relation: bool f() { return a >= b; }"));
  EXPECT_THAT(made_of("bool f() { return a == b; }"), ElementsAre("relation: bool f() { return a != b; }"));
}

TEST(Mutations, ChangeArithmeticAndLogic) {
  EXPECT_THAT(made_of("int f() { return a * b; }"), ElementsAre("arithmetic: int f() { return a / b; }"));
  EXPECT_THAT(made_of("bool f() { return !a || b; }"),
              ElementsAre("logic: bool f() { return a || b; }", "logic: bool f() { return !a && b; }"));
}

TEST(Mutations, TakeTemplatesPointersAndReferencesForNoOperators) {
  EXPECT_THAT(made_of("std::span<const char> f(const char *a, int &b, int &&c);"), IsEmpty());
}

TEST(Mutations, ChangeConstants) {
  EXPECT_THAT(made_of("constexpr int kFive = 5;"),
              ElementsAre("constant: constexpr int kFive = (5 + 1);", "constant: constexpr int kFive = (5 - 1);"));
  EXPECT_THAT(made_of("constexpr int kNone = 0;"), ElementsAre("constant: constexpr int kNone = (0 + 1);"));
  EXPECT_THAT(made_of("constexpr char kDot = '.';"), ElementsAre("constant: constexpr char kDot = '/';"));
  EXPECT_THAT(made_of("int f() { return VOSK_SUCCESS; }"),
              ElementsAre("constant: int f() { return (VOSK_SUCCESS + 1); }"));
}

TEST(Mutations, LeaveOutCallsAndAssignmentsButNoDeclaration) {
  EXPECT_THAT(made_of("void f() {\n  int x = g();\n  x = h(x);\n  vk::call(x);\n  return;\n}"),
              ElementsAre("statement: without x = h(x)", "statement: without vk::call(x)"));
  EXPECT_THAT(made_of("void f() {\n  (void)close(fd);\n}"), ElementsAre("statement: without (void)close(fd)"));
}

TEST(Mutations, TellALabelFromTheSecondHalfOfAChoice) {
  EXPECT_THAT(made_of("int f() {\n  return a ? b : c();\n}"), IsEmpty());
  EXPECT_THAT(made_of("void f() {\n  switch (a) {\n    case kB:\n      c();\n  }\n}"),
              ElementsAre("statement: without c()"));
}

TEST(Mutations, DropAConditionAndWhatDependsOnIt) {
  EXPECT_THAT(made_of("void f() {\n  if (ready()) go();\n}"),
              ElementsAre("condition: if (false) go();", "statement: without go()"));
}

TEST(Mutations, ExchangeRowsOfATableOrTheirValues) {
  EXPECT_THAT(made_of("constexpr row kRows[] = {{A, B}, {C, D}};"),
              ElementsAre("row: constexpr row kRows[] = {{A, D}, {C, B}};"));
  EXPECT_THAT(made_of("constexpr row kRows[] = {{A, B, C}, {D, E, F}};"),
              ElementsAre("row: constexpr row kRows[] = {{D, E, F}, {A, B, C}};"));
}

TEST(Mutations, ChangeOneByteOfATextThatIsNoConversionOrEscape) {
  EXPECT_THAT(made_of("constexpr char kText[] = \"%d%s\\n%.2dx\";"),
              ElementsAre("text: constexpr char kText[] = \"%d%s\\n%.2dy\";"));
  EXPECT_THAT(made_of("constexpr char kText[] = \"%5d %s\\n\";"), IsEmpty());
}

TEST(Mutations, LeaveCommentsPreprocessorLinesAndAssertionsAlone) {
  EXPECT_THAT(made_of("// a < b\n#define X 1 + \\\n  2\n/* 7 */ static_assert(sizeof(x) == 4);\n[[gnu::format(printf, "
                      "2, 3)]] void f();"),
              IsEmpty());
}

TEST(Mutations, KnowTheirLineAndWhetherItIsInARoutine) {
  const std::string source = "constexpr int kA = 0;\nint f() {\n  return 0;\n}\n";
  const std::vector<mutants::Mutation> made = mutants::mutations_of(source);
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(mutants::line_of(source, made[0]), 1u);
  EXPECT_FALSE(made[0].in_body);
  EXPECT_EQ(mutants::line_of(source, made[1]), 3u);
  EXPECT_TRUE(made[1].in_body);
}

}  // namespace
