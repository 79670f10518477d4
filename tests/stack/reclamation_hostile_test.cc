// Reclamation in files that no push has written like that: lengths and positions of all kinds.
#include <climits>

#include "stack/reclamation_test.h"

namespace {

using stack_test::clearing;
using stack_test::kEnoughRoom;
using stack_test::kNotWrapped;
using stack_test::kWraps;
using stack_test::no_more;
using stack_test::now_cleared;
using stack_test::past_the_end;
using stack_test::space_cleared;
using testing::ElementsAreArray;

class HostileReclamation : public stack_test::ReclamationTest {};

TEST_F(HostileReclamation, GivesUpWhereAStepLeadsPastTheFile) {
  const Row rows[] = {
      // 8192 - 24 - 4 = 8164 bytes are the most.
      {"up to the end",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 8164}},
       0,
       header_of(24, 24, 8192, 8192, 1),
       {{24, 8192}},
       {kWraps, clearing("8164", "24"), now_cleared("8168"), space_cleared("24", "8192")}},
      {"one byte further",
       header_of(24, 8192, 24, 8192, 0),
       200,
       {{24, 8165}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {},
       {kWraps, clearing("8165", "24"), past_the_end("8193")}},
      {"in the second step",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 134}, {162, 8027}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {{24, 162}},
       {kWraps, clearing("134", "24"), now_cleared("138"), clearing("8027", "162"), past_the_end("8193")}},
      // Lengths are unsigned and positions do not overflow; traces show their low 32 bits.
      {"the top bit",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 0x80000000}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {},
       {kWraps, clearing("-2147483648", "24"), past_the_end("-2147483620")}},
      {"the largest positive length",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 0x7fffffff}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {},
       {kWraps, clearing("2147483647", "24"), past_the_end("-2147483621")}},
      {"minus four",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 0xfffffffc}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {},
       {kWraps, clearing("-4", "24"), past_the_end("24")}},
      {"all bits",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 0xffffffff}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {},
       {kWraps, clearing("-1", "24"), past_the_end("27")}},
  };
  for (const Row &row : rows) expect(row);
}

TEST_F(HostileReclamation, ReadsNothingAtAndBehindTheEndOfTheFileAsTheLengthZero) {
  struct EndRow {
    const char *what;
    std::size_t size;  // of the file; its header says 8192
    std::vector<Length> lengths;
    std::int32_t earliest;
    std::vector<Range> cleared;
    std::vector<std::string> trace;
  };
  const EndRow rows[] = {
      {"at the end", 24, {}, 24, {}, {kWraps, no_more("24"), space_cleared("24", "24")}},
      {"behind the end", 7, {}, 24, {}, {kWraps, no_more("24"), space_cleared("24", "24")}},
      {"an empty file", 0, {}, 24, {}, {kWraps, no_more("24"), space_cleared("24", "24")}},
      {"at the end after a step",
       162,
       {{24, 134}},
       24,
       {{24, 162}},
       {kWraps, clearing("134", "24"), now_cleared("138"), no_more("162"), space_cleared("24", "24")}},
  };
  for (const EndRow &row : rows) {
    expect({row.what, header_of(24, 8192, 24, 8192, 0), 200, row.lengths, 0, header_of(24, 24, row.earliest, 8192, 1),
            row.cleared, row.trace},
           row.size);
  }
}

TEST_F(HostileReclamation, HasZerosForTheBytesOfALengthThatCouldNotBeRead) {
  struct PartRow {
    std::string tail;  // of the file, from byte 24 on
    const char *size, *end;
    std::int32_t earliest;
    const char *cleared;
  };
  for (const PartRow &row : {PartRow{"\xd2", "210", "238", 238, "214"},
                             {"\xd2\x01", "466", "494", 494, "470"},
                             {std::string("\xd2\x01\0", 3), "466", "494", 494, "470"},
                             {std::string("\xd3\0\0\0", 4), "211", "239", 239, "215"}}) {
    SCOPED_TRACE(row.tail.size());
    use(std::string(24, 'x') + row.tail);
    header_ = header_of(24, 8192, 24, 8192, 0);
    EXPECT_EQ(clear(200), 0);
    EXPECT_EQ(files::difference(text(header_of(24, 24, row.earliest, 8192, 1)), text(header_)), "");
    EXPECT_THAT(trace_.take(), ElementsAreArray(entries({kWraps, clearing(row.size, "24"), now_cleared(row.cleared),
                                                         space_cleared("24", row.end)})));
    EXPECT_EQ(files::difference(std::string(24, 'x') + stack_test::zeros(static_cast<std::size_t>(row.earliest) - 24),
                                *files::read(path_)),
              "");
  }
}

