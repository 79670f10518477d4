// Files that are no stack: other kinds of file, files cut short, headers that lead far away.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <climits>

#include "stack/push_test.h"

namespace {

using files::i32;
using files::u32;
using stack_test::file_of;
using stack_test::header;
using stack_test::kStack;
using stack_test::push;
using stack_test::zeros;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPath = std::string("\"") + kStack + "\"";

class HostileStack : public stack_test::PushTest {};

void make_socket(const char *path) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  close(fd);
}

TEST_F(HostileStack, OfAnotherKindOfFileIsRefusedWithoutHanging) {
  struct Row {
    const char *what;
    void (*make)(const char *path);
    const char *report;
  };
  const Row rows[] = {
      {"a directory", [](const char *path) { mkdir(path, 0777); },
       "25: vosk.cat 1/34 (PATH, \"/var/adm/vosk/stacks\")"},
      {"a socket, which counts as one", make_socket, "25: vosk.cat 1/34 (PATH, \"/var/adm/vosk/stacks\")"},
      {"a FIFO", [](const char *path) { mkfifo(path, 0666); }, "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")"},
      {"a link to itself", [](const char *path) { (void)!symlink(path, path); },
       "99: vosk.cat 1/30 (\"vk_get_env_info\")"},
      {"a device of zeros", [](const char *path) { (void)!symlink("/dev/zero", path); },
       "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")"},
      {"a device without an end", [](const char *path) { (void)!symlink("/dev/full", path); },
       "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")"},
      {"a device without content", [](const char *path) { (void)!symlink("/dev/null", path); },
       "24: vosk.cat 1/41 (PATH, \"vk_get_stack_ctrl_info\")"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(sandbox::fresh(), "");
    row.make(kStack);
    cu_double::reset();
    std::string report = row.report;
    if (const std::size_t at = report.find("PATH"); at != std::string::npos) report.replace(at, 4, kPath);
    const auto open_before = files::descriptors();
    EXPECT_EQ(push(incident()), std::stoi(report));
    EXPECT_THAT(cu_double::reports(), ElementsAre("no error", report));
    EXPECT_EQ(files::descriptors(), open_before);
    EXPECT_EQ(identifier(), untouched());
  }
}

TEST_F(HostileStack, ThatIsALinkToAStackIsThatStack) {
  const std::string real = std::string(sandbox::kRoot) + "/real";
  ASSERT_TRUE(files::write(real, empty_stack()));
  ASSERT_EQ(symlink(real.c_str(), kStack), 0);
  EXPECT_EQ(push_known(incident()), 0);
  EXPECT_EQ(files::difference(stack_with(golden().bytes()), files::read(real).value_or("")), "");
}

TEST_F(HostileStack, CutShortIsUsedAsFarAsItsHeaderSaysEnough) {
  const std::string head = header(0, 24, 24, 24, 16384, 0);
  for (std::size_t size = 1; size <= 24; ++size) {
    SCOPED_TRACE(size);
    put_stack(head.substr(0, size));
    // Up to its second byte the file size is zero.
    const bool enough = size >= 18;
    EXPECT_EQ(push_known(incident()), enough ? 0 : 24);
    if (enough) {
      EXPECT_EQ(files::difference(stack_with(golden().bytes()).substr(0, 24 + 189), stack()), "");
    } else {
      EXPECT_EQ(files::difference(head.substr(0, size), stack()), "");
    }
  }
}

// Signed 64-bit positions, also where the header leads behind two gigabytes.
TEST_F(HostileStack, OfAForeignVersionMayLeadToTheHighestPosition) {
  put_stack(file_of(8192, header(8, 24, INT_MAX - 100, 24, INT_MAX, 0)));
  EXPECT_EQ(push_known(incident()), 0) << "it wraps";
  EXPECT_EQ(stack().substr(4, 20), header(8, 24, 24 + 189, 24, INT_MAX, 1).substr(4));

  put_stack(file_of(8192, header(8, 24, INT_MAX - 185, 24, INT_MAX, 0)));
  EXPECT_EQ(push_known(incident()), 0) << "181 + 4 bytes are left";
  struct stat status = {};
  ASSERT_EQ(stat(kStack, &status), 0);
  EXPECT_EQ(status.st_size, off_t{INT_MAX} - 185 + 189);
  const int fd = open(kStack, O_RDONLY | O_CLOEXEC);
  std::string record(189, '\0'), control(20, '\0');
  EXPECT_EQ(pread(fd, record.data(), 189, off_t{INT_MAX} - 185), 189);
  EXPECT_EQ(files::difference(golden().bytes(), record), "");
  EXPECT_EQ(pread(fd, control.data(), 20, 4), 20);
  close(fd);
  // The next position does not fit 32 bits: its low ones are stored.
  EXPECT_EQ(control.substr(4, 4), i32(INT_MIN + 3));

  // From there on the position is no position.
  forget_identifier();
  EXPECT_EQ(push_known(incident()), 41);
  EXPECT_THAT(cu_double::reports(), ElementsAre("no error", "41: vosk.cat 1/43 (" + kPath + ", -2147483645, 22)"));
  EXPECT_EQ(identifier(), untouched());
}

// A chain of the shortest steps through the whole file ends at its end.
TEST_F(HostileStack, MadeOfLengthsOfOneIsClearedStepByStepAndNoFurther) {
  std::string bytes(16384, '\0');
  for (std::size_t at = 24; at + 5 <= bytes.size(); at += 5) bytes.replace(at, 4, u32(1));
  bytes.replace(0, 24, header(0, 24, 16384, 24, 16384, 1));
  put_stack(bytes);
  platform::Calls calls;
  prepare(calls);
  EXPECT_EQ(calls.during([&] { return push(incident()); }), 0);
  EXPECT_EQ(calls.count("read"), 2 + 38) << "38 steps of 5 are more than 185 bytes";
  std::string after = bytes;
  after.replace(24, 190, zeros(190)).replace(24, 189, golden().bytes());
  after.replace(0, 24, header(0, 24, 24 + 189, 24 + 190, 16384, 1));
  EXPECT_EQ(files::difference(after, stack()), "");
}

}  // namespace
