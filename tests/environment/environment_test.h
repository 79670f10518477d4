// The surroundings of the environment tests: no variable of the library is set, the zone is UTC, a trace file is at
// hand.
#ifndef TESTS_ENVIRONMENT_ENVIRONMENT_TEST_H
#define TESTS_ENVIRONMENT_ENVIRONMENT_TEST_H

#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/leaks.h"
#include "support/trace_file.h"

extern char **environ;

namespace environment_test {

using Variables = std::map<std::string, std::string>;

// 16 November 2026, 07:11:27 UTC.
inline constexpr std::int64_t kNow = 1794813087;
// eth0 of every test node, and what it is encoded as: 192.168.1.10.
inline constexpr char kNodeAddress[] = ".XO.8...................";

// The buffers for values that a recorded call kept: those of at least 4096 bytes, smaller blocks are the double's.
inline std::vector<std::size_t> kept_buffers(const platform::Calls &calls) {
  std::vector<std::size_t> sizes = calls.unreleased();
  std::erase_if(sizes, [](std::size_t size) { return size < 4096; });
  return sizes;
}

// The variables of this process whose names begin with VOSK.
inline Variables vosk_variables() {
  Variables found;
  for (char **entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::size_t equals = text.find('=');
    if (text.rfind("VOSK", 0) == 0) found[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return found;
}

class EnvironmentTest : public testing::Test {
 protected:
  EnvironmentTest() {
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE", "VOSKDEBUG"})
      environment_.unset(name);
    fresh_double();
  }

  // Forgets what was reported. Processes that do not exist have a name, too.
  static void fresh_double() {
    cu_double::reset();
    cu_double::give_process_name("command");
  }

  // A node with one address, at a fixed time.
  static void prepare(platform::Calls &calls) {
    calls.fixed_clock(kNow, 0);
    calls.fake_interfaces({{.name = "eth0", .address = "192.168.1.10", .flags = 1}});
  }

  // Runs `body` recorded; what it puts into the environment or leaves behind is no leak.
  template <class Body>
  static auto during(platform::Calls &calls, Body &&body) {
    const leaks::OnPurpose left;
    return calls.during(std::forward<Body>(body));
  }

  void set(const Variables &variables) {
    for (const auto &[name, value] : variables) environment_.set(name, value);
  }
  void unset(const std::string &name) { environment_.unset(name); }

  // The trace file that internal routines are given; made by the first call.
  const char *trace_path() {
    if (trace_path_.empty()) {
      trace_path_ = directory_ / "trace";
      EXPECT_EQ(vk_create_debug_file(trace_path_.c_str()), 0);
    }
    return trace_path_.c_str();
  }
  // The trace file that exported routines find by VOSKDEBUG.
  void trace_by_variable() { environment_.set("VOSKDEBUG", trace_path()); }

  // What was traced under `routine`, one text per entry, its lines joined by line feeds.
  std::vector<std::string> traced(const std::string &routine) {
    const trace_file::Trace trace = trace_file::read(trace_path_);
    EXPECT_EQ(trace.problem, "");
    EXPECT_EQ(trace.wraps, 0);
    return trace.messages(routine);
  }
  // Every entry, as "routine: text".
  std::vector<std::string> traced() {
    const trace_file::Trace trace = trace_file::read(trace_path_);
    EXPECT_EQ(trace.problem, "");
    EXPECT_EQ(trace.wraps, 0);
    return trace.summaries();
  }
  void forget_traces() {
    if (!trace_path_.empty()) {
      EXPECT_EQ(std::remove(trace_path_.c_str()), 0);
      trace_path_.clear();
    }
  }

  files::TemporaryDirectory directory_;

 private:
  platform::UtcZone utc_;
  platform::Environment environment_;
  std::string trace_path_;
};

}  // namespace environment_test

#endif
