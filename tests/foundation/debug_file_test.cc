// vk_is_debug_file_set and vk_create_debug_file: whether there is a trace file, and its creation.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/auxv.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/trace_file.h"

namespace {

using platform::Calls;
using testing::ElementsAre;

// The buffer that an entry point hands over: what was written to it, and that nothing lies behind.
class PathBuffer {
 public:
  char *data() { return bytes_; }
  std::string text() const {
    for (std::size_t i = strlen(bytes_) + 1; i < sizeof bytes_; ++i) EXPECT_EQ(bytes_[i], '\0') << i;
    return bytes_;
  }

 private:
  char bytes_[4096] = {};
};

struct Answer {
  int result;
  std::string path;
  bool operator==(const Answer &) const = default;
};
void PrintTo(const Answer &answer, std::ostream *out) {
  *out << answer.result << " and \"" << answer.path.substr(0, 200) << "\"";
}

class DebugFile : public testing::Test {
 protected:
  Answer ask() {
    PathBuffer buffer;
    const int result = vk_is_debug_file_set(buffer.data());
    return {result, buffer.text()};
  }
  Answer ask(const std::string &value) {
    environment_.set("VOSKDEBUG", value);
    return ask();
  }
  platform::Environment environment_;
  files::TemporaryDirectory directory_;
};

TEST_F(DebugFile, IsWhateverTheVariableNamesButNoDirectory) {
  ASSERT_TRUE(files::write(directory_ / "file", ""));
  ASSERT_EQ(mkdir((directory_ / "dir").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo((directory_ / "fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("file", (directory_ / "to_file").c_str()), 0);
  ASSERT_EQ(symlink("dir", (directory_ / "to_dir").c_str()), 0);
  ASSERT_EQ(symlink("nothing", (directory_ / "to_nothing").c_str()), 0);
  ASSERT_EQ(symlink("loop", (directory_ / "loop").c_str()), 0);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  (directory_ / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
  struct Row {
    std::string value;
    int result;
  };
  const Row rows[] = {
      {directory_ / "file", 1},
      {directory_ / "to_file", 1},
      {directory_ / "fifo", 1},
      {directory_ / "socket", 1},  // here the whole file type is asked for
      {"/dev/null", 1},
      {directory_ / "dir", -23},
      {directory_ / "to_dir", -23},
      {"/", -23},
      {".", -23},
      {directory_ / "missing", 2},
      {directory_ / "missing/file", 2},
      {directory_ / "to_nothing", 2},
      {"", 2},
      {"no such file in the working directory", 2},
      {directory_ / "file/below", -14},
      {directory_ / "loop", -21},
      {directory_ / std::string(255, 'n'), 2},
      {directory_ / std::string(256, 'n'), -22},
      {"/" + std::string(4094, '/'), -23},      // 4095 bytes
      {"/tmp/" + std::string(4091, 'n'), -22},  // 4096 bytes
      {"/" + std::string(4095, '/'), -22},      // 4096 bytes that would be a directory
      {std::string(2046, '/') + "./" + std::string(2047, 'n'), -22},
      {std::string(100000, 'n'), -22},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.value.substr(0, 100));
    EXPECT_EQ(ask(row.value), (Answer{row.result, row.result > 0 ? row.value : ""}));
  }
  close(fd);
}

TEST_F(DebugFile, CanHaveAPathOf4095Bytes) {
  const std::string value = std::string(4095 - 9, '/') + "dev//null";
  ASSERT_EQ(value.size(), 4095U);
  EXPECT_EQ(ask(value), (Answer{1, value}));
}

TEST_F(DebugFile, IsOffWithoutTheVariable) {
  environment_.unset("VOSKDEBUG");
  Calls calls;
  PathBuffer buffer;
  EXPECT_EQ(calls.during([&] { return vk_is_debug_file_set(buffer.data()); }), 3);
  EXPECT_EQ(buffer.text(), "");
  EXPECT_EQ(calls.count("stat"), 0);
}

TEST_F(DebugFile, NeedsABuffer) {
  environment_.set("VOSKDEBUG", "/dev/null");
  Calls calls;
  EXPECT_EQ(calls.during([] { return vk_is_debug_file_set(nullptr); }), -2);
  EXPECT_EQ(calls.count_all(), 0);
}

TEST_F(DebugFile, AnswersByTheErrorOfTheQuery) {
  struct Row {
    int error, result;
  };
  for (const Row &row : {Row{ENOENT, 2}, Row{EOVERFLOW, 1}, Row{EACCES, -13}, Row{ENOTDIR, -14}, Row{ESTALE, -15},
                         Row{ELOOP, -21}, Row{ENAMETOOLONG, -22}, Row{EIO, -1}, Row{EINTR, -1}, Row{EPERM, -1},
                         Row{ENOMEM, -1}, Row{EFAULT, -1}, Row{EROFS, -1}}) {
    SCOPED_TRACE(platform::error_name(row.error));
    environment_.set("VOSKDEBUG", "a file");
    Calls calls;
    calls.fail_nth("stat", 1, row.error);
    PathBuffer buffer;
    EXPECT_EQ(calls.during([&] { return vk_is_debug_file_set(buffer.data()); }), row.result);
    EXPECT_EQ(buffer.text(), row.result > 0 ? "a file" : "");
    EXPECT_THAT(
        calls.log_of({"getenv", "stat"}),
        ElementsAre("getenv(\"VOSKDEBUG\") = \"a file\"", "stat(\"a file\") = -1 " + platform::error_name(row.error)));
  }
}

TEST_F(DebugFile, LooksAtTheWholeFileType) {
  struct Row {
    unsigned mode;
    int result;
  };
  for (const Row &row : {Row{0100644, 1}, Row{0040755, -23}, Row{0060660, 1}, Row{0140777, 1}, Row{0020666, 1}}) {
    SCOPED_TRACE(row.mode);
    environment_.set("VOSKDEBUG", "/thing");
    Calls calls;
    calls.fake_stat("stat", "/thing", {.mode = row.mode});
    EXPECT_EQ(calls.during([&] { return ask().result; }), row.result);
  }
}

TEST_F(DebugFile, IsOffInAProcessWithRaisedPrivileges) {
  for (const char *value : {"/dev/null", "/", "", "missing"}) {
    SCOPED_TRACE(value);
    environment_.set("VOSKDEBUG", value);
    Calls calls;
    calls.fake_auxval(AT_SECURE, 1);
    PathBuffer buffer;
    EXPECT_EQ(calls.during([&] { return vk_is_debug_file_set(buffer.data()); }), 3);
    EXPECT_EQ(buffer.text(), "");
    EXPECT_EQ(calls.count("stat"), 0);
  }
  environment_.set("VOSKDEBUG", "/dev/null");
  Calls calls;
  calls.fake_auxval(AT_SECURE, 0);
  EXPECT_EQ(calls.during([&] { return ask().result; }), 1);
}

TEST_F(DebugFile, CannotBeSearchedForByAnotherUser) {
  if (geteuid() != 0) CANNOT_RUN_HERE("another user needs real root");
  RUN_IN_SANDBOX(sandbox::Options{}, [this] {
    ASSERT_EQ(mkdir("/var/adm/vosk/closed", 0700), 0);
    ASSERT_TRUE(sandbox::drop_to(sandbox::kNobody));
    EXPECT_EQ(ask("/var/adm/vosk/closed/trace"), (Answer{-13, ""}));
    EXPECT_EQ(ask("/var/adm/vosk/closed"), (Answer{-23, ""}));
  });
}

// --- Creation ---

TEST_F(DebugFile, IsCreatedWith16384BytesAndNeverTraced) {
  const std::string path = directory_ / "trace";
  environment_.set("VOSKDEBUG", path);
  Calls calls;
  calls.statfs_figures({{1000, 1000, 4096}});
  EXPECT_EQ(calls.during([&] { return vk_create_debug_file(path.c_str()); }), 0);
  EXPECT_EQ(calls.count("gettimeofday"), 0);
  EXPECT_EQ(calls.count("open"), 1);
  std::string expected = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
  expected.resize(16384, '\0');
  EXPECT_EQ(files::difference(expected, *files::read(path)), "");
  EXPECT_EQ(ask(path), (Answer{1, path}));
}

TEST_F(DebugFile, TakesLessButMoreThan8192Bytes) {
  struct Row {
    std::uint64_t available;
    int result;
    std::size_t size;
  };
  // Blocks of 1024; 1000 of them, of which 950 may be used.
  for (const Row &row : {Row{68, 0, 16384},  // 932 + 16 + 1 < 950
                         Row{67, 0, 14336}, Row{62, 0, 10240}, Row{61, -18, 0}}) {
    SCOPED_TRACE(row.available);
    const std::string path = directory_ / "trace";
    Calls calls;
    calls.statfs_figures({{1000, row.available, 1024}});
    EXPECT_EQ(calls.during([&] { return vk_create_debug_file(path.c_str()); }), row.result);
    EXPECT_EQ(files::read(path).value_or("").size(), row.size);
    unlink(path.c_str());
  }
}

TEST_F(DebugFile, PassesOnTheResultOfTheReservation) {
  EXPECT_EQ(vk_create_debug_file(nullptr), -4);
  EXPECT_EQ(vk_create_debug_file((directory_ / "missing/trace").c_str()), -14);
  ASSERT_TRUE(files::write(directory_ / "there", "as it is"));
  EXPECT_EQ(vk_create_debug_file((directory_ / "there").c_str()), 0);
  EXPECT_EQ(files::read(directory_ / "there"), "as it is");
  Calls calls;
  calls.statfs_figures({{1000, 1000, 4096}});
  calls.fail_nth("lockf", 1, ENOLCK);
  EXPECT_EQ(calls.during([&] { return vk_create_debug_file((directory_ / "trace").c_str()); }), -28);
}

// An entry point traces into a file that it creates, and stays silent where that fails.
TEST_F(DebugFile, IsCreatedByTheFirstEntryPointAndOnlyThere) {
  struct Row {
    std::string value;
    bool traced;
  };
  const Row rows[] = {{directory_ / "new", true}, {directory_ / "missing/new", false}, {directory_.path(), false}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.value);
    environment_.set("VOSKDEBUG", row.value);
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) environment_.unset(name);
    Calls calls;
    calls.statfs_figures({{1000, 1000, 4096}});
    EXPECT_EQ(calls.during([] { return vk_test_stack_1(); }), 15) << "tracing changes no result";
    EXPECT_EQ(calls.count("gettimeofday") > 0, row.traced) << "no entry is even begun";
    if (row.traced) {
      const trace_file::Trace trace = trace_file::read(row.value);
      EXPECT_EQ(trace.problem, "");
      EXPECT_FALSE(trace.entries.empty());
      for (const trace_file::Entry &entry : trace.entries) EXPECT_EQ(entry.routine, "vk_test_stack");
    }
  }
}

// Whether to trace is decided anew by every call.
TEST_F(DebugFile, TakesEffectAtTheNextCall) {
  const std::string first = directory_ / "first", second = directory_ / "second";
  const auto entries = [](const std::string &path) { return trace_file::read(path).entries.size(); };
  environment_.set("VOSKDEBUG", first);
  vk_test_stack_1();
  const std::size_t one_call = entries(first);
  EXPECT_GT(one_call, 0U);
  environment_.unset("VOSKDEBUG");
  vk_test_stack_1();
  EXPECT_EQ(entries(first), one_call);
  environment_.set("VOSKDEBUG", second);
  vk_test_stack_1();
  EXPECT_EQ(entries(first), one_call);
  EXPECT_EQ(entries(second), one_call);
}

}  // namespace
