// The trace of a push, from its parameters to its end, and a trace file that is the stack itself.
#include <sys/stat.h>

#include "stack/push_test.h"

namespace {

using stack_test::file_of;
using stack_test::header;
using stack_test::Incident;
using stack_test::kStack;
using stack_test::push;
using stack_test::recorded;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class PushTrace : public stack_test::PushTest {
 protected:
  struct Entry {
    const char *routine;
    std::string text;
  };
  static std::vector<std::string> entries(const std::vector<Entry> &list) {
    std::vector<std::string> out;
    for (const Entry &entry : list) out.push_back(trace_entry(entry.routine, entry.text));
    return out;
  }
  std::vector<Entry> start(const Incident &in) const {
    const std::string pid = std::to_string(getpid());
    return {
        {"vk_push_stack", parameters(in)},
        {"vk_test_stack", "Environment value settings:\nChecking for env established by PID " + pid +
                              "\nVOSKSTACK is set to \"" + kStack + "\"\nVOSKORIG is set to \"" + pid +
                              "\"\nVOSKPID is set to \"" + pid +
                              "\"\nVOSKADDR is set to \".XO.8....................\"\nVOSKADDR is set to \"service\"\n"},
        {"vk_test_stack", "VOSK Environment exists for process " + pid + "\nReturning VK_SUCCESS(0) to the caller\n"}};
  }
  static Entry found(bool exists) {
    return {"vk_get_env_info", std::string("VOSK Error Stack File: ") + kStack +
                                   "\nExists: " + (exists ? "yes\nReturning 0" : "no\nReturning -24") + " to caller\n"};
  }
  static std::vector<Entry> identifier_entries() {
    return {{"vk_get_base_64_time",
             "Time of day value 1700000000 secs 123456 usecs converted to base-64 rep of .2zIZ/.7S.\n"
             "Returning VOSK_SUCCESS(0) to caller\n"},
            {"vk_get_base_64_hdr",
             "Combined version code 0x0 and location 0x1 into header code 0x9\nBase-64 equiv: 7\n"
             "Returning VOSK_SUCCESS(0) to the caller\n"},
            {"vk_get_base_64_inode", std::string("File ") + kStack +
                                         " i-node is 1234567\nBase-64 representation is 5Oh2..\n"
                                         "Returning VOSK_SUCCESS(0) to the caller\n"},
            {"vk_generate_eid",
             "Created VOSK Error ID 75Oh2...2zIZ/.7S..XO.8....................\n"
             "Returning VOSK_SUCCESS(0) to caller\n"}};
  }
  static Entry read_header(const std::string &recording) {
    return {"vk_get_stack_ctrl_info",
            "Stack file version: VOSK_STACK_VERSION_1 (0x0)\nInit offset: 24 bytes, Recording position: " + recording +
                " bytes\nEarliest rec offset: 24 bytes, File size: 16384 bytes, Wrapped: 0\n"
                "Returning VOSK_SUCCESS(0)\n"};
  }
  static std::vector<std::string> own_entries(const std::vector<std::string> &all) {
    std::vector<std::string> own;
    for (const std::string &entry : all) {
      if (entry.rfind("vk_push_stack: ", 0) == 0) own.push_back(entry);
    }
    return own;
  }
};

template <class Entry>
std::vector<Entry> joined(std::initializer_list<std::vector<Entry>> parts) {
  std::vector<Entry> out;
  for (const auto &part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

TEST_F(PushTrace, OfALaterRecordTellsEveryStep) {
  put_stack(file_of(16384, header(0, 24, 1000, 24, 16384, 0)));
  trace();
  EXPECT_EQ(push_known(incident()), 0);
  EXPECT_THAT(
      trace_file_.take(),
      ElementsAreArray(entries(joined<Entry>({start(incident()),
                                              {found(true)},
                                              identifier_entries(),
                                              {{"vk_push_stack", stack_test::kNormalDetail},
                                               read_header("1000"),
                                               {"vk_clear_records", "Enough room at end of stack to write record\n"},
                                               {"vk_clear_records", "File not wrapped - no records to clear\n"},
                                               {"vk_push_stack", recorded(189, 1000)}}}))));
}

TEST_F(PushTrace, OfTheFirstRecordHasTheReservationAndTheHeaderInIt) {
  trace();
  platform::Calls calls;
  calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  const std::vector<std::string> traced = trace_file_.take();
  ASSERT_EQ(traced.size(), 16u);
  const std::vector<std::string> beginning(traced.begin(), traced.begin() + 7);
  EXPECT_THAT(beginning,
              ElementsAreArray(entries(joined<Entry>(
                  {start(incident()),
                   {found(false),
                    {"vk_determine_max_fsize", "Requested 16384 bytes, able to get 16384 bytes\n"},
                    {"vk_allocate_file", std::string(kStack) + " reserved (16384 bytes) - returning VOSK_SUCCESS(0)\n"},
                    {"vk_push_stack", "Setting ctrl info\n"}}}))));
  EXPECT_EQ(traced.back(), trace_entry("vk_push_stack", recorded(189, 24)));
}

TEST_F(PushTrace, ShowsNullTextsAsNone) {
  put_stack(empty_stack());
  trace();
  const Incident nothing{nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, -3,
                         nullptr, nullptr, nullptr, -1,      -2,      nullptr};
  push_known(nothing);
  EXPECT_EQ(trace_file_.take().front(),
            trace_entry("vk_push_stack",
                        "Called with these params:\nfid=0x0, assoc_fid=(none)\nResource (none)\n"
                        "File info: (none), (none), (none), -3\nDetail Data ptr 0x0, Detail File (none)\n"
                        "Msg Info: (none), -1, -2\nDef Msg: (none)\n"));
}

// Conversions in what the caller gives are text.
TEST_F(PushTrace, ShowsTheCallersTextsAsTheyAre) {
  put_stack(empty_stack());
  trace();
  Incident in = incident();
  in.assoc_fid = stack_test::kIdentifier.c_str();
  in.resource = "%s%n";
  in.detail_file = "/tmp/%d";
  in.message = "100%% of %s";
  push_known(in, "sda");
  EXPECT_EQ(trace_file_.take().front(), trace_entry("vk_push_stack", parameters(in)));
}

TEST_F(PushTrace, OfACommandIsUnderTheSameName) {
  put_stack(empty_stack());
  set("VOSKPID", std::to_string(getppid()));
  trace();
  const Incident in = incident();
  EXPECT_EQ(vk_push_stack_cmd_1(in.fid, in.assoc_fid, in.resource, in.product, in.file, in.version, in.line, 0, in.data,
                                in.detail_file, in.catalogue, in.set, in.number, in.message),
            0);
  EXPECT_THAT(own_entries(trace_file_.take()),
              ElementsAreArray(stack_test::trace_entries(
                  "vk_push_stack", {parameters(in), stack_test::kNormalDetail, recorded(189, 24)})));
}

TEST_F(PushTrace, ThatDoesNotExistYetIsMade) {
  put_stack(empty_stack());
  files::TemporaryDirectory directory;
  set("VOSKDEBUG", directory / "new");
  EXPECT_EQ(push_known(incident()), 0);
  EXPECT_EQ(trace_file::read(directory / "new").messages("vk_push_stack").size(), 3u);
  set("VOSKDEBUG", directory / "missing/new");
  EXPECT_EQ(push_known(incident()), 0);
  EXPECT_THAT(files::list(directory.path()), ElementsAre("new"));
}

// --- The trace file is the stack file ---

TEST_F(PushTrace, IntoTheStackFileItselfIsNotWrittenAndNotMade) {
  set("VOSKDEBUG", kStack);
  platform::Calls calls;
  calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  stack_test::Golden record = golden();
  record.identifier = identifier();
  EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
  EXPECT_EQ(calls.count("fstatat"), 0) << "equal texts are the same file";

  vk_eid_t second;
  Incident in = incident();
  in.fid = &second;
  platform::Calls more;
  more.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  EXPECT_EQ(more.during([&] { return push(in); }), 0);
  EXPECT_EQ(files::difference(stack_with(record.bytes() + record.bytes()), stack()), "");
}

TEST_F(PushTrace, IntoTheStackFileUnderAnotherNameIsNotWritten) {
  struct Row {
    const char *what;
    std::string name;
    int (*make)(const char *, const char *);
  };
  files::TemporaryDirectory directory;
  const Row rows[] = {{"another path", "/var/adm/vosk/stacks/.//stack", nullptr},
                      {"a hard link", "/var/adm/vosk/other", link},
                      {"a symbolic link", directory / "other", symlink}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(sandbox::fresh(), "");
    put_stack(empty_stack());
    if (row.make != nullptr) {
      ASSERT_EQ(row.make(kStack, row.name.c_str()), 0);
    }
    set("VOSKDEBUG", row.name);
    platform::Calls calls;
    prepare(calls);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
    // Opened once, so that the lock was never dropped.
    EXPECT_THAT(calls.log_of({"open", "close", "lockf"}),
                ElementsAre("open(\"/var/adm/vosk/stacks/stack\", 0x2) = fd1", "lockf(fd1, F_LOCK, 0) = 0",
                            "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"));
    EXPECT_THAT(calls.left_open(), IsEmpty());
  }
}

TEST_F(PushTrace, IntoTheStackFileThatIsNotThereYetIsNotMade) {
  struct Row {
    const char *what;
    std::string stack, trace;
    const char *link_target;  // of the trace
  };
  files::TemporaryDirectory directory;
  ASSERT_EQ(symlink(sandbox::kStacks, (directory / "stacks").c_str()), 0);
  const Row rows[] = {{"another path", kStack, "/var/adm/vosk/stacks/../stacks//stack", nullptr},
                      {"another directory", kStack, directory / "stacks/stack", nullptr},
                      {"a link that leads nowhere yet", kStack, directory / "link", kStack}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(sandbox::fresh(), "");
    if (row.link_target != nullptr) {
      ASSERT_EQ(symlink(row.link_target, row.trace.c_str()), 0);
    }
    set("VOSKDEBUG", row.trace);
    platform::Calls calls;
    calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    stack_test::Golden record = golden();
    record.identifier = identifier();
    EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
  }
}

TEST_F(PushTrace, IsMadeWhereNoStackIsNamedOrNoneCanBe) {
  files::TemporaryDirectory directory;
  const std::string made = directory / "trace";
  set("VOSKDEBUG", made);
  unset("VOSKSTACK");
  EXPECT_EQ(push(incident()), VK_ENV_CORRUPT);
  EXPECT_EQ(trace_file::read(made).messages("vk_push_stack").size(), 1u);
  ASSERT_EQ(unlink(made.c_str()), 0);
  set("VOSKSTACK", std::string(sandbox::kStacks) + "/" + std::string(5000, 's'));
  EXPECT_EQ(push(incident()), VK_UNEXPECTED);
  EXPECT_EQ(trace_file::read(made).messages("vk_push_stack").size(), 1u);
}

// A stack that is such a link is not made either: its reservation finds the link in the way.
TEST_F(PushTrace, IsNotWhatALinkForAStackLeadsTo) {
  files::TemporaryDirectory directory;
  ASSERT_EQ(symlink((directory / "trace").c_str(), kStack), 0);
  set("VOSKDEBUG", directory / "trace");
  EXPECT_EQ(push(incident()), VK_STACK_ACCESS);
  EXPECT_THAT(files::list(directory.path()), IsEmpty());
}

TEST_F(PushTrace, OnAnotherDeviceIsAnotherFileOfTheSameNumber) {
  put_stack(empty_stack());
  for (const std::uint64_t device : {1u, 2u}) {
    trace();
    platform::Calls calls;
    prepare(calls);
    calls.fake_stat("fstatat", kStack, {.inode = 77, .device = 1});
    calls.fake_stat("fstatat", trace_file_.path(), {.inode = 77, .device = device});
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    EXPECT_EQ(own_entries(trace_file_.take()).size(), device == 1 ? 0u : 3u);
  }
}

TEST_F(PushTrace, BesideTheStackFileIsAnOrdinaryOne) {
  for (const char *name : {"/var/adm/vosk/stacks/stack1", "/var/adm/vosk/stack", "/var/adm/vosk/stacks/stac"}) {
    SCOPED_TRACE(name);
    ASSERT_EQ(sandbox::fresh(), "");
    set("VOSKDEBUG", name);
    EXPECT_EQ(push(incident()), 0);
    EXPECT_EQ(trace_file::read(name).messages("vk_push_stack").size(), 4u);
    EXPECT_EQ(stack().substr(0, 24), header(0, 24, 213, 24, 16384, 0));
  }
}

// The test of the environment, which decides on its own, must not trace into it either.
TEST_F(PushTrace, IntoTheStackFileIsNotWrittenWhereTheEnvironmentIsRefused) {
  put_stack(empty_stack());
  set("VOSKDEBUG", kStack);
  set("VOSKPID", "1");
  EXPECT_EQ(push(incident()), VK_NO_VK_ENVIR);
  EXPECT_THAT(cu_double::reports(), ElementsAre("15: vosk.cat 1/1 ()"));
  EXPECT_EQ(files::difference(empty_stack(), stack()), "");
  unset("VOSKADDR");
  EXPECT_EQ(push(incident()), VK_ENV_CORRUPT);
  EXPECT_EQ(files::difference(empty_stack(), stack()), "");
}

}  // namespace
