// vosk report -f: every record that is made, once.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <map>
#include <set>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/reader/watcher.h"
#include "tools/tool.h"

namespace {

// A tool that follows in the background, writing to a file.
class following {
 public:
  explicit following(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"vosk", "report", "-f", "--json"});
    std::vector<char *> argv;
    for (std::string &a : arguments) argv.push_back(a.data());
    argv.push_back(nullptr);
    child_ = fork();
    if (child_ == 0) {
      (void)dup2(open(out().c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
      execv(QX_BINARY_DIR "/bin/vosk", argv.data());
      _exit(127);
    }
  }
  ~following() { stop(); }
  void stop() {
    if (child_ <= 0) return;
    (void)kill(child_, SIGTERM);
    (void)waitpid(child_, nullptr, 0);
    child_ = -1;
  }

  // How often each identifier was printed, once there are `wanted` or the time is over.
  std::map<std::string, int> identifiers(std::size_t wanted, int seconds = 10) const {
    std::map<std::string, int> printed;
    for (int i = 0; i < seconds * 20; ++i) {
      printed.clear();
      std::string text = files::read(out()).value_or("");
      text.erase(text.rfind('\n') + 1);
      for (const auto &line : tool::json_lines(text))
        if (line["type"] == "record") ++printed[line["identifier"]];
      if (printed.size() >= wanted) break;
      usleep(50000);
    }
    return printed;
  }

  // Waits until a first line has come, so that the tool watches.
  void wait_for_output() const {
    for (int i = 0; i < 200 && files::read(out()).value_or("").empty(); ++i) usleep(20000);
  }

 private:
  std::string out() const { return dir_ / "out"; }

  files::TemporaryDirectory dir_;
  pid_t child_;
};

void use_stack(const std::string &name) {
  setenv("VOSKSTACK", (std::string(sandbox::kStacks) + "/" + name).c_str(), 1);
  for (const char *variable : {"VOSKORIG", "VOSKPID"}) setenv(variable, std::to_string(getpid()).c_str(), 1);
  setenv("VOSKADDR", builder::kAddress, 1);
  setenv("VOSKPNAME", "service", 1);
}

std::string push(const std::string &detail) {
  vk_eid_t eid = "";
  EXPECT_EQ(vk_push_stack_1(&eid, nullptr, "r", "p", "s.c", "1", 1, 0, detail.c_str(), nullptr, "c", 1, 1, "text"), 0);
  return eid;
}

// Runs `body` in a child, which writes the identifiers that it got to `path`.
pid_t in_child(const std::string &path, const std::function<std::string()> &body) {
  const pid_t child = fork();
  if (child == 0) {
    const bool written = files::write(path, body());
    _exit(written && !testing::Test::HasFailure() ? 0 : 1);
  }
  return child;
}

void expect_each_once(const std::map<std::string, int> &printed, const std::vector<std::string> &pushed) {
  EXPECT_EQ(printed.size(), pushed.size());
  for (const std::string &eid : pushed) {
    const auto found = printed.find(eid);
    EXPECT_TRUE(found != printed.end() && found->second == 1) << eid;
    if (testing::Test::HasFailure()) break;
  }
}

// The paths that come next.
std::set<std::string> changes(vosk::watcher &watcher) {
  std::set<std::string> changed;
  EXPECT_TRUE(watcher.wait(changed, -1));
  return changed;
}

}  // namespace

TEST(Follow, MissesNoneOfFiveThousandRecordsOfEightProcesses) {
  following tool({sandbox::kStacks});
  files::TemporaryDirectory dir;
  std::vector<pid_t> children;
  for (int p = 0; p < 8; ++p) {
    children.push_back(in_child(dir / std::to_string(p), [&] {
      std::string pushed;
      for (int i = 0; i < 625; ++i) {
        if (i % 25 == 0) use_stack("service." + std::to_string(p) + "." + std::to_string(i));
        pushed += push("record " + std::to_string(i)) + "\n";
      }
      return pushed;
    }));
  }
  std::vector<std::string> pushed;
  for (int p = 0; p < 8; ++p) {
    int status = -1;
    ASSERT_EQ(waitpid(children[static_cast<std::size_t>(p)], &status, 0), children[static_cast<std::size_t>(p)]);
    ASSERT_EQ(status, 0);
    const std::string text = *files::read(dir / std::to_string(p));
    for (std::size_t at = 0; at < text.size(); at += 43) pushed.push_back(text.substr(at, 42));
  }
  ASSERT_EQ(pushed.size(), 5000u);
  expect_each_once(tool.identifiers(5000), pushed);
}

