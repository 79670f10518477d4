// Making room for a record: where it goes, and what is cleared.
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

class Reclamation : public stack_test::ReclamationTest {};

TEST_F(Reclamation, LeavesAFileThatNeverWrappedAloneWhileTheRecordFits) {
  const Row rows[] = {
      {"an empty file",
       header_of(24, 24, 24, 8192, 0),
       200,
       {},
       0,
       header_of(24, 24, 24, 8192, 0),
       {},
       {kEnoughRoom, kNotWrapped}},
      // 8192 - 7988 = 204 bytes are left; the record itself ends 4 bytes behind the file.
      {"exactly the room",
       header_of(24, 7988, 24, 8192, 0),
       200,
       {},
       0,
       header_of(24, 7988, 24, 8192, 0),
       {},
       {kEnoughRoom, kNotWrapped}},
      {"the largest record",
       header_of(24, 7172, 24, 8192, 0),
       1016,
       {},
       0,
       header_of(24, 7172, 24, 8192, 0),
       {},
       {kEnoughRoom, kNotWrapped}},
      // Nothing is cleared, wherever the earliest record is said to be.
      {"an earliest record in front",
       header_of(24, 5000, 6000, 8192, 0),
       200,
       {},
       0,
       header_of(24, 5000, 6000, 8192, 0),
       {},
       {kEnoughRoom, kNotWrapped}},
  };
  for (const Row &row : rows) expect(row);
}

TEST_F(Reclamation, StartsAgainAtTheFirstRecordOneByteLater) {
  const Row rows[] = {
      {"a zero length there",
       header_of(24, 7989, 24, 8192, 0),
       200,
       {{24, 0}},
       0,
       header_of(24, 24, 24, 8192, 1),
       {},
       {kWraps, no_more("24"), space_cleared("24", "24")}},
      // The init offset is where writing goes on; the earliest record becomes 24 all the same.
      {"another init offset",
       header_of(100, 7989, 300, 8192, 0),
       200,
       {{100, 0}},
       0,
       header_of(100, 100, 24, 8192, 1),
       {},
       {kWraps, no_more("100"), space_cleared("100", "24")}},
      {"a position behind the end",
       header_of(24, 8193, 24, 8192, 0),
       0,
       {{24, 0}},
       0,
       header_of(24, 24, 24, 8192, 1),
       {},
       {kWraps, no_more("24"), space_cleared("24", "24")}},
      // The scan starts at the first record, whatever the earliest one is, and nothing counts as free.
      {"an earliest record elsewhere",
       header_of(24, 7989, 8000, 8192, 1),
       200,
       {{24, 201}},
       0,
       header_of(24, 24, 229, 8192, 1),
       {{24, 229}},
       {kWraps, clearing("201", "24"), now_cleared("205"), space_cleared("24", "229")}},
  };
  for (const Row &row : rows) expect(row);
}

// A record of n bytes gives n + 4; more than the length of the new one + 4 must come together.
TEST_F(Reclamation, ClearsUntilMoreThanTheNeedIsFree) {
  const Row rows[] = {
      {"one record of just enough",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 201}},
       0,
       header_of(24, 24, 229, 8192, 1),
       {{24, 229}},
       {kWraps, clearing("201", "24"), now_cleared("205"), space_cleared("24", "229")}},
      {"one that gives exactly the need is not enough",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 200}, {228, 134}},
       0,
       header_of(24, 24, 366, 8192, 1),
       {{24, 366}},
       {kWraps, clearing("200", "24"), now_cleared("204"), clearing("134", "228"), now_cleared("342"),
        space_cleared("24", "366")}},
      {"three records",
       header_of(24, 8192, 24, 8192, 1),
       400,
       {{24, 134}, {162, 140}, {306, 150}},
       0,
       header_of(24, 24, 460, 8192, 1),
       {{24, 460}},
       {kWraps, clearing("134", "24"), now_cleared("138"), clearing("140", "162"), now_cleared("282"),
        clearing("150", "306"), now_cleared("436"), space_cleared("24", "460")}},
      {"the largest record in one step",
       header_of(24, 8192, 24, 8192, 1),
       1016,
       {{24, 1017}},
       0,
       header_of(24, 24, 1045, 8192, 1),
       {{24, 1045}},
       {kWraps, clearing("1017", "24"), now_cleared("1021"), space_cleared("24", "1045")}},
      {"lengths of one byte",
       header_of(24, 8192, 24, 8192, 1),
       0,
       {{24, 1}},
       0,
       header_of(24, 24, 29, 8192, 1),
       {{24, 29}},
       {kWraps, clearing("1", "24"), now_cleared("5"), space_cleared("24", "29")}},
      {"records up to one that is cleared already",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 134}, {162, 0}},
       0,
       header_of(24, 24, 24, 8192, 1),
       {{24, 162}},
       {kWraps, clearing("134", "24"), now_cleared("138"), no_more("162"), space_cleared("24", "24")}},
  };
  for (const Row &row : rows) expect(row);
}

