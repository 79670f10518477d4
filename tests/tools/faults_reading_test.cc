// What the reading verbs say of files, directories, archives and logs whose reading fails.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "support/files.h"
#include "support/sandbox.h"
#include "tools/faults.h"

using testing::HasSubstr;

namespace {

const std::string kStacks = sandbox::kStacks, kDumps = sandbox::kDumps;
const std::string kName = "job.1.20231114.221320", kCopy = "job.7.20231114.221320";
const std::string kLogged = "822...." + builder::digits(1700000000, 6) + builder::digits(0, 4) + builder::kAddress;
const std::string kStack = kStacks + "/" + kName;

void shell(const std::string &command) {
  ASSERT_EQ(std::system(("{ " + command + "; } >/dev/null").c_str()), 0) << command;
}

// A stack whose record cites a copy, and both once more in a directory, in an archive and in that one unpacked.
class Faults : public testing::Test {
 protected:
  void SetUp() override {
    tool::write_stack(kStack, builder::bytes(1));
    builder::record r;
    r.at(1700000000, 1, tool::inode_of(kStack));
    r.detail = kDumps + "/" + kCopy;
    eid_ = r.eid;
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(kStack, m.file());
    ASSERT_TRUE(files::write(kDumps + "/" + kCopy, "port = none\n"));
    ASSERT_TRUE(files::write(dir_ / "log", log_line(kLogged)));
    tar_ = dir_ / "all.tar";
    shell("gzip -k " + dir_ / "log" + "; mkdir -p " + dir_ / "copies/inner" + " " + dir_ / "unpacked");
    shell("cp " + kStack + " " + dir_ / "copies" + "; cp " + kStack + " " + dir_ / "copies/inner");
    ASSERT_EQ(tool::run({"vosk", "collect", "--all", "--log", dir_ / "log", "-o", tar_}).status, 0);
    shell("tar xf " + tar_ + " -C " + dir_ / "unpacked");
  }

  static std::string log_line(const std::string &eid) {
    return "Nov 14 22:13:20 node1 service[4711]: (Recorded using libqx_vosk.a cv 2):::Error ID: " + eid +
           ":::Reference ID: :::Template ID: 2a:::Details File: :::Location: product,file.c,1.7,321" +
           std::string(24, ' ') + ":::in the log\n";
  }

  static void expect_all(const std::vector<faults::row> &rows) {
    for (const faults::row &row : rows) faults::expect(row);
  }

  files::TemporaryDirectory dir_;
  std::string eid_, tar_;
};

}  // namespace

TEST_F(Faults, OfAStackAreNamedAndOtherStacksAreShown) {
  const std::string cannot = "cannot read " + dir_ / "copies/" + kName + ": ";
  expect_all({
      {"a read that is interrupted", "report " + kStack, "pread|1|4|job.", 0, "cannot open /etc/thing"},
      {"reads of one byte", "report " + kStack, "pread|1+|short|job.", 0, "cannot open /etc/thing"},
      {"a read that fails", "report " + dir_ / "copies", "pread|2+|5|copies/job.", 1, cannot + "Input/output error"},
      {"an error without a text", "report " + dir_ / "copies", "pread|2+|4000|copies/job.", 1, cannot + "error 4000\n"},
      {"a file in place of its directory", "report " + kStack + "/x", "", 4, "/x: Not a directory"},
      {"attributes that cannot be had", "report " + dir_ / "copies", "statx|1+|5|copies/job.", 1,
       cannot + "Input/output error"},
      {"attributes that are lost when it is open", "report " + dir_ / "copies", "statx|2|5|copies/job.", 0,
       "cannot open"},
      {"an open that fails", "report " + dir_ / "copies", "open|1+|24|/proc/self/fd", 1,
       cannot + "Too many open files"},
      {"no /proc to open it through", "report " + kStack, "open|1+|2|/proc/self/fd", 0, "cannot open"},
      {"an open without /proc that fails", "report " + kStack,
       "open|1+|2|/proc/self/fd\nopenat|2+|13|job.\nopenat|4+|13|job.", 1, "Permission denied"},
      {"one that went while it was opened", "report " + dir_ / "copies", "openat|1+|2|job.", 4,
       cannot + "No such file or directory"},
      {"one that another took the place of", "report " + kStack,
       "open|1+|2|/proc/self/fd\nopenat|2|run cp " + kStack + " " + dir_ / "x; mv " + dir_ / "x" + " " + kStack +
           "|job.\nopenat|4|run cp " + kStack + " " + dir_ / "x; mv " + dir_ / "x" + " " + kStack + "|job.",
       1, "Stale file handle"},
      {"no locks", "report " + kStack, "F_SETLK|1+|37|job.", 0, "cannot open"},
      {"a lock that is held and let go", "report " + kStack, "F_SETLK|1|13|job.", 0, "cannot open"},
      {"a lock that is interrupted", "report " + kStack, "F_SETLK|1|4|job.", 0, "cannot open"},
      {"no lock and a first reading that fails", "report " + kStack, "F_SETLK|1+|37|job.\npread|2|5|job.", 1,
       "Input/output error"},
      {"no lock and a second reading that fails", "report " + kStack, "F_SETLK|1+|37|job.\npread|4|5|job.", 1,
       "Input/output error"},
      {"one that grows while it is read", "report " + kStack, "F_SETLK|1|run truncate -s 100000 " + kStack + "|job.", 4,
       "larger than a stack can be: "},
  });
}

