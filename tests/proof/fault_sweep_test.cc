// Every platform call of every road fails once with every error, and moves too few bytes once: result, reports, files,
// descriptors and locks are those of the table, and tracing changes none of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iterator>

#include "proof/fault_table.h"
#include "proof/instrumented.h"
#include "proof/roads.h"
#include "support/cu_double.h"
#include "support/files.h"
#include "support/leaks.h"
#include "support/trace_file.h"

namespace proof {
namespace {

constexpr int kErrors[] = {EACCES, EBADF, EDQUOT, EFBIG, EINTR, EIO, EMFILE, ENOENT, ENOLCK, ENOSPC, EROFS, ESTALE};

struct Fault {
  int site = -1;  // in the road's table; -1: a call that may fail without consequence
  int error = 0;
  long long bytes = -1;  // of a shortened call
};

class Sweep : public testing::TestWithParam<std::string> {
 protected:
  const Road &road_ = road(GetParam());
  const std::vector<Site> sites_ = sites_of(road_);
  platform::UtcZone utc_;
  leaks::OnPurpose leaks_;  // assignments that reached the environment, or did not
  Tracing tracing_ = Tracing::kOff;
  Seen unharmed_;
  std::string before_;  // the variables, before an environment is made
  std::vector<std::string> unharmed_reports_;
  std::uint64_t inode_ = 0;
  int runs_ = 0;

  static bool is_site(const platform::Call &call, bool trace_is_under_test) {
    if (!platform::Calls::can_fail(call.name) || is_check_of_our_own(call.name)) return false;
    return trace_is_under_test || call.path != kTraceFile;
  }
  bool is_site(const platform::Call &call) const { return is_site(call, road_.name == "first trace line"); }

  void prepare() {
    lay_out(road_, tracing_, road_.state);
    cu_double::reset();
  }

  // The writes that the road makes to its file, in order, by the models.
  std::vector<stack_model::Write> writes(bool identifier, const std::string &detail) const;
  void check(const Fault &fault, const platform::Calls &calls, const Seen &seen);
  void check_file(const Fault &fault, const Change &change);
  void check_details(const Change &change, const platform::Calls &calls);
  void run(const Fault &fault, const std::function<void(platform::Calls &)> &plan_fault);
  void sweep();

