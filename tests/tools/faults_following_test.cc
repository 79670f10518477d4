// vosk report -f: which of the new records it shows, what it makes of files that go and come, and how it ends.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

#include "support/files.h"
#include "tools/faults.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// Becomes a tool that follows, with this output.
[[noreturn]] void become_follower(std::vector<std::string> arguments,
                                  const std::map<std::string, std::string> &variables, int out) {
  arguments.insert(arguments.begin(), {"vosk", "report", "-f"});
  std::vector<char *> argv;
  for (std::string &a : arguments) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (const auto &[name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  (void)dup2(out, 1);
  (void)alarm(25);
  execv(QX_BINARY_DIR "/bin/vosk", argv.data());
  _exit(127);
}

// A tool that follows until its output is not read any more.
class following {
 public:
  explicit following(const std::vector<std::string> &arguments, const std::string &failing = "") {
    int out[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    child_ = fork();
    if (child_ == 0) become_follower(arguments, faults::with(failing).environment, out[1]);
    (void)close(out[1]);
    out_ = out[0];
  }
  ~following() {
    if (child_ > 0) (void)ends();
  }
  following(const following &) = delete;
  following &operator=(const following &) = delete;

  std::size_t count(const std::string &text) const {
    std::size_t n = 0;
    for (std::size_t at = shown_.find(text); at != std::string::npos; at = shown_.find(text, at + 1)) ++n;
    return n;
  }

  // True once it has shown this text so often; false if it does not in this time.
  bool shows(const std::string &text, std::size_t times = 1, std::chrono::milliseconds patience = kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (count(text) < times && std::chrono::steady_clock::now() < end) {
      pollfd wanted{out_, POLLIN, 0};
      if (poll(&wanted, 1, 20) <= 0) continue;
      char buffer[4096];
      const ssize_t n = read(out_, buffer, sizeof buffer);
      if (n <= 0) break;
      shown_.append(buffer, static_cast<std::size_t>(n));
    }
    return count(text) >= times;
  }

  // Its exit status, or 1000 and the signal that ended it.
  int ends() {
    (void)close(out_);
    int status = 0;
    (void)waitpid(child_, &status, 0);
    child_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }

  const std::string &shown() const { return shown_; }

 private:
  static constexpr std::chrono::milliseconds kPatience{10000};

  int out_ = -1;
  pid_t child_;
  std::string shown_;
};

builder::record made_at(std::uint64_t seconds, const std::string &text) {
  builder::record r;
  r.at(seconds, 0).default_text = text;
  r.arguments.clear();
  return r;
}

builder::record nameless(const std::string &text) {
  builder::record r = made_at(0, text);
  r.eid.clear();
  return r;
}

builder::bytes stack_of(const std::vector<builder::record> &records) {
  builder::model m;
  for (const builder::record &r : records) EXPECT_TRUE(m.push(builder::record_bytes(r)));
  return m.file();
}

class Follow : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(mkdir(stacks_.c_str(), 0755), 0); }

  // Puts a whole file in its place at once.
  void put(const std::string &path, const builder::bytes &bytes) const {
    tool::write_stack(dir_ / "new", bytes);
    ASSERT_EQ(rename((dir_ / "new").c_str(), path.c_str()), 0);
  }

  files::TemporaryDirectory dir_;
  const std::string stacks_ = dir_ / "stacks", first_ = stacks_ + "/first", second_ = stacks_ + "/second";
};

}  // namespace

TEST_F(Follow, ShowsNewRecordsThatTheWindowAndTheFiltersSelect) {
  put(first_, stack_of({made_at(1700000000, "there already")}));
  following tool({"--since", "@1700000000", "--until", "@1800000000", "--not", "--grep", "unwanted", stacks_});
  ASSERT_TRUE(tool.shows("there already"));
  put(second_,
      stack_of({made_at(1699999999, "too early"), made_at(1700000000, "the earliest"), made_at(1700000001, "unwanted"),
                made_at(1800000000, "the latest"), made_at(1800000001, "too late"), nameless("of no time")}));
  put(first_, stack_of({made_at(1700000000, "there already"), made_at(1700000005, "the last")}));
  for (const char *text : {"the earliest", "the latest", "of no time", "the last"}) EXPECT_TRUE(tool.shows(text));
  EXPECT_EQ(tool.ends(), 0);
  for (const char *text : {"too early", "unwanted", "too late"}) EXPECT_THAT(tool.shown(), Not(HasSubstr(text)));
  EXPECT_EQ(tool.count("there already"), 1u);
}

