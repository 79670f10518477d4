// vk_make_dump_file_copy where the copy cannot be made: its result, what is cited, and that no part of it stays.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/dump_copy.h"

namespace {

using foundation::DumpCopy;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

class DumpFailures : public DumpCopy {
 protected:
  void SetUp() override {
    DumpCopy::SetUp();
    ASSERT_TRUE(files::write(input_, std::string(3000, 'd')));
  }
  static std::string entry(const std::string &text) { return "vk_copy_dump_file: " + text; }
  std::string copying() const {
    return entry(folded_text("Copying File \"%s\" to file \"%s\"\n", input_.c_str(), name_.c_str()));
  }
  void expect_nothing_left(const Calls &calls) const {
    EXPECT_EQ(cited(), input_);
    EXPECT_THAT(dumps(), IsEmpty());
    EXPECT_THAT(calls.left_open(), IsEmpty());
    EXPECT_EQ(files::read(input_), std::string(3000, 'd'));
  }
  void forget_trace() const { ASSERT_TRUE(files::write(trace_.c_str(), foundation::fresh_trace(99999))); }
};

TEST_F(DumpFailures, RefusesMissingArgumentsInOrder) {
  Calls calls;
  EXPECT_EQ(vk_make_dump_file_copy(1, trace_.c_str(), nullptr, nullptr), -4);
  EXPECT_EQ(vk_make_dump_file_copy(1, trace_.c_str(), "", output_), -4);
  EXPECT_EQ(vk_make_dump_file_copy(1, trace_.c_str(), input_.c_str(), nullptr), -5);
  EXPECT_EQ(vk_make_dump_file_copy(1, trace_.c_str(), "/no such file", nullptr), -5);
  const std::string input =
      entry("Called with invalid dump file input name\nReturning VOSK_INV_PARAM3(-4) to the caller");
  const std::string output =
      entry("Called with invalid pointer for dump output file name\nReturingin VOSK_INV_PARAM4(-5) to caller");
  EXPECT_THAT(entries(), ElementsAre(input, input, output, output));
  EXPECT_EQ(std::string(output_), "");
  EXPECT_THAT(dumps(), IsEmpty());
  EXPECT_EQ(calls.during([&] { return vk_make_dump_file_copy(0, nullptr, "", output_); }), -4);
  EXPECT_EQ(calls.during([&] { return vk_make_dump_file_copy(0, nullptr, "x", nullptr); }), -5);
  EXPECT_EQ(calls.count_all(), 0);
}

TEST_F(DumpFailures, LeaveTheOutputAloneWhereTheInputDoesNotPassItsTest) {
  ASSERT_EQ(mkdir("/var/adm/vosk/dir", 0755), 0);
  ASSERT_EQ(symlink("loop", "/var/adm/vosk/loop"), 0);
  struct Row {
    std::string path;
    int result;
  };
  for (const Row &row : {Row{"/var/adm/vosk/missing", -24}, Row{"/var/adm/vosk/dir", -23},
                         Row{"/var/adm/vosk/missing/file", -14}, Row{"/var/adm/vosk/input/file", -14},
                         Row{"/var/adm/vosk/loop", -1}, Row{"/var/adm/vosk/" + std::string(5000, 'x'), -1}}) {
    SCOPED_TRACE(row.path.substr(0, 100));
    forget_trace();
    Calls calls;
    EXPECT_EQ(copy(calls, row.path), row.result);
    EXPECT_EQ(cited(), "as it was");
    EXPECT_LE(calls.count("stat"), 2);
    EXPECT_EQ(calls.count("open"), 0);
    ASSERT_EQ(entries().size(), row.result == -1 ? 2U : 1U);
    EXPECT_EQ(entries().back(), entry(folded_text("Existence of file \"%s\" cannot be verified\nvk_test_for_file "
                                                  "returned %d\nPassing same return code to caller\n",
                                                  row.path.c_str(), row.result)));
  }
  EXPECT_THAT(dumps(), IsEmpty());
}

TEST_F(DumpFailures, CiteTheInputWhereTheDirectoryDoesNotPassItsTest) {
  struct Row {
    const char *what;
    int query, error, result;
  };
  const Row rows[] = {
      {"missing", 4, ENOENT, -24},        {"no access", 4, EACCES, -25},           {"not searched", 3, EACCES, -13},
      {"parent missing", 3, ENOENT, -14}, {"no directory above", 4, ENOTDIR, -14}, {"broken", 4, EIO, -1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    forget_trace();
    Calls calls;
    calls.fail_nth("stat", row.query, row.error);
    EXPECT_EQ(copy(calls, input_), row.result);
    EXPECT_EQ(calls.count("getenv"), 0);
    expect_nothing_left(calls);
    // The trace names the input and not the directory.
    EXPECT_EQ(entries().back(), entry(folded_text("Existence of dump directory \"%s\" cannot be verified\n"
                                                  "vk_test_for_dir returned %d\n",
                                                  input_.c_str(), row.result)));
  }
  ASSERT_EQ(rmdir(sandbox::kDumps), 0);
  EXPECT_EQ(copy(input_), -24);
  EXPECT_EQ(cited(), input_);
  ASSERT_TRUE(files::write(sandbox::kDumps, ""));
  EXPECT_EQ(copy(input_), -17);
  EXPECT_EQ(cited(), input_);
}

TEST_F(DumpFailures, AnswerByTheErrorOfOpeningTheCopy) {
  struct Row {
    int error, result;
  };
  for (const Row &row :
       {Row{ENOSPC, -18}, Row{ENFILE, -20}, Row{EMFILE, -20}, Row{EDQUOT, -20}, Row{EROFS, -16}, Row{EACCES, -1},
        Row{EEXIST, -1}, Row{EINTR, -1}, Row{EFBIG, -1}, Row{EIO, -1}, Row{EPERM, -1}, Row{ENOENT, -1}}) {
    SCOPED_TRACE(platform::error_name(row.error));
    forget_trace();
    Calls calls;
    calls.fail_nth("open", 1, row.error, name_);
    EXPECT_EQ(copy(calls, input_), row.result);
    EXPECT_THAT(calls.log_of({"open", "read", "write", "close", "unlink"}),
                ElementsAre("open(\"" + name_ + "\", 0x4c1, 0644) = -1 " + platform::error_name(row.error)));
    expect_nothing_left(calls);
    EXPECT_THAT(
        entries(),
        ElementsAre(entry(folded_text("Cannot open output file \"%s\"\nError code %d\n", name_.c_str(), row.error))));
  }
}

TEST_F(DumpFailures, RemoveTheCopyWhereTheInputCannotBeOpened) {
  struct Row {
    int error, result;
  };
  for (const Row &row : {Row{ENFILE, -20}, Row{EMFILE, -20}, Row{EDQUOT, -20}, Row{ENOSPC, -18}, Row{EROFS, -1},
                         Row{EACCES, -1}, Row{EINTR, -1}, Row{ENOENT, -1}, Row{ELOOP, -1}, Row{EOVERFLOW, -1}}) {
    SCOPED_TRACE(platform::error_name(row.error));
    forget_trace();
    Calls calls;
    calls.fail_nth("open", 1, row.error, input_);
    std::size_t traced = 0;
    calls.before(
        "close", 1, [&](const platform::Call &) { traced = entries().size(); }, name_);
    EXPECT_EQ(copy(calls, input_), row.result);
    EXPECT_THAT(calls.log_of({"open", "read", "write", "close", "unlink"}),
                ElementsAre("open(\"" + name_ + "\", 0x4c1, 0644) = fd1",
                            "open(\"" + input_ + "\", 0x0) = -1 " + platform::error_name(row.error), "close(fd1) = 0",
                            "unlink(\"" + name_ + "\") = 0"));
    expect_nothing_left(calls);
    EXPECT_THAT(
        entries(),
        ElementsAre(entry(folded_text("Cannot open input file \"%s\"\nError code %d\n", input_.c_str(), row.error))));
    EXPECT_EQ(traced, 1U) << "traced first";
  }
}

// What has no end to copy to, or would block, is refused as if it could not be opened.
TEST_F(DumpFailures, TakeNothingWithoutAnEnd) {
  ASSERT_EQ(mkfifo("/var/adm/vosk/fifo", 0666), 0);
  ASSERT_EQ(symlink("fifo", "/var/adm/vosk/to_fifo"), 0);
  for (const std::string path : {"/var/adm/vosk/fifo", "/var/adm/vosk/to_fifo", "/dev/zero", "/dev/full"}) {
    SCOPED_TRACE(path);
    forget_trace();
    Calls calls;
    EXPECT_EQ(copy(calls, path), -1);
    EXPECT_EQ(cited(), path);
    EXPECT_EQ(calls.count("read"), 0);
    EXPECT_THAT(calls.left_open(), IsEmpty());
    EXPECT_THAT(dumps(), IsEmpty());
    EXPECT_THAT(entries(),
                ElementsAre(entry(folded_text("Cannot open input file \"%s\"\nError code 22\n", path.c_str()))));
  }
}

TEST_F(DumpFailures, AreTheOpeningsWhereTheInputCannotBeLookedAt) {
  Calls calls;
  calls.fail_nth("fstatat", 1, EIO);
  EXPECT_EQ(copy(calls, input_), 0);
  EXPECT_EQ(calls.count("open"), 2);
}

TEST_F(DumpFailures, StopAtAReadError) {
  for (int nth : {1, 2, 4}) {
    for (int error : {EIO, EINTR, EISDIR, EAGAIN}) {
      SCOPED_TRACE(std::to_string(nth) + platform::error_name(error));
      forget_trace();
      Calls calls;
      calls.fail_nth("read", nth, error);
      EXPECT_EQ(copy(calls, input_), -30);
      expect_nothing_left(calls);
      EXPECT_EQ(calls.count("write"), nth - 1);
      EXPECT_THAT(entries(),
                  ElementsAre(copying(), "vk_copy_file: " +
                                             folded_text("Error reading input from file - Iteration %d - Error Code "
                                                         "%d\nReturning VOSK_IO_ERROR(-30) to caller\n",
                                                         nth - 1, error)));
      EXPECT_THAT(calls.log_of({"close", "unlink"}),
                  ElementsAre("close(fd2) = 0", "close(fd1) = 0", "unlink(\"" + name_ + "\") = 0"));
    }
  }
}

TEST_F(DumpFailures, AreTheSameUntraced) {
  const struct {
    const char *call;
    int nth, error, result;
  } rows[] = {{"read", 2, EIO, -30}, {"stat", 6, EACCES, -25}};  // the sixth query is that of the copy's name
  for (const auto &row : rows) {
    SCOPED_TRACE(row.call);
    Calls calls;
    calls.fixed_clock(1706745599, 123456);
    calls.return_all("getpid", 4711);
    calls.fail_nth(row.call, row.nth, row.error);
    EXPECT_EQ(calls.during([&] { return vk_make_dump_file_copy(0, nullptr, input_.c_str(), output_); }), row.result);
    expect_nothing_left(calls);
  }
}

TEST_F(DumpFailures, StopAtAWriteError) {
  struct Row {
    int nth, error;  // error 0 is a short write
    int result;
  };
  for (const Row &row :
       {Row{1, ENOSPC, -18}, Row{2, ENOSPC, -18}, Row{3, EDQUOT, -18}, Row{1, EFBIG, -18}, Row{1, EIO, -1},
        Row{2, EINTR, -1}, Row{1, EBADF, -1}, Row{1, EPIPE, -1}, Row{1, 0, -1}, Row{3, 0, -1}}) {
    SCOPED_TRACE(std::to_string(row.nth) + platform::error_name(row.error));
    forget_trace();
    Calls calls;
    if (row.error != 0) {
      calls.fail_nth("write", row.nth, row.error);
    } else {
      calls.short_nth("write", row.nth, 100);
    }
    errno = ENOSPC;  // from before; it has nothing to do with a short write
    EXPECT_EQ(copy(calls, input_), row.result);
    expect_nothing_left(calls);
    EXPECT_EQ(calls.count("write"), row.nth);
    EXPECT_THAT(entries(),
                ElementsAre(copying(), "vk_copy_file: Error copying data - Iteration " + std::to_string(row.nth - 1) +
                                           " - Error Code " + std::to_string(row.error)));
    EXPECT_THAT(calls.log_of({"close", "unlink"}),
                ElementsAre("close(fd2) = 0", "close(fd1) = 0", "unlink(\"" + name_ + "\") = 0"));
  }
}

TEST_F(DumpFailures, OfClosingDoNotMatter) {
  Calls calls;
  calls.fail_all("close", EIO, name_);
  EXPECT_EQ(copy(calls, input_), 0);
  EXPECT_EQ(files::read(name_), std::string(3000, 'd'));
}

TEST_F(DumpFailures, LeaveNoPartOfACopyOnAFullFileSystem) {
  sandbox::Options options;
  options.size = "64k";
  ASSERT_EQ(sandbox::fresh(options), "");
  ASSERT_TRUE(files::write(input_, std::string(3000, 'd')));
  ASSERT_TRUE(sandbox::fill(0));
  EXPECT_EQ(copy(input_), -18);
  EXPECT_EQ(entries().back(), "vk_copy_file: Error copying data - Iteration 0 - Error Code 28");
  EXPECT_EQ(cited(), input_);
  EXPECT_THAT(dumps(), IsEmpty());

  const std::string large = directory_ / "large";
  ASSERT_TRUE(files::write(large, std::string(100000, 'l')));
  ASSERT_TRUE(sandbox::remove_filling());
  ASSERT_TRUE(sandbox::fill(2));
  EXPECT_EQ(copy(large), -18);
  EXPECT_EQ(entries().back(), "vk_copy_file: Error copying data - Iteration " +
                                  std::to_string(2 * sysconf(_SC_PAGESIZE) / 1024) + " - Error Code 28");
  EXPECT_EQ(cited(), large);
  EXPECT_THAT(dumps(), IsEmpty());
  ASSERT_TRUE(sandbox::remove_filling());
  EXPECT_EQ(copy(input_), 0);
}

TEST_F(DumpFailures, HaveNoSpaceWhereNoFileCanBeMade) {
  sandbox::Options options;
  options.inodes = "4";  // the root, its two directories and the input
  ASSERT_EQ(sandbox::fresh(options), "");
  ASSERT_TRUE(files::write(input_, "x"));
  EXPECT_EQ(copy(input_), -18);
  EXPECT_EQ(cited(), input_);
}

TEST_F(DumpFailures, AreRefusedOnAReadOnlyFileSystem) {
  ASSERT_TRUE(sandbox::remount(true));
  EXPECT_EQ(copy(input_), -16);
  EXPECT_EQ(cited(), input_);
  ASSERT_TRUE(sandbox::remount(false));
}

TEST_F(DumpFailures, AreThoseOfTheUser) {
  if (getuid() != 0) CANNOT_RUN_HERE("another user needs real root");
  ASSERT_EQ(chmod(trace_.c_str(), 0666), 0);
  ASSERT_EQ(chmod(directory_.path().c_str(), 0755), 0);
  const auto as_nobody = [&](const std::string &what, int expected, const std::string &text) {
    const sandbox::Outcome outcome = sandbox::run_child([&] {
      if (!sandbox::drop_to(sandbox::kNobody)) CANNOT_RUN_HERE("another user needs real root");
      EXPECT_EQ(copy(input_), expected);
      EXPECT_EQ(cited(), expected == 0 ? name_ : input_);
      EXPECT_EQ(entries().back(), text);
    });
    if (outcome.kind == sandbox::Outcome::kSkipped) GTEST_SKIP() << outcome.text;
    EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << what << outcome.text;
  };
  ASSERT_EQ(chmod(input_.c_str(), 0600), 0);
  as_nobody("an input that is root's", -1,
            entry(folded_text("Cannot open input file \"%s\"\nError code 13\n", input_.c_str())));
  EXPECT_THAT(dumps(), IsEmpty());
  ASSERT_EQ(chmod(input_.c_str(), 0644), 0);
  ASSERT_EQ(chmod(sandbox::kDumps, 0755), 0);
  as_nobody("a directory that is root's", -1,
            entry(folded_text("Cannot open output file \"%s\"\nError code 13\n", name_.c_str())));
  ASSERT_EQ(chmod(sandbox::kDumps, 01777), 0);
  as_nobody("a directory for everybody", 0,
            entry(folded_text("File \"%s\" successfully copied to \"%s\"\nReturning VOSK_SUCCESS(0) to the caller\n",
                              input_.c_str(), name_.c_str())));
}

TEST_F(DumpFailures, OfAFullDescriptorTableAreTold) {
  for (rlim_t room : {0U, 1U}) {
    SCOPED_TRACE(room);
    const sandbox::Outcome outcome = sandbox::run_child([&] {
      const int next = dup(0);  // the lowest free descriptor
      ASSERT_GE(next, 0);
      close(next);
      rlimit former;
      ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &former), 0);
      const rlimit tight = {static_cast<rlim_t>(next) + room, former.rlim_max};
      ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
      const int result = vk_make_dump_file_copy(0, nullptr, input_.c_str(), output_);
      ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &former), 0);
      EXPECT_EQ(result, -20);
      EXPECT_STREQ(output_, input_.c_str());
      EXPECT_THAT(dumps(), IsEmpty());
    });
    EXPECT_EQ(outcome.kind, sandbox::Outcome::kPassed) << outcome.text;
  }
}

}  // namespace
