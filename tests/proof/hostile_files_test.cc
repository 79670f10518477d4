// What is no regular file where the library expects one: no call hangs, none writes where it should not, and each has
// its result.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "proof/roads.h"
#include "support/cu_double.h"
#include "support/files.h"

namespace proof {
namespace {

const std::string kOdd = std::string(sandbox::kRoot) + "/odd";
const std::string kTarget = std::string(sandbox::kRoot) + "/target";

bool make_socket() {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, kOdd.c_str(), kOdd.size());
  const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
  const bool made = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
  close(fd);
  return made;
}

struct Kind {
  const char *name;
  std::function<bool()> make;
  std::string path;
  // The results and messages of a push with this as its stack, and with this as its detail file.
  int as_stack, stack_message;
  int as_detail;
};

std::vector<Kind> kinds() {
  auto device = [](const char *path, int code, int message, int as_detail = 32) {
    return Kind{path, [path] { return files::exists(path); }, path, code, message, as_detail};
  };
  return {
      {"a FIFO", [] { return mkfifo(kOdd.c_str(), 0666) == 0; }, kOdd, 24, 41, 32},
      {"a directory", [] { return mkdir(kOdd.c_str(), 0777) == 0; }, kOdd, 25, 34, 32},
      {"a socket", make_socket, kOdd, 25, 34, 32},  // its type contains the bit that is taken for a directory's
      {"a symbolic link to nothing", [] { return symlink(kTarget.c_str(), kOdd.c_str()) == 0; }, kOdd, 20, 38, 32},
      {"a symbolic link to itself", [] { return symlink(kOdd.c_str(), kOdd.c_str()) == 0; }, kOdd, 99, 30, 32},
      {"a symbolic link to a directory", [] { return symlink("/", kOdd.c_str()) == 0; }, kOdd, 25, 34, 32},
      {"below a file", [] { return files::write(kOdd, "text"); }, kOdd + "/below", 19, 29, 32},
      {"below nothing", [] { return true; }, kOdd + "/nothing/below", 19, 29, 32},
      {"a name that is too long", [] { return true; }, kOdd + std::string(300, 'n'), 99, 30, 32},
      {"a path that is too long", [] { return true; }, std::string(5000, '/') + "x", 99, 30, 32},
      device("/dev/null", 24, 41, 0),
      device("/dev/zero", 24, 41),
      device("/dev/full", 24, 41),
      device("/proc/self/mem", 24, 41),
  };
}

class HostileFiles : public testing::Test {
 protected:
  void prepare(const Kind &kind) {
    lay_out(push_, Tracing::kOff, State::kPartlyFilled);
    struct stat status = {};
    if (lstat(kOdd.c_str(), &status) == 0) {
      S_ISDIR(status.st_mode) ? rmdir(kOdd.c_str()) : unlink(kOdd.c_str());
    }
    cu_double::reset();
    made_ = kind.make();
    alarm(20);  // a call that hangs ends the program
  }
  int push(const char *detail_file) {
    vk_eid_t fid = {};
    return vk_push_stack_1(&fid, nullptr, "r", "p", "f", "1", 1, 0, detail_file == nullptr ? "detail" : nullptr,
                           detail_file, "c", 1, 1, "m");
  }
  void TearDown() override { alarm(0); }

