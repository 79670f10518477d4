// What following, collecting and pruning do where the platform's calls fail, or others change files meanwhile.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "support/files.h"
#include "support/sandbox.h"
#include "tools/faults.h"

namespace {

const std::string kStacks = sandbox::kStacks, kDumps = sandbox::kDumps;
const std::string kName = "job.4194303.20231114.221320", kStack = kStacks + "/" + kName, kCopy = kDumps + "/" + kName;

// A stack of processes that are gone, whose record cites a copy; both are old.
class Faults : public testing::Test {
 protected:
  void SetUp() override { make_anew(); }

  void make_anew() const {
    ASSERT_EQ(sandbox::fresh(), "");
    tool::write_stack(kStack, builder::bytes(1));
    builder::record r;
    r.at(1700000000, 1, tool::inode_of(kStack));
    r.detail = kCopy;
    r.pid = 4194303;
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(kStack, m.file());
    ASSERT_TRUE(files::write(kCopy, "port = none\n"));
    const timespec at{1700000000, 0}, times[] = {at, at};
    for (const std::string &path : {kStack, kCopy}) ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }

  // Each row with the files as they were made.
  void expect_all(const std::vector<faults::row> &rows) const {
    for (const faults::row &row : rows) {
      make_anew();
      faults::expect(row);
    }
  }

  files::TemporaryDirectory dir_;
};

}  // namespace

TEST_F(Faults, OfAPruneKeepFiles) {
  const std::string prune = "prune --older-than 1d", kept = "kept " + kStack + ": ", copy_kept = "kept " + kCopy + ": ";
  // Another stack that cites the copy, removed later than the processes were looked at.
  const std::string other = kStacks + "/kobold.4194303.20231114.221320", other_kept = "kept " + other + ": ";
  const std::string two = "openat|1|run cp -p " + kStack + " " + other + "|" + kStacks + "\nunlinkat|1|run ",
                    later = two + "sleep 0.6|";
  expect_all({
      {"nothing fails", prune, "", 0, "removed 2 files"},
      {"the stacks cannot be opened", prune, "openat|1|13|" + kStacks, 1, kStacks + ": Permission denied"},
      {"the copies cannot be opened", prune, "openat|1|13|" + kDumps, 1, kDumps + ": Permission denied"},
      {"the stacks lie behind a link", prune, "openat|1|40|" + kStacks, 1, kStacks + ": not a directory"},
      {"there are no stacks", prune, "openat|1|2|" + kStacks, 0, "removed 1 file "},
      {"there are neither", prune, "openat|1+|2|/var/adm/vosk", 4, kDumps + ": No such file or directory"},
      {"the stacks cannot be listed", prune, "fdopendir|1|12|stacks", 1, copy_kept + "a stack that may cite it cannot"},
      {"the copies cannot be listed", prune, "fdopendir|1|12|dumps", 1, "removed 1 file "},
      {"a stack cannot be read", prune, "pread|1|5|stacks/job", 1, kept + "it cannot be read: Input/output error"},
      {"a stack went", prune, "openat|2|2|job", 0, "removed 1 file of 12 bytes, kept 0 files"},
      {"a copy went", prune, "openat|1|2|job", 0, "removed 1 file of 8192 bytes, kept 0 files"},
      {"a copy cannot be looked at", prune, "openat|1|13|job", 1, copy_kept + "Permission denied"},
      {"a copy's kind cannot be had", prune, "fstat|1|5|dumps/job", 1, copy_kept + "Input/output error"},
      {"a copy's attributes cannot be had", prune, "statx|1|5|dumps/job", 1, copy_kept + "Input/output error"},
      {"processes cannot be looked at", prune, "openat|1|13|/proc", 1, "/proc: Permission denied"},
      {"processes cannot be listed", prune, "fdopendir|1|12|/proc", 1, "/proc: Cannot allocate memory"},
      {"processes are hidden", prune, "readdir|1|end|/proc", 1, "/proc does not show all processes"},
      {"processes are looked at again", prune, later, 0, "removed 3 files"},
      {"processes cannot be looked at again", prune, later + "\nopenat|2|13|/proc", 1,
       other_kept + "/proc: Permission denied"},
      {"a process came", prune, two + "VOSKSTACK=" + other + " sleep 1.5 >/dev/null 2>&1 & sleep 0.6|", 0,
       other_kept + "process "},
      {"environments cannot be read", prune, "read|1+|5|/proc/1/environ", 0,
       "could not be read: whether they use a stack"},
      {"a process's state is read piecewise", prune, "read|1+|short|/stat", 0, "removed 2 files"},
      {"a process's state cannot be read", prune, "read|1+|5|/stat", 0, "removed 2 files"},
      {"a process's ids cannot be read", prune, "read|1+|5|/status", 0, "removed 2 files"},
      {"a process's reading is interrupted", prune, "read|1|4|/stat", 0, "removed 2 files"},
      {"processes ended meanwhile", prune, "faccessat|2|2|", 0, "removed 2 files"},
      {"the time of the boot is not told", prune, "stat|1|5|/dev/null", 0, "removed 2 files"},
      {"the kernel's devices are not told", prune, "statfs|1|5|/dev/null", 0, "removed 2 files"},
      {"the kernel's devices lie elsewhere", prune, "statfs|1|nfs|/dev/null", 0, "removed 2 files"},
      {"somebody else removed it", prune, "renameat2|1|2|job", 0, kept + "somebody else removed it"},
      {"it cannot be renamed", prune, "renameat2|1|30|job", 1, kept + "Read-only file system"},
      {"it cannot be removed", prune, "unlinkat|1|1|job", 1, kept + "Operation not permitted"},
      {"it cannot be opened", prune, "open|2|24|/proc/self/fd", 1, kept + "Too many open files"},
      {"it was written", prune, "F_SETLEASE|1|run echo >> " + kStack + "|job", 0, kept + "it was written meanwhile"},
      {"its attributes are lost", prune, "statx|6|5|job", 1, kept + "Input/output error"},
      {"whether it is open cannot be told", prune, "F_SETLEASE|1|22|job", 1,
       kept + "whether it is open cannot be told"},
      {"it is locked by nobody that is seen", prune, "F_SETLK|2|11|job\nF_GETLK|1|22|job", 0, kept + "it is locked"},
      {"it is locked and let go", prune, "F_SETLK|2|11|job", 0, kept + "it is locked"},
  });
}

