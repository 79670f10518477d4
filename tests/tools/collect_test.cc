// vosk collect, and what the reading verbs make of a collection.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tool::json;

namespace {

const std::string kStacks = sandbox::kStacks, kDumps = sandbox::kDumps;

std::string shell(const std::string &command) {
  std::string text;
  FILE *const pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) return "";
  char buffer[4096];
  for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
  EXPECT_EQ(pclose(pipe), 0) << command << "\n" << text;
  return text;
}

// An incident of two services, recorded by the library, with a copy of a detail file and a log; and an unrelated one.
struct incident {
  files::TemporaryDirectory dir;
  std::string cause, effect, unrelated, copy, cause_stack;

  incident() {
    EXPECT_TRUE(files::write(dir / "settings", "port = none\n"));
    cause = push("disk", "", dir / "settings");
    cause_stack = getenv("VOSKSTACK");
    effect = push("db", cause, "");
    unrelated = push("mail", "", "");
    copy = kDumps + "/" + files::list(kDumps).at(0);
    EXPECT_TRUE(files::write(dir / "log", "Nov 14 22:13:20 n db: 2615-000 " + effect + "\n" +
                                              "Nov 14 22:13:21 n mail: 2615-000 " + unrelated + "\nanother line\n"));
  }

  // Takes away everything that the incident left on the node: from here on this is another machine.
  void leave_the_node() const { ASSERT_EQ(sandbox::fresh(), ""); }

  // With the incident's log.
  tool::result collect(std::vector<std::string> options) const {
    options.insert(options.begin(), {"vosk", "collect", "--log", dir / "log"});
    return tool::run(options);
  }

 private:
  static std::string push(const char *process, const std::string &cause, const std::string &detail_file) {
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
    EXPECT_EQ(vk_init_main_1(VK_STACK_CREAT, process, getpid(), 0), 0);
    setenv("VOSKADDR", builder::kAddress, 1);  // another node's
    vk_eid_t eid = "", assoc = "";
    (void)std::snprintf(assoc, sizeof assoc, "%s", cause.c_str());
    (void)vk_push_stack_1(&eid, assoc, "r", "p", "s.c", "1", 1, 0, detail_file.empty() ? "text" : nullptr,
                          detail_file.empty() ? nullptr : detail_file.c_str(), "c", 1, 1, "%s failed", process);
    return eid;
  }
};

std::vector<std::string> members(const std::string &archive) {
  std::vector<std::string> names;
  std::string text = shell("tar tf " + archive);
  for (std::size_t end; (end = text.find('\n')) != std::string::npos; text.erase(0, end + 1))
    names.push_back(text.substr(0, end));
  return names;
}

json manifest_of(const std::string &archive) {
  return json::parse(shell("tar xOf " + archive + " manifest.json"));
}

// A record of the System Log as a line.
std::string log_record(const std::string &eid, const std::string &reference, const std::string &copy) {
  return "Nov 14 22:13:20 n db: (Recorded using libqx_vosk.a cv 2):::Error ID: " + eid +
         ":::Reference ID: " + reference + ":::Template ID: 0:::Details File: " + copy +
         ":::Location: p,s.c,1,7:::gave up\n";
}

std::string base_name(const std::string &path) {
  return path.substr(path.rfind('/') + 1);
}

std::string copy_named(const std::string &name) {
  std::string path = kDumps + "/" + name + ".1.20231114.221320";
  EXPECT_TRUE(files::write(path, "a copy"));
  return path;
}

}  // namespace