TEST(Follow, GoesOnThroughAWrap) {
  for (const bool polling : {false, true}) {
    SCOPED_TRACE(polling ? "polling" : "notified");
    ASSERT_EQ(sandbox::fresh(), "");
    use_stack("service.1.20231114.221320");
    setenv("VOSKRECLAIM", "whole", 1);
    std::vector<std::string> pushed{push("the first")};
    following tool(polling ? std::vector<std::string>{"--poll", getenv("VOSKSTACK")}
                           : std::vector<std::string>{getenv("VOSKSTACK")});
    tool.wait_for_output();
    // Some 40 records fit; polled, each lives for more than a second.
    for (int i = 0; i < 100; ++i) {
      pushed.push_back(push(std::string(230, 'x')));
      usleep(polling ? 35000 : 3000);
    }
    expect_each_once(tool.identifiers(pushed.size()), pushed);
    unsetenv("VOSKRECLAIM");
  }
}

TEST(Follow, LeavesOutWhatIsThereAlreadyIfOnlyNewRecordsAreWanted) {
  use_stack("service.1.20231114.221320");
  (void)push("before");
  following tool({"--new", sandbox::kStacks});
  tool.wait_for_output();
  const std::string eid = push("after");
  expect_each_once(tool.identifiers(1), {eid});
}

TEST(Follow, AppliesTheFilters) {
  following tool({"--grep", "wanted", sandbox::kStacks});
  use_stack("service.1.20231114.221320");
  (void)push("other");
  const std::string eid = push("wanted");
  expect_each_once(tool.identifiers(1), {eid});
}

TEST(Follow, WaitsForADirectoryThatDoesNotExistYet) {
  const std::string later = "/var/adm/vosk/later";
  following tool({later});
  usleep(300000);
  ASSERT_EQ(mkdir(later.c_str(), 0755), 0);
  use_stack("../later/service.1.20231114.221320");
  const std::string eid = push("text");
  expect_each_once(tool.identifiers(1), {eid});
}