TEST_F(Reclamation, CountsTheGapInFrontOfTheEarliestRecordAsFree) {
  const Row rows[] = {
      {"a gap of more than the need",
       header_of(24, 1000, 1205, 8192, 1),
       200,
       {},
       0,
       header_of(24, 1000, 1205, 8192, 1),
       {},
       {kEnoughRoom, space_cleared("1000", "1205")}},
      {"a gap of the need",
       header_of(24, 1000, 1204, 8192, 1),
       200,
       {{1204, 140}},
       0,
       header_of(24, 1000, 1348, 8192, 1),
       {{1204, 1348}},
       {kEnoughRoom, clearing("140", "1204"), now_cleared("348"), space_cleared("1000", "1348")}},
      {"a gap that two records make large enough",
       header_of(24, 1000, 1010, 8192, 1),
       300,
       {{1010, 134}, {1148, 157}},
       0,
       header_of(24, 1000, 1309, 8192, 1),
       {{1010, 1309}},
       {kEnoughRoom, clearing("134", "1010"), now_cleared("148"), clearing("157", "1148"), now_cleared("309"),
        space_cleared("1000", "1309")}},
      {"no gap",
       header_of(24, 1000, 1000, 8192, 1),
       200,
       {{1000, 0}},
       0,
       header_of(24, 1000, 24, 8192, 1),
       {},
       {kEnoughRoom, no_more("1000"), space_cleared("1000", "24")}},
  };
  for (const Row &row : rows) expect(row);
}

// As after the reset to 24: newer records are cleared then.
TEST_F(Reclamation, StartsAtAnEarliestRecordBehindThePositionWithNothingFree) {
  const Row rows[] = {
      {"records at the start",
       header_of(24, 4000, 24, 8192, 1),
       200,
       {{24, 134}, {162, 134}},
       0,
       header_of(24, 4000, 300, 8192, 1),
       {{24, 300}},
       {kEnoughRoom, clearing("134", "24"), now_cleared("138"), clearing("134", "162"), now_cleared("276"),
        space_cleared("4000", "300")}},
      {"nothing at the start",
       header_of(24, 4000, 24, 8192, 1),
       200,
       {{24, 0}},
       0,
       header_of(24, 4000, 24, 8192, 1),
       {},
       {kEnoughRoom, no_more("24"), space_cleared("4000", "24")}},
      {"one byte behind",
       header_of(24, 4000, 3999, 8192, 1),
       200,
       {{3999, 0}},
       0,
       header_of(24, 4000, 24, 8192, 1),
       {},
       {kEnoughRoom, no_more("3999"), space_cleared("4000", "24")}},
  };
  for (const Row &row : rows) expect(row);
}

// Two records of 134 bytes stand at 24 and 166. A step clears 138 of the first one's 142 bytes, so the next length is
// taken from its last four.
TEST_F(Reclamation, TakesTheLastFourBytesOfAClearedRecordForALength) {
  const Row rows[] = {
      {"zeros",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 134}, {162, 0}, {166, 134}},
       0,
       header_of(24, 24, 24, 8192, 1),
       {{24, 162}},
       {kWraps, clearing("134", "24"), now_cleared("138"), no_more("162"), space_cleared("24", "24")}},
      {"the text \"d!\"",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 134}, {162, 0x2164}, {166, 134}},
       -26,
       header_of(24, 8192, 24, 8192, 1),
       {{24, 162}},
       {kWraps, clearing("134", "24"), now_cleared("138"), clearing("8548", "162"), past_the_end("8714")}},
      {"a letter",
       header_of(24, 8192, 24, 8192, 1),
       200,
       {{24, 134}, {162, 'd'}, {166, 134}},
       0,
       header_of(24, 24, 266, 8192, 1),
       {{24, 266}},
       {kWraps, clearing("134", "24"), now_cleared("138"), clearing("100", "162"), now_cleared("242"),
        space_cleared("24", "266")}},
  };
  for (const Row &row : rows) expect(row);
}

}  // namespace
