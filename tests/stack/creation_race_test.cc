// A stack file that another process is just creating, step by step: the other one's doings come from hooks.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "stack/push_test.h"

namespace {

using stack_test::file_of;
using stack_test::Golden;
using stack_test::header;
using stack_test::Incident;
using stack_test::kStack;
using stack_test::push;
using stack_test::zeros;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kLine = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
const std::string kPath = std::string("\"") + kStack + "\"";
// What the other process leaves between its reservation and its header.
const std::string kReserved = kLine + zeros(16384 - 36);

class CreationRace : public stack_test::PushTest {
 protected:
  // The header and one record of the process that was first.
  static std::string finished() {
    Golden record;
    record.details = "first";
    return file_of(16384, header(0, 24, 209, 24, 16384, 0), {{24, record.bytes()}});
  }
  // finished() with this push's record behind it.
  std::string with_ours(const std::string &details = "sector 17") const {
    std::string bytes = finished();
    Golden record = golden();
    record.identifier = identifier();
    record.details = details;
    bytes.replace(209, record.bytes().size(), record.bytes());
    return bytes.replace(8, 4, files::u32(static_cast<std::uint32_t>(209 + record.bytes().size())));
  }
  // How many entries are the routine's.
  static std::ptrdiff_t entries_of(const std::vector<std::string> &traced, const std::string &routine) {
    return std::count_if(traced.begin(), traced.end(),
                         [&](const std::string &entry) { return entry.rfind(routine + ": ", 0) == 0; });
  }
  // Whether another process would find any part of the file locked.
  static bool held_by_us(const std::string &path) {
    const pid_t child = fork();
    if (child == 0) _exit(files::locked(path) ? 1 : 0);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status != 0;
  }
  static void fix_clock(platform::Calls &calls) { calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds); }
};

struct State {
  const char *what;
  std::string bytes;
};
const State kStates[] = {{"the reservation's line", kReserved}, {"nothing yet", ""}};

TEST_F(CreationRace, IsWaitedOutByAPushThatSeesAnUnfinishedFile) {
  for (const State &state : kStates) {
    SCOPED_TRACE(state.what);
    ASSERT_EQ(sandbox::fresh(), "");
    put_stack(state.bytes);
    trace();
    cu_double::reset();
    platform::Calls calls;
    fix_clock(calls);
    calls.ignore_path(trace_file_.path());
    calls.before("nanosleep", 1, [](const platform::Call &) { EXPECT_FALSE(held_by_us(kStack)); });
    calls.after("nanosleep", 3, [](const platform::Call &) { put_stack(finished()); });
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    EXPECT_EQ(files::difference(with_ours(), stack()), "");
    EXPECT_THAT(cu_double::sequence(), ElementsAre("no error", "args 0 = 0", "release 0", "no error"));
    EXPECT_THAT(calls.log_of({"nanosleep"}),
                ElementsAreArray(std::vector<std::string>(3, "nanosleep(0, 1000000) = 0")));
    EXPECT_THAT(calls.left_open(), IsEmpty());

    // The lock is given back; then the file is only looked at, until the record can be written.
    std::vector<std::string> around{"open(" + kPath + ", 0x2) = fd1", "lockf(fd1, F_LOCK, 0) = 0",
                                    "read(fd1, 4) = " + std::string(state.bytes.empty() ? "0" : "4"),
                                    "lockf(fd1, F_ULOCK, 0) = 0"};
    for (int look = 2; look <= 4; ++look) {
      const std::string fd = "fd" + std::to_string(look);
      around.insert(around.end(), {"open(" + kPath + ", 0x80800) = " + fd,
                                   "read(" + fd + ", 4) = " + (look < 4 && state.bytes.empty() ? "0" : "4"),
                                   "close(" + fd + ") = 0"});
    }
    around.insert(around.end(),
                  {"lockf(fd1, F_LOCK, 0) = 0", "read(fd1, 4) = 4", "read(fd1, 20) = 20", "write(fd1, 189) = 189",
                   "write(fd1, 20) = 20", "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"});
    EXPECT_THAT(calls.log_of({"open", "lockf", "read", "write", "close"}), ElementsAreArray(around));
    const std::vector<std::string> traced = trace_file_.take();
    EXPECT_EQ(entries_of(traced, "vk_get_stack_ctrl_info"), 1);
    EXPECT_EQ(entries_of(traced, "vk_get_env_info"), 1);
  }
}