TEST(Collect, HoldsTheStacksOfAnIncidentItsCopiesItsLogLinesAndAManifest) {
  const incident made;
  const std::string tar = made.dir / "incident.tar";
  const tool::result r = made.collect({made.effect, "-o", tar});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> names = members(tar);
  ASSERT_EQ(names.size(), 5u) << r.out;
  EXPECT_EQ(names[0], "dumps/" + base_name(made.copy));
  EXPECT_THAT(names[1], testing::StartsWith("logs/"));
  EXPECT_THAT(names[2], testing::StartsWith("stacks/db."));
  EXPECT_THAT(names[3], testing::StartsWith("stacks/disk."));
  EXPECT_EQ(names[4], "manifest.json");
  EXPECT_EQ(shell("tar xOf " + tar + " " + names[1]), "Nov 14 22:13:20 n db: 2615-000 " + made.effect + "\n");
  EXPECT_EQ(shell("tar xOf " + tar + " " + names[3]), files::read(made.cause_stack));

  const json manifest = manifest_of(tar);
  EXPECT_EQ(manifest["type"], "manifest");
  EXPECT_EQ(manifest["asked_for"], made.effect);
  EXPECT_THAT(manifest["identifiers"].elements(), testing::UnorderedElementsAre(made.cause, made.effect));
  EXPECT_TRUE(manifest["node"]["addresses"].is_array());
  EXPECT_TRUE(manifest["clock"]["seconds_since_boot"].is_number());
  ASSERT_EQ(manifest["members"].size(), 4u);
  for (const json &member : manifest["members"].elements())
    EXPECT_EQ(shell("tar xOf " + tar + " " + member["member"].text() + " | sha256sum"),
              member["sha256"].text() + "  -\n");
  EXPECT_EQ(manifest["members"][3]["from"], made.cause_stack);
  EXPECT_EQ(manifest["members"][3]["inode"], tool::inode_of(made.cause_stack));
  EXPECT_EQ(manifest["members"][3]["read_in_one_piece"], true);
  EXPECT_EQ(manifest["members"][0]["from"], made.copy);

  struct stat st {};
  ASSERT_EQ(stat(tar.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(st.st_size % 512, 0);
}

TEST(Collect, TakesEverythingWhereThatIsAskedFor) {
  const incident made;
  ASSERT_EQ(made.collect({"--all", "-o", made.dir / "all.tar"}).status, 0);
  EXPECT_EQ(members(made.dir / "all.tar").size(), 5u) << "three stacks, a copy and the manifest";
  const auto own = tool::options::with({{"VOSKSTACK", made.cause_stack}});
  ASSERT_EQ(tool::run({"vosk", "collect", "--all", "--log", "none", "-o", made.dir / "own.tar"}, own).status, 0);
  EXPECT_EQ(members(made.dir / "own.tar"), members(made.dir / "all.tar")) << "the caller's own stack once";
  EXPECT_EQ(manifest_of(made.dir / "all.tar")["asked_for"], "all");
}

TEST(Collect, TakesARecordWithoutAnIdentifierThatRefersToAnIncident) {
  const incident made;
  builder::record r;
  r.eid.clear();
  r.associated = made.cause;
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(kStacks + "/unidentified", m.file());
  ASSERT_EQ(made.collect({made.effect, "-o", made.dir / "a.tar"}).status, 0);
  EXPECT_THAT(members(made.dir / "a.tar"), testing::Contains("stacks/unidentified"));
  EXPECT_THAT(manifest_of(made.dir / "a.tar")["identifiers"].elements(),
              testing::UnorderedElementsAre(made.cause, made.effect));
}

TEST(Collect, TakesACopyOnceThoughSeveralRecordsCiteIt) {
  const incident made;
  const std::string logged = copy_named("logged");
  builder::record r;
  r.detail = made.copy;
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(kStacks + "/again", m.file());
  const std::string lines = log_record("", "", made.copy) + log_record("damaged", "", logged);
  ASSERT_TRUE(files::write(made.dir / "log", lines));
  ASSERT_EQ(made.collect({"--all", "-o", made.dir / "a.tar"}).status, 0);
  const std::vector<std::string> names = members(made.dir / "a.tar");
  ASSERT_EQ(names.size(), 8u) << testing::PrintToString(names);
  EXPECT_THAT(std::vector(names.begin(), names.begin() + 2),
              ElementsAre("dumps/" + base_name(made.copy), "dumps/" + base_name(logged)));
  EXPECT_EQ(shell("tar xOf " + (made.dir / "a.tar") + " " + names[2]), lines) << "records without identifiers, too";
}

TEST(Collect, KeepsStacksOfOneNameApart) {
  files::TemporaryDirectory dir;
  for (const char *node : {"node1", "node2"}) {
    ASSERT_EQ(mkdir((dir / node).c_str(), 0755), 0);
    builder::record r;
    r.process = node;
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(dir / (node + std::string("/job")), m.file());
  }
  ASSERT_EQ(tool::run({"vosk", "collect", "--all", "--log", "none", "--dir", dir.path(), "-o", dir / "a.tar"}).status,
            0);
  EXPECT_THAT(members(dir / "a.tar"), ElementsAre("stacks/2/job", "stacks/job", "manifest.json"));
  EXPECT_THAT(tool::run({"vosk", "report", dir / "a.tar"}).out,
              testing::AllOf(HasSubstr(" node1["), HasSubstr(" node2[")));
}

TEST(Collect, NamesLogsAfterTheirSources) {
  const incident made;
  const std::string far = made.dir / (std::string(90, 'n') + "_~{Z.9-z");
  for (const std::string &path : {far, made.dir / "_"}) ASSERT_TRUE(files::write(path, log_record("", "", "")));
  ASSERT_EQ(chdir(made.dir.path().c_str()), 0);
  ASSERT_EQ(tool::run({"vosk", "collect", "--all", "--log", far, "--log", "_", "-o", "a.tar"}).status, 0);
  ASSERT_EQ(chdir("/"), 0);
  EXPECT_THAT(members(made.dir / "a.tar"),
              testing::IsSupersetOf({"logs/" + std::string(72, 'n') + "___Z.9-z", std::string("logs/log")}));
}

TEST(Collect, WritesToAStandardOutputThatIsNoTerminal) {
  const incident made;
  const tool::result r = made.collect({made.effect, "-o", "-"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  ASSERT_TRUE(files::write(made.dir / "piped.tar", r.out));
  EXPECT_EQ(members(made.dir / "piped.tar").size(), 5u) << "the archive, and nothing that is told about it";
  const std::vector<std::string> command{"vosk", "collect", made.effect, "--log", "none", "-o", "-"};
  const tool::result full = tool::run(command, tool::options::to("/dev/full"));
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.err, "vosk: cannot write the collection: No space left on device\n");

  int fd = -1;
  const pid_t process = forkpty(&fd, nullptr, nullptr, nullptr);
  if (process == 0) {
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "collect", "--all", "--log", "none", "-o", "-", nullptr);
    _exit(127);
  }
  std::string shown;
  char buffer[4096];
  for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) shown.append(buffer, static_cast<std::size_t>(n));
  int status = 0;
  ASSERT_EQ(waitpid(process, &status, 0), process);
  (void)close(fd);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
  EXPECT_THAT(shown, HasSubstr("an archive is nothing for a terminal"));
}

TEST(Collect, TellsAnOwnerThatTheFormatHasNoRoomFor) {
  const incident made;
  if (chown(made.copy.c_str(), 3000000, 0) != 0) CANNOT_RUN_HERE("needs users of any number");
  ASSERT_EQ(made.collect({made.cause, "-o", made.dir / "a.tar"}).status, 0);
  EXPECT_EQ(manifest_of(made.dir / "a.tar")["members"][0]["owner"], 3000000);
  EXPECT_THAT(shell("tar tvf " + (made.dir / "a.tar") + " --numeric-owner"), HasSubstr(" 65534/0 "));
}

TEST(Collect, MakesTheSameBytesOfTheSameContents) {
  const incident made;
  const auto without_clock = [&](const std::string &name) {
    EXPECT_EQ(made.collect({made.cause, "-o", made.dir / name}).status, 0);
    const std::string bytes = *files::read(made.dir / name);
    return bytes.substr(0, bytes.find("manifest.json"));
  };
  const std::string first = without_clock("a");
  EXPECT_THAT(first, HasSubstr("logs/"));
  usleep(1100000);  // times of members are in seconds
  EXPECT_EQ(without_clock("b"), first);
}

TEST(Collect, IsReadByEveryVerbOnAnotherMachinePackedAndUnpacked) {
  const incident made;
  const std::string packed = made.dir / "packed.tar", unpacked = made.dir / "unpacked", several = made.dir / "several";
  ASSERT_EQ(made.collect({made.cause, "-o", packed}).status, 0);
  ASSERT_EQ(mkdir(unpacked.c_str(), 0755), 0);
  ASSERT_EQ(mkdir(several.c_str(), 0755), 0);
  shell("tar xf " + packed + " -C " + unpacked + "; cp " + packed + " " + several + "/node1.tar");
  made.leave_the_node();
  for (const std::string &place : {packed, unpacked, several}) {
    SCOPED_TRACE(place);
    const auto run = [&](std::vector<std::string> command) {
      command.insert(command.begin(), "vosk");
      command.insert(command.end(), {"--dir", place});
      const tool::result r = tool::run(command);
      EXPECT_EQ(r.status, 0) << testing::PrintToString(command) << r.out;
      EXPECT_EQ(r.err, "") << testing::PrintToString(command);
      return r.out;
    };
    EXPECT_THAT(run({"report"}),
                testing::AllOf(HasSubstr(made.cause), HasSubstr(made.effect), Not(HasSubstr(made.unrelated))));
    EXPECT_THAT(run({"list"}), testing::AllOf(HasSubstr("disk."), HasSubstr("db.")));
    EXPECT_EQ(run({"verify"}), "");
    EXPECT_THAT(run({"show", made.effect}), HasSubstr("present"));
    EXPECT_THAT(run({"detail", made.cause}), HasSubstr("port = none\n"));
    EXPECT_THAT(run({"show", "--detail", made.cause}), HasSubstr("port = none\n"));
    EXPECT_THAT(run({"trace", "--log", "none", made.effect}),
                testing::AllOf(HasSubstr(made.cause), HasSubstr(made.effect)));
    EXPECT_THAT(run({"annotate", made.dir / "log"}), HasSubstr("db[" + std::to_string(getpid()) + "] s.c:1 db failed"));
    EXPECT_EQ(tool::run({"vosk", "show", "--dir", place, made.unrelated}).status, 4);
  }
  EXPECT_THAT(tool::run({"vosk", "report", packed}).out, HasSubstr(made.cause)) << "as a name";
  EXPECT_EQ(tool::run({"vosk", "detail", made.cause, "--dir", packed, "-o", "-"}).out, "port = none\n");
}

TEST(Collect, IsALogOfWhatItHolds) {
  const incident made;
  const std::string packed = made.dir / "packed.tar", unpacked = made.dir / "unpacked";
  // An identifier of the System Log, which refers to the incident.
  std::string logged = made.effect;
  logged[0] = '8';
  logged.replace(1, 6, builder::digits(24 * 8 + 3, 6));
  ASSERT_TRUE(files::write(made.dir / "log", log_record(logged, made.effect, "")));
  ASSERT_EQ(made.collect({made.cause, "-o", packed}).status, 0);
  ASSERT_EQ(mkdir(unpacked.c_str(), 0755), 0);
  shell("tar xf " + packed + " -C " + unpacked);
  made.leave_the_node();
  for (const std::string &place : {packed, unpacked}) {
    SCOPED_TRACE(place);
    EXPECT_THAT(tool::run({"vosk", "trace", "--dir", place, made.cause}).out, HasSubstr("gave up " + logged));
    EXPECT_THAT(tool::run({"vosk", "show", "--dir", place, logged}).out, HasSubstr("gave up"));
  }
}

TEST(Collect, CanBeMadeOfACollection) {
  const incident made;
  ASSERT_EQ(made.collect({"--all", "-o", made.dir / "all.tar"}).status, 0);
  made.leave_the_node();
  ASSERT_EQ(made.collect({made.effect, "--dir", made.dir / "all.tar", "-o", made.dir / "one.tar"}).status, 0);
  EXPECT_EQ(members(made.dir / "one.tar").size(), 5u);
  const json copy = manifest_of(made.dir / "one.tar")["members"][0];
  EXPECT_EQ(copy["modified"],
            manifest_of(made.dir / "all.tar")["members"][0]["modified"].text().substr(0, 19) + ".000000Z");
  EXPECT_FALSE(copy.contains("file_inode") || copy.contains("made")) << "those of the archive: " << copy;
  EXPECT_THAT(tool::run({"vosk", "detail", made.cause, "--dir", made.dir / "one.tar"}).out, HasSubstr("port = none\n"));
}

TEST(Collect, KeepsLongNamesAndSaysWhatIsGone) {
  const std::string name = std::string(180, 'n') + ".1.20231114.221320";
  builder::record r;
  r.detail = kDumps + "/" + name;
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(kStacks + "/" + name, m.file());
  files::TemporaryDirectory dir;
  const tool::result gone = tool::run({"vosk", "collect", "--all", "--log", "none", "-o", dir / "a"});
  EXPECT_EQ(gone.status, 0);
  EXPECT_THAT(gone.out, HasSubstr("not collected: " + kDumps + "/" + name + ": No such file or directory\n"));
  ASSERT_TRUE(files::write(kDumps + "/" + name, "the copy"));
  ASSERT_EQ(tool::run({"vosk", "collect", "--all", "--log", "none", "-o", dir / "b"}).status, 0);
  EXPECT_THAT(members(dir / "b"), ElementsAre("dumps/" + name, "stacks/" + name, "manifest.json"));
  ASSERT_EQ(sandbox::fresh(), "");
  EXPECT_THAT(tool::run({"vosk", "detail", r.eid, "--dir", dir / "b"}).out, testing::EndsWith("\nthe copy"));
}

TEST(Collect, TellsInJsonWhatItHoldsAndWhatIsGone) {
  const incident made;
  ASSERT_EQ(unlink(made.copy.c_str()), 0);
  const tool::result r = made.collect({"--json", made.cause, "-o", made.dir / "a"});
  EXPECT_EQ(r.status, 0) << r.err;
  std::vector<std::string> told;
  for (const json &line : tool::json_lines(r.out)) {
    if (line["type"] != "collected") continue;
    told.push_back(line["member"]);
    EXPECT_GT(line["size"].number(), 0);
    EXPECT_EQ(std::string(line["sha256"]).size(), 64u);
  }
  told.push_back("manifest.json");  // which is about them
  EXPECT_EQ(told, members(made.dir / "a"));
  const json gone = tool::json_lines(r.out).back();
  EXPECT_EQ(gone["type"], "not_collected");
  EXPECT_EQ(gone["file"], made.copy);
  EXPECT_EQ(gone["reason"], "No such file or directory");
}

TEST(Collect, SaysWhichStackItMayNotRead) {
  const incident made;
  ASSERT_TRUE(files::write(kStacks + "/notes", "no stack"));
  const tool::result all = tool::run({"vosk", "collect", "--all", "--log", "none", "-o", made.dir / "all"},
                                     tool::options::with({{"VOSKSTACK", kStacks + "/gone"}}));
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(all.err, "") << "neither of what is no stack nor of what is gone";
  ASSERT_EQ(chmod(made.cause_stack.c_str(), 0), 0);
  const tool::result r =
      tool::run({"vosk", "collect", "--all", "--log", "none", "-o", made.dir / "a"}, tool::options::without_power());
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("cannot read " + made.cause_stack + ": "));
  EXPECT_TRUE(files::exists(made.dir / "a")) << "with all the rest";
}

