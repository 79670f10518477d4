// vk_test_for_file and vk_test_for_dir: what a path names.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace {

using foundation::TraceFile;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

int bound_socket(const std::string &path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  return fd;
}

TEST(FileTests, TellWhatAPathNames) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "file", ""));
  ASSERT_EQ(mkdir((directory / "dir").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo((directory / "fifo").c_str(), 0600), 0);
  const int socket_fd = bound_socket(directory / "socket");
  ASSERT_EQ(symlink("file", (directory / "to_file").c_str()), 0);
  ASSERT_EQ(symlink("dir", (directory / "to_dir").c_str()), 0);
  ASSERT_EQ(symlink("nothing", (directory / "to_nothing").c_str()), 0);
  ASSERT_EQ(symlink("loop", (directory / "loop").c_str()), 0);
  struct Row {
    std::string path;
    int file, dir;
  };
  const std::string longest = "/" + std::string(4094, '/'), longer = "/" + std::string(4095, '/');
  ASSERT_EQ(longest.size(), 4095U);
  const Row rows[] = {
      {"", -2, -2},
      {directory / "file", 0, -17},
      {directory / "dir", -23, 0},
      {directory / "dir/", -23, 0},
      {directory.path(), -23, 0},
      {"/", -23, 0},
      {".", -23, 0},
      {"no such file in the working directory", -24, -24},
      {directory / "missing", -24, -24},
      {directory / "missing/", -24, -24},
      {directory / "missing/file", -14, -14},
      {directory / "file/below", -14, -14},
      {directory / "file/", -14, -14},
      {directory / "file/below/it", -14, -14},
      {directory / "fifo", 0, -17},
      {directory / "socket", -23, 0},  // its type contains the directory's bit
      {"/dev/null", 0, -17},
      {directory / "to_file", 0, -17},
      {directory / "to_dir", -23, 0},
      {directory / "to_nothing", -24, -24},
      {directory / "loop", -1, -1},
      {directory / "loop/below", -1, -1},
      {directory / std::string(255, 'n'), -24, -24},
      {directory / std::string(256, 'n'), -1, -1},
      {longest, -23, 0},
      {longer, -1, -1},
      {std::string(9000, '/'), -1, -1},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.path.substr(0, 100));
    EXPECT_EQ(vk_test_for_file(0, nullptr, row.path.c_str()), row.file);
    EXPECT_EQ(vk_test_for_dir(0, nullptr, row.path.c_str()), row.dir);
  }
  EXPECT_EQ(vk_test_for_file(0, nullptr, nullptr), -2);
  EXPECT_EQ(vk_test_for_dir(0, nullptr, nullptr), -2);
  close(socket_fd);
}

TEST(FileTests, LookAtOneBitOfTheModeOnly) {
  struct Row {
    unsigned mode;
    int file, dir;
  };
  const Row rows[] = {
      {0100644, 0, -17},  // regular
      {0040755, -23, 0},  // directory
      {0060660, -23, 0},  // block device
      {0140777, -23, 0},  // socket
      {0020666, 0, -17},  // character device
      {0010644, 0, -17},  // FIFO
      {0120777, 0, -17},  // symbolic link
      {0107777, 0, -17},  // all permissions
      {0000000, 0, -17},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.mode);
    Calls calls;
    calls.fake_stat("stat", "/tmp/thing", {.mode = row.mode});
    EXPECT_EQ(calls.during([] { return vk_test_for_file(0, nullptr, "/tmp/thing"); }), row.file);
    EXPECT_EQ(calls.during([] { return vk_test_for_dir(0, nullptr, "/tmp/thing"); }), row.dir);
  }
}

TEST(FileTests, AskForTheDirectoryFirstAndThenForThePathAndForNothingElse) {
  struct Row {
    const char *path, *directory;
  };
  const Row rows[] = {{"/a/b/c", "/a/b"},  {"/c", "/"},     {"c", "."},  {"a/c", "a"},
                      {"/a/b/c/", "/a/b"}, {"/a//b", "/a"}, {"..", "."}, {"/a/b/../c", "/a/b/.."},
                      {"/a/b c%s", "/a"}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.path);
    Calls calls;
    calls.fake_stat("stat", "", {.mode = 0100600});
    const std::string expected_path = row.path;
    EXPECT_EQ(calls.during([&] { return vk_test_for_file(0, nullptr, row.path); }), 0);
    EXPECT_EQ(calls.during([&] { return vk_test_for_dir(0, nullptr, row.path); }), -17);
    const std::string first = std::string("stat(\"") + row.directory + "\") = 0";
    const std::string second = std::string("stat(\"") + row.path + "\") = 0";
    EXPECT_THAT(calls.log(), ElementsAre(first, second, first, second));
    EXPECT_EQ(row.path, expected_path);
  }
  Calls calls;
  EXPECT_EQ(calls.during([] { return vk_test_for_file(1, "/nowhere", ""); }), -2);
  EXPECT_EQ(calls.during([] { return vk_test_for_dir(1, "/nowhere", nullptr); }), -2);
  EXPECT_THAT(calls.log(), IsEmpty());
}

