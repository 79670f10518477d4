// Every call on an existing stack file that can fail, and what a push makes of it.
#include <fcntl.h>

#include <cerrno>

#include "stack/push_test.h"

namespace {

using files::u32;
using stack_test::file_of;
using stack_test::header;
using stack_test::kStack;
using stack_test::push;
using stack_test::recorded;
using stack_test::zeros;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

class PushFailures : public stack_test::PushTest {
 protected:
  PushFailures() { trace(); }

  // What the push traced under its own name behind the parameters.
  std::vector<std::string> own_trace() {
    std::vector<std::string> found;
    for (const std::string &entry : trace_file_.take()) {
      if (entry.rfind("vk_push_stack: ", 0) == 0) found.push_back(entry);
    }
    if (found.empty()) return {"no trace"};
    EXPECT_EQ(found.front(), trace_entry("vk_push_stack", parameters(incident())));
    found.erase(found.begin());
    return found;
  }
  static std::vector<std::string> entries(const std::vector<std::string> &texts) {
    return stack_test::trace_entries("vk_push_stack", texts);
  }
};

const std::string kPath = std::string("\"") + kStack + "\"";
const std::vector<std::string> kUnlockedAndClosed = {"lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_ULOCK, 0) = 0",
                                                     "close(fd1) = 0"};

struct Row {
  const char *call;
  int nth;
  int error;  // -1: short by the number of bytes in `nth` below
  const char *report;
  std::string trace;
  std::vector<std::string> leaving;  // the locks and closes
  bool record_written, header_written;
};

// A file with room, so that the calls are open, lockf, lseek, read, read, lseek, write, lseek, write.
TEST_F(PushFailures, OfEachCallHaveACodeAMessageAndATextOfTheirOwn) {
  const std::string path(kStack);
  const auto open_text = [&](const char *error) {
    return "Failed to open file " + path + " with perms 0x2 - error code " + error +
           "\nReturning VK_STACK_ACCESS(20) to caller\n";
  };
  const Row rows[] = {
      {"open", 1, EACCES, "20: vosk.cat 1/38 (PATH, 13)", open_text("13"), {}, false, false},
      {"open", 1, EINTR, "20: vosk.cat 1/38 (PATH, 4)", open_text("4"), {}, false, false},
      {"open", 1, EMFILE, "20: vosk.cat 1/38 (PATH, 24)", open_text("24"), {}, false, false},
      {"lockf",
       1,
       ENOLCK,
       "22: vosk.cat 1/40 (PATH, 37)",
       "Failure to lock file " + path + " - error code 37\n",
       {"lockf(fd1, F_LOCK, 0) = -1 ENOLCK", "close(fd1) = 0"},
       false,
       false},
      {"lockf",
       1,
       EDEADLK,
       "22: vosk.cat 1/40 (PATH, 35)",
       "Failure to lock file " + path + " - error code 35\n",
       {"lockf(fd1, F_LOCK, 0) = -1 EDEADLK", "close(fd1) = 0"},
       false,
       false},
      {"lseek", 1, EIO, "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")", stack_test::kNormalDetail,
       kUnlockedAndClosed, false, false},
      {"read", 1, EIO, "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")", stack_test::kNormalDetail,
       kUnlockedAndClosed, false, false},
      {"read", 2, EIO, "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")", stack_test::kNormalDetail,
       kUnlockedAndClosed, false, false},
      {"lseek", 2, EINVAL, "41: vosk.cat 1/43 (PATH, 1000, 22)",
       "Cannot lseek to position 1000 in stack - error code 22\nReturning VK_IO_FAILED(41)\n", kUnlockedAndClosed,
       false, false},
      {"write", 1, ENOSPC, "41: vosk.cat 1/42 (PATH, 28)",
       "Write Failure - Attempted to write 189 bytes, return code -1 error code 28\n"
       "Returning VK_IO_FAILED(41) to caller\n",
       kUnlockedAndClosed, false, false},
      {"write", 1, EINTR, "41: vosk.cat 1/42 (PATH, 4)",
       "Write Failure - Attempted to write 189 bytes, return code -1 error code 4\n"
       "Returning VK_IO_FAILED(41) to caller\n",
       kUnlockedAndClosed, false, false},
      // 24 is shown, although the seek was to 4.
      {"lseek", 3, EIO, "41: vosk.cat 1/43 (PATH, 24, 5)",
       "Cannot lseek to position 24 in stack - error code 5\nReturning VK_IO_FAILED(41)\n", kUnlockedAndClosed, true,
       false},
      {"write", 2, EIO, "24: vosk.cat 1/39 (PATH, 5)",
       "Write Failure - Attempted to write 20 bytes, return code -1 error code 5\n"
       "Returning (no name)(24) to caller\n",
       kUnlockedAndClosed, true, false},
  };
  const std::string before = file_of(16384, header(0, 24, 1000, 24, 16384, 0), {}, 'x');
  for (Row row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth << " " << platform::error_name(row.error));
    put_stack(before);
    forget_identifier();
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_file_.path());
    calls.fail_nth(row.call, row.nth, row.error, kStack);
    calls.after(
        "close", 1, [&](const platform::Call &) { EXPECT_THAT(cu_double::errors(), IsEmpty()); }, kStack);
    std::string report = row.report;
    report.replace(report.find("PATH"), 4, kPath);
    const int code = std::stoi(report);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), code);
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", report));
    EXPECT_EQ(cu_double::errors().back().text_pointer, vk_mesgtbl_vk_lib[cu_double::errors().back().number]);
    EXPECT_EQ(own_trace().back(), trace_entry("vk_push_stack", row.trace));
    EXPECT_THAT(calls.log_of({"lockf", "close"}), ElementsAreArray(row.leaving));
    EXPECT_THAT(calls.left_open(), IsEmpty());
    EXPECT_EQ(identifier(), untouched());
    std::string after = before;
    if (row.record_written) after.replace(1000, 189, golden().bytes());
    EXPECT_EQ(files::difference(after, stack()), "");
  }
}