TEST(Collect, LeavesNothingBehindWhenItFails) {
  const incident made;
  ASSERT_TRUE(files::write(made.dir / "there", "precious"));
  EXPECT_EQ(made.collect({"--all", "-o", made.dir / "there"}).status, 1);
  EXPECT_EQ(files::read(made.dir / "there"), "precious");
  ASSERT_EQ(symlink((made.dir / "target").c_str(), (made.dir / "link").c_str()), 0);
  EXPECT_EQ(made.collect({"--all", "-o", made.dir / "link"}).status, 1);
  EXPECT_FALSE(files::exists(made.dir / "target"));

  const std::string full = std::string(sandbox::kRoot) + "/full.tar";
  ASSERT_TRUE(sandbox::fill(3));
  const tool::result r = made.collect({"--all", "-o", full});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("cannot write the collection: No space left on device\n"));
  EXPECT_FALSE(files::exists(full));
  ASSERT_TRUE(sandbox::remove_filling());
}

TEST(Collect, LeavesNothingBehindAtALimitOrASignal) {
  const incident made;
  const std::string tar = made.dir / "a.tar";
  const rlimit small{4096, RLIM_INFINITY}, any{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  const tool::result r = made.collect({"--all", "-o", tar});
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &any), 0);
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("cannot write the collection: File too large\n"));
  EXPECT_FALSE(files::exists(tar));

  ASSERT_EQ(truncate(made.copy.c_str(), 1 << 30), 0) << "more than is written before the signal";
  const rlimit none{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &none), 0);
  const pid_t process = fork();
  if (process == 0) {
    (void)std::signal(SIGHUP, SIG_IGN);  // as nohup does
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "collect", "--all", "--log", "none", "-o", tar.c_str(), nullptr);
    _exit(127);
  }
  for (int i = 0; i < 1000 && !files::exists(tar); ++i) usleep(5000);
  EXPECT_TRUE(files::exists(tar));
  ASSERT_EQ(kill(process, SIGHUP), 0);
  usleep(50000);
  EXPECT_EQ(waitpid(process, nullptr, WNOHANG), 0) << "it goes on";
  ASSERT_EQ(kill(process, SIGQUIT), 0);
  int status = 0;
  ASSERT_EQ(waitpid(process, &status, 0), process);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGQUIT) << status;
  EXPECT_FALSE(files::exists(tar));
}

