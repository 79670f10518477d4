// vosk prune: what goes, what stays and why, while real processes record.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <functional>
#include <random>
#include <set>

#include "proof/soak.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;
using tool::json;

namespace {

constexpr int kNobody = 4194303;  // a process id that no process has
constexpr std::int64_t kDay = 86400;
const std::string kStacks = sandbox::kStacks, kDumps = sandbox::kDumps;

std::string stack_of(const std::string &name, int pid = kNobody) {
  return kStacks + "/" + name + "." + std::to_string(pid) + ".20231114.221320";
}

std::string copy_of(const std::string &name) {
  return kDumps + "/" + name + ".1.20231114.221320";
}

void set_age(const std::string &path, std::int64_t seconds) {
  const timespec at{time(nullptr) - seconds, 0}, times[] = {at, at};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

// A stack with one record of process `pid`, made `age` seconds ago.
std::string make_stack(const std::string &path, std::int64_t age, const std::string &detail = "text",
                       int pid = kNobody) {
  builder::record r;
  r.at(static_cast<std::uint64_t>(time(nullptr) - age), 0);
  r.detail = detail;
  r.pid = static_cast<std::uint32_t>(pid);
  builder::model m;
  EXPECT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(path, m.file());
  set_age(path, age);
  return path;
}

std::string make_copy(const std::string &name, std::int64_t age) {
  EXPECT_TRUE(files::write(copy_of(name), "a copy"));
  set_age(copy_of(name), age);
  return copy_of(name);
}

// A child process that does something and then waits to be killed, if it does not end before.
class child {
 public:
  explicit child(const std::function<void()> &body) {
    int ready[2];
    EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      body();
      (void)!write(ready[1], "", 1);
      for (;;) pause();
    }
    (void)close(ready[1]);
    char done;
    EXPECT_EQ(read(ready[0], &done, 1), 1);
    (void)close(ready[0]);
  }
  child(const child &) = delete;
  child &operator=(const child &) = delete;
  ~child() {
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
  }
  int pid() const { return pid_; }

 private:
  pid_t pid_;
};

std::vector<json> prune(std::vector<std::string> options, int status = 0) {
  options.insert(options.begin(), {"vosk", "prune", "--json"});
  const tool::result r = tool::run(options);
  EXPECT_EQ(r.status, status) << r.out << r.err;
  return tool::json_lines(r.out);
}

// What became of a file: "removed", or why it was kept.
std::string fate(const std::vector<json> &lines, const std::string &path) {
  for (const json &line : lines)
    if (line.contains("file") && line["file"] == path)
      return line["action"] == "kept" ? line["because"].text() : line["action"].text();
  return "not named";
}

std::vector<std::string> removed(const std::vector<json> &lines) {
  std::vector<std::string> paths;
  for (const json &line : lines)
    if (line.contains("action") && line["action"] == "removed") paths.push_back(line["file"]);
  return paths;
}

}  // namespace

TEST(Prune, RemovesAStackWithItsCopiesWhenItsProcessesAreGone) {
  const std::string old = make_stack(stack_of("old"), 31 * kDay, make_copy("cited_by_old", 31 * kDay));
  const std::string young = make_stack(stack_of("young"), 29 * kDay, make_copy("cited_by_young", 31 * kDay));
  make_copy("cited_by_none", 31 * kDay);
  make_copy("young", 29 * kDay);
  const std::string old_too = make_stack(stack_of("old_too"), 31 * kDay, copy_of("cited_by_young"));
  const auto lines = prune({"--older-than", "30d"});
  EXPECT_EQ(fate(lines, old), "removed");
  EXPECT_EQ(fate(lines, old_too), "removed");
  EXPECT_EQ(fate(lines, copy_of("cited_by_old")), "removed");
  EXPECT_EQ(fate(lines, young), "too_young");
  EXPECT_EQ(fate(lines, copy_of("cited_by_young")), "cited");
  EXPECT_EQ(fate(lines, copy_of("cited_by_none")), "removed");
  EXPECT_EQ(fate(lines, copy_of("young")), "too_young");
  EXPECT_EQ(files::list(kStacks), std::vector<std::string>{young.substr(kStacks.size() + 1)});
  EXPECT_EQ(files::list(kDumps).size(), 2u);
  EXPECT_EQ(lines.back()["type"], "prune");
  EXPECT_EQ(lines.back()["removed"], 4);
  EXPECT_EQ(lines.back()["kept"], 3);
}

