// A directory in which somebody has planted all sorts of things.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <random>

#include "proof/instrumented.h"
#include "support/files.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

// A process that holds a lock on a file for ever.
class stopped_locker {
 public:
  explicit stopped_locker(const std::string &path) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    child_ = fork();
    if (child_ == 0) {
      const int fd = open(path.c_str(), O_RDWR);
      if (fd < 0 || lockf(fd, F_LOCK, 0) != 0) _exit(1);
      (void)!write(ready[1], "x", 1);
      raise(SIGSTOP);
      _exit(0);
    }
    char byte = 0;
    (void)close(ready[1]);
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    (void)close(ready[0]);
  }
  ~stopped_locker() {
    (void)kill(child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

double seconds_of(const std::function<void()> &body) {
  const auto start = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(HostileDirectory, IsReadWithoutHangingOrFollowingAnything) {
  files::TemporaryDirectory dir, elsewhere;
  tool::write_stack(dir / "good1", builder::never_wrapped_file());
  tool::write_stack(dir / "good2", builder::wrapped_file());
  tool::write_stack(dir / "locked", builder::never_wrapped_file());
  tool::write_stack(elsewhere / "outside", builder::never_wrapped_file());
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
  ASSERT_EQ(symlink("loop", (dir / "loop").c_str()), 0);
  ASSERT_EQ(symlink((elsewhere / "outside").c_str(), (dir / "link").c_str()), 0);
  ASSERT_EQ(symlink(elsewhere.path().c_str(), (dir / "linked_directory").c_str()), 0);
  const bool device = mknod((dir / "device").c_str(), S_IFCHR | 0644, makedev(1, 5)) == 0;
  const int socket_fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, (dir / "socket").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(socket_fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
  ASSERT_TRUE(files::write(dir / "sparse", ""));
  const bool sparse = truncate((dir / "sparse").c_str(), off_t{1} << 40) == 0 ||
                      truncate((dir / "sparse").c_str(), off_t{1} << 33) == 0;
  ASSERT_TRUE(sparse);
  std::mt19937 random(3);
  for (int i = 0; i < 10000; ++i) {
    std::string junk(random() % 64, '\0');
    for (char &c : junk) c = static_cast<char>(random());
    ASSERT_TRUE(files::write(dir / ("junk" + std::to_string(i)), junk));
  }
  ASSERT_TRUE(files::write(dir / "name\n\x1b[31m", "x"));
  const stopped_locker locker(dir / "locked");

  tool::result r;
  const double seconds = seconds_of([&] { r = tool::run({"vosk", "report", dir.path()}); });
  EXPECT_LT(seconds, 10);
  EXPECT_EQ(r.status, 0);
  for (const char *name : {"good1", "good2", "locked"})
    EXPECT_THAT(r.out, HasSubstr("-- " + (dir / name) + ": 2023-11-14"));
  EXPECT_THAT(r.out, testing::Not(HasSubstr("outside:")));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "fifo") + ": a FIFO\n"));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "loop") + ": a symbolic link\n"));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "link") + ": a symbolic link\n"));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "linked_directory") + ": a symbolic link\n"));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "socket") + ": a socket\n"));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "sparse") + ": larger than a stack can be: "));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "junk77") + ": "));
  EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "name\\n\\x1b[31m") + ": "));
  if (device) {
    EXPECT_THAT(r.err, HasSubstr("vosk: skipped " + (dir / "device") + ": a device\n"));
  }

  // Nor does any other verb hang, or look outside; the records in the three good stacks, the locked one too, are one.
  const std::string eid = builder::stack_eid(builder::kInode, 1700000000, 0);
  struct {
    std::vector<std::string> arguments;
    int status;
  } const rows[] = {
      {{"vosk", "verify", dir.path()}, 0},
      {{"vosk", "list", dir.path()}, 0},
      {{"vosk", "show", "--dir", dir.path(), eid}, 0},
      {{"vosk", "detail", "--dir", dir.path(), eid}, 0},
      {{"vosk", "trace", "--log", "none", "--dir", dir.path(), eid}, 0},
      {{"vosk", "annotate", "--dir", dir.path(), dir / "good1"}, 0},
      {{"vosk", "annotate", "--dir", dir.path(), dir / "name\n\x1b[31m"}, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.arguments[1]);
    tool::result other;
    EXPECT_LT(seconds_of([&] { other = tool::run(row.arguments); }), 10);
    EXPECT_EQ(other.status, row.status) << other.out.substr(0, 1000) << other.err.substr(0, 1000);
    EXPECT_THAT(other.out, testing::Not(HasSubstr(elsewhere.path())));
  }
  (void)close(socket_fd);
}