TEST(Collect, TakesWhatAnybodyCanPlantWithinBounds) {
  const incident made;
  ASSERT_EQ(truncate(made.copy.c_str(), (std::int64_t{1} << 30) + 1), 0);
  const tool::result r = made.collect({"--all", "-o", made.dir / "large"});
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, HasSubstr("not collected: " + made.copy + ": too large\n"));
  EXPECT_EQ(manifest_of(made.dir / "large")["missing"][0]["reason"], "too large");

  // A regular file that fails to be read.
  ASSERT_EQ(mount("/proc/self/mem", made.copy.c_str(), nullptr, MS_BIND, nullptr), 0);
  const tool::result unread = made.collect({"--all", "-o", made.dir / "unread"});
  ASSERT_EQ(umount(made.copy.c_str()), 0);
  EXPECT_EQ(unread.status, 1);
  EXPECT_THAT(unread.out, HasSubstr("not whole: Input/output error\n"));
  EXPECT_THAT(unread.err, HasSubstr("cannot read " + made.copy + ": Input/output error\n"));
  EXPECT_EQ(members(made.dir / "unread").size(), 5u);
  EXPECT_EQ(manifest_of(made.dir / "unread")["members"][0]["failure"], "Input/output error");
}

TEST(Collect, LooksAtNoMoreLogLinesThanFit) {
  const incident made;
  // A quarter of a GiB in lines of the longest kind.
  shell("cd " + made.dir.path() + "; line=$(printf '%s%65000s' " + made.effect + " .); for i in $(seq 64); do " +
        "echo \"$line\"; done | gzip -1 >part.gz; for i in $(seq 66); do cat part.gz; done >log.gz");
  const tool::result r = tool::run({"vosk", "collect", "--all", "--log", made.dir / "log.gz", "-o", made.dir / "a"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("cannot read the rest of the logs: they hold more than can be looked at at once\n"));
  EXPECT_EQ(manifest_of(made.dir / "a")["logs_not_whole"], true);
}

TEST(Collect, HasAnExitStatusForEveryOutcome) {
  files::TemporaryDirectory dir;
  EXPECT_EQ(tool::run({"vosk", "collect", "--all", "--log", "none", "-o", dir / "a"}).status, 4);
  const incident made;
  struct {
    std::vector<std::string> options;
    int status;
  } const rows[] = {
      {{"--all", "-o", dir / "b"}, 0},
      {{"--all", "-o", "/nowhere/b"}, 1},
      {{"--all", "--log", "/nowhere/log", "-o", dir / "c"}, 1},
      {{"--all"}, 2},
      {{"-o", dir / "d"}, 2},
      {{made.cause, "--all", "-o", dir / "d"}, 2},
      {{builder::stack_eid(1, 1700000000, 1), "-o", dir / "d"}, 4},
      {{"no identifier", "-o", dir / "d"}, 4},
      {{"--help"}, 0},
  };
  for (const auto &row : rows)
    EXPECT_EQ(made.collect(row.options).status, row.status) << testing::PrintToString(row.options);
  EXPECT_FALSE(files::exists(dir / "d"));
  builder::bytes damaged = builder::never_wrapped_file();
  damaged[24] ^= 1;
  tool::write_stack(kStacks + "/damaged", damaged);
  EXPECT_EQ(made.collect({"--all", "-o", dir / "e"}).status, 3);
  EXPECT_TRUE(files::exists(dir / "e"));
}

TEST(Collect, ReadsHostileArchivesWithinTheirBounds) {
  const incident made;
  const std::string tar = made.dir / "a.tar";
  ASSERT_EQ(made.collect({"--all", "-o", tar}).status, 0);
  made.leave_the_node();
  const std::string good = *files::read(tar);
  const auto reread = [&](const std::string &bytes) {
    EXPECT_TRUE(files::write(made.dir / "hostile.tar", bytes));
    const tool::result r = tool::run({"vosk", "report", made.dir / "hostile.tar"});
    const tool::result d = tool::run({"vosk", "detail", made.cause, "--dir", made.dir / "hostile.tar"});
    EXPECT_TRUE(r.status < 5 && d.status < 5) << r.status << d.status << r.err;
    return r;
  };
  for (std::size_t size = 512; size < good.size(); size += 3001) (void)reread(good.substr(0, size));
  EXPECT_THAT(reread(good.substr(0, 5000)).err, HasSubstr("cannot read "));

  const auto with_header = [&](std::size_t at, std::string_view text) {
    std::string bytes = good;
    bytes.replace(at, text.size(), text);
    bytes.replace(148, 8, "        ");
    unsigned sum = 0;
    for (std::size_t i = 0; i < 512; ++i) sum += static_cast<unsigned char>(bytes[i]);
    char digits[8];
    (void)std::snprintf(digits, sizeof digits, "%06o", sum);
    bytes.replace(148, 7, std::string(digits, 7));
    return reread(bytes);
  };
  struct {
    const char *what;
    std::size_t at;
    std::string text;
    const char *said;
  } const rows[] = {
      {"a size beyond the end", 124, "77777777777", "a member ends behind the end of the archive"},
      {"a size that is no number", 124, "0000x", "the size of a member is no number"},
      {"a binary size", 124, std::string("\x80\0\0\0\0\0\0\0\0\0\0\x10", 12), "the size of a member is no number"},
      {"a link", 156, "2", ""},
      {"a directory", 156, "5", ""},
      {"a sparse file", 156, "S", ""},
      {"a name that leads out", 0, "../../etc/passwd", ""},
      {"an absolute name", 0, "/etc/passwd", ""},
      {"a long name that is none", 156, "L", ""},
      {"attributes that are none", 156, "x", "the attributes of a member are damaged"},
  };
  for (const auto &row : rows) EXPECT_THAT(with_header(row.at, row.text).err, HasSubstr(row.said)) << row.what;
  EXPECT_FALSE(files::exists("/etc/passwd.1"));
}
