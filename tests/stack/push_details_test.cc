// Details in a file: the copy, what the record says of it, and a file that is the stack itself.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "stack/push_test.h"

namespace {

using stack_test::Golden;
using stack_test::Incident;
using stack_test::kStack;
using stack_test::push;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class PushDetails : public stack_test::PushTest {
 protected:
  PushDetails() { EXPECT_TRUE(files::write(details_, "17\n18\n")); }
  Incident with_file(const char *path) {
    Incident in = incident();
    in.data = nullptr;
    in.detail_file = path;
    return in;
  }
  static std::string copy_name() {
    return "/var/adm/vosk/dumps/service." + std::to_string(getpid()) + ".20231114.221320";
  }
  static std::string record_with(const std::string &details) {
    Golden record = golden();
    record.details = details;
    return record.bytes();
  }
  static std::string own(const std::string &text) { return trace_entry("vk_push_stack", text); }

  files::TemporaryDirectory directory_;
  std::string details_ = directory_ / "details";
};

TEST_F(PushDetails, InAFileAreCopiedAndTheRecordNamesTheCopy) {
  put_stack(empty_stack());
  trace();
  EXPECT_EQ(push_known(with_file(details_.c_str())), 0);
  EXPECT_EQ(files::difference(stack_with(record_with(copy_name())), stack()), "");
  EXPECT_EQ(files::read(copy_name()), "17\n18\n");
  EXPECT_EQ(files::read(details_), "17\n18\n");
  const std::vector<std::string> traced = trace_file_.take();
  EXPECT_THAT(traced, Contains(own(stack_test::kFileDetail)));
  EXPECT_THAT(traced, Not(Contains(own(stack_test::kNormalDetail))));
}

TEST_F(PushDetails, GivenInBothWaysAreTheDataAndNoCopyIsMade) {
  put_stack(empty_stack());
  trace();
  Incident in = with_file(details_.c_str());
  in.data = "sector 17";
  EXPECT_EQ(push_known(in), VK_DETAIL_BOTH);
  EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
  EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
  const std::vector<std::string> traced = trace_file_.take();
  EXPECT_THAT(traced, Contains(own(stack_test::kNormalDetail)));
  EXPECT_THAT(traced, Not(Contains(own(stack_test::kFileDetail))));
}

// The record names the caller's own file, or nothing where that did not pass its test.
TEST_F(PushDetails, ThatCannotBeCopiedAreWhatTheCopyingLeft) {
  struct Row {
    const char *what;
    std::string file, recorded;
    const char *call;
    int nth, error;
  };
  const Row rows[] = {{"a missing file", "/nowhere/details", "", nullptr, 0, 0},
                      {"a directory", directory_.path(), "", nullptr, 0, 0},
                      {"the copy cannot be made", details_, details_, "open", 2, EACCES},
                      {"the file cannot be opened", details_, details_, "open", 3, EACCES},
                      {"the file cannot be read", details_, details_, "read", 1, EIO},
                      {"the copy cannot be written", details_, details_, "write", 1, ENOSPC}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    put_stack(empty_stack());
    trace();
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_file_.path());
    if (row.call != nullptr) calls.fail_nth(row.call, row.nth, row.error);
    EXPECT_EQ(calls.during([&] { return push(with_file(row.file.c_str())); }), VK_COPY_FAILED);
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "32: vosk.cat 1/4 (\"vk_push_stack\", \"" + row.file +
                                                                  "\", \"/var/adm/vosk/dumps\")"));
    EXPECT_EQ(files::difference(stack_with(record_with(row.recorded)), stack()), "");
    EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
    const std::vector<std::string> traced = trace_file_.take();
    EXPECT_THAT(traced, Contains(own("Cannot copy caller's file - ignoring\n")));
    EXPECT_THAT(traced, Contains(own(stack_test::kFileDetail)));
  }
}

// Its copy would lie outside the directory of copies.
TEST_F(PushDetails, OfAProcessWhoseNameHasASlashAreNotCopied) {
  put_stack(empty_stack());
  set("VOSKPNAME", "../serv");
  EXPECT_EQ(push_known(with_file(details_.c_str())), VK_COPY_FAILED);
  EXPECT_EQ(files::list(sandbox::kRoot), (std::vector<std::string>{"dumps", "stacks"}));
  EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
  std::string record = record_with(details_);
  record.replace(record.find("service"), 7, "../serv");
  EXPECT_EQ(files::difference(stack_with(record), stack()), "");
}

TEST_F(PushDetails, OfASecondIncidentInTheSameSecondAreNotCopied) {
  put_stack(empty_stack());
  EXPECT_EQ(push_known(with_file(details_.c_str())), 0);
  EXPECT_EQ(push_known(with_file(details_.c_str())), VK_COPY_FAILED);
  EXPECT_EQ(files::difference(stack_with(record_with(copy_name()) + record_with(details_)), stack()), "");
}

