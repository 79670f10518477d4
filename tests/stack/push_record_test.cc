// What a push leaves in the stack file and in the caller's buffer.
#include <fcntl.h>
#include <sys/stat.h>

#include <climits>

#include "stack/push_test.h"

namespace {

using files::i32;
using files::u32;
using files::u64;
using stack_test::file_of;
using stack_test::Golden;
using stack_test::header;
using stack_test::Incident;
using stack_test::kIdentifier;
using stack_test::kStack;
using stack_test::push;
using stack_test::z;
using stack_test::zeros;
using testing::ElementsAre;

class PushRecord : public stack_test::PushTest {};

TEST_F(PushRecord, IsTheFirstOneOfANewFileThatEverybodyMayWrite) {
  platform::Calls calls;
  calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);

  Golden record = golden();
  record.identifier = identifier();
  EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
  // What the real i-node makes of positions 2 to 7 belongs to the tests of identifiers.
  EXPECT_EQ(identifier().substr(0, 1) + identifier().substr(7), z("7.2zIZ/.7S..XO.8...................."));
  struct stat status = {};
  ASSERT_EQ(stat(kStack, &status), 0);
  EXPECT_EQ(status.st_mode, 0100666u);
  EXPECT_FALSE(files::locked(kStack));
}

TEST_F(PushRecord, StandsWhereTheLastOneEnded) {
  put_stack(empty_stack());
  EXPECT_EQ(push_known(incident()), 0);
  EXPECT_EQ(identifier(), kIdentifier);
  const std::string record = golden().bytes();
  ASSERT_EQ(record.size(), 189u);
  EXPECT_EQ(files::difference(stack_with(record), stack()), "");

  vk_eid_t second;
  Incident in = incident();
  in.assoc_fid = fid_;
  in.fid = &second;
  EXPECT_EQ(push_known(in), 0);
  std::string referring = record;
  referring.replace(8 + 4 + 43, 43, kIdentifier);
  EXPECT_EQ(files::difference(stack_with(record + referring), stack()), "");
}

TEST_F(PushRecord, OfNothingButMissingFieldsIsMadeAllTheSame) {
  put_stack(empty_stack());
  EXPECT_EQ(push_known(Incident{&fid_, nullptr, nullptr, nullptr, nullptr, nullptr, INT_MIN, nullptr, nullptr, nullptr,
                                INT_MIN, -1, nullptr}),
            VK_NO_DETAILS);
  EXPECT_EQ(identifier(), kIdentifier);
  const std::string body = zeros(4) + kIdentifier + zeros(43) + u32(1700000000) + z("service") + i32(getpid()) +
                           i32(0) + u32(static_cast<std::uint32_t>(pthread_self())) + z("unknown_file") +
                           z("no_version_num") + z("qrn_product") + i32(0) + z("") + i32(0) + i32(0) + z("") + i32(0) +
                           z("");
  ASSERT_EQ(body.size(), 173u);
  EXPECT_EQ(files::difference(stack_with(u32(173) + zeros(4) + body), stack()), "");

  put_stack(empty_stack());  // empty texts count as missing, too
  EXPECT_EQ(push_known(Incident{&fid_, "", "", "", "", "", 0, "", "", "", -1, -1, ""}), VK_NO_DETAILS);
  EXPECT_EQ(files::difference(stack_with(u32(173) + zeros(4) + body), stack()), "");
}

TEST_F(PushRecord, HoldsTheArgumentsOfTheDefaultMessage) {
  put_stack(empty_stack());
  Incident in = incident();
  in.message = "%2$s: block %1$d of %3$lu";
  EXPECT_EQ(push_known(in, 17, "sda", 4000000000ul), 0);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error", "args 3 = 0", "release 3", "no error"));
  EXPECT_EQ(cu_double::arguments_outstanding(), 0);
  std::string record = golden().bytes();
  record = record.replace(record.find("read failed"), 11, in.message);
  const std::string arguments = i32(3) + i32(1) + u64(17) + i32(5) + z("sda") + i32(4) + u64(4000000000);
  record = record.replace(record.size() - 14, 4, arguments);
  record = record.replace(0, 4, u32(static_cast<std::uint32_t>(record.size()) - 8));
  EXPECT_EQ(files::difference(stack_with(record), stack()), "");
}

// libqx_cu refuses the format: no arguments are stored.
TEST_F(PushRecord, HasNoArgumentsWhereTheyCannotBeTold) {
  struct Row {
    int result, count;
    const char *trace;
  };
  for (const Row &row : {Row{-1, 2, "2"}, {1, 0, "0"}, {-5, -1, "-1"}}) {
    put_stack(empty_stack());
    cu_double::reset();
    cu_double::fail_arguments(row.result, row.count);
    Incident in = incident();
    platform::Calls calls;
    prepare(calls);
    trace();
    EXPECT_EQ(calls.during([&] { return push(in); }), 0);
    unset("VOSKDEBUG");
    EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
    EXPECT_THAT(trace_file_.take(),
                testing::Contains(trace_entry("vk_push_stack", std::string("cu_set_error_args detected ") + row.trace +
                                                                   " arguments for the default messsage \"read "
                                                                   "failed\"\n")));
  }
}

TEST_F(PushRecord, StatesACountThatCameWithoutArguments) {
  put_stack(empty_stack());
  cu_double::fail_arguments(0, 3);
  platform::Calls calls;
  prepare(calls);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  Golden record = golden();
  record.arguments = i32(3);
  EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
}

