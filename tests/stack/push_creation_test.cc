// A push whose stack file is not there, or not usable, or cannot be made.
#include <sys/auxv.h>
#include <sys/stat.h>

#include <cerrno>

#include "stack/push_test.h"

namespace {

using stack_test::file_of;
using stack_test::header;
using stack_test::kStack;
using stack_test::push;
using stack_test::zeros;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::string kPath = std::string("\"") + kStack + "\"";

class PushCreation : public stack_test::PushTest {
 protected:
  // Pushes with the plan made, expects the one report (PATH stands for the path), and no change of the identifier.
  void expect_refused(platform::Calls &calls, std::string report, const std::string &path = kPath) {
    if (const std::size_t at = report.find("PATH"); at != std::string::npos) report.replace(at, 4, path);
    cu_double::reset();
    forget_identifier();
    calls.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
    calls.ignore_path(trace_file_.path());
    EXPECT_EQ(calls.during([&] { return push(incident()); }), std::stoi(report));
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", report));
    ASSERT_FALSE(cu_double::errors().empty());
    EXPECT_EQ(cu_double::errors().back().text_pointer, vk_mesgtbl_vk_lib[cu_double::errors().back().number]);
    EXPECT_EQ(cu_double::errors().back().zero, 0);
    EXPECT_EQ(identifier(), untouched());
    EXPECT_THAT(calls.left_open(), IsEmpty());
  }
};

// --- What the environment leads to ---

TEST_F(PushCreation, IsNotTriedWhereTheLookupFails) {
  struct Row {
    const char *failing;
    int error;
    const char *report;
  };
  const Row rows[] = {{kStack, EACCES, "20: vosk.cat 1/33 (PATH)"},
                      {sandbox::kStacks, ENOENT, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
                      {sandbox::kStacks, ENOTDIR, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
                      {kStack, ENOTDIR, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
                      {sandbox::kStacks, EACCES, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
                      {kStack, EIO, "99: vosk.cat 1/30 (\"vk_get_env_info\")"},
                      {sandbox::kStacks, ELOOP, "99: vosk.cat 1/30 (\"vk_get_env_info\")"},
                      {kStack, ENAMETOOLONG, "99: vosk.cat 1/30 (\"vk_get_env_info\")"}};
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.failing << " " << platform::error_name(row.error));
    platform::Calls calls;
    calls.fail_nth("stat", 1, row.error, row.failing);
    expect_refused(calls, row.report);
    EXPECT_THAT(calls.log_of({"open", "lockf", "write"}), IsEmpty());
    EXPECT_FALSE(files::exists(kStack));
  }
}

TEST_F(PushCreation, IsNotTriedWhereTheStackIsADirectory) {
  ASSERT_EQ(mkdir(kStack, 0777), 0);
  platform::Calls calls;
  expect_refused(calls, "25: vosk.cat 1/34 (PATH, \"/var/adm/vosk/stacks\")");
}

TEST_F(PushCreation, IsNotTriedForAPathOf4096BytesOrMore) {
  set("VOSKSTACK", "/" + std::string(4095, 'x'));
  platform::Calls calls;
  expect_refused(calls, "99: vosk.cat 1/30 (\"vk_get_env_info\")");
}

// After the test of the environment has found all variables set.
TEST_F(PushCreation, IsNotTriedWhereAVariableIsGoneMeanwhile) {
  for (const char *name : {"VOSKSTACK", "VOSKPID", "VOSKORIG"}) {
    SCOPED_TRACE(name);
    const std::string own = std::to_string(getpid());
    set("VOSKSTACK", kStack);
    set("VOSKPID", own);
    set("VOSKORIG", own);
    trace();
    platform::Calls calls;
    int read = 0;
    calls.before("getenv", 0, [&](const platform::Call &call) {
      if (call.arguments == "\"VOSKPNAME\"" && ++read == 1) unsetenv(name);
    });
    expect_refused(calls, "17: vosk.cat 1/25 ()");
    EXPECT_EQ(trace_file_.take().back(),
              trace_entry("vk_get_env_info",
                          std::string("Cannot get ") + name + " environ value, returning VOSK_INV_ENV(-31)\n"));
  }
}

TEST_F(PushCreation, TakesAForeignPathOfARaisedProcessForAMissingVariable) {
  files::TemporaryDirectory directory;
  struct Row {
    std::string path;
    bool recorded;
  };
  for (const Row &row :
       {Row{directory / "stack", false}, Row{"/var/adm/vosk/stacks/../stack", false}, Row{kStack, true}}) {
    SCOPED_TRACE(row.path);
    set("VOSKSTACK", row.path);
    trace();  // which such a process does not get either
    platform::Calls calls;
    calls.fake_auxval(AT_SECURE, 1);
    if (row.recorded) {
      EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    } else {
      expect_refused(calls, "17: vosk.cat 1/25 ()");
    }
    EXPECT_EQ(files::exists(row.path), row.recorded);
    EXPECT_THAT(trace_file_.take(), IsEmpty());
  }
}

// --- What the reservation says ---

TEST_F(PushCreation, IsRefusedForWhatTheReservationIsRefusedFor) {
  struct Row {
    const char *call;
    int nth, error;
    const char *report;
  };
  const Row rows[] = {
      {"statfs", 1, ENOENT, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
      {"statfs", 1, EACCES, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
      {"statfs", 1, ESTALE, "19: vosk.cat 1/29 (\"/var/adm/vosk/stacks\")"},
      {"statfs", 1, EIO, "99: vosk.cat 1/30 (\"vk_allocate_file\")"},
      {"statfs", 2, EIO, "99: vosk.cat 1/30 (\"vk_allocate_file\")"},
      {"open", 1, EACCES, "20: vosk.cat 1/35 (PATH)"},
      {"open", 1, EROFS, "20: vosk.cat 1/35 (PATH)"},
      {"fchmod", 1, EPERM, "20: vosk.cat 1/35 (PATH)"},
      {"open", 1, ENOSPC, "40: vosk.cat 1/36 (\"/var/adm/vosk/stacks\", 8192)"},
      {"write", 1, ENOSPC, "40: vosk.cat 1/36 (\"/var/adm/vosk/stacks\", 8192)"},
      {"write", 16, EDQUOT, "40: vosk.cat 1/36 (\"/var/adm/vosk/stacks\", 8192)"},
      {"open", 1, EMFILE, "99: vosk.cat 1/30 (\"vk_allocate_file\")"},
      {"open", 1, EDQUOT, "99: vosk.cat 1/30 (\"vk_allocate_file\")"},
      {"open", 1, EIO, "99: vosk.cat 1/30 (\"vk_allocate_file\")"},
      {"lockf", 1, ENOLCK, "22: vosk.cat 1/37 (PATH)"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth << " " << platform::error_name(row.error));
    platform::Calls calls;
    calls.fail_nth(row.call, row.nth, row.error);
    expect_refused(calls, row.report);
    EXPECT_FALSE(files::exists(kStack));
  }
}

TEST_F(PushCreation, IsRefusedWhereFivePercentCannotBeLeft) {
  platform::Calls calls;
  calls.statfs_figures({{.blocks = 1000, .available = 54, .block_size = 4096}});
  expect_refused(calls, "40: vosk.cat 1/36 (\"/var/adm/vosk/stacks\", 8192)");
  EXPECT_FALSE(files::exists(kStack));
}

TEST_F(PushCreation, StatesTheSizeThatCouldBeReserved) {
  platform::Calls calls;
  // 16384 and 15360 bytes are 32 and 30 blocks; with 36 of 100 blocks free, 5 of them kept, the second fits.
  calls.statfs_figures({{.blocks = 100, .available = 36, .block_size = 512}});
  cu_double::reset();
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  stack_test::Golden record = golden();
  record.identifier = identifier();
  const std::string found = stack();
  EXPECT_EQ(found.size(), 14336u);
  EXPECT_EQ(found.substr(0, 24), header(0, 24, 213, 24, 14336, 0));
}

// --- What follows the reservation ---

TEST_F(PushCreation, HasTextsAndMessagesOfItsOwnBehindTheReservation) {
  struct Row {
    const char *call;
    int nth, error;  // -1: short by one byte
    const char *report;
    std::string trace;
    std::string start;  // of the file that is left
    std::vector<std::string> leaving;
  };
  const std::string path(kStack);
  const std::string line = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
  const std::string whole = header(0, 24, 24, 24, 16384, 0);
  const std::vector<std::string> unlocked = {"lockf(fd2, F_LOCK, 0) = 0", "lockf(fd2, F_ULOCK, 0) = 0",
                                             "close(fd2) = 0"};
  const auto failed_write = [](const char *size, const char *written, const char *error) {
    return std::string("Write Failure - Attempted to write ") + size + " bytes, return code " + written +
           " error code " + error + "\nRetruning VK_IO_FAILED(41) to caller\n";
  };
  const Row rows[] = {
      {"open",
       2,
       EACCES,
       "20: vosk.cat 1/38 (PATH, 13)",
       "Failed to open file " + path + " with perms 0x2 - error code 13\nReturning VK_STACK_ACCESS(20) to caller\n",
       line,
       {}},
      {"lockf",
       3,
       ENOLCK,
       "22: vosk.cat 1/37 (PATH)",
       "Failure to lock file " + path + " - error code 37\n",
       line,
       {"lockf(fd2, F_LOCK, 0) = -1 ENOLCK", "close(fd2) = 0"}},
      // 16 writes of zeros and the text line come first.
      {"write", 18, EIO, "41: vosk.cat 1/39 (PATH, 5)", failed_write("4", "-1", "5"), line, unlocked},
      {"write", 18, -1, "41: vosk.cat 1/39 (PATH, 0)", failed_write("4", "3", "0"), zeros(3) + line.substr(3),
       unlocked},
      {"write", 19, ENOSPC, "41: vosk.cat 1/39 (PATH, 28)", failed_write("20", "-1", "28"), zeros(4) + line.substr(4),
       unlocked},
      {"write", 19, -1, "41: vosk.cat 1/39 (PATH, 0)", failed_write("20", "19", "0"),
       whole.substr(0, 23) + line.substr(23), unlocked},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth << " " << row.error);
    const auto expect_row_refused = [&](platform::Calls &failing) {
      if (row.error == -1)
        failing.short_nth(row.call, row.nth, row.nth == 18 ? 3 : 19, kStack);
      else
        failing.fail_nth(row.call, row.nth, row.error, kStack);
      expect_refused(failing, row.report);
    };
    ASSERT_EQ(sandbox::fresh(), "");
    trace();
    platform::Calls calls;
    expect_row_refused(calls);
    const std::vector<std::string> traced = trace_file_.take();
    ASSERT_GE(traced.size(), 2u);
    EXPECT_EQ(traced[traced.size() - 2], trace_entry("vk_push_stack", "Setting ctrl info\n"));
    EXPECT_EQ(traced.back(), trace_entry("vk_push_stack", row.trace));
    std::vector<std::string> leaving = calls.log_of({"lockf", "close"});
    leaving.erase(leaving.begin(), leaving.begin() + 3);  // those of the reservation
    EXPECT_THAT(leaving, ElementsAreArray(row.leaving));
    std::string left(16384, '\0');
    left.replace(0, 36, line);
    left.replace(0, row.start.size(), row.start);
    EXPECT_EQ(files::difference(left, stack()), "");

    ASSERT_EQ(sandbox::fresh(), "");
    unset("VOSKDEBUG");
    platform::Calls untraced;
    expect_row_refused(untraced);
    EXPECT_EQ(files::difference(left, stack()), "");
    trace();
  }
}

TEST_F(PushCreation, GoesOnLikeAnyPushOnceTheHeaderIsWritten) {
  struct Row {
    const char *call;
    int nth, error;
    const char *report;
  };
  const Row rows[] = {{"lseek", 3, EIO, "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")"},
                      {"lseek", 4, EIO, "41: vosk.cat 1/43 (PATH, 24, 5)"},
                      {"write", 20, EIO, "41: vosk.cat 1/42 (PATH, 5)"},
                      {"lseek", 5, EIO, "41: vosk.cat 1/43 (PATH, 24, 5)"},
                      {"write", 21, EIO, "24: vosk.cat 1/39 (PATH, 5)"}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.report);
    ASSERT_EQ(sandbox::fresh(), "");
    platform::Calls calls;
    calls.fail_nth(row.call, row.nth, row.error, kStack);
    expect_refused(calls, row.report);
    EXPECT_EQ(stack().substr(0, 24), header(0, 24, 24, 24, 16384, 0));
  }
}

}  // namespace