TEST_F(Faults, OfAStackThatChangesAreReported) {
  // Another byte behind the records before every reading: no two are equal.
  const std::string change =
      "run echo $$ > " + dir_ / "id; dd if=" + dir_ / "id of=" + kStack + " bs=1 seek=8000 conv=notrunc 2>/dev/null";
  expect_all(
      {{"it changes once", "report " + kStack, "F_SETLK|1+|37|job.\npread|4|" + change + "|job.", 0, "cannot open"},
       {"it changes all the time", "report " + kStack, "F_SETLK|1+|37|job.\npread|1+|" + change + "|job.", 0,
        ", changed while it was read"}});
}

TEST_F(Faults, OfADirectoryAreNamedAndItsOthersAreShown) {
  const std::string copies = dir_ / "copies", inner = copies + "/inner";
  expect_all({
      {"it ends in a slash", "list " + copies + "/", "", 0, "copies/" + kName},
      {"types that are not told", "list " + copies, "readdir|1+|untyped|copies", 0, inner + "/" + kName},
      {"types that cannot be had", "report " + copies, "readdir|1+|untyped|copies\nfstatat|1+|5|", 0,
       "skipped " + inner + ": a directory"},
      {"a directory in it cannot be opened", "report " + copies, "openat|1|13|inner", 0,
       "skipped " + inner + ": a directory"},
      {"a directory in it cannot be read", "report " + copies, "fdopendir|1|12|inner", 0,
       "skipped " + inner + ": a directory"},
      {"it cannot be opened", "report " + copies, "openat|1|13|copies", 1,
       "cannot read " + copies + ": Permission denied"},
      {"no descriptor for its reading", "report " + copies, "dup|1|24|copies", 1,
       "cannot read " + copies + ": Too many open files"},
      {"no memory for its reading", "report " + copies, "fdopendir|1|12|copies", 1,
       "cannot read " + copies + ": Cannot allocate memory"},
      {"its reading fails", "report " + copies, "readdir|1|5|copies", 1,
       "cannot read " + copies + ": Input/output error"},
      {"that of the node fails", "show --log none " + eid_, "fdopendir|1+|12|stacks", 1, "not_searched"},
      {"copies whose types are not told", "show --log none --dir " + copies + " " + eid_, "readdir|1+|untyped|copies",
       0, inner + "/" + kName},
      {"copies whose types cannot be had", "show --log none --dir " + copies + " " + eid_,
       "readdir|1+|untyped|copies\nfstatat|1+|5|", 0, kStack},
      {"copies that are not there", "show --log none --dir " + dir_ / "none" + " " + eid_, "", 0, kStack},
  });
}

TEST_F(Faults, OfAnArchiveAreNamed) {
  const std::string cannot = "cannot read " + tar_ + ": ", long_tar = dir_ / "long.tar";
  shell("cd " + dir_ / "copies" + "; mkdir -p long/stacks; cp " + kName + " long/stacks/$(printf %0150d 1)");
  shell("cd " + dir_ / "copies/long" + "; tar cf " + long_tar + " --format=pax *; rm -r " + dir_ / "copies/long");
  shell("cd " + dir_ / "copies" + "; mkdir -p odd/stacks; truncate -s 100000 odd/stacks/big; : > odd/stacks/empty");
  shell("cd " + dir_ / "copies/odd" + "; echo text > stacks/text; tar cf " + dir_ / "odd.tar" + " *; rm -r ../odd");
  expect_all({
      {"a read that is interrupted", "report " + tar_, "pread|1|4|all.tar", 0, "cannot open /etc/thing"},
      {"its size cannot be had", "report " + tar_, "fstat|1|5|all.tar", 1, cannot + "it ends before its end mark"},
      {"a header cannot be read", "report " + tar_, "pread|2|5|all.tar", 1, cannot + "it cannot be read"},
      {"a name that is long", "list " + long_tar, "", 0, "long.tar/stacks/000"},
      {"a name that is long cannot be read", "report " + long_tar, "pread|6|5|long.tar", 1, "it cannot be read"},
      {"a member cannot be read", "report " + tar_, "pread|7|5|all.tar", 1,
       "/stacks/" + kName + ": Input/output error"},
      {"it ends inside of a member", "report " + tar_, "pread|7|end|all.tar", 1,
       "/stacks/" + kName + ": Input/output error"},
      {"a member that is too large", "report " + dir_ / "odd.tar", "", 4,
       "/stacks/big: larger than a stack can be: 100000 bytes"},
      {"a member that is empty", "report " + dir_ / "odd.tar", "", 4, "/stacks/empty: empty"},
      {"a member that is a text", "report " + dir_ / "odd.tar", "", 4, "/stacks/text: no stack"},
  });
}