TEST(Prune, TellsTheProcessesOfAStackFromLaterOnesWithTheirIds) {
  const child process([] {});
  const std::int64_t ancient = 20 * 365 * kDay;
  const std::string later_process = make_stack(stack_of("later_originator", process.pid()), ancient),
                    originator = make_stack(stack_of("originator", process.pid()), 0),
                    recorder = make_stack(stack_of("recorder"), 0, "text", process.pid()),
                    later_recorder = make_stack(stack_of("later_recorder"), ancient, "text", process.pid()),
                    // Its age does not matter while somebody runs who recorded when it was made.
      quiet = make_stack(stack_of("quiet"), 0, "text", process.pid());
  set_age(quiet, ancient);
  const auto lines = prune({"--older-than", "0"});
  EXPECT_EQ(fate(lines, later_process), "removed");
  EXPECT_EQ(fate(lines, later_recorder), "removed");
  EXPECT_EQ(fate(lines, originator), "originator_runs");
  EXPECT_EQ(fate(lines, recorder), "owner_runs");
  EXPECT_EQ(fate(lines, quiet), "owner_runs");
}

TEST(Prune, KeepsTheStackOfAProcessThatHasItInItsEnvironment) {
  const std::string used = make_stack(stack_of("used"), 31 * kDay), other = make_stack(stack_of("other"), 31 * kDay);
  const pid_t process = fork();
  if (process == 0) {
    const std::string variable = "VOSKSTACK=" + used;
    const char *const environment[] = {"A=b", variable.c_str(), nullptr};
    execle("/bin/sleep", "sleep", "60", static_cast<char *>(nullptr), environment);
    _exit(127);
  }
  for (int i = 0; i < 1000; ++i) {  // until it runs
    const std::string running = files::read("/proc/" + std::to_string(process) + "/cmdline").value_or("");
    if (running.starts_with("sleep")) break;
    usleep(10000);
  }
  const auto lines = prune({"--older-than", "30d"});
  EXPECT_EQ(fate(lines, used), "owner_runs");
  EXPECT_EQ(fate(lines, other), "removed");
  (void)kill(process, SIGKILL);
  (void)waitpid(process, nullptr, 0);
  EXPECT_EQ(fate(prune({"--older-than", "30d"}), used), "removed");
}

TEST(Prune, TouchesNothingThatIsLockedOrOpen) {
  const std::string locked = make_stack(stack_of("locked"), 31 * kDay), open_ = make_stack(stack_of("open"), 31 * kDay),
                    open_copy = make_copy("open", 31 * kDay);
  {
    const child locker([&] {
      const int fd = open(locked.c_str(), O_RDWR);
      if (lockf(fd, F_LOCK, 0) != 0) _exit(1);
    });
    const child opener([&] {
      if (open(open_.c_str(), O_RDWR) < 0 || open(open_copy.c_str(), O_RDONLY) < 0) _exit(1);
    });
    const auto lines = prune({"--older-than", "30d"});
    EXPECT_EQ(fate(lines, locked), "locked");
    EXPECT_EQ(fate(lines, open_), "open");
    EXPECT_EQ(fate(lines, open_copy), "open");
    EXPECT_THAT(tool::run({"vosk", "prune", "--older-than", "30d"}).out,
                HasSubstr("kept " + locked + ": it is locked by process " + std::to_string(locker.pid()) + "\n"));
  }
  EXPECT_EQ(removed(prune({"--older-than", "30d"})).size(), 3u);
}