TEST_F(PushRecord, NamesTheParentUnlessThisProcessCreatedTheEnvironment) {
  struct Row {
    std::string originator;
    std::int32_t parent;
  };
  const std::string own = std::to_string(getpid());
  for (const Row &row : {Row{own, 0}, Row{" +" + own + "x", 0}, Row{"1", getppid()}, Row{"0", getppid()}}) {
    SCOPED_TRACE(row.originator);
    set("VOSKORIG", row.originator);
    put_stack(empty_stack());
    EXPECT_EQ(push_known(incident()), 0);
    Golden record = golden();
    record.parent = row.parent;
    EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
  }
}

// The test of the environment has read the variables already; now they are gone.
TEST_F(PushRecord, HasAnEmptyProcessNameWhereTheVariableIsGone) {
  put_stack(empty_stack());
  platform::Calls calls;
  prepare(calls);
  calls.after("lockf", 1, [](const platform::Call &) { unsetenv("VOSKPNAME"); });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  std::string record = golden().bytes();
  record.erase(record.find("service"), 7).replace(0, 4, u32(181 - 7));
  EXPECT_EQ(files::difference(stack_with(record), stack()), "");
}

// No identifier: 43 zero bytes, the time 0, and a buffer of zeros for the caller.
TEST_F(PushRecord, IsMadeWithoutAnIdentifierWhereThereIsNoAddress) {
  struct Row {
    const char *what;
    const char *address;  // null: the variable goes after the test of the environment
  };
  for (const Row &row : {Row{"gone", nullptr}, Row{"24 characters", ".XO.8..................."},
                         Row{"26 characters", ".XO.8....................."}}) {
    SCOPED_TRACE(row.what);
    put_stack(empty_stack());
    forget_identifier();
    cu_double::reset();
    set("VOSKADDR", row.address != nullptr ? row.address : stack_test::kAddress);
    trace();
    platform::Calls calls;
    prepare(calls);
    if (row.address == nullptr)
      calls.after(
          "lockf", 1, [](const platform::Call &) { unsetenv("VOSKADDR"); }, kStack);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), VK_NO_UNIQUE_EID);
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "37: vosk.cat 1/10 (\"vk_push_stack\")"));
    EXPECT_EQ(identifier(), zeros(43));
    EXPECT_EQ(files::difference(stack_with(Golden{}.bytes()), stack()), "");
    EXPECT_EQ(
        trace_file_.take().back(),
        trace_entry("vk_push_stack", "Unable to calculate an VOSK ID - clearing the data at the caller's location\n"));
  }
}

TEST_F(PushRecord, WithoutAnIdentifierRaisesOnlyThatForACallerWithoutABuffer) {
  put_stack(empty_stack());
  set("VOSKADDR", "short");
  Incident in = incident();
  in.fid = nullptr;
  trace();
  EXPECT_EQ(push_known(in), VK_NO_UNIQUE_EID);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "37: vosk.cat 1/10 (\"vk_push_stack\")"));
  EXPECT_EQ(files::difference(stack_with(Golden{}.bytes()), stack()), "");
  EXPECT_EQ(
      trace_file_.take().back(),
      trace_entry("vk_push_stack", "Unable to calculate an VOSK ID - clearing the data at the caller's location\n"));
}

TEST_F(PushRecord, IsMadeForACallerWithoutABuffer) {
  put_stack(empty_stack());
  Incident in = incident();
  in.fid = nullptr;
  trace();
  EXPECT_EQ(push_known(in), VK_NO_EID_PTR);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "27: vosk.cat 1/9 (\"vk_push_stack\")"));
  EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
  EXPECT_EQ(trace_file_.take().back(),
            trace_entry("vk_push_stack", "Caller did not provide a valid VOSK ID pointer - cannot return VOSK ID\n"));
}

TEST_F(PushRecord, GoesIntoAFileOfAForeignVersionAsIntoAnyOther) {
  for (std::uint32_t version : {8u, 16u, 24u, 32u, 40u, 48u, 56u}) {
    SCOPED_TRACE(version);
    // Nothing of this would pass the checks: position 20, size 1000, wrap byte 9.
    put_stack(file_of(2000, header(version, -1, 20, -5, 1000, 9, "xyz"), {}, 'x'));
    EXPECT_EQ(push_known(incident()), 0);
    const std::string record = golden().bytes();
    std::string expected = file_of(2000, header(version, -1, 20, -5, 1000, 9, "xyz"), {{20, record}}, 'x');
    expected.replace(4, 20, header(version, -1, 20 + 189, -5, 1000, 9, "xyz").substr(4));  // over the record's start
    EXPECT_EQ(files::difference(expected, stack()), "");
  }
}

TEST_F(PushRecord, OfExactly1024BytesIsWhole) {
  struct Row {
    std::size_t details;  // behind the 171 bytes of body in front of them
    int result;
    std::size_t size;
  };
  for (const Row &row :
       {Row{844, 0, 1024}, Row{845, 0, 1024}, Row{846, VK_RECORD_TRUNCATED, 1024}, Row{843, 0, 1023}}) {
    SCOPED_TRACE(row.details);
    put_stack(empty_stack());
    const std::string text(row.details, 'd');
    Incident in = incident();
    in.data = text.c_str();
    EXPECT_EQ(push_known(in), row.result);
    Golden record = golden();
    record.details = text;
    std::string bytes = record.bytes().substr(0, 1024);
    bytes.replace(0, 4, u32(static_cast<std::uint32_t>(row.size) - 8));
    ASSERT_EQ(bytes.size(), row.size);
    EXPECT_EQ(files::difference(stack_with(bytes), stack()), "");
  }
}

}  // namespace