TEST(FileTests, ClassifyTheErrorOfEitherQueryAndTraceOnlyTheUnexpected) {
  struct Row {
    int query, error, result;
  };
  const Row rows[] = {{1, EACCES, -13},      {1, ENOENT, -14}, {1, ENOTDIR, -14},  {1, ELOOP, -1},  {1, EIO, -1},
                      {1, ENAMETOOLONG, -1}, {1, EINTR, -1},   {1, EOVERFLOW, -1}, {1, ESTALE, -1}, {1, EROFS, -1},
                      {2, EACCES, -25},      {2, ENOENT, -24}, {2, ENOTDIR, -14},  {2, ELOOP, -1},  {2, EIO, -1},
                      {2, ENAMETOOLONG, -1}, {2, EINTR, -1},   {2, EOVERFLOW, -1}, {2, ESTALE, -1}, {2, EPERM, -1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(std::to_string(row.query) + platform::error_name(row.error));
    files::TemporaryDirectory directory;
    const TraceFile trace(directory / "trace");
    const std::string path = directory / "file";
    ASSERT_TRUE(files::write(path, ""));
    Calls calls;
    trace.hide(calls);
    calls.ignore("gettimeofday");
    calls.ignore("getpid");
    calls.fail_nth("stat", row.query, row.error);
    EXPECT_EQ(calls.during([&] { return vk_test_for_file(1, trace.c_str(), path.c_str()); }), row.result);
    EXPECT_EQ(calls.count_all(), row.query);
    if (row.result == -1) {
      EXPECT_THAT(trace.entries(),
                  ElementsAre("vk_test_for_file: " +
                              folded_text("Attemping to check status of file %s\nUnexpected failure on stat() call: "
                                          "%d\nReturning VOSK_FAILURE(-1)\n",
                                          path.c_str(), row.error)));
    } else {
      EXPECT_THAT(trace.entries(), IsEmpty());
    }
    Calls again;  // the test for a directory passes it through, with the same trace
    again.fail_nth("stat", row.query, row.error);
    EXPECT_EQ(again.during([&] { return vk_test_for_dir(1, trace.c_str(), path.c_str()); }), row.result);
    EXPECT_EQ(trace.entries().size(), row.result == -1 ? 2U : 0U);
  }
}

TEST(FileTests, TraceWhenTracingIsExactlyOne) {
  files::TemporaryDirectory directory;
  const TraceFile trace(directory / "trace");
  for (int trace_on : {0, 2, -1, 3, 0x101, 0x10000}) {
    Calls calls;
    calls.fail_nth("stat", 1, EIO);
    EXPECT_EQ(calls.during([&] { return vk_test_for_file(trace_on, trace.c_str(), "/x/y"); }), -1);
    EXPECT_THAT(calls.names(), ElementsAre("stat"));
  }
  EXPECT_THAT(trace.entries(), IsEmpty());
  Calls calls;
  calls.fail_nth("stat", 1, EIO);
  EXPECT_EQ(calls.during([&] { return vk_test_for_file(1, nullptr, "/x/y"); }), -1) << "no trace file, no harm";
}

// A trace that itself fails does not change the error that a caller finds.
TEST(FileTests, LeaveTheErrorOfTheQueryWhateverTheTraceDoes) {
  files::TemporaryDirectory directory;
  const TraceFile trace(directory / "trace");
  for (const std::string &path : {directory / "trace", directory / "missing", std::string("/dev/null")}) {
    Calls calls;
    calls.fail_nth("stat", 1, EIO);
    errno = 0;
    EXPECT_EQ(calls.during([&] { return vk_test_for_file(1, path.c_str(), "/x/y"); }), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(calls.count("gettimeofday"), 1);
  }
}

TEST(FileTests, AnswerAPathOf4096BytesAsTheKernelWouldWithoutAskingIt) {
  files::TemporaryDirectory directory;
  const TraceFile trace(directory / "trace");
  const std::string path = "/tmp/" + std::string(4091, 'p');
  ASSERT_EQ(path.size(), 4096U);
  Calls calls;
  trace.hide(calls);
  calls.ignore("gettimeofday");
  calls.ignore("getpid");
  EXPECT_EQ(calls.during([&] { return vk_test_for_file(1, trace.c_str(), path.c_str()); }), -1);
  EXPECT_THAT(calls.log(), IsEmpty());
  // 254 characters of the message are kept.
  EXPECT_THAT(trace.entries(),
              ElementsAre("vk_test_for_file: " + folded_text("Attemping to check status of file %s", path.c_str())));
  Calls one_less;
  EXPECT_EQ(one_less.during([&] { return vk_test_for_file(0, nullptr, path.substr(0, 4095).c_str()); }), -1);
  EXPECT_THAT(one_less.names(), ElementsAre("stat", "stat"));
}

TEST(FileTests, TellADirectoryThatCannotBeSearchedFromAFileThatCannotBeReached) {
  sandbox::Options options;
  if (geteuid() != 0) CANNOT_RUN_HERE("another user needs real root");
  RUN_IN_SANDBOX(options, [] {
    ASSERT_EQ(mkdir("/var/adm/vosk/closed", 0700), 0);
    ASSERT_EQ(mkdir("/var/adm/vosk/closed/inner", 0777), 0);
    ASSERT_TRUE(files::write("/var/adm/vosk/closed/file", ""));
    ASSERT_TRUE(files::write("/var/adm/vosk/closed/inner/file", ""));
    ASSERT_TRUE(sandbox::drop_to(sandbox::kNobody));
    EXPECT_EQ(vk_test_for_file(0, nullptr, "/var/adm/vosk/closed/file"), -25);
    EXPECT_EQ(vk_test_for_file(0, nullptr, "/var/adm/vosk/closed/inner/file"), -13);
    EXPECT_EQ(vk_test_for_dir(0, nullptr, "/var/adm/vosk/closed/inner"), -25);
    EXPECT_EQ(vk_test_for_dir(0, nullptr, "/var/adm/vosk/closed"), 0);
  });
}

}  // namespace