// However often the file was looked at.
TEST_F(CreationRace, TracesAnAbandonedFileAsOneThatWasNotWaitedFor) {
  for (const State &state : kStates) {
    SCOPED_TRACE(state.what);
    ASSERT_EQ(sandbox::fresh(), "");
    put_stack(state.bytes);
    trace();
    cu_double::reset();
    EXPECT_EQ(push(incident()), 24);
    EXPECT_EQ(trace_file::read(trace_file_.path()).wraps, 0);
    const std::vector<std::string> traced = trace_file_.take();
    EXPECT_THAT(traced.front(), StartsWith("vk_push_stack: Called with these params:"));
    EXPECT_EQ(entries_of(traced, "vk_test_stack"), 2);  // settings and outcome
    EXPECT_EQ(entries_of(traced, "vk_get_env_info"), 1);
    EXPECT_EQ(entries_of(traced, "vk_get_base_64_inode"), 1);
    EXPECT_EQ(entries_of(traced, "vk_get_stack_ctrl_info"), 1);
    EXPECT_THAT(cu_double::sequence(), ElementsAre("no error", "args 0 = 0", "release 0", StartsWith("24: ")));
  }
}

TEST_F(CreationRace, IsWaitedForHalfASecondAndThenTheFileIsWhatItLooksLike) {
  const std::string texts[] = {"Stack version 0x46544b56 is not a supported version\n",
                               "File size 0 is beyond accpetable range of 8192 and 16384\n"};
  for (std::size_t i = 0; i < 2; ++i) {
    SCOPED_TRACE(kStates[i].what);
    ASSERT_EQ(sandbox::fresh(), "");
    put_stack(kStates[i].bytes);
    cu_double::reset();
    platform::Calls calls;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 24);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(490));
    EXPECT_LT(waited, std::chrono::seconds(4)) << "half a second, and the pauses of a busy machine";
    EXPECT_GE(calls.count("nanosleep"), 2);
    EXPECT_THAT(cu_double::reports(),
                ElementsAre("no error", "24: vosk.cat 1/41 (" + kPath + ", \"vk_get_stack_ctrl_info\")"));
    EXPECT_EQ(files::difference(kStates[i].bytes, stack()), "");
    EXPECT_EQ(identifier(), untouched());
    EXPECT_THAT(calls.left_open(), IsEmpty());

    trace();
    EXPECT_EQ(push(incident()), 24);
    EXPECT_EQ(trace_file::read(trace_file_.path()).summaries().back(),
              trace_entry("vk_get_stack_ctrl_info",
                          texts[i] + "Assuming file is corrupted\nReturning VOSK_FILE_CORRUPT(-26)\n"));
    trace_file_.clear();
    unset("VOSKDEBUG");
  }
}

// EEXIST from the exclusive creation: the file counts as reserved, but the header is the other one's to write.
TEST_F(CreationRace, LeavesTheHeaderToTheProcessThatCameFirst) {
  platform::Calls calls;
  fix_clock(calls);
  calls.before("open", 1, [](const platform::Call &) { put_stack(kReserved); });
  calls.after("nanosleep", 1, [](const platform::Call &) { put_stack(finished()); });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  EXPECT_EQ(files::difference(with_ours(), stack()), "");
  EXPECT_THAT(calls.log_of({"open", "write"}),
              ElementsAre("open(" + kPath + ", 0x2c2, 0666) = -1 EEXIST", "open(" + kPath + ", 0x2) = fd1",
                          "open(" + kPath + ", 0x80800) = fd2", "write(fd1, 189) = 189", "write(fd1, 20) = 20"));
}

TEST_F(CreationRace, IsNoReasonToWaitForAFileThatIsFinished) {
  platform::Calls calls;
  fix_clock(calls);
  calls.before("open", 1, [](const platform::Call &) { put_stack(finished()); });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  EXPECT_EQ(files::difference(with_ours(), stack()), "");
  EXPECT_THAT(calls.log_of({"nanosleep", "clock_gettime"}), IsEmpty());
}

TEST_F(CreationRace, EndsWhereTheLockIsRefusedAfterTheWait) {
  put_stack(kReserved);
  platform::Calls calls;
  calls.fail_nth("lockf", 3, EDEADLK);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 22);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "22: vosk.cat 1/40 (" + kPath + ", 35)"));
  EXPECT_EQ(files::difference(kReserved, stack()), "");
  EXPECT_THAT(calls.left_open(), IsEmpty());
}