// Threads of the kernel have no environment, and newer kernels then do not open the file.
TEST_F(Faults, ThatOnlySayThatThereIsNoEnvironmentAreNone) {
  for (const char *failing : {"open|1+|3|/environ", "open|1+|2|/environ"}) {
    make_anew();
    const tool::result r = tool::run({"vosk", "prune", "--older-than", "1d"}, faults::with(failing));
    EXPECT_EQ(r.status, 0) << r.out;
    EXPECT_THAT(r.err, testing::Not(testing::HasSubstr("could not be read")));
  }
}

TEST_F(Faults, OfACollectionLeaveNoPartOfIt) {
  const std::string tar = std::string(sandbox::kRoot) + "/all.tar", log = dir_ / "log",
                    collect = "collect --all --log " + log + " -o " + tar;
  ASSERT_TRUE(files::write(log, "(Recorded using libqx_vosk.a cv 2):::Error ID: \n"));
  const std::string far = kStacks + "/" + std::string(180, 'n');  // a name that does not fit into a header
  const auto make_both = [&] {
    make_anew();
    tool::write_stack(far, builder::never_wrapped_file());
  };
  int nth = 1;
  for (; nth < 100; ++nth) {
    SCOPED_TRACE(nth);
    make_both();
    const tool::result r = tool::run({"vosk", "collect", "--all", "--log", log, "-o", tar},
                                     faults::with("write|" + std::to_string(nth) + "|28|all.tar"));
    if (r.status == 0) break;
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "vosk: cannot write the collection: No space left on device\n");
    EXPECT_FALSE(files::exists(tar));
  }
  EXPECT_GE(nth, 17)
      << "of a copy, a log and the manifest a header, contents and filling (which may be none), of stacks "
         "no filling, of one name the same once more, and the end";
  const auto anew = [&](faults::row row) {
    make_anew();
    faults::expect(row);
  };
  anew({"its writing is interrupted", collect, "write|1|4|all.tar", 0, "all.tar: 3 files"});
  anew({"it is not on the disk", collect, "fsync|1|5|all.tar", 1, "cannot write the collection: Input/output error"});
  EXPECT_FALSE(files::exists(tar));
  anew({"it is no file", collect, "fsync|1|22|all.tar", 0, "all.tar: 3 files"});
  anew({"a copy cannot be read", collect, "pread|1|5|dumps/job", 1, "not whole: Input/output error"});
  anew({"a copy became shorter", collect, "pread|1|run truncate -s 3 " + kCopy + "|dumps/job", 0,
        "it became shorter meanwhile"});
  anew({"the stacks went", "collect --all --log none -o " + tar, "openat|1|2|" + kStacks, 4,
        "there is nothing to collect"});
  anew({"the usual logs cannot be read", "collect --all -o " + tar, "openat|1|13|/var/log", 0, "all.tar: 2 files"});
  EXPECT_THAT(files::read(tar).value_or(""),
              testing::HasSubstr(R"({"log":"/var/log","read":false,"reason":"Permission denied"})"));
  anew({"a copy is gone", collect, "openat|1|2|" + kDumps, 0, "-- not collected: " + kCopy});
  anew(
      {"a stack cannot be read", collect, "pread|1|5|stacks/job", 1, "cannot read " + kStack + ": Input/output error"});
  anew({"no descriptor for the output", "collect --all --log none -o -", "dup|1|24|pipe", 1,
        "cannot make -: Too many open files"});
  const std::string full = "write|1|28|all.tar\n";
  for (const char *failing : {"lstat|1|5|all.tar", "fstat|1|5|all.tar"}) {
    anew({"it cannot be told apart from another", collect, full + failing, 1, "No space left on device"});
    EXPECT_TRUE(files::exists(tar));
  }
  anew({"another took its name", collect,
        full + "lstat|1|run mv " + tar + " " + tar + "2; echo x > " + tar + "|all.tar", 1, "No space left on device"});
  EXPECT_EQ(files::read(tar), "x\n");
  // Its directory is another one by now, with such a file.
  const std::string there = kDumps + "/all.tar", link = dir_ / "link", through = link + "/all.tar";
  ASSERT_EQ(symlink(dir_.path().c_str(), link.c_str()), 0);
  anew({"its place is another", "collect --all --log none -o " + through,
        full + "lstat|1|run ln -sfn " + kDumps + " " + link + "; echo x > " + there + "|all.tar", 1,
        "No space left on device"});
  EXPECT_EQ(files::read(there), "x\n");
}