// The name of a directory alone makes no collection.
TEST_F(Faults, OfAnUnpackedCollectionAreNoneOfItsOtherFiles) {
  const std::string unpacked = dir_ / "unpacked", plain = dir_ / "plain";
  shell("cp -r " + unpacked + " " + plain + "; rm " + plain + "/manifest.json");
  for (const std::string &copies : {unpacked, plain})
    shell("cp " + dir_ / "log" + " " + copies + "/logs/syslog; truncate -s 100000 " + copies + "/dumps/large");
  EXPECT_THAT(tool::run({"vosk", "report", unpacked}).out, testing::Not(HasSubstr("skipped ")));
  const std::string show = "show " + kLogged + " --log " + dir_ / "none" + " --dir ";
  expect_all({{"a large file", "report " + plain, "", 0, "skipped " + plain + "/dumps/large: larger than a stack"},
              {"a log", "report " + plain, "", 0, "skipped " + plain + "/logs/syslog: no stack"},
              {"a log of the collection", show + unpacked, "", 1, "/logs/syslog\n"},
              {"a log of none", show + plain, "", 1, "logs_not_readable"}});
}

// Two file systems number their files alike.
TEST_F(Faults, OfAStackThatOneOfAnotherFileSystemCoversAreNamed) {
  const std::string one = dir_ / "one", two = dir_ / "two", path = one + "/" + kName;
  shell("mkdir " + one + " " + two + "; mount -t tmpfs none " + one + "; mount -t tmpfs none " + two);
  shell("cp " + kStack + " " + one + "; cp " + kStack + " " + two);
  const bool alike = tool::inode_of(path) == tool::inode_of(two + "/" + kName);
  if (alike)
    faults::expect({"it is covered", "report " + path,
                    "open|1+|2|/proc/self/fd\nopenat|4|run mount --bind " + two + "/" + kName + " " + path + "|job.", 1,
                    "Stale file handle"});
  shell("umount -l " + one + "; umount -l " + two);
  if (!alike) GTEST_SKIP() << "i-nodes are numbered otherwise here";
}

TEST_F(Faults, OfADetailAreNamed) {
  const std::string copy = kDumps + "/" + kCopy, unpacked = dir_ / "unpacked", saved = dir_ / "saved";
  const std::string elsewhere = "detail --dir " + unpacked + " " + eid_;
  expect_all({
      {"a read that is interrupted", "detail " + eid_, "pread|1|4|" + kCopy, 0, "port = none"},
      {"it cannot be opened", "detail " + eid_, "openat|1|13|" + kCopy, 1, ": not_readable: Permission denied"},
      {"it cannot be opened, as JSON", "detail --json " + eid_, "openat|1|13|" + kCopy, 1,
       R"("state":"not_readable","reason":"Permission denied")"},
      {"it cannot be read, as JSON", "detail --json " + eid_, "pread|1|5|" + kCopy, 0,
       R"("state":"there","owner":"root","size":12})"},
      {"the directory cannot be opened", "detail " + eid_, "openat|1|13|" + kDumps, 1,
       ": not_readable: Permission denied"},
      {"the directory is not there", "detail " + eid_, "openat|1|2|" + kDumps, 4, ": gone: No such file"},
      {"the archive that holds it cannot be read", "detail --dir " + tar_ + " " + eid_, "pread|1+|5|all.tar", 0, ""},
      {"it was unpacked", elsewhere, "", 0, "port = none"},
      {"the directory of copies cannot be opened", elsewhere, "openat|1+|13|unpacked", 0, ""},
      {"it cannot be read to be saved", "detail " + eid_ + " -o " + saved, "pread|1|5|" + kCopy, 1,
       "cannot write " + saved + ": Input/output error"},
      {"it cannot be saved", "detail " + eid_ + " -o /dev/full", "", 1,
       "cannot write /dev/full: No space left on device"},
      {"its saving is interrupted", "detail " + eid_ + " -o " + saved, "write|1|4|saved", 0, ""},
      {"its saving is piecewise", "detail " + eid_ + " -o " + saved, "write|1+|short|saved", 0, ""},
  });
  EXPECT_EQ(files::read(saved), "port = none\n");
}