  static void TearDownTestSuite() { std::printf("%-25s %6d runs\n", "all roads", all_runs_); }
  inline static int all_runs_ = 0;
};

std::vector<stack_model::Write> Sweep::writes(bool identifier, const std::string &detail) const {
  stack_model::Push push = push_of(road_, inode_, getpid(), getppid());
  if (!identifier) {
    push.identifier.clear();
    push.seconds = 0;
  }
  push.detail = detail;
  return writes_of(road_, road_.state, push, getpid());
}

void Sweep::check_file(const Fault &fault, const Change &change) {
  const bool traces = road_.name == "first trace line";
  const std::string path = traces ? kTraceFile : kStack;
  if (change.stop == Change::kUndoes) {
    EXPECT_FALSE(files::exists(path));
    return;
  }
  std::string detail = "the details";
  if (road_.name == "push with a detail file") detail = change.copy_fails ? change.detail : copy_path(getpid());
  std::vector<stack_model::Write> all = writes(!change.no_identifier, detail);
  stack_model::File expected = traces ? stack_model::File{} : file_in(road_.state);
  std::size_t made = 0;
  bool goes_on = true;
  for (int i = 0; i < static_cast<int>(sites_.size()) && goes_on; ++i) {
    const bool hit = i == fault.site;
    goes_on = !(hit && change.stop == Change::kStops);
    if (!sites_[static_cast<std::size_t>(i)].writes) {
      // The stamp behind a lost seek.
      if (hit && change.stop == Change::kStampsEnd) all[made].offset = 16384;
      continue;
    }
    const stack_model::Write &write = all[made++];
    if (!hit) {
      stack_model::apply(expected, write);
    } else if (fault.bytes > 0 && change.stop == Change::kStops) {
      stack_model::apply(expected, write, static_cast<std::size_t>(fault.bytes));
    } else if (change.stop == Change::kGoesOn && (fault.error == EINTR || fault.bytes > 0)) {
      // Zeroing that goes on; a stamp that did not arrive is covered anyway, or is an error of a trace file.
      stack_model::apply(expected, write);
    }
    // A trace file without its header line takes no entry.
    if (traces && change.code == -26 && (hit || change.stop == Change::kStampsEnd) && write.bytes.size() == 36) break;
  }
  if (expected.bytes.empty()) {
    EXPECT_FALSE(files::exists(path));
  } else {
    EXPECT_EQ(stack_model::difference(expected, path), "");
  }
}

void Sweep::check_details(const Change &change, const platform::Calls &calls) {
  const bool copies = road_.name.ends_with("with a detail file");
  EXPECT_EQ(files::read(kDetail), kDetailBytes);
  // A stop before the copy is made leaves none; one behind it leaves it.
  bool opened = false;
  for (const platform::Call &call : calls.calls()) {
    opened = opened || (call.name == "open" && call.path == copy_path(getpid()) && call.error == 0);
  }
  if (copies && opened && !change.copy_fails) {
    EXPECT_EQ(files::read(copy_path(getpid())), kDetailBytes);
  } else {
    EXPECT_THAT(files::list(sandbox::kDumps), testing::IsEmpty());
  }
  if (!road_.name.starts_with("log")) return;
  std::string location = "product,file.c,1.1,17";
  location.resize(46, ' ');
  std::vector<std::string> lines;
  for (const platform::Call &call : calls.calls()) {
    if (call.name == "syslog") lines.push_back(call.data);
  }
  EXPECT_THAT(lines,
              testing::ElementsAre(std::string("(Recorded using libqx_vosk.a cv 2):::Error ID: 822.....2zIZ/.7S.") +
                                   kAddress + ":::Reference ID: :::Template ID: 0:::Details File: " +
                                   (copies && !change.copy_fails ? copy_path(getpid()) : "") +
                                   ":::Location: " + location + ":::message 7"));
}

void Sweep::check(const Fault &fault, const platform::Calls &calls, const Seen &seen) {
  Change change;
  if (fault.site >= 0) {
    const Site &site = sites_[static_cast<std::size_t>(fault.site)];
    change = fault.bytes >= 0 ? site.shortened(fault.bytes) : site.fault(fault.error);
  }
  const bool refused = change.stop == Change::kStops || change.stop == Change::kUndoes;
  const bool raised = change.code != 0;
  EXPECT_EQ(seen.code, raised ? change.code : unharmed_.code);
  // A report takes the place of the last one of an unharmed run.
  std::vector<std::string> reports = unharmed_reports_;
  if (!change.report.empty() && !reports.empty()) reports.back() = change.report;
  EXPECT_EQ(cu_double::reports(), reports);

  if (road_.name == "create" || road_.name == "inherit") {
    std::string expected = unharmed_.output;
    if (refused) {
      expected.clear();
      std::size_t from = 0, from_before = 0;
      for (char digit = '1'; digit <= '5'; ++digit) {
        std::size_t end = unharmed_.output.find('\n', from), end_before = before_.find('\n', from_before);
        expected += change.variables.find(digit) != std::string::npos
                        ? unharmed_.output.substr(from, end - from + 1)
                        : before_.substr(from_before, end_before - from_before + 1);
        from = end + 1;
        from_before = end_before + 1;
      }
    }
    EXPECT_EQ(seen.output, expected);
  } else if (road_.name == "decode") {
    std::string expected = unharmed_.output;
    if (change.not_on_node) expected.replace(expected.find("on node 1"), 9, "on node 0");
    if (change.not_on_node || change.not_found) expected.resize(expected.find("name ") + 5);
    EXPECT_EQ(seen.output, expected);
  } else {
    EXPECT_EQ(seen.output, unharmed_.output);
    if (change.no_identifier) {
      EXPECT_EQ(seen.identifier, std::string(43, '\0'));
    } else if (refused) {
      EXPECT_EQ(seen.identifier.find_first_not_of('?'), std::string::npos);
    } else if (road_.uses_stack) {
      EXPECT_EQ(seen.identifier, push_of(road_, inode_, 0, 0).identifier + '\0');
    } else {
      EXPECT_EQ(seen.identifier, unharmed_.identifier);
    }
  }

  const bool keeps_socket = (road_.name == "create" || road_.name == "decode") && !change.socket_closed;
  EXPECT_EQ(calls.left_open().size(), keeps_socket ? 1u : 0u);
  if (road_.uses_stack || road_.name == "first trace line") {
    check_file(fault, change);
  } else if (road_.state == State::kMissing) {
    EXPECT_THAT(files::list(sandbox::kStacks), testing::IsEmpty());
  } else {
    EXPECT_EQ(stack_model::difference(file_in(road_.state), kStack), "");
  }
  check_details(change, calls);
  EXPECT_FALSE(files::exists(kStack) && files::locked(kStack));
  EXPECT_FALSE(files::exists(kTraceFile) && files::locked(kTraceFile));
}

void Sweep::run(const Fault &fault, const std::function<void(platform::Calls &)> &plan_fault) {
  prepare();
  const auto before = files::descriptors().size();
  platform::Calls calls;
  plan(calls);
  plan_fault(calls);
  calls.during(road_.body);
  ++runs_;
  ++all_runs_;
  const Seen seen = road_.look();
  struct stat status = {};
  inode_ = stat(kStack.c_str(), &status) == 0 ? status.st_ino : 0;
  check(fault, calls, seen);
  for (const auto &[fd, path] : calls.left_open()) close(fd);
  const bool redirected = road_.name == "display";
  EXPECT_EQ(files::descriptors().size() + (redirected ? 1 : 0), before);

  if (tracing_ == Tracing::kOff || road_.name == "first trace line") return;
  // However the trace fared, the next entry can be written, and stands whole at the end.
  EXPECT_EQ(vk_debug(kTraceFile.c_str(), "sweep", "whole\n"), 0);
  trace_file::Trace trace = trace_file::read(kTraceFile);
  ASSERT_FALSE(trace.entries.empty()) << trace.problem;
  EXPECT_EQ(trace.size, 16384);
  EXPECT_TRUE(trace.end_marker);
  EXPECT_EQ(trace.summaries().back(), "sweep: whole");
}

void Sweep::sweep() {
  prepare();
  if (road_.name == "create" || road_.name == "inherit") before_ = road_.look().output;
  platform::Calls reference;
  plan(reference);
  reference.during(road_.body);
  unharmed_ = road_.look();
  unharmed_reports_ = cu_double::reports();
  for (const auto &[fd, path] : reference.left_open()) close(fd);

  // Which of the calls that can fail are in the table, in order.
  std::vector<int> site_of;
  std::vector<platform::Call> failing;
  std::vector<std::string> names;
  for (const platform::Call &call : reference.calls()) {
    if (!platform::Calls::can_fail(call.name)) continue;
    failing.push_back(call);
    site_of.push_back(is_site(call) ? static_cast<int>(names.size()) : -1);
    if (is_site(call)) names.push_back(call.name);
  }
  std::vector<std::string> expected_names;
  for (const Site &site : sites_) expected_names.push_back(site.call);
  ASSERT_EQ(names, expected_names);

  // Few roads have no call that can fail, and then only without a trace.
  std::map<std::string, int> seen_of_name;
  for (std::size_t k = 0; k < failing.size() && !HasFailure(); ++k) {
    const std::string &name = failing[k].name;
    const int nth = ++seen_of_name[name];
    for (int error : kErrors) {
      // Instrumented programs are slow; there each call on the trace file, all of which answer alike, fails one way.
      if (kInstrumented && site_of[k] < 0 && error != kErrors[k % std::size(kErrors)]) continue;
      SCOPED_TRACE(testing::Message() << road_.name << ", call " << k + 1 << " " << failing[k].text() << " fails with "
                                      << platform::error_name(error));
      run({site_of[k], error}, [&](platform::Calls &calls) { calls.fail_kth(static_cast<int>(k) + 1, error); });
    }
    if (name != "read" && name != "write") continue;
    if (site_of[k] >= 0 && !sites_[static_cast<std::size_t>(site_of[k])].shortened) continue;
    for (long long bytes : {0LL, 1LL}) {
      if (name == "read" && bytes == 0) continue;
      SCOPED_TRACE(testing::Message() << road_.name << ", call " << k + 1 << " " << failing[k].text() << " moves only "
                                      << bytes);
      run({site_of[k], 0, bytes}, [&](platform::Calls &calls) { calls.short_nth(name, nth, bytes); });
    }
  }
}

TEST_P(Sweep, EveryFailingCallHasItsOutcome) {
  sweep();
  std::printf("%-25s %6d runs\n", GetParam().c_str(), runs_);
}

TEST_P(Sweep, EveryFailingCallHasTheSameOutcomeUnderATrace) {
  tracing_ = Tracing::kOn;
  sweep();
  std::printf("%-25s %6d runs under a trace\n", GetParam().c_str(), runs_);
}

std::vector<std::string> names_of_roads() {
  std::vector<std::string> names;
  for (const Road &candidate : roads()) names.push_back(candidate.name);
  return names;
}

std::string test_name(const testing::TestParamInfo<std::string> &road) {
  std::string name = road.param;
  for (char &c : name) c = c == ' ' ? '_' : c;
  return name;
}

INSTANTIATE_TEST_SUITE_P(Roads, Sweep, testing::ValuesIn(names_of_roads()), test_name);

}  // namespace
}  // namespace proof
