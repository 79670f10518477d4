#include "support/trace_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kFirst =
    "\x01"
    "Thu Jan  1 00:00:00 1970\n"
    "\tVOSK Routine: fclear\n"
    "\tCalled by PID 12 Thread -5\n"
    "\tone line\n"
    "\t\n"
    "\tanother\n";
const std::string kSecond =
    "\x01"
    "Thu Jan  1 00:00:01 1970\n"
    "\tVOSK Routine: vk_push_stack\n"
    "\tCalled by PID 13 Thread 7\n"
    "\tReturning 0\n";
const std::string kEnd = "[END OF FINAL ENTRY]\n";
const std::string kRecycle("[FILE RECYCLES HERE]\n\0", 22);

std::string padded(std::string bytes, std::size_t size = 400) {
  bytes.resize(size, '\0');
  return bytes;
}

TEST(TraceFile, AFreshFileHasNoEntries) {
  trace_file::Trace trace = trace_file::parse(padded("VKTFO=36    VKTFW=0     VKTFS=400  \n"));
  EXPECT_EQ(trace.problem, "");
  EXPECT_EQ(trace.next_offset, 36);
  EXPECT_EQ(trace.wraps, 0);
  EXPECT_EQ(trace.size, 400);
  EXPECT_FALSE(trace.end_marker);
  EXPECT_THAT(trace.entries, IsEmpty());
}

TEST(TraceFile, EntriesAreTakenApart) {
  ASSERT_EQ(kFirst.size(), 97u);
  ASSERT_EQ(kSecond.size(), 95u);
  trace_file::Trace trace =
      trace_file::parse(padded("VKTFO=228   VKTFW=0     VKTFS=400  \n" + kFirst + kSecond + kEnd));
  EXPECT_EQ(trace.problem, "");
  EXPECT_TRUE(trace.end_marker);
  ASSERT_EQ(trace.entries.size(), 2u);
  const trace_file::Entry &first = trace.entries[0];
  EXPECT_EQ(first.offset, 36u);
  EXPECT_EQ(first.time, "Thu Jan  1 00:00:00 1970");
  EXPECT_EQ(first.routine, "fclear");
  EXPECT_EQ(first.pid, 12);
  EXPECT_EQ(first.thread, -5);
  EXPECT_THAT(first.lines, ElementsAre("one line", "", "another"));
  EXPECT_EQ(first.text, kFirst);
  EXPECT_THAT(trace.summaries(), ElementsAre("fclear: one line\n\nanother", "vk_push_stack: Returning 0"));
  EXPECT_THAT(trace.messages("vk_push_stack"), ElementsAre("Returning 0"));
}

TEST(TraceFile, OlderEntriesComeFirst) {
  // One new entry at 36, zeros up to the next old mark, one old entry, then the recycle marker.
  std::string bytes = "VKTFO=131   VKTFW=1     VKTFS=400  \n" + kSecond + kEnd;
  bytes.resize(200, '\0');
  trace_file::Trace trace = trace_file::parse(padded(bytes + kFirst + kRecycle));
  EXPECT_EQ(trace.problem, "");
  EXPECT_TRUE(trace.recycle_marker);
  EXPECT_EQ(trace.older, 1u);
  EXPECT_THAT(trace.summaries(), ElementsAre("fclear: one line\n\nanother", "vk_push_stack: Returning 0"));
}

TEST(TraceFile, RemainsWithoutAMarkBehindThemAreNoProblem) {
  std::string bytes = "VKTFO=131   VKTFW=1     VKTFS=400  \n" + kSecond + kEnd + "remains of an entry\n" + kRecycle;
  trace_file::Trace trace = trace_file::parse(padded(bytes));
  EXPECT_EQ(trace.problem, "");
  EXPECT_TRUE(trace.recycle_marker);
  EXPECT_EQ(trace.entries.size(), 1u);
}

TEST(TraceFile, FaultsAreNamed) {
  std::string torn = kFirst;
  torn[30] = '!';  // in "VOSK Routine"
  const struct {
    std::string bytes;
    const char *problem;
  } rows[] = {
      {"", "no header"},
      {padded("VKTFX=36    VKTFW=0     VKTFS=400  \n"), "no header"},
      {padded("VKTFO=36    VKTFW=x     VKTFS=400  \n"), "no header"},
      {padded("VKTFO=36    VKTFW=0     VKTFS=400  \n", 401), "the header's size is 400"},
      {padded("VKTFO=35    VKTFW=0     VKTFS=400  \n"), "outside"},
      {padded("VKTFO=401   VKTFW=0     VKTFS=400  \n"), "outside"},
      {padded("VKTFO=133   VKTFW=0     VKTFS=400  \n" + kFirst), "no end marker at 133"},
      {padded("VKTFO=133   VKTFW=0     VKTFS=400  \n" + torn + kEnd), "a broken entry at 36"},
      {padded("VKTFO=134   VKTFW=0     VKTFS=400  \n!" + kFirst + kEnd), "no entry begins at 36"},
      {padded("VKTFO=133   VKTFW=0     VKTFS=400  \n" + kFirst + kEnd + kSecond), "never wrapped"},
      {padded("VKTFO=133   VKTFW=1     VKTFS=400  \n" + kFirst + kEnd + torn), "a broken older entry at 154"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.problem);
    EXPECT_THAT(trace_file::parse(row.bytes).problem, HasSubstr(row.problem));
  }
  EXPECT_THAT(trace_file::read("/no/such/file").problem, HasSubstr("cannot read"));
}

TEST(TraceFile, MessagesFoldAt72AndEndAt254) {
  const std::string x72(72, 'x');
  EXPECT_THAT(trace_file::folded("%s", ""), IsEmpty());
  EXPECT_THAT(trace_file::folded("one\ntwo\n"), ElementsAre("one", "two"));
  EXPECT_THAT(trace_file::folded("one\n\ntwo"), ElementsAre("one", "", "two"));
  EXPECT_THAT(trace_file::folded("%s", std::string(200, 'x').c_str()), ElementsAre(x72, x72, std::string(56, 'x')));
  EXPECT_THAT(trace_file::folded("%s\n", x72.c_str()), ElementsAre(x72));        // the newline right behind
  EXPECT_THAT(trace_file::folded("%sx\n", x72.c_str()), ElementsAre(x72, "x"));  // one too late
  EXPECT_THAT(trace_file::folded("%s", std::string(300, 'x').c_str()),
              ElementsAre(x72, x72, x72, std::string(38, 'x')));  // 254 in all
  EXPECT_EQ(trace_file::folded_text("a %d\nb\n", 5), "a 5\nb");
}

}  // namespace