TEST_F(CreationRace, GoesOnWithAFileThatCannotBeLookedAt) {
  put_stack(kReserved);
  platform::Calls calls;
  fix_clock(calls);
  calls.fail_nth("fstat", 1, EIO);
  calls.after("nanosleep", 1, [](const platform::Call &) { put_stack(finished()); });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  EXPECT_EQ(files::difference(with_ours(), stack()), "");
}

// The other one found no room after all and has taken its file away.
TEST_F(CreationRace, EndsWithAnOwnFileWhereTheOtherOneIsGone) {
  put_stack(kReserved);
  platform::Calls calls;
  fix_clock(calls);
  calls.after("nanosleep", 1, [](const platform::Call &) { unlink(kStack); });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  Golden record = golden();
  record.identifier = identifier();
  EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
  EXPECT_EQ(calls.count("nanosleep"), 1);
  for (const std::string &call : calls.log_of({"read", "close"}))
    EXPECT_EQ(call.find("(-1"), std::string::npos) << call;
}

TEST_F(CreationRace, EndsWithWhatTheLookupSaysMeanwhile) {
  put_stack(kReserved);
  platform::Calls calls;
  calls.after("nanosleep", 2, [](const platform::Call &) {
    unlink(kStack);
    mkdir(kStack, 0777);
  });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 25);
  EXPECT_THAT(cu_double::reports(),
              ElementsAre("no error", "25: vosk.cat 1/34 (" + kPath + ", \"/var/adm/vosk/stacks\")"));
}

TEST_F(CreationRace, DoesNotCopyTheDetailFileAgain) {
  files::TemporaryDirectory directory;
  const std::string details = directory / "details";
  ASSERT_TRUE(files::write(details, "17"));
  put_stack(kReserved);
  Incident in = incident();
  in.data = nullptr;
  in.detail_file = details.c_str();
  platform::Calls calls;
  fix_clock(calls);
  calls.after("nanosleep", 2, [](const platform::Call &) {
    unlink(kStack);
    put_stack(finished());
  });
  EXPECT_EQ(calls.during([&] { return push(in); }), 0);
  EXPECT_EQ(calls.log_of_path(details).size(), 7u) << testing::PrintToString(calls.log_of_path(details));
  const std::string copy = "/var/adm/vosk/dumps/service." + std::to_string(getpid()) + ".20231114.221320";
  EXPECT_EQ(files::difference(with_ours(copy), stack()), "");
}

// Once and for all, too: a copy that failed is not tried again, and the attention comes at the end.
TEST_F(CreationRace, DoesNotTryAgainWhatCouldNotBeCopied) {
  put_stack(kReserved);
  Incident in = incident();
  in.data = nullptr;
  in.detail_file = "/nowhere/details";
  platform::Calls calls;
  fix_clock(calls);
  calls.after("nanosleep", 2, [](const platform::Call &) { put_stack(finished()); });
  EXPECT_EQ(calls.during([&] { return push(in); }), VK_COPY_FAILED);
  EXPECT_THAT(calls.log_of_path("/nowhere"), ElementsAre("stat(\"/nowhere\") = -1 ENOENT"));
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", StartsWith("32: ")));
  EXPECT_EQ(files::difference(with_ours(""), stack()), "");
}

// The file that was waited for is gone, so that the record is made once more.
TEST_F(CreationRace, ReadsTheArgumentsAnewForAnotherFile) {
  put_stack(kReserved);
  Incident in = incident();
  in.message = "%s %d";
  platform::Calls calls;
  fix_clock(calls);
  calls.after("nanosleep", 2, [](const platform::Call &) {
    unlink(kStack);
    put_stack(finished());
  });
  EXPECT_EQ(calls.during([&] { return push(in, "sda", 17); }), 0);
  const std::string arguments = files::i32(2) + files::i32(5) + stack_test::z("sda") + files::i32(1) + files::u64(17);
  EXPECT_NE(stack().find(stack_test::z("%s %d") + arguments + stack_test::z("sector 17")), std::string::npos);
  EXPECT_EQ(cu_double::arguments_outstanding(), 0);
}

// Other damage is none of the two states.
TEST_F(CreationRace, IsNoReasonToWaitForADamagedFile) {
  for (const std::string &bytes :
       {kLine.substr(0, 3), "VKTG" + kReserved.substr(4), zeros(4), zeros(16384), header(9, 24, 24, 24, 16384, 0)}) {
    SCOPED_TRACE(bytes.size());
    put_stack(bytes);
    platform::Calls calls;
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 24);
    EXPECT_THAT(calls.log_of({"nanosleep", "clock_gettime"}), IsEmpty());
    EXPECT_EQ(files::difference(bytes, stack()), "");
  }
}

}  // namespace
