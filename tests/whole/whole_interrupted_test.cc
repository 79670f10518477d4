// A push under whole records that is killed, or that fails, at any system call.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <tuple>

#include "proof/instrumented.h"
#include "whole/whole_test.h"

namespace whole_test {
namespace {

// A file, and the incident whose push gets interrupted.
struct State {
  std::string name;
  std::string file;
  Incident incident;
};

class WholeInterrupted : public WholeTest {
 protected:
  // One of each kind that a push can meet.
  const std::vector<State> &states();

  // The records of a file in the order of age: linked ones as the header says, else as they lie.
  static std::vector<Record> by_age(const std::string &file) {
    Chain linked = read_linked(file);
    if (linked.problem.empty()) return linked.records;
    std::vector<Record> records = search(file);
    const auto position = static_cast<std::size_t>(header_of(file).position);
    std::rotate(records.begin(),
                std::find_if(records.begin(), records.end(), [&](const Record &r) { return r.offset >= position; }),
                records.end());
    return records;
  }
  static bool holds(const std::vector<Record> &records, const Record &wanted) {
    return std::find(records.begin(), records.end(), wanted) != records.end();
  }
  static std::size_t end_of_newest(const std::string &file, const std::vector<Record> &records) {
    auto position = static_cast<std::size_t>(header_of(file).position);
    for (const Record &record : records)
      if (record.offset < position && position < record.end()) position = record.end();
    return position;
  }

  // What the interrupted push left in the file, against what was there: a reader finds every record that was to stay,
  // and so does the push after it.
  void check_what_is_left(const State &state);
  void check_later_push(const std::vector<Record> &staying, bool linked, const Incident &later);

  // Pushes in a child that kills itself where `plan` says.
  void push_killed(const State &state, const std::function<void(platform::Calls &)> &plan) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      own_environment();
      platform::Calls calls;
      calls.ignore("getenv");
      plan(calls);
      calls.during([&] { push(state.incident); });
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
  }
  static void kill_here(const platform::Call &) { kill(getpid(), SIGKILL); }

  // The calls of the push, undisturbed.
  std::vector<platform::Call> calls_of(const State &state) {
    put(state.file);
    platform::Calls calls;
    calls.ignore("getenv");
    const Pushed pushed = calls.during([&] { return push(state.incident); });
    EXPECT_TRUE(recorded(pushed.code)) << pushed.code;
    return calls.calls();
  }