// The copy's closing of its input would drop the lock on the stack.
TEST_F(PushDetails, InTheStackFileItselfAreCopiedAndTheLockIsTakenAgain) {
  struct Row {
    const char *what;
    std::string path;
  };
  for (const Row &row : {Row{"its path", kStack}, Row{"another path", "/var/adm/vosk/stacks/../stacks/stack"},
                         Row{"a symbolic link", directory_ / "symbolic"}, Row{"a hard link", "/var/adm/vosk/hard"}}) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(sandbox::fresh(), "");
    put_stack(empty_stack());
    if (row.path.find("symbolic") != std::string::npos) {
      ASSERT_EQ(symlink(kStack, row.path.c_str()), 0);
    }
    if (row.path.find("hard") != std::string::npos) {
      ASSERT_EQ(link(kStack, row.path.c_str()), 0);
    }
    platform::Calls calls;
    prepare(calls);
    // Asked in another process, since asking gives up one's own locks.
    int asked = 0;
    const auto expect_locked = [&](const platform::Call &) {
      ++asked;
      EXPECT_EQ(sandbox::run_child([] { EXPECT_TRUE(files::locked(kStack)); }).text, "");
    };
    calls.before("read", 18, expect_locked);   // the header, behind 17 of the copying
    calls.before("write", 17, expect_locked);  // the record, behind 16 of the copying
    cu_double::reset();
    EXPECT_EQ(calls.during([&] { return push(with_file(row.path.c_str())); }), 0);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(files::difference(empty_stack(), files::read(copy_name()).value_or("")), "");
    EXPECT_EQ(files::difference(stack_with(record_with(copy_name())), stack()), "");
    EXPECT_THAT(calls.log_of({"lockf"}),
                ElementsAre("lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_ULOCK, 0) = 0"));
  }
}

TEST_F(PushDetails, InTheStackFileOfAFirstPushAreItsHeaderAndNoRecord) {
  platform::Calls calls;
  calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  calls.before("read", 18, [](const platform::Call &) {  // the header, behind 17 of the copying
    EXPECT_EQ(sandbox::run_child([] { EXPECT_TRUE(files::locked(kStack)); }).text, "");
  });
  EXPECT_EQ(calls.during([&] { return push(with_file(kStack)); }), 0);
  // The header that was written stands in front of the position; the lock is for the whole file all the same.
  const std::vector<std::string> taking = calls.log_of({"lseek", "lockf"});
  const auto again = std::find(taking.rbegin(), taking.rend(), "lockf(fd2, F_LOCK, 0) = 0");
  ASSERT_NE(again, taking.rend());
  EXPECT_EQ(*std::next(again), "lseek(fd2, 0, SEEK_SET) = 0");
  std::string copied = empty_stack();
  copied.replace(24, 12, "VKTFS=16384\n");  // what is left of the reservation's line until the record comes
  EXPECT_EQ(files::difference(copied, files::read(copy_name()).value_or("")), "");
  Golden record = golden();
  record.identifier = identifier();
  record.details = copy_name();
  EXPECT_EQ(files::difference(stack_with(record.bytes()), stack()), "");
}

// Reclamation is not reached: nothing may be changed without the lock.
TEST_F(PushDetails, InTheStackFileAreNotRecordedWithoutTheLock) {
  put_stack(empty_stack());
  trace();
  platform::Calls calls;
  prepare(calls);
  calls.ignore_path(trace_file_.path());
  calls.fail_nth("lockf", 2, EDEADLK);
  EXPECT_EQ(calls.during([&] { return push(with_file(kStack)); }), 22);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", std::string("22: vosk.cat 1/40 (\"") + kStack + "\", 35)"));
  EXPECT_THAT(calls.log_of({"lockf"}), ElementsAre("lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_LOCK, 0) = -1 EDEADLK"));
  EXPECT_EQ(calls.log_of({"close"}).back(), "close(fd1) = 0");
  EXPECT_THAT(calls.left_open(), IsEmpty());
  EXPECT_EQ(trace_file_.take().back(), own(std::string("Failure to lock file ") + kStack + " - error code 35\n"));
  EXPECT_EQ(files::difference(empty_stack(), stack()), "");
  EXPECT_EQ(identifier(), untouched());
}

TEST_F(PushDetails, InAFileOfTheirOwnNeedNoSecondLock) {
  put_stack(empty_stack());
  platform::Calls calls;
  prepare(calls);
  EXPECT_EQ(calls.during([&] { return push(with_file(details_.c_str())); }), 0);
  EXPECT_THAT(calls.log_of({"lockf"}), ElementsAre("lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_ULOCK, 0) = 0"));
}

// A FIFO would hold the caller up for ever.
TEST_F(PushDetails, InAFifoAreNotWaitedFor) {
  put_stack(empty_stack());
  const std::string fifo = directory_ / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  EXPECT_EQ(push_known(with_file(fifo.c_str())), VK_COPY_FAILED);
  EXPECT_EQ(files::difference(stack_with(record_with(fifo)), stack()), "");
  EXPECT_THAT(files::list(sandbox::kDumps), IsEmpty());
}

}  // namespace
