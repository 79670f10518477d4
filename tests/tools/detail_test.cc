// vosk detail, and vosk show --detail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

const std::string kDumps = sandbox::kDumps;

// A record in the node's stack with this detail; returns its identifier.
std::string record_with(const std::string &detail,
                        const std::string &path = std::string(sandbox::kStacks) + "/p.1.20231114.221320") {
  tool::write_stack(path, builder::bytes(1));
  builder::record r;
  r.at(1700000000, 1, tool::inode_of(path));
  r.detail = detail;
  builder::model m;
  EXPECT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(path, m.file());
  return r.eid;
}

// What a terminal gets, without colours and a pager.
std::string on_a_terminal(const std::string &eid) {
  int fd = -1;
  const pid_t child = forkpty(&fd, nullptr, nullptr, nullptr);
  if (child == 0) {
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "detail", "--no-pager", "--color", "never", eid.c_str(), nullptr);
    _exit(127);
  }
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<std::size_t>(n));
  (void)close(fd);
  (void)waitpid(child, nullptr, 0);
  return text;
}

}  // namespace

TEST(Detail, ShowsTheFileThatARecordOfTheLibraryCites) {
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "service", getpid(), 0), 0);
  files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "settings", "port = none\n\x1b[31m"));
  vk_eid_t eid = "";
  ASSERT_EQ(vk_push_stack_1(&eid, nullptr, "r", "p", "s.c", "1", 1, 0, nullptr, (dir / "settings").c_str(), "c", 1, 1,
                            "bad settings"),
            0);
  const std::vector<std::string> copies = files::list(kDumps);
  ASSERT_EQ(copies.size(), 1u);
  const std::string path = kDumps + "/" + copies[0];

  const tool::result r = tool::run({"vosk", "detail", eid});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "-- detail file " + path + ": there, owner root, 17 bytes\nport = none\n\x1b[31m");
  EXPECT_EQ(tool::run({"vosk", "detail", "--json", eid}).out,
            R"({"type":"detail","schema":1,"kind":"file","path":")" + path +
                R"(","state":"there","owner":"root","size":17,"content":"port = none\u000a\u001b[31m"})"
                "\n");
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", dir / "saved"}).status, 0);
  EXPECT_EQ(files::read(dir / "saved"), "port = none\n\x1b[31m");
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", "-"}).out, "port = none\n\x1b[31m");
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", "/nowhere/file"}).status, 1);
  EXPECT_EQ(on_a_terminal(eid),
            "-- detail file " + path + ": there, owner root, 17 bytes\r\nport = none\r\n\\x1b[31m\r\n");
  EXPECT_THAT(tool::run({"vosk", "show", "--detail", eid}).out,
              HasSubstr("\n-- detail file " + path + ": there, owner root, 17 bytes\nport"));

  ASSERT_TRUE(files::write(path, "port = none\n"));
  EXPECT_EQ(on_a_terminal(eid), "-- detail file " + path + ": there, owner root, 12 bytes\r\nport = none\r\n");
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", dir / "none"}).status, 4);
  EXPECT_FALSE(files::exists(dir / "none"));
  const tool::result gone = tool::run({"vosk", "detail", eid});
  EXPECT_EQ(gone.status, 4);
  EXPECT_EQ(gone.out, "-- detail file " + path + ": gone: No such file or directory\n");
}

TEST(Detail, ShowsADetailThatIsAText) {
  const std::string eid = record_with("the text\nof the detail");
  EXPECT_EQ(tool::run({"vosk", "detail", eid}).out,
            "-- the record cites no detail file; its detail is\nthe text\nof the detail\n");
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", "-"}).out, "the text\nof the detail");
}