TEST(Follow, LooksIntoDirectoriesThatWereEmpty) {
  const std::string inner = std::string(sandbox::kStacks) + "/inner/deeper";
  ASSERT_EQ(mkdir((std::string(sandbox::kStacks) + "/inner").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(inner.c_str(), 0755), 0);
  following tool({std::string(sandbox::kStacks) + "/inner"});
  usleep(300000);
  use_stack("inner/deeper/service.1.20231114.221320");
  const std::string first = push("in a directory that was there");
  expect_each_once(tool.identifiers(1), {first});
  ASSERT_EQ(mkdir((inner + "/later").c_str(), 0755), 0);
  usleep(300000);
  use_stack("inner/deeper/later/service.1.20231114.221320");
  expect_each_once(tool.identifiers(2), {first, push("in a directory that came empty")});
}

TEST(Follow, EndsQuietlyWhenNobodyReadsAnyMore) {
  use_stack("service.1.20231114.221320");
  (void)push("text");
  int out[2];
  ASSERT_EQ(pipe2(out, O_CLOEXEC), 0);
  const pid_t child = fork();
  if (child == 0) {
    (void)dup2(out[1], 1);
    execl(QX_BINARY_DIR "/bin/vosk", "vosk", "report", "-f", nullptr);
    _exit(127);
  }
  (void)close(out[1]);
  char byte = 0;
  ASSERT_EQ(read(out[0], &byte, 1), 1);
  (void)close(out[0]);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

TEST(Follow, IsRefusedTogetherWithTheReverseOrder) {
  EXPECT_EQ(tool::run({"vosk", "report", "-f", "-r"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "report", "--new"}).status, 2);
}

TEST(Watcher, ReportsWhatLiesInItsPlaces) {
  const files::TemporaryDirectory dir;
  const std::string top = dir.path(), inner = dir / "inner", job = dir / "job";
  ASSERT_EQ(mkdir(inner.c_str(), 0755), 0);
  struct {
    const char *what;
    std::vector<std::string> places;
    int depth;
    std::vector<std::string> written;
    std::set<std::string> reported;
  } const rows[] = {
      {"a directory", {top}, 0, {job}, {job}},
      {"the same with a slash", {top + "/"}, 0, {job}, {job}},
      {"a file", {job}, 0, {job + "2", dir / "other", job}, {job}},
      {"a file below a directory that is not looked into",
       {top, inner + "/job"},
       0,
       {inner + "/other", inner + "/job"},
       {inner + "/job"}},
      {"a directory that is looked into", {top}, 1, {inner + "/other"}, {inner + "/other"}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    vosk::watcher watcher(row.places, row.depth);
    for (const std::string &path : row.written) ASSERT_TRUE(files::write(path, "x"));
    EXPECT_EQ(changes(watcher), row.reported);
  }
}

TEST(Watcher, EndsWhereNobodyReads) {
  const files::TemporaryDirectory dir;
  for (const bool of_sockets : {false, true}) {
    SCOPED_TRACE(of_sockets);
    int ends[2];
    ASSERT_EQ(of_sockets ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends) : pipe(ends), 0);
    (void)close(ends[0]);
    vosk::watcher watcher({dir.path()}, 0);
    std::set<std::string> changed;
    EXPECT_FALSE(watcher.wait(changed, ends[1]));
    (void)close(ends[1]);
  }
}

// Whatever comes and goes beside them.
TEST(Watcher, ReportsFilesThatChangedAndNoOthers) {
  const files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "one", "x"));
  vosk::watcher watcher({dir / "one", dir / "two"}, 0);
  ASSERT_EQ(unlink((dir / "one").c_str()), 0);
  ASSERT_EQ(mkdir((dir / "beside").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(dir / "two", "x"));
  EXPECT_EQ(changes(watcher), std::set<std::string>{dir / "two"});
}

TEST(Watcher, ReportsTheFilesOfADirectoryThatIsMovedIn) {
  const files::TemporaryDirectory dir, elsewhere;
  ASSERT_EQ(mkdir((elsewhere / "moved").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(elsewhere / "moved/job", "x") && files::write(dir / "there", "x"));
  vosk::watcher watcher({dir.path()}, 1);
  ASSERT_EQ(rename((elsewhere / "moved").c_str(), (dir / "moved").c_str()), 0);
  EXPECT_EQ(changes(watcher), std::set<std::string>{dir / "moved/job"});
}

TEST(Watcher, SeesEveryChangeWithoutNotifications) {
  const files::TemporaryDirectory dir;
  for (const char *name : {"same", "longer", "later", "another", "instead"}) ASSERT_TRUE(files::write(dir / name, "x"));
  const timespec times[2] = {{1700000000, 0}, {1700000000, 0}};
  for (const char *name : {"another", "instead"}) ASSERT_EQ(utimensat(AT_FDCWD, (dir / name).c_str(), times, 0), 0);
  vosk::watcher watcher({dir.path()}, 0, false);
  EXPECT_EQ(changes(watcher).size(), 5u) << "they may have changed since the first look";
  ASSERT_TRUE(files::write(dir / "longer", "xy"));
  ASSERT_EQ(utimensat(AT_FDCWD, (dir / "later").c_str(), times, 0), 0);
  ASSERT_EQ(rename((dir / "instead").c_str(), (dir / "another").c_str()), 0);
  EXPECT_EQ(changes(watcher), (std::set<std::string>{dir / "longer", dir / "later", dir / "another"}));
}