TEST(Prune, TouchesNothingButFilesOfTheLibrary) {
  files::TemporaryDirectory elsewhere;
  make_stack(elsewhere / "stack", 31 * kDay);
  struct {
    std::string path;
    const char *because;
    std::function<void(const std::string &)> make;
  } const rows[] = {
      {stack_of("link"), "no_stack",
       [&](const auto &p) { ASSERT_EQ(symlink((elsewhere / "stack").c_str(), p.c_str()), 0); }},
      {stack_of("fifo"), "no_stack", [](const auto &p) { ASSERT_EQ(mkfifo(p.c_str(), 0644), 0); }},
      {stack_of("directory"), "no_stack", [](const auto &p) { ASSERT_EQ(mkdir(p.c_str(), 0755), 0); }},
      {stack_of("text"), "no_stack", [](const auto &p) { ASSERT_TRUE(files::write(p, "my notes")); }},
      {stack_of("large"), "no_stack", [](const auto &p) { ASSERT_TRUE(files::write(p, std::string(1 << 20, 'x'))); }},
      {kStacks + "/name", "not_told", [](const auto &p) { make_stack(p, 31 * kDay); }},
      {kStacks + "/name.1.20231399.221320", "not_told", [](const auto &p) { make_stack(p, 31 * kDay); }},
      {copy_of("link"), "no_copy",
       [&](const auto &p) { ASSERT_EQ(symlink((elsewhere / "stack").c_str(), p.c_str()), 0); }},
      {copy_of("directory"), "no_copy", [](const auto &p) { ASSERT_EQ(mkdir(p.c_str(), 0755), 0); }},
      {kDumps + "/notes", "no_copy", [](const auto &p) { ASSERT_TRUE(files::write(p, "my notes")); }},
  };
  for (const auto &row : rows) {
    row.make(row.path);
    set_age(row.path, 31 * kDay);
  }
  const auto lines = prune({"--older-than", "30d"});
  for (const auto &row : rows) EXPECT_EQ(fate(lines, row.path), row.because) << row.path;
  EXPECT_EQ(lines.size(), std::size(rows) + 1);
  EXPECT_TRUE(files::exists(elsewhere / "stack"));
}

TEST(Prune, RemovesWhatAFirstRecordingLeftThatWasStopped) {
  ASSERT_TRUE(files::write(stack_of("empty"), ""));
  std::string reserved(16384, '\0');
  reserved.replace(0, 36, "VKTFO=36    VKTFW=0     VKTFS=16384\n");
  ASSERT_TRUE(files::write(stack_of("reserved"), reserved));
  for (const char *name : {"empty", "reserved"}) set_age(stack_of(name), 31 * kDay);
  EXPECT_EQ(removed(prune({"--older-than", "30d"})).size(), 2u);
}