TEST_F(Follow, ShowsEachRecordOnceWithoutIdentifiersToo) {
  put(first_, stack_of({nameless("one")}));
  following tool({first_});
  ASSERT_TRUE(tool.shows("one"));
  put(first_, stack_of({nameless("one"), nameless("two")}));
  ASSERT_TRUE(tool.shows("two"));
  put(first_, stack_of({nameless("one"), nameless("two"), nameless("three")}));
  ASSERT_TRUE(tool.shows("three"));
  EXPECT_EQ(tool.ends(), 0);
  for (const char *text : {" one ", " two ", " three "}) EXPECT_EQ(tool.count(text), 1u) << tool.shown();
}

TEST_F(Follow, EndsWithTheStatusOfDamageThatCameMeanwhile) {
  put(first_, stack_of({made_at(1700000000, "one")}));
  builder::bytes damaged = builder::never_wrapped_file();
  damaged[24] ^= 1;
  following tool({stacks_});
  ASSERT_TRUE(tool.shows("one"));
  put(second_, damaged);
  ASSERT_TRUE(tool.shows("-- " + second_ + ": "));
  EXPECT_EQ(tool.ends(), 3);
}

TEST_F(Follow, TakesAFileThatWasGoneAsANewOne) {
  const builder::bytes bytes = stack_of({made_at(1700000000, "one")});
  put(first_, bytes);
  following tool({stacks_}, "openat|4|2|first");
  ASSERT_TRUE(tool.shows("one"));
  for (int i = 0; i < 20 && !tool.shows("-- " + first_ + ": ", 2, std::chrono::milliseconds(300)); ++i)
    put(first_, bytes);
  EXPECT_TRUE(tool.shows(" one ", 2));
  EXPECT_EQ(tool.ends(), 0);
}

TEST_F(Follow, KnowsTheRecordsOfAFileThatWasNoStackMeanwhile) {
  put(first_, stack_of({made_at(1700000000, "one")}));
  following tool({stacks_});
  ASSERT_TRUE(tool.shows("one"));
  ASSERT_TRUE(files::write(dir_ / "text", "no stack"));
  ASSERT_EQ(rename((dir_ / "text").c_str(), first_.c_str()), 0);
  put(second_, stack_of({made_at(1700000001, "two")}));
  ASSERT_TRUE(tool.shows("two"));
  put(first_, stack_of({made_at(1700000000, "one"), made_at(1700000002, "three")}));
  ASSERT_TRUE(tool.shows("three"));
  EXPECT_EQ(tool.ends(), 0);
  EXPECT_EQ(tool.count(" one "), 1u) << tool.shown();
}

// While a file changes too fast to be read in one piece, a record can be missing from it, and come back.
TEST_F(Follow, ShowsEachRecordOnceWhileItsFileChanges) {
  const std::string state = dir_ / "state", change = dir_ / "change", readings = dir_ / "readings";
  ASSERT_TRUE(files::write(change, "echo >>" + readings + "; dd if=" + state + " of=" + first_ +
                                       " bs=8192 conv=notrunc 2>/dev/null; echo $$ | dd of=" + first_ +
                                       " bs=1 seek=8000 conv=notrunc 2>/dev/null\n"));
  const auto read_often = [&] {
    const std::size_t before = files::read(readings).value_or("").size();
    for (int i = 0; i < 500 && files::read(readings).value_or("").size() < before + 30; ++i) usleep(20000);
  };
  const builder::record one = made_at(1700000000, "one"), two = made_at(1700000001, "two");
  put(first_, stack_of({one}));
  put(state, stack_of({one}));
  following tool({stacks_}, "F_SETLK|1+|37|first\npread|1+|run sh " + change + "|first");
  ASSERT_TRUE(tool.shows(", changed while it was read"));
  ASSERT_TRUE(tool.shows(" one "));
  put(first_, stack_of({one}));
  read_often();
  put(state, stack_of({}));
  read_often();
  put(state, stack_of({one}));
  read_often();
  put(state, stack_of({one, two}));
  ASSERT_TRUE(tool.shows(" two "));
  EXPECT_EQ(tool.ends(), 0);
  EXPECT_EQ(tool.count(" one "), 1u) << tool.shown();
  EXPECT_EQ(tool.count(" two "), 1u) << tool.shown();
}

// A socket that nobody reads is seen when it is written to.
TEST_F(Follow, EndsWhenItsOutputCannotBeWritten) {
  put(first_, stack_of({made_at(1700000000, "one")}));
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  (void)close(ends[0]);
  const pid_t child = fork();
  if (child == 0) become_follower({stacks_}, {}, ends[1]);
  (void)close(ends[1]);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}