TEST(HostileDirectory, IsNotWaitedForBeyondReasonWhereEveryFileIsLocked) {
  files::TemporaryDirectory dir;
  for (int i = 0; i < 60; ++i) tool::write_stack(dir / std::to_string(i), builder::never_wrapped_file());
  const pid_t child = fork();
  if (child == 0) {
    for (int i = 0; i < 60; ++i) (void)lockf(open((dir / std::to_string(i)).c_str(), O_RDWR), F_LOCK, 0);
    for (;;) pause();
  }
  while (!files::locked(dir / "59")) usleep(1000);
  tool::result r;
  EXPECT_LT(seconds_of([&] { r = tool::run({"vosk", "report", dir.path()}); }), 4);
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, HasSubstr("-- " + (dir / "59") + ": 2023-11-14"));
  (void)kill(child, SIGKILL);
  (void)waitpid(child, nullptr, 0);
}

// A reader of a report that stops reading must not keep the recorders from their file.
TEST(Reading, ReleasesItsLockBeforeItPrints) {
  files::TemporaryDirectory dir;
  for (int i = 0; i < 200; ++i) tool::write_stack(dir / std::to_string(i), builder::wrapped_file());
  int out[2];
  ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    (void)dup2(out[1], 1);
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "report", "-v", dir.path().c_str(), nullptr);
    _exit(127);
  }
  char byte = 0;
  ASSERT_EQ(read(out[0], &byte, 1), 1);  // it prints, and soon waits for this process
  for (const char *name : {"0", "55", "199"}) EXPECT_FALSE(files::locked(dir / name));
  (void)close(out[0]);
  (void)close(out[1]);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "a closed pipe ends it quietly";
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Reading, ChangesNothing) {
  files::TemporaryDirectory dir;
  tool::write_stack(dir / "a", builder::wrapped_file());
  struct stat before {
  }, after{};
  ASSERT_EQ(stat((dir / "a").c_str(), &before), 0);
  const auto bytes = files::read(dir / "a");
  EXPECT_EQ(tool::run({"vosk", "report", "-v", dir / "a"}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "verify", dir / "a"}).status, 0);
  ASSERT_EQ(stat((dir / "a").c_str(), &after), 0);
  EXPECT_EQ(files::read(dir / "a"), bytes);
  EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
  EXPECT_EQ(before.st_ctim.tv_nsec, after.st_ctim.tv_nsec);
}

// The reader's own tests flip every bit; these go through the whole program.
TEST(Damage, OfTwoThousandKindsNeverStopsTheTool) {
  files::TemporaryDirectory dir;
  std::mt19937 random(8);
  const builder::bytes bases[] = {builder::never_wrapped_file(), builder::wrapped_file(),
                                  builder::file_with_cut_record()};
  for (int i = 0; i < (proof::kInstrumented ? 200 : 2000); ++i) {
    builder::bytes file = bases[i % 3];
    constexpr std::size_t kHeader = 21;  // without its reserved bytes
    const bool in_header = i % 10 == 1;
    const std::size_t at = random() % (in_header ? kHeader : file.size());
    if (i % 4 == 0)
      file.resize(at);
    else
      file[at] ^= static_cast<unsigned char>(1 << (random() % 8));
    tool::write_stack(dir / "a", file);
    const tool::result r = tool::run({"vosk", "report", i % 2 == 0 ? "--json" : "-v", dir / "a"});
    ASSERT_TRUE(r.status == 0 || r.status == 3 || (r.status == 4 && file.size() < 600))
        << i << ": " << r.status << r.err;
    if (in_header) {
      ASSERT_EQ(r.status, 3) << "bit flipped in byte " << at << " of the header";
    }
    if (i % 2 == 0) (void)tool::json_lines(r.out);
  }
}