TEST(Prune, DoesNotFollowALinkInThePlaceOfADirectory) {
  files::TemporaryDirectory elsewhere;
  make_stack(elsewhere / "p.4194303.20231114.221320", 31 * kDay);
  ASSERT_EQ(rmdir(kStacks.c_str()), 0);
  ASSERT_EQ(symlink(elsewhere.path().c_str(), kStacks.c_str()), 0);
  const tool::result r = tool::run({"vosk", "prune", "--older-than", "30d"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("/var/adm/vosk/stacks: not a directory\n"));
  EXPECT_EQ(files::list(elsewhere.path()).size(), 1u);
}

TEST(Prune, KeepsACopyWhoseRecordMayBeToCome) {
  make_copy("now", 0);
  make_copy("an_hour_ago", 3700);
  const auto lines = prune({"--older-than", "0", "--max-total", "0"}, 1);
  EXPECT_EQ(fate(lines, copy_of("now")), "just_made");
  EXPECT_EQ(fate(lines, copy_of("an_hour_ago")), "removed");
}

TEST(Prune, KeepsTheCopyThatACutRecordCites) {
  const std::string name = std::string(150, 'n');
  make_copy(name, 31 * kDay);
  builder::record r;
  r.detail = copy_of(name);
  r.default_text = std::string(700, 't');
  ASSERT_EQ(builder::record_bytes(r).size(), 1024u) << "cut";
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  ASSERT_TRUE(m.push(builder::record_bytes({})));
  tool::write_stack(stack_of("cut"), m.file());
  EXPECT_EQ(fate(prune({"--older-than", "30d"}), copy_of(name)), "cited");
}

TEST(Prune, KeepsCopiesOfTheTimeOfARecordThatIsCutInFrontOfTheirNames) {
  constexpr std::int64_t kMade = 1700000000;  // when copy_of() says
  const std::string by_name = make_copy("by_name", 31 * kDay), by_time = kDumps + "/by_time.1.20240101.000000";
  ASSERT_TRUE(files::write(by_time, "a copy"));
  set_age(by_time, time(nullptr) - kMade);
  ASSERT_TRUE(files::write(kDumps + "/notes", "no copy, of no time"));
  const auto filled = [&](std::size_t filler, std::int64_t at, const std::string &detail) {
    builder::record r;
    r.at(static_cast<std::uint64_t>(at), 0);
    r.default_text = std::string(filler, 'm');
    r.detail = detail;
    return r;
  };
  builder::record unidentified = filled(838, kMade, by_name), process_only = filled(0, kMade, by_name);
  unidentified.eid.clear();
  process_only.process = std::string(1000, 'p');
  const std::size_t full = 1024 - (builder::record_bytes(filled(0, kMade, "")).size() - 1);
  struct {
    const char *what;
    builder::record record;
    const char *fate;
  } const rows[] = {
      {"in the path of the directory", filled(838, kMade, by_name), "cited"},
      {"in front of it", filled(900, kMade, by_name), "cited"},
      {"just in front of it", filled(full, kMade, by_name), "cited"},
      {"in front of the process id", process_only, "cited"},
      {"a large copy takes its time", filled(838, kMade + 59, by_name), "cited"},
      {"later", filled(838, kMade + 3600, by_name), "would_remove"},
      {"earlier", filled(900, kMade - 3600, by_name), "would_remove"},
      {"whole, it cites none", filled(10, kMade, "text"), "would_remove"},
      {"in another text", filled(10, kMade, std::string(1000, 'x')), "would_remove"},
      {"without an identifier, which has no time", unidentified, "cited"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(row.record)));
    ASSERT_TRUE(m.push(builder::record_bytes({})));
    tool::write_stack(stack_of("cut"), m.file());
    const auto lines = prune({"--older-than", "30d", "--dry-run"});
    EXPECT_EQ(fate(lines, by_name), row.fate);
    EXPECT_EQ(fate(lines, by_time), row.fate);
    EXPECT_EQ(fate(lines, kDumps + "/notes"), "no_copy");
  }
}

TEST(Prune, RemovesFilesWithTheLongestNames) {
  for (const char first : {'x', '~'}) {
    const std::string path = make_copy(first + std::string(236, 'x'), 31 * kDay);
    ASSERT_EQ(path.size() - kDumps.size() - 1, 255u);
    EXPECT_EQ(fate(prune({"--older-than", "30d"}), path), "removed") << first;
  }
  EXPECT_EQ(files::list(kDumps).size(), 0u);
}