TEST_F(Faults, OfFollowingAreMadeUpForByLooking) {
  const std::string copies = dir_ / "copies", inner = copies + "/inner", follow = "report -f --new " + copies;
  const auto meanwhile = [&](const std::string &what) { return "poll|1|run " + what + "|\n"; };
  const std::string copied = meanwhile("cp " + kStack + " " + inner), end = "poll|2|5|",
                    shown = "cannot open /etc/thing";
  const auto anew = [&](faults::row row) {
    ASSERT_EQ(std::system(("rm -rf " + copies + "; mkdir -p " + inner + "; mkfifo " + copies + "/fifo").c_str()), 0);
    faults::expect(row);
  };
  anew({"its waiting fails", follow, "poll|1|5|", 0, ""});
  anew({"its waiting is interrupted", follow, "poll|1|4|\n" + end, 0, ""});
  anew({"a record comes", follow, copied + "poll|3|5|", 0, shown});
  anew({"no notifications", follow, "inotify_init1|1|24|\n" + copied + end, 0, shown});
  anew({"no watches", follow, "inotify_add_watch|1+|28|\n" + copied + end, 0, shown});
  anew({"no watch of a directory in it", follow, "inotify_add_watch|1+|28|inner\n" + copied + end, 0, shown});
  anew({"files of other nodes", follow, "statfs|1+|nfs|\n" + copied + end, 0, shown});
  anew({"a file system that is not told", follow, "statfs|1+|5|\n" + copied + "poll|3|5|", 0, shown});
  anew({"files cannot be looked at", follow, "inotify_init1|1|24|\nfstatat|1+|5|\n" + copied + end, 0, ""});
  const std::string reserved = inner + "/a; truncate -s 16384 " + inner + "/a";
  anew({"a stack that is just being made beside it", follow,
        meanwhile("printf 'VKTFO=36    VKTFW=0     VKTFS=16384\\n' > " + reserved + "; cp " + kStack + " " + inner) +
            "poll|3|5|",
        0, shown});
  anew({"a directory goes", follow, meanwhile("rm -r " + inner) + "poll|3|5|", 0, ""});
  anew({"a directory comes", follow, meanwhile("mkdir " + inner + "2; cp " + kStack + " " + inner + "2") + "poll|3|5|",
        0, shown});
  anew({"a directory below the deepest comes", follow,
        meanwhile("mkdir -p " + copies + "/1/2/3/4/5/6/7/8/9/10") + "poll|3|5|", 0, ""});
  anew({"a file that is not there", "report -f " + copies + "/none", "poll|1|5|", 0, "No such file or directory"});
  anew({"a file at the root", "report -f /qx-no-such-file", "poll|1|5|", 0, "No such file or directory"});
  anew({"a file in this directory", "report -f qx-no-such-file", "poll|1|5|", 0, "No such file or directory"});
  anew({"its only file goes", "report -f --new " + kStack,
        meanwhile("echo > " + kStack) + "poll|3|run rm " + kStack + "|\npoll|5|5|", 0, ""});
  make_anew();
  const std::string events =
      "i=0; while [ $i -lt 8500 ]; do echo >> " + inner + "/a; echo >> " + inner + "/b; i=$((i+1)); done";
  anew({"more than is notified", follow, meanwhile(events + "; cp " + kStack + " " + inner) + "poll|3|5|", 0, shown});
}