  const Road &push_ = road("later push");
  bool made_ = false;
};

TEST_F(HostileFiles, AsTheStackAreRefusedEachInItsWay) {
  for (const Kind &kind : kinds()) {
    SCOPED_TRACE(kind.name);
    prepare(kind);
    if (!made_) continue;
    setenv("VOSKSTACK", kind.path.c_str(), 1);
    const auto before = files::descriptors();
    EXPECT_EQ(push(nullptr), kind.as_stack);
    ASSERT_FALSE(cu_double::errors().empty());
    EXPECT_EQ(cu_double::errors().back().number, kind.stack_message);
    EXPECT_EQ(files::descriptors(), before);
    EXPECT_FALSE(files::exists(kTarget));
  }
}

TEST_F(HostileFiles, AsTheTraceFileChangeNothingAboutAPush) {
  for (const Kind &kind : kinds()) {
    SCOPED_TRACE(kind.name);
    prepare(kind);
    if (!made_ || kind.path == "/proc/self/mem") continue;
    setenv("VOSKDEBUG", kind.path.c_str(), 1);
    const auto before = files::descriptors();
    EXPECT_EQ(push(nullptr), 0);
    EXPECT_EQ(stack_model::records(*files::read(kStack))->size(), 4u);
    EXPECT_EQ(files::descriptors(), before);
    EXPECT_FALSE(files::exists(kTarget));
  }
}

TEST_F(HostileFiles, AsTheDetailFileAreNotCopiedWhereTheyHaveNoEnd) {
  for (const Kind &kind : kinds()) {
    SCOPED_TRACE(kind.name);
    prepare(kind);
    // What /proc calls regular files can be read, or not.
    if (!made_ || kind.path.starts_with("/proc/")) continue;
    EXPECT_EQ(push(kind.path.c_str()), kind.as_detail);
    EXPECT_EQ(stack_model::records(*files::read(kStack))->size(), 4u);
    EXPECT_EQ(files::list(sandbox::kDumps).size(), kind.as_detail == 0 ? 1u : 0u);
    EXPECT_FALSE(files::exists(kTarget));
  }
}

TEST_F(HostileFiles, ThatAreLinksToProperOnesServe) {
  prepare({"", [] { return symlink(kStack.c_str(), kOdd.c_str()) == 0; }, kOdd, 0, 0, 0});
  ASSERT_TRUE(made_);
  setenv("VOSKSTACK", kOdd.c_str(), 1);
  EXPECT_EQ(push(nullptr), 0);
  EXPECT_EQ(stack_model::records(*files::read(kStack))->size(), 4u);
  unlink(kOdd.c_str());
  ASSERT_EQ(symlink(kDetail.c_str(), kOdd.c_str()), 0);
  setenv("VOSKSTACK", kStack.c_str(), 1);
  EXPECT_EQ(push(kOdd.c_str()), 0);
  ASSERT_EQ(files::list(sandbox::kDumps).size(), 1u);
  EXPECT_EQ(files::read(std::string(sandbox::kDumps) + "/" + files::list(sandbox::kDumps)[0]), kDetailBytes);
}

// A name decides where a copy goes; one that leads elsewhere gets none.
TEST_F(HostileFiles, AreNotMadeOutsideTheDumpsByANameWithSlashes) {
  for (const char *name : {"../stacks/x", "/etc/x", "a/b", "..//", "/"}) {
    SCOPED_TRACE(name);
    prepare({"", [] { return true; }, "", 0, 0, 0});
    setenv("VOSKPNAME", name, 1);
    EXPECT_EQ(push(kDetail.c_str()), 32);
    EXPECT_THAT(files::list(sandbox::kDumps), testing::IsEmpty());
    EXPECT_THAT(files::list(sandbox::kStacks), testing::ElementsAre("road"));
  }
}

TEST_F(HostileFiles, WithControlCharactersInTheirNamesAreFilesLikeOthers) {
  for (const char *name : {"a\nb", "\001", "tab\t", "\033[31m", "%s%n", "caf\xc3\xa9", "\xff\xfe"}) {
    SCOPED_TRACE(name);
    prepare({"", [] { return true; }, "", 0, 0, 0});
    const std::string stack = std::string(sandbox::kStacks) + "/" + name;
    setenv("VOSKSTACK", stack.c_str(), 1);
    setenv("VOSKPNAME", name, 1);
    setenv("VOSKDEBUG", kTraceFile.c_str(), 1);
    EXPECT_EQ(push(kDetail.c_str()), 0);
    const auto records = stack_model::records(files::read(stack).value_or(""));
    ASSERT_TRUE(records);
    ASSERT_EQ(records->size(), 1u);
    EXPECT_EQ(stack_model::decode(records->front())->push.process_name, name);
    ASSERT_EQ(files::list(sandbox::kDumps).size(), 1u);
    EXPECT_TRUE(files::list(sandbox::kDumps)[0].starts_with(name));
  }
}

}  // namespace
}  // namespace proof