// A header of a foreign version is not checked, so everything may stand in it; what is cleared ends at 16388.
TEST_F(HostileReclamation, OfAForeignVersionClearsNothingBehind16388) {
  const Row rows[] = {
      {"to 16388",
       header_of(24, INT_MAX, 24, INT_MAX, 0, 8),
       200,
       {{24, 16360}},
       0,
       header_of(24, 24, 16388, INT_MAX, 1, 8),
       {{24, 16388}},
       {kWraps, clearing("16360", "24"), now_cleared("16364"), space_cleared("24", "16388")}},
      {"to 16389",
       header_of(24, INT_MAX, 24, INT_MAX, 0, 56),
       200,
       {{24, 16361}},
       -26,
       header_of(24, INT_MAX, 24, INT_MAX, 1, 56),
       {},
       {kWraps, clearing("16361", "24"), past_the_end("16389")}},
      {"a size of 16389",
       header_of(24, 16389, 24, 16389, 0, 16),
       200,
       {{24, 16361}},
       -26,
       header_of(24, 16389, 24, 16389, 1, 16),
       {},
       {kWraps, clearing("16361", "24"), past_the_end("16389")}},
      {"a smaller size",
       header_of(24, 100, 24, 100, 0, 8),
       200,
       {{24, 72}},
       0,
       header_of(24, 24, 24, 100, 1, 8),
       {{24, 100}},
       {kWraps, clearing("72", "24"), now_cleared("76"), no_more("100"), space_cleared("24", "24")}},
      {"past a smaller size",
       header_of(24, 100, 24, 100, 0, 8),
       200,
       {{24, 73}},
       -26,
       header_of(24, 100, 24, 100, 1, 8),
       {},
       {kWraps, clearing("73", "24"), past_the_end("101")}},
  };
  for (Row row : rows) {
    if (row.header.control.file_size == 100) row.lengths.push_back({100, 0});
    expect(row, 20000);
  }
}

// 32 bits do not hold these differences.
TEST_F(HostileReclamation, OfAForeignVersionComputesWithAbsurdPositions) {
  const Row rows[] = {
      {"the lowest position",
       header_of(24, INT_MIN, 24, 16384, 1, 8),
       200,
       {},
       0,
       header_of(24, INT_MIN, 24, 16384, 1, 8),
       {},
       {kEnoughRoom, space_cleared("-2147483648", "24")}},
      {"the lowest position and the highest earliest record",
       header_of(24, INT_MIN, INT_MAX, INT_MAX, 1, 8),
       200,
       {},
       0,
       header_of(24, INT_MIN, INT_MAX, INT_MAX, 1, 8),
       {},
       {kEnoughRoom, space_cleared("-2147483648", "2147483647")}},
      {"the highest position",
       header_of(24, INT_MAX, 24, 16384, 0, 8),
       200,
       {{24, 0}},
       0,
       header_of(24, 24, 24, 16384, 1, 8),
       {},
       {kWraps, no_more("24"), space_cleared("24", "24")}},
      {"the lowest size",
       header_of(24, INT_MAX, 24, INT_MIN, 0, 8),
       200,
       {{24, 0}},
       0,
       header_of(24, 24, 24, INT_MIN, 1, 8),
       {},
       {kWraps, no_more("24"), space_cleared("24", "24")}},
      {"the lowest size and a record",
       header_of(24, INT_MIN, 24, INT_MIN, 0, 8),
       200,
       {{24, 1}},
       -26,
       header_of(24, INT_MIN, 24, INT_MIN, 1, 8),
       {},
       {kWraps, clearing("1", "24"), past_the_end("29")}},
      {"a negative init offset",
       header_of(-5, 16384, 24, 16384, 0, 8),
       200,
       {},
       -26,
       header_of(-5, 16384, 24, 16384, 1, 8),
       {},
       {kWraps, "Cannot lseek to position -5 in stack - error code 22\nReturning VOSK_FILE_CORRUPT(-26)\n"}},
      {"a negative earliest record",
       header_of(24, 1000, INT_MIN, 16384, 1, 8),
       200,
       {},
       -26,
       header_of(24, 1000, INT_MIN, 16384, 1, 8),
       {},
       {kEnoughRoom,
        "Cannot lseek to position -2147483648 in stack - error code 22\nReturning VOSK_FILE_CORRUPT(-26)\n"}},
      {"an init offset far behind the file",
       header_of(INT_MAX, INT_MAX, 24, 16384, 0, 8),
       200,
       {},
       0,
       header_of(INT_MAX, INT_MAX, 24, 16384, 1, 8),
       {},
       {kWraps, no_more("2147483647"), space_cleared("2147483647", "24")}},
      // Only 1 is "wrapped".
      {"a wrap byte of 2",
       header_of(24, 1000, 24, 16384, 2, 8),
       200,
       {{24, 134}},
       0,
       header_of(24, 1000, 24, 16384, 2, 8),
       {},
       {kEnoughRoom, kNotWrapped}},
      {"a wrap byte of 2 where the record does not fit",
       header_of(24, 16384, 24, 16384, 2, 8),
       200,
       {{24, 0}},
       0,
       header_of(24, 24, 24, 16384, 1, 8),
       {},
       {kWraps, no_more("24"), space_cleared("24", "24")}},
  };
  for (const Row &row : rows) expect(row, 20000);
}

}  // namespace