TEST(Prune, KeepsACopyThatAGivenLogCites) {
  files::TemporaryDirectory logs;
  make_copy("in log", 31 * kDay);
  make_copy("not_in_log", 31 * kDay);
  set_age(copy_of("in log"), 31 * kDay);
  ASSERT_EQ(rename(copy_of("not_in_log").c_str(), (kDumps + "/not_in_log.2.20231114.221320").c_str()), 0);
  // An entry of the journal, which shows a message that is no text as its bytes.
  const std::string in_journal = kDumps + "/in_journal.3.20231114.221320";
  ASSERT_TRUE(files::write(in_journal, "a copy"));
  set_age(in_journal, 31 * kDay);
  std::string bytes;
  for (const char c :
       "(Recorded using libqx_vosk.a cv 2):::Error ID: :::Reference ID: :::Template ID: 0:::Details File: " +
           in_journal + ":::Location: \xff")
    bytes += (bytes.empty() ? "" : ",") + std::to_string(static_cast<unsigned char>(c));
  ASSERT_TRUE(files::write(
      logs / "log", "{\"MESSAGE\":[" + bytes +
                        "]}\nNov 14 22:13:20 node in#040log: (Recorded using libqx_vosk.a cv 2):::Details File: " +
                        kDumps + "/in#040log.1.20231114.221320:::Location: ..:::text\n" +
                        "a name without the path: not_in_log.2.20231114.221320\n" + "a part of a name: " + kDumps +
                        "/not_in_log.2.20231114\n"));
  const auto dry = prune({"--older-than", "30d", "--dry-run"});
  EXPECT_EQ(fate(dry, copy_of("in log")), "would_remove");
  const auto unread = prune({"--older-than", "30d", "--log", logs / "missing"}, 1);
  EXPECT_EQ(fate(unread, copy_of("in log")), "not_told");
  const auto lines = prune({"--older-than", "30d", "--log", logs / "log"});
  EXPECT_EQ(fate(lines, copy_of("in log")), "cited_in_log");
  EXPECT_EQ(fate(lines, in_journal), "cited_in_log");
  EXPECT_EQ(fate(lines, kDumps + "/not_in_log.2.20231114.221320"), "removed");
}

TEST(Prune, RemovesTheOldestUntilTheTotalIsReached) {
  for (int i = 1; i <= 5; ++i) make_stack(stack_of("p" + std::to_string(i)), i * kDay);
  const child living([] {});
  make_stack(stack_of("living", living.pid()), 0);
  const std::uint64_t size = files::read(stack_of("p1"))->size();
  const auto lines = prune({"--older-than", "30d", "--max-total", std::to_string(4 * size)});
  EXPECT_THAT(removed(lines), testing::ElementsAre(stack_of("p4"), stack_of("p5")));
  EXPECT_EQ(lines.back()["kept_bytes"], 4 * size);
  EXPECT_THAT(removed(prune({"--older-than", "30d", "--max-total", std::to_string(4 * size - 1)})),
              testing::ElementsAre(stack_of("p3")));
  const tool::result r = tool::run({"vosk", "prune", "--older-than", "30d", "--max-total", "1K"});
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("more than --max-total allows"));
  EXPECT_EQ(files::list(kStacks).size(), 1u) << "the living one";
}