TEST_F(Faults, OfALogAreNamed) {
  const std::string log = dir_ / "log", gz = log + ".gz";
  shell("mkdir " + dir_ / "logs" + "; cp " + log + " " + dir_ / "logs/syslog" + "; head -c -1024 " + tar_ + " > " +
        dir_ / "cut.tar; truncate -s -512 " + dir_ / "cut.tar");
  // Its only member begins, and nothing of it is there.
  shell("cd " + dir_.path() +
        "; truncate -s 67108865 logs/large; tar cf - logs/large 2>/dev/null | head -c 512 > large.tar");
  shell("cd " + dir_.path() + "; rm logs/large; truncate -s 67110400 large.tar");
  const auto show = [&](const std::string &name) { return "show --log " + name + " " + kLogged; };
  expect_all({
      {"a read that is interrupted", show(log), "read|1|4|log", 0, "in the log"},
      {"a read that fails", show(log), "read|1|5|log", 1, "Input/output error"},
      {"it cannot be opened", show(log), "open|1|13|log", 1, "Permission denied"},
      {"its place cannot be told", show(log), "lseek|1+|29|log", 0, "in the log"},
      {"its size cannot be had", show(log), "fstat|2|5|log", 0, "in the log"},
      {"a directory cannot be opened", show(dir_.path()), "openat|1+|13|" + dir_.path(), 1, "Permission denied"},
      {"a directory cannot be read", show(dir_.path()), "fdopendir|1+|12|" + dir_.path(), 1, "Cannot allocate memory"},
      {"no journal is installed", "show --log journal " + kLogged, "access|1+|2|journalctl", 1,
       "cannot read journal: journalctl is not installed"},
      {"standard input cannot be read", "show --log - " + kLogged, "F_DUPFD_CLOEXEC|1|24|", 1,
       "cannot read standard input: Too many open files"},
      {"no journal, and the usual logs cannot be read", "show " + kLogged,
       "access|1+|2|journalctl\nopenat|1|13|/var/log", 1,
       "and others could not\n  Not readable    /var/log: Permission"},
      {"no journal, and no usual logs", "show " + kLogged, "access|1+|2|journalctl\nopenat|1|2|/var/log", 4,
       "in none of the logs that were searched\n  Logs searched   0\n"},
      {"a log that went meanwhile", show(dir_ / "logs"), "openat|1|2|syslog", 4, "  Verdict         not_in_logs: "},
      {"a directory in which logs are", show(dir_ / "logs/"), "", 0, dir_ / "logs/syslog"},
      {"logs of a collection", show(tar_), "", 0, "in the log"},
      {"logs of a collection, no memory for them", show(tar_), "memfd_create|1|24|lines", 1, "Too many open files"},
      {"logs of a collection, no room for them", show(tar_), "write|1|28|lines", 1, "No space left on device"},
      {"logs of a collection that cannot be read again", show(tar_), "lseek|1|29|lines", 1, "Illegal seek"},
      {"logs of a collection that cannot be read", show(tar_), "pread|7|5|all.tar", 1, "Input/output error"},
      {"logs that are too large for a collection", show(dir_ / "large.tar"), "", 1,
       "/large.tar/logs/large: larger than the logs of a collection are"},
      {"a collection that ends early", show(dir_ / "cut.tar"), "", 1, "a member ends behind the end of the archive"},
      {"what unpacks it is not installed", show(gz), "access|1+|2|gzip", 1, "gzip is needed and is not installed"},
      {"no memory for its errors", show(gz), "memfd_create|1|24|errors", 1, "gzip cannot be started"},
      {"no room for its errors", show(gz), "ftruncate|1|28|errors", 1, "gzip cannot be started"},
      {"no bound for its errors", show(gz), "F_ADD_SEALS|1|1|errors", 1, "gzip cannot be started"},
      {"no pipe for its output", show(gz), "pipe2|1|24|", 1, "gzip cannot be started"},
      {"no memory for starting it", show(gz), "posix_spawn_file_actions_init|1|12|", 1, "gzip cannot be started"},
      {"waiting for output is interrupted", show(gz), "poll|1|4|", 0, "in the log"},
      {"waiting for output fails", show(gz), "poll|1|12|", 0, "in the log"},
      {"no output comes", show(gz), "poll|1|end|", 1, "log.gz: nothing came for a minute"},
      {"waiting for its end is interrupted", show(gz), "waitpid|1|4|", 0, "in the log"},
      {"it has ended already", show(gz), "waitpid|1+|10|", 0, "in the log"},
  });
}