TEST_F(PushFailures, OfAShortWriteCarryTheErrorNumberZero) {
  struct ShortRow {
    int nth;
    long long bytes;
    const char *report, *trace;
  };
  const ShortRow rows[] = {
      {1, 0, "41: vosk.cat 1/42 (PATH, 0)",
       "Write Failure - Attempted to write 189 bytes, return code 0 error code 0\nReturning VK_IO_FAILED(41) to "
       "caller\n"},
      {1, 188, "41: vosk.cat 1/42 (PATH, 0)",
       "Write Failure - Attempted to write 189 bytes, return code 188 error code 0\n"
       "Returning VK_IO_FAILED(41) to caller\n"},
      {2, 19, "24: vosk.cat 1/39 (PATH, 0)",
       "Write Failure - Attempted to write 20 bytes, return code 19 error code 0\nReturning (no name)(24) to caller\n"},
  };
  const std::string before = file_of(16384, header(0, 24, 1000, 24, 16384, 0), {}, 'x');
  for (const ShortRow &row : rows) {
    SCOPED_TRACE(row.trace);
    put_stack(before);
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_file_.path());
    calls.short_nth("write", row.nth, row.bytes, kStack);
    std::string report = row.report;
    report.replace(report.find("PATH"), 4, kPath);
    EXPECT_EQ(calls.during([&] {
      errno = EBUSY;
      return push(incident());
    }),
              std::stoi(report));
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", report));
    EXPECT_EQ(own_trace().back(), trace_entry("vk_push_stack", row.trace));
    EXPECT_THAT(calls.log_of({"lockf", "close"}), ElementsAreArray(kUnlockedAndClosed));
    std::string after = before;
    const std::string record = golden().bytes();
    if (row.nth == 1) {
      const auto written = static_cast<std::size_t>(row.bytes);
      after.replace(1000, written, record.substr(0, written));
    } else {
      after.replace(1000, 189, record);
      after.replace(4, 19, header(0, 24, 1189, 24, 16384, 0).substr(4, 19));
    }
    EXPECT_EQ(files::difference(after, stack()), "");
  }
}

