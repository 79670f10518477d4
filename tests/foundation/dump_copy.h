// Copies of detail files, made at a known time by a known process.
#ifndef QX_TESTS_FOUNDATION_DUMP_COPY_H
#define QX_TESTS_FOUNDATION_DUMP_COPY_H

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"

namespace foundation {

// Runs in a sandbox program: every test finds /var/adm/vosk fresh.
class DumpCopy : public testing::Test {
 protected:
  void SetUp() override { environment_.set("VOSKPNAME", "prog"); }

  // 2024-01-31 23:59:59 UTC, process 4711, traced.
  int copy(platform::Calls &calls, const std::string &input, std::int64_t seconds = 1706745599) {
    trace_.hide(calls);
    calls.fixed_clock(seconds, 123456);
    calls.return_all("getpid", 4711);
    std::memset(output_, 0, sizeof output_);
    std::strcpy(output_, "as it was");
    return calls.during([&] { return vk_make_dump_file_copy(1, trace_.c_str(), input.c_str(), output_); });
  }
  int copy(const std::string &input, std::int64_t seconds = 1706745599) {
    platform::Calls calls;
    return copy(calls, input, seconds);
  }
  // What is to be cited; nothing lies behind it.
  std::string cited() const {
    for (std::size_t i = std::max(strlen(output_), strlen("as it was")); i < sizeof output_; ++i)
      EXPECT_EQ(output_[i], '\0') << i;
    return output_;
  }
  static std::vector<std::string> dumps() { return files::list(sandbox::kDumps); }
  std::vector<std::string> entries() const { return trace_.entries(); }

  platform::UtcZone zone_;
  platform::Environment environment_;
  files::TemporaryDirectory directory_;
  TraceFile trace_{directory_ / "trace"};
  const std::string input_ = "/var/adm/vosk/input";
  const std::string name_ = "/var/adm/vosk/dumps/prog.4711.20240131.235959";
  char output_[4096] = {};
};

}  // namespace foundation

#endif