TEST(Detail, OpensNothingButRegularFilesDirectlyInTheDirectory) {
  files::TemporaryDirectory elsewhere;
  ASSERT_TRUE(files::write(elsewhere / "secret", "secret"));
  ASSERT_EQ(symlink((elsewhere / "secret").c_str(), (kDumps + "/link").c_str()), 0);
  ASSERT_EQ(mkfifo((kDumps + "/fifo").c_str(), 0644), 0);
  ASSERT_EQ(mkdir((kDumps + "/inner").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(kDumps + "/inner/file", "inner"));
  struct {
    std::string detail;
    const char *shown;
    int status;
  } const rows[] = {
      {kDumps + "/link", ": refused: a symbolic link\n", 1},
      {kDumps + "/fifo", ": refused: a FIFO\n", 1},
      {kDumps + "/inner", ": refused: a directory\n", 1},
      {kDumps + "/inner/file", "-- the record cites no detail file", 0},
      {kDumps + "/../dumps/link", "-- the record cites no detail file", 0},
      {elsewhere / "secret", "-- the record cites no detail file", 0},
      {kDumps + "/", "-- the record cites no detail file", 0},
      {kDumps + "/..", "-- the record cites no detail file", 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.detail);
    const tool::result r = tool::run({"vosk", "detail", record_with(row.detail)});
    EXPECT_THAT(r.out, HasSubstr(row.shown));
    EXPECT_THAT(r.out, testing::Not(HasSubstr("\nsecret")));
    EXPECT_EQ(r.status, row.status);
  }
}

TEST(Detail, OfACopiedStackIsLookedForAmongTheCopies) {
  files::TemporaryDirectory copies;
  ASSERT_EQ(mkdir((copies / "dumps").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(copies / "dumps/service.1.20231114.221320", "of the other node"));
  ASSERT_TRUE(files::write(kDumps + "/service.1.20231114.221320", "of this node"));
  builder::model m;
  builder::record r;
  r.detail = kDumps + "/service.1.20231114.221320";
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(copies / "stack", m.file());
  EXPECT_THAT(tool::run({"vosk", "detail", "--dir", copies.path(), r.eid}).out,
              testing::EndsWith("\nof the other node"));
}

// Neither a stack that has its name nor what cannot be looked into keeps it from being found.
TEST(Detail, IsFoundAmongCopiesOfEveryKind) {
  files::TemporaryDirectory copies;
  const std::string name = "service.1.20231114.221320", cited = kDumps + "/" + name;
  builder::model m;
  builder::record r;
  r.detail = cited;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  for (const char *directory : {"a", "a/stacks", "b", "b/dumps"})
    ASSERT_EQ(mkdir((copies / directory).c_str(), 0755), 0);
  ASSERT_EQ(symlink("/etc/passwd", (copies / "a/link").c_str()), 0);
  ASSERT_TRUE(files::write(copies / "a/text", "no archive"));
  ASSERT_EQ(system(("tar cf " + copies / "a/other.tar" + " -C " + copies / "a" + " text").c_str()), 0);
  tool::write_stack(copies / "a/stacks/" + name, m.file());
  EXPECT_THAT(tool::run({"vosk", "detail", "--dir", copies.path(), r.eid}).out,
              HasSubstr("-- detail file " + cited + ": gone: "));
  ASSERT_TRUE(files::write(copies / "b/dumps/" + name, "the copy"));
  for (const std::string &place : {copies.path(), copies / "b/dumps/" + name}) {
    const tool::result found =
        tool::run({"vosk", "detail", "--dir", copies / "a/stacks/" + name, "--dir", place, r.eid});
    EXPECT_THAT(found.out, testing::StartsWith("-- detail file " + copies / "b/dumps/" + name + ": there, "));
    EXPECT_THAT(found.out, testing::EndsWith("\nthe copy"));
  }
}

TEST(Detail, HasAnExitStatusForEveryOutcome) {
  const std::string eid = record_with("text");
  EXPECT_EQ(tool::run({"vosk", "detail", eid}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "detail", eid, "-o", "/nowhere/file"}).status, 1);
  EXPECT_EQ(tool::run({"vosk", "detail"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "detail", "x"}).status, 4);
  EXPECT_EQ(tool::run({"vosk", "detail", record_with("")}).status, 4);
  const std::string path = std::string(sandbox::kStacks) + "/damaged";
  const std::string damaged = record_with("text", path);
  std::string bytes = *files::read(path);
  bytes[24] = static_cast<char>(bytes[24] ^ 1);
  ASSERT_TRUE(files::write(path, bytes));
  EXPECT_EQ(tool::run({"vosk", "detail", damaged}).status, 3);
}