// Each of the calls with which reclamation looks and clears; the header is not written.
TEST_F(PushFailures, OfReclamationCountAsACorruptFile) {
  struct WrapRow {
    const char *call;
    int nth, error;
    const char *text;  // of vk_clear_records
    bool cleared;
  };
  const WrapRow rows[] = {
      {"lseek", 2, EIO, "Cannot lseek to position 24 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n",
       false},
      {"read", 3, EIO, "Cannot read from position 24 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n",
       false},
      {"lseek", 3, EIO, "Cannot lseek to position 24 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n",
       false},
      {"lseek", 4, EIO, "Failure in fclear at offset 24 in file - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n",
       false},
      {"write", 1, EFBIG, "Failure in fclear at offset 24 in file - error code 27\nReturning VOSK_FILE_CORRUPT(-26)\n",
       false},
      {"lseek", 5, EIO, "Cannot lseek to position 128 in stack - error code 5\nReturning VOSK_FILE_CORRUPT(-26)\n",
       true},
  };
  const std::string before = file_of(16384, header(0, 24, 16380, 24, 16384, 0), {{24, u32(100)}, {128, u32(100)}}, 'x');
  for (const WrapRow &row : rows) {
    SCOPED_TRACE(testing::Message() << row.call << " " << row.nth);
    put_stack(before);
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_file_.path());
    calls.fail_nth(row.call, row.nth, row.error, kStack);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 24);
    EXPECT_THAT(cu_double::reports(),
                ElementsAre("no error", "24: vosk.cat 1/41 (" + kPath + ", \"vk_clear_records\")"));
    EXPECT_EQ(trace_file_.take().back(), trace_entry("vk_clear_records", row.text));
    EXPECT_THAT(calls.log_of({"lockf", "close"}), ElementsAreArray(kUnlockedAndClosed));
    std::string after = before;
    if (row.cleared) after.replace(24, 104, zeros(104));
    EXPECT_EQ(files::difference(after, stack()), "");
  }
}

TEST_F(PushFailures, OfTheLastUnlockAndTheLastCloseAreNobodysBusiness) {
  for (const char *call : {"lockf", "close"}) {
    SCOPED_TRACE(call);
    put_stack(empty_stack());
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    calls.ignore_path(trace_file_.path());
    calls.fail_nth(call, call[0] == 'l' ? 2 : 1, EIO, kStack);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "no error"));
    EXPECT_THAT(own_trace(), ElementsAreArray(entries({stack_test::kNormalDetail, recorded(189, 24)})));
    EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
    for (const auto &[fd, path] : calls.left_open()) close(fd);
  }
}

TEST_F(PushFailures, OfAnIdentifierOrOfTheTraceDoNotStopTheRecord) {
  struct EidRow {
    const char *call;
    int nth;
    const char *path;
  };
  for (const EidRow &row : {EidRow{"stat", 2, kStack}, EidRow{"gettimeofday", 1, ""}}) {
    SCOPED_TRACE(row.call);
    put_stack(empty_stack());
    unset("VOSKDEBUG");
    cu_double::reset();
    platform::Calls calls;
    calls.fixed_clock(stack_test::kNow, 0);
    calls.fail_nth(row.call, row.nth, EIO, row.path);
    EXPECT_EQ(calls.during([&] { return push(incident()); }), VK_NO_UNIQUE_EID);
    EXPECT_EQ(files::difference(stack_with(stack_test::Golden{}.bytes()), stack()), "");
  }
  put_stack(empty_stack());
  trace();
  platform::Calls calls;
  prepare(calls);
  calls.fail_all("open", EACCES, trace_file_.path());
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  EXPECT_EQ(files::difference(stack_with(golden().bytes()), stack()), "");
}

// The variables change between the test of the environment and the record.
TEST_F(PushFailures, OfAProcessNumberThatAgreesNoLongerLeaveTheLockedFile) {
  put_stack(empty_stack());
  platform::Calls calls;
  prepare(calls);
  calls.ignore_path(trace_file_.path());
  int read = 0;
  calls.before("getenv", 0, [&](const platform::Call &call) {
    if (call.arguments == "\"VOSKPID\"" && ++read == 2) setenv("VOSKPID", "1", 1);
  });
  EXPECT_EQ(calls.during([&] { return push(incident()); }), VK_ENV_CORRUPT);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "17: vosk.cat 1/25 ()"));
  EXPECT_THAT(own_trace(), ElementsAreArray(entries({"Process ID " + std::to_string(getpid()) +
                                                     " does not agree with VOSKPID value of 1\n"
                                                     "Returning error code VK_ENV_CORRUPT(17)\n"})));
  EXPECT_THAT(calls.log_of({"open", "lockf", "close", "read", "write"}),
              ElementsAre("open(" + kPath + ", 0x2) = fd1", "lockf(fd1, F_LOCK, 0) = 0", "lockf(fd1, F_ULOCK, 0) = 0",
                          "close(fd1) = 0"));
  EXPECT_EQ(identifier(), untouched());
  EXPECT_EQ(files::difference(empty_stack(), stack()), "");

  set("VOSKPID", std::to_string(getpid()));
  unset("VOSKDEBUG");
  read = 0;
  EXPECT_EQ(calls.during([&] { return push(incident()); }), VK_ENV_CORRUPT);
  EXPECT_EQ(files::difference(empty_stack(), stack()), "");
}

}  // namespace