TEST(Prune, OnlyTellsInADryRun) {
  const std::string path = make_stack(stack_of("p"), 31 * kDay, make_copy("c", 31 * kDay));
  const tool::result r = tool::run({"vosk", "prune", "--older-than", "30d", "-n"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "would remove " + path + ": 8192 bytes, written 31 d 0 h ago, none of its processes runs\n" +
                       "would remove " + copy_of("c") +
                       ": 6 bytes, written 31 d 0 h ago, no stack or log given cites it\n"
                       "-- would remove 2 files of 8198 bytes, kept 0 files of 0 bytes\n");
  EXPECT_EQ(removed(prune({"--older-than", "30d"})).size(), 2u);
}

TEST(Prune, KeepsTheCopiesWhileAStackCannotBeRead) {
  make_stack(stack_of("secret"), 31 * kDay);
  make_copy("cited_perhaps", 31 * kDay);
  ASSERT_EQ(chmod(stack_of("secret").c_str(), 0), 0);
  const tool::result r = tool::run({"vosk", "prune", "--json", "--older-than", "30d"}, tool::options::without_power());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(fate(tool::json_lines(r.out), stack_of("secret")), "failed");
  EXPECT_EQ(fate(tool::json_lines(r.out), copy_of("cited_perhaps")), "not_told");
  EXPECT_TRUE(files::exists(stack_of("secret")));
  EXPECT_TRUE(files::exists(copy_of("cited_perhaps")));
}

TEST(Prune, TellsOfAFileThatItMayNotRemove) {
  make_stack(stack_of("old"), 31 * kDay);
  make_copy("old", 31 * kDay);
  for (const std::string &directory : {kStacks, kDumps}) ASSERT_EQ(chmod(directory.c_str(), 0555), 0);
  const tool::result r = tool::run({"vosk", "prune", "--json", "--older-than", "30d"}, tool::options::without_power());
  EXPECT_EQ(r.status, 1);
  for (const std::string &path : {stack_of("old"), copy_of("old")}) {
    EXPECT_EQ(fate(tool::json_lines(r.out), path), "failed");
    EXPECT_TRUE(files::exists(path));
  }
}

TEST(Prune, HasAnExitStatusForEveryOutcome) {
  struct {
    std::vector<std::string> options;
    int status;
  } const rows[] = {
      {{"--older-than", "1d"}, 0},
      {{"--older-than", "1d", "--max-total", "1G"}, 0},
      {{}, 2},
      {{"--older-than", "soon"}, 2},
      {{"--older-than", ""}, 2},
      {{"--older-than", "-1d"}, 2},
      {{"--older-than", "1d", "--max-total", "1KiB"}, 0},
      {{"--older-than", "1d", "--max-total", "1B"}, 0},
      {{"--older-than", "1d", "--max-total", "1KX"}, 2},
      {{"--older-than", "1d", "--max-total", "K"}, 2},
      {{"--older-than", "1d", "--max-total", "1X"}, 2},
      {{"--older-than", "1d", "--max-total", "99999999T"}, 2},
      {{"--older-than", "1d", "stack"}, 2},
      {{"--help"}, 0},
  };
  for (const auto &row : rows) {
    std::vector<std::string> command{"vosk", "prune"};
    command.insert(command.end(), row.options.begin(), row.options.end());
    EXPECT_EQ(tool::run(command).status, row.status) << testing::PrintToString(row.options);
  }
  make_stack(stack_of("p"), 31 * kDay);
  ASSERT_EQ(chmod(stack_of("p").c_str(), 0), 0);
  EXPECT_EQ(tool::run({"vosk", "prune", "--older-than", "1d"}, tool::options::without_power()).status, 1);
  ASSERT_EQ(rmdir(kDumps.c_str()), 0);
  EXPECT_EQ(tool::run({"vosk", "prune", "--older-than", "1d"}).status, 0);
  ASSERT_EQ(rmdir(kStacks.c_str()), 0);
  EXPECT_EQ(tool::run({"vosk", "prune", "--older-than", "1d"}).status, 4);
}

namespace {

// A service that records incidents with detail files, each told through a pipe as "IDENTIFIER COPY\n" once it is made.
class service {
 public:
  service(const std::string &name, unsigned seed) : random_(seed) {
    EXPECT_EQ(pipe2(told_, O_CLOEXEC), 0);
    pid_ = fork();
    (void)setpgid(pid_, pid_);  // whichever comes first
    if (pid_ != 0) {
      (void)close(told_[1]);
      return;
    }
    for (const char *variable : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(variable);
    if (vk_init_main_1(VK_STACK_CREAT, name.c_str(), getpid(), 0) != 0) _exit(1);
    record(name);
    if (random_() % 2 == 0) become_child(name);
    for (;;) record(name);
  }
  service(const service &) = delete;
  service &operator=(const service &) = delete;

  // What it has told since the last call. Waits for the first incident.
  std::vector<std::string> told() {
    std::vector<std::string> lines;
    char piece[4096];
    pollfd ready{told_[0], POLLIN, 0};
    while (poll(&ready, 1, lines_ == 0 ? 10000 : 0) > 0) {
      const ssize_t n = read(told_[0], piece, sizeof piece);
      if (n <= 0) break;
      text_.append(piece, static_cast<std::size_t>(n));
      lines_ += 1;
    }
    for (std::size_t end; (end = text_.find('\n')) != std::string::npos; text_.erase(0, end + 1))
      lines.push_back(text_.substr(0, end));
    return lines;
  }

  // Kills it with all its processes.
  ~service() {
    (void)kill(-pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    (void)close(told_[0]);
  }

 private:
  // The originator ends; who goes on has inherited without a new program.
  void become_child(const std::string &name) {
    int ready[2];
    if (pipe(ready) != 0) _exit(1);
    if (fork() != 0) {
      char done;
      (void)close(ready[1]);
      (void)!read(ready[0], &done, 1);
      _exit(0);
    }
    if (vk_init_main_1(VK_STACK_INHERIT, name.c_str(), getpid(), 0) != VK_INHERIT_SUCCESS) _exit(1);
    record(name);
    (void)!write(ready[1], "", 1);
    (void)close(ready[1]);
  }

  // The names of copies have whole seconds, so each gets a process name of its own; and an age beyond the grace.
  void record(const std::string &name) {
    const std::string process = name + "-" + std::to_string(++count_);
    setenv("VOSKPNAME", process.c_str(), 1);
    vk_eid_t eid = "";
    const int code = vk_push_stack_1(&eid, nullptr, "r", "p", "s.c", "1", 1, 0, nullptr, "/etc/passwd", "c", 1, 1, "x");
    std::string copy;
    for (const std::string &other : files::list(kDumps))
      if (other.starts_with(process + ".")) copy = other;
    const timespec at{time(nullptr) - 7200, 0}, times[] = {at, at};
    (void)utimensat(AT_FDCWD, (kDumps + "/" + copy).c_str(), times, 0);
    if (code == 0) dprintf(told_[1], "%s %s %s\n", eid, getenv("VOSKSTACK"), copy.c_str());
    usleep(1000 * static_cast<useconds_t>(random_() % 40));
    if (count_ == 30) {  // the stack does not wrap
      for (;;) pause();
    }
  }

  std::mt19937 random_;
  int told_[2] = {-1, -1};
  pid_t pid_ = -1;
  int count_ = 0;
  std::size_t lines_ = 0;
  std::string text_;
};

// Each told incident is in its stack, and its copy is there.
void expect_all_there(const std::vector<std::string> &told) {
  for (const std::string &line : told) {
    const std::string eid = line.substr(0, 42), stack = line.substr(43, line.find(' ', 43) - 43),
                      copy = line.substr(line.rfind(' ') + 1);
    EXPECT_THAT(files::read(stack).value_or("gone"), HasSubstr(eid)) << stack;
    EXPECT_TRUE(!copy.empty() && files::exists(kDumps + "/" + copy)) << line;
  }
}

}  // namespace

// Services come, record, hand over to a child and go, while everything that may go is removed again and again.
TEST(Prune, NeverTakesTheStackOrTheCopiesOfALivingService) {
  const char *const given = getenv("QX_SEED");
  const unsigned seed = given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device()();
  SCOPED_TRACE("QX_SEED=" + std::to_string(seed));
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(proof::short_or_long(4, 120));
  std::mt19937 random(seed);
  struct running {
    std::unique_ptr<service> what;
    std::vector<std::string> told;
  };
  std::vector<running> services;
  std::size_t prunes = 0, ended = 0, incidents = 0, gone = 0;
  while (std::chrono::steady_clock::now() < end) {
    while (services.size() < 6)
      services.push_back({std::make_unique<service>("svc" + std::to_string(ended + services.size()), random()), {}});
    for (running &s : services)
      for (std::string &line : s.what->told()) s.told.push_back(std::move(line));
    const tool::result r = tool::run({"vosk", "prune", "--older-than", "0", "--json"});
    ASSERT_EQ(r.status, 0) << r.err;
    gone += removed(tool::json_lines(r.out)).size();
    ++prunes;
    for (const running &s : services) expect_all_there(s.told);
    ASSERT_FALSE(HasFailure());
    if (random() % 4 == 0) {
      const std::size_t at = random() % services.size();
      incidents += services[at].told.size();
      services.erase(services.begin() + static_cast<std::ptrdiff_t>(at));
      ++ended;
    }
  }
  ended += services.size();
  services.clear();
  usleep(100000);  // orphans are buried by their new parent
  (void)prune({"--older-than", "0"});
  EXPECT_EQ(files::list(kStacks), std::vector<std::string>{}) << "of the dead nothing is kept";
  EXPECT_GT(gone, 0u);
  RecordProperty("prunes", static_cast<int>(prunes));
  std::printf("%zu prunes, %zu services ended, %zu incidents, %zu files removed meanwhile\n", prunes, ended, incidents,
              gone);
}