  std::vector<State> states_;
  std::set<std::tuple<std::string, std::size_t, std::string>> checked_;
};

const std::vector<State> &WholeInterrupted::states() {
  if (!states_.empty()) return states_;
  Random random(4);
  // Under whole records, by what the push does: start again at the front or not, with how many records in its way.
  std::map<std::string, State> found;
  for (int tries = 0; tries < 400; ++tries) {
    const std::string file = filled(8192, between(random, 0, 2), random);
    const Incident incident = between(random, 0, 1) == 0 ? random_incident(random) : incident_of(kLargestBody);
    const Header header = header_of(file);
    Expected expected(header.size, read_chain(file).records, static_cast<std::size_t>(header.position));
    const bool older_behind = header.earliest >= header.position && header.wrapped == 1;
    expected.add(incident.size());
    std::string name = expected.wrapped() ? "starts again" : "goes on";
    if (header.wrapped == 0) name += " for the first time";
    if (older_behind)
      name += expected.records().front().offset == kHeader ? ", the last behind it" : ", others behind it";
    name += ", clears " + std::to_string(std::min<std::size_t>(expected.cleared(), 3));
    found.insert({name, {name, file, incident}});
  }
  for (const auto &[name, state] : found) states_.push_back(state);
  // Stopped by the standard rule, in each way.
  found.clear();
  for (int tries = 0; tries < 200; ++tries) {
    const std::string file = stopped(8192, random);
    const Incident incident = random_incident(random);
    const Header header = header_of(file);
    const bool fits = header.position + static_cast<int>(incident.size()) <= header.size;
    const std::string name =
        "stopped, wrap indicator " + std::to_string(header.wrapped) + (fits ? ", fits" : ", wraps");
    found.insert({name, {name, file, incident}});
  }
  for (const auto &[name, state] : found) states_.push_back(state);
  // Every byte taken, and room made by the record next to it.
  reclaim("whole");
  put(fresh_file(8192));
  for (const std::size_t body : {800 - 8, 1016, 1016, 1016, 1016, 1016, 1016, 1016, 200 - 8, 800 - 8})
    push(incident_of(static_cast<std::size_t>(body)));
  EXPECT_EQ(header_of(file()).position, header_of(file()).earliest);
  states_.push_back({"full", file(), incident_of(700)});
  // The newest record ends past the file size.
  reclaim(nullptr);
  put(fresh_file(8192));
  for (int i = 0; i < 7; ++i) push(incident_of(kLargestBody));
  push(incident_of(8192 - 24 - 7 * 1024 - 300 - 8));
  push(incident_of(300 + 4 - 8));
  EXPECT_EQ(header_of(file()).position, 8196);
  states_.push_back({"past the end", file(), incident_of(700)});
  reclaim("whole");
  return states_;
}

void WholeInterrupted::check_what_is_left(const State &state) {
  const std::string left = file();
  // Most calls change nothing.
  if (!checked_.insert({state.file, state.incident.size(), left}).second) return;
  const Header before = header_of(state.file), after = header_of(left);
  if (after.bytes() != before.bytes()) {
    EXPECT_EQ(header_problem(left), "");
  }

  std::vector<Record> staying = by_age(state.file);
  Expected expected(before.size, staying, end_of_newest(state.file, staying));
  expected.add(state.incident.size());
  staying = expected.records();
  const Record made = staying.back();
  staying.pop_back();
  const std::vector<Record> found = search(left);
  for (const Record &record : staying) EXPECT_TRUE(holds(found, record)) << "lost at " << record.offset;

  // A file whose records lead to each other stays one, and the new record is the newest as soon as the header says so.
  const bool linked = read_linked(state.file).problem.empty();
  if (linked) {
    const Chain chain = read_linked(left);
    EXPECT_EQ(chain.problem, "");
    for (const Record &record : staying) EXPECT_TRUE(holds(chain.records, record)) << "not linked at " << record.offset;
  }
  if (static_cast<std::size_t>(after.position) == made.end())
    staying.push_back({made.offset, left.substr(made.offset, made.bytes.size())});

  for (const std::size_t body : {kSmallestBody, std::size_t{500}, kLargestBody}) {
    put(left);
    check_later_push(staying, linked, incident_of(body));
  }
}

void WholeInterrupted::check_later_push(const std::vector<Record> &staying, bool linked, const Incident &later) {
  const std::string left = file();
  Expected expected(header_of(left).size, staying, end_of_newest(left, staying));
  expected.add(later.size());
  const Pushed pushed = push(later);
  ASSERT_TRUE(recorded(pushed.code)) << pushed.code;
  const std::string after = file();
  EXPECT_EQ(header_problem(after), "");
  const std::vector<Record> found = linked ? read_linked(after).records : search(after);
  if (linked) {
    EXPECT_EQ(read_linked(after).problem, "");
  }
  const Record newest = expected.records().back();
  for (const Record &record : expected.records())
    EXPECT_TRUE(record == newest || holds(found, record)) << "lost by the later push at " << record.offset;
  const std::vector<Record> by_offset = search(after);
  EXPECT_TRUE(std::any_of(by_offset.begin(), by_offset.end(), [&](const Record &record) {
    return record.identifier() == pushed.identifier && record.offset == newest.offset;
  }));
}

TEST_F(WholeInterrupted, KilledBeforeOrAfterAnyCallEveryRecordThatStaysIsFound) {
  int kills = 0;
  for (const State &state : states()) {
    SCOPED_TRACE(state.name);
    const auto calls = static_cast<int>(calls_of(state).size());
    for (int call = 1; call <= calls; ++call) {
      for (const bool before : {true, false}) {
        if (proof::kInstrumented && (2 * call + (before ? 0 : 1)) % 3 != 0) continue;
        SCOPED_TRACE(testing::Message() << (before ? "before" : "after") << " call " << call);
        put(state.file);
        ASSERT_NO_FATAL_FAILURE(push_killed(state, [&](platform::Calls &plan) {
          if (before)
            plan.before("", call, kill_here);
          else
            plan.after("", call, kill_here);
        }));
        ASSERT_NO_FATAL_FAILURE(check_what_is_left(state));
        if (HasFailure()) return;
        ++kills;
      }
    }
  }
  RecordProperty("kills", kills);
  std::printf("%d kills in %zu states\n", kills, states().size());
  for (const State &state : states()) std::printf("  %s\n", state.name.c_str());
  EXPECT_GT(states().size(), 12u);
}

TEST_F(WholeInterrupted, KilledInTheMiddleOfAWriteEveryRecordThatStaysIsFound) {
  for (const State &state : states()) {
    SCOPED_TRACE(state.name);
    int write = 0;
    for (const platform::Call &call : calls_of(state)) {
      if (call.name != "write") continue;
      ++write;
      const auto size = static_cast<long long>(call.data.size());
      if (size == 20) continue;  // a header is not torn: it lies within one sector
      for (const long long bytes : {1LL, 7LL, size / 2, size - 1}) {
        if (bytes >= size) continue;
        SCOPED_TRACE(testing::Message() << bytes << " of " << size << " bytes of write " << write);
        put(state.file);
        ASSERT_NO_FATAL_FAILURE(push_killed(state, [&](platform::Calls &plan) {
          plan.short_nth("write", write, bytes);
          plan.after("write", write, kill_here);
        }));
        ASSERT_NO_FATAL_FAILURE(check_what_is_left(state));
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(WholeInterrupted, KilledTimeAndAgainNothingGetsLost) {
  Random random(5);
  State state{"", filled(8192, 1, random), {}};
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    state.incident = random_incident(random);
    const auto calls = static_cast<int>(calls_of(state).size());
    put(state.file);
    // Most often late, where the file changes.
    const int call = calls - between(random, 0, 15);
    ASSERT_NO_FATAL_FAILURE(push_killed(state, [&](platform::Calls &plan) { plan.after("", call, kill_here); }));
    const std::string left = file();
    ASSERT_NO_FATAL_FAILURE(check_what_is_left(state));
    if (HasFailure()) return;
    state.file = left;
  }
}

TEST_F(WholeInterrupted, WhereACallFailsTheFileIsAsGoodAsAfterAKill) {
  for (const State &state : states()) {
    SCOPED_TRACE(state.name);
    const std::vector<platform::Call> all = calls_of(state);
    std::map<std::string, int> seen;
    for (const platform::Call &call : all) {
      const int nth = ++seen[call.name];
      if (call.name != "lseek" && call.name != "read" && call.name != "write") continue;
      SCOPED_TRACE(testing::Message() << call.name << " " << nth);
      put(state.file);
      platform::Calls calls;
      calls.fail_nth(call.name, nth, EIO);
      const Pushed pushed = calls.during([&] { return push(state.incident); });
      EXPECT_TRUE(pushed.code == 24 || pushed.code == 41) << pushed.code;
      EXPECT_EQ(pushed.identifier, std::string(kIdentifier, '\0'));
      EXPECT_TRUE(calls.left_open().empty());
      ASSERT_NO_FATAL_FAILURE(check_what_is_left(state));
      if (HasFailure()) return;
    }
  }
}

TEST_F(WholeInterrupted, AReadThatBringsPartOfTheFileIsContinued) {
  for (const State &state : states()) {
    SCOPED_TRACE(state.name);
    calls_of(state);
    const std::string expected = file();
    put(state.file);
    platform::Calls calls;
    calls.short_nth("read", 2, 1000);
    EXPECT_TRUE(recorded(calls.during([&] { return push(state.incident).code; })));
    EXPECT_EQ(places(search(file())), places(search(expected)));
    EXPECT_EQ(header_of(file()).bytes(), header_of(expected).bytes());
  }
}

}  // namespace
}  // namespace whole_test
