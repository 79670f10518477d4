// Every road is killed before and after every call, in every state of the stack: the file's bytes are those of the
// writes made so far, no lock stays, and the next push does with them what the model says.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <map>

#include "proof/instrumented.h"
#include "proof/roads.h"
#include "support/cu_double.h"
#include "support/files.h"
#include "support/leaks.h"
#include "support/trace_file.h"

namespace proof {
namespace {

struct Point {
  int call;  // counted from 1
  bool after;
};

class KillPoints : public testing::Test {
 protected:
  static void TearDownTestSuite() { std::printf("%d kills\n", kills_); }
  inline static int kills_ = 0;
  platform::UtcZone utc_;
  leaks::OnPurpose leaks_;

  // The calls of an unharmed run.
  static std::vector<platform::Call> calls_of(const Road &road, Tracing tracing, State state) {
    lay_out(road, tracing, state);
    platform::Calls calls;
    plan(calls);
    calls.during(road.body);
    (void)road.look();
    for (const auto &[fd, path] : calls.left_open()) close(fd);
    return calls.calls();
  }

  // Takes the road in a child that is killed at the point; returns its process id.
  static int kill_at(const Road &road, Tracing tracing, State state, Point point) {
    pid_t child = fork();
    if (child == 0) {
      lay_out(road, tracing, state);
      platform::Calls calls;
      plan(calls);
      auto die = [](const platform::Call &) { kill(getpid(), SIGKILL); };
      if (point.after) {
        calls.after("", point.call, die);
      } else {
        calls.before("", point.call, die);
      }
      calls.during(road.body);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "not killed: " << status;
    ++kills_;
    return child;
  }

  // How many writes to `path` are complete at the point.
  static std::size_t made(const std::vector<platform::Call> &calls, Point point, const std::string &path) {
    std::size_t count = 0;
    for (int i = 0; i < point.call - (point.after ? 0 : 1); ++i) {
      const platform::Call &call = calls[static_cast<std::size_t>(i)];
      if (call.name == "write" && call.path == path) ++count;
    }
    return count;
  }
  static bool was_opened(const std::vector<platform::Call> &calls, Point point, const std::string &path) {
    for (int i = 0; i < point.call - (point.after ? 0 : 1); ++i) {
      const platform::Call &call = calls[static_cast<std::size_t>(i)];
      if (call.name == "open" && call.path == path && call.error == 0) return true;
    }
    return false;
  }

  void check_stack(const Road &road, State state, const std::vector<platform::Call> &calls, Point point, int child);
  void push_next();
  void kill_everywhere(const Road &road, Tracing tracing, State state);

  std::map<std::string, bool> pushed_onto_;  // files that a next push was tried on
};

// The next push, by this process, does what the model says about the bytes that are there now.
void KillPoints::push_next() {
  const Road &push = road("later push");
  own_environment();
  unsetenv("VOSKDEBUG");
  const bool there = files::exists(kStack);
  stack_model::File model{files::read(kStack).value_or("")};
  if (!there) model = stack_model::created(16384);
  cu_double::reset();
  platform::Calls calls;
  plan(calls);
  calls.during(push.body);
  const Seen seen = push.look();
  struct stat status = {};
  ASSERT_EQ(stat(kStack.c_str(), &status), 0);
  const stack_model::Outcome outcome =
      stack_model::push(model, stack_model::build(push_of(push, status.st_ino, getpid(), getppid())));
  EXPECT_EQ(seen.code, outcome.code);
  EXPECT_EQ(stack_model::difference(model, kStack), "");
  EXPECT_FALSE(files::locked(kStack));
}

void KillPoints::check_stack(const Road &road, State state, const std::vector<platform::Call> &calls, Point point,
                             int child) {
  const std::string path = road.name == "first trace line" ? kTraceFile : kStack;
  if (state == State::kMissing && !was_opened(calls, point, path)) {
    EXPECT_FALSE(files::exists(path));
    return;
  }
  struct stat status = {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  const auto writes = writes_of(road, state, push_of(road, status.st_ino, child, getpid()), child);
  stack_model::File model = path == kStack ? file_in(state) : stack_model::File{};
  const std::size_t count = made(calls, point, path);
  ASSERT_LE(count, writes.size());
  for (std::size_t i = 0; i < count; ++i) stack_model::apply(model, writes[i]);
  EXPECT_EQ(stack_model::difference(model, path), "");
  EXPECT_FALSE(files::locked(path));
  if (path != kStack) return;

  // Where nothing ever wrapped, every record that the header leads to is there, and whole. A full stack wraps.
  const stack_model::Header header = model.header();
  if (state == State::kFull || stack_model::validate(header) != 0 || header.wrap != 0) return;
  const auto before = stack_model::records(file_in(state).bytes);
  const auto after = stack_model::records(*files::read(kStack));
  ASSERT_TRUE(after);
  EXPECT_EQ(after->size(), (before ? before->size() : 0) + (count == writes.size() ? 1 : 0));
}

void KillPoints::kill_everywhere(const Road &road, Tracing tracing, State state) {
  const std::vector<platform::Call> calls = calls_of(road, tracing, state);
  std::size_t all_writes = 0;
  for (const platform::Call &call : calls) all_writes += call.name == "write" && call.path == kStack ? 1 : 0;
  if (road.uses_stack) {
    ASSERT_EQ(all_writes, writes_of(road, state, push_of(road, 1, 1, 1), 1).size()) << "writes that the model lacks";
  }
  for (int k = 1; k <= static_cast<int>(calls.size()) && !HasFailure(); ++k) {
    for (bool after : {false, true}) {
      // Instrumented programs fork slowly; there some of the points do.
      if (kInstrumented && (2 * k + (after ? 1 : 0)) % (tracing == Tracing::kOn ? 29 : 7) != 0) continue;
      const Point point{k, after};
      SCOPED_TRACE(testing::Message() << road.name << (tracing == Tracing::kOn ? ", traced" : "") << ", stack "
                                      << to_string(state) << ", killed " << (after ? "after " : "before ") << "call "
                                      << k << " " << calls[static_cast<std::size_t>(k - 1)].text());
      const int child = kill_at(road, tracing, state, point);
      if (road.uses_stack || road.name == "first trace line") check_stack(road, state, calls, point, child);
      EXPECT_EQ(files::read(kDetail), kDetailBytes);
      if (road.name.ends_with("with a detail file")) {
        // Each write of the copy is there, or the copy is not yet.
        const std::string copy = copy_path(child), here = copy_path(getpid());
        if (was_opened(calls, point, here)) {
          const std::size_t pieces = made(calls, point, here);
          EXPECT_EQ(files::read(copy), kDetailBytes.substr(0, pieces == 2 ? std::string::npos : pieces * 1024));
        } else {
          EXPECT_FALSE(files::exists(copy));
        }
      }
      if (tracing == Tracing::kOn) {
        EXPECT_FALSE(files::locked(kTraceFile));
        EXPECT_EQ(vk_debug(kTraceFile.c_str(), "next", "whole\n"), 0);
        const trace_file::Trace trace = trace_file::read(kTraceFile);
        ASSERT_FALSE(trace.entries.empty()) << trace.problem;
        EXPECT_EQ(trace.summaries().back(), "next: whole");
        EXPECT_TRUE(trace.end_marker);
      } else if (road.uses_stack) {
        // The same bytes are tried once: some of them are waited for.
        std::string bytes = (files::exists(kStack) ? "there " : "missing ") + files::read(kStack).value_or("");
        if (!std::exchange(pushed_onto_[bytes], true)) push_next();
      }
    }
  }
}

TEST_F(KillPoints, OfPushesInEveryStateLeaveTheWritesMadeSoFar) {
  for (const Road &candidate : roads()) {
    if (!candidate.uses_stack) continue;
    for (State state : {State::kMissing, State::kFresh, State::kPartlyFilled, State::kFull, State::kWrapped}) {
      kill_everywhere(candidate, Tracing::kOff, state);
    }
  }
}

TEST_F(KillPoints, OfTheOtherRoadsLeaveTheWritesMadeSoFar) {
  for (const Road &candidate : roads()) {
    if (!candidate.uses_stack && candidate.name != "display") {
      kill_everywhere(candidate, Tracing::kOff, candidate.state);
    }
  }
}

TEST_F(KillPoints, OfTracedRoadsLeaveATraceFileThatTakesTheNextEntry) {
  for (const Road &candidate : roads()) {
    if (candidate.name == "first trace line" || candidate.name == "display") continue;
    kill_everywhere(candidate, Tracing::kOn, candidate.state);
  }
}

// A process that dies while it makes the stack leaves a file that is refused from then on.
TEST_F(KillPoints, InsideTheCreationLeaveACorruptStack) {
  const Road &first = road("first push");
  const std::vector<platform::Call> calls = calls_of(first, Tracing::kOff, State::kMissing);
  int control = 0;
  for (int k = 1, writes = 0; k <= static_cast<int>(calls.size()); ++k) {
    const platform::Call &call = calls[static_cast<std::size_t>(k - 1)];
    if (call.name == "write" && ++writes == 19) control = k;
  }
  ASSERT_GT(control, 0);
  for (Point point : {Point{control, false}, Point{control, true}}) {
    kill_at(first, Tracing::kOff, State::kMissing, point);
    own_environment();
    platform::Calls next;
    plan(next);
    next.during(first.body);
    EXPECT_EQ(first.look().code, point.after ? 0 : 24);
  }
}

}  // namespace
}  // namespace proof
