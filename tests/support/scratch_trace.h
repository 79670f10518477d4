// A trace file of a test's own, for routines that take the trace switch and the trace file as arguments.
//
//   const auto call = [&](int on, const char *path) { return vk::vk_get_base_64_templ(on, path, 7, nullptr); };
//   expect_result_and_trace(call, -5, {trace_entry("vk_get_base_64_templ", "Called with a NULL pointer ...\n")});
#ifndef QX_TESTS_SUPPORT_SCRATCH_TRACE_H
#define QX_TESTS_SUPPORT_SCRATCH_TRACE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/files.h"
#include "support/trace_file.h"

class ScratchTrace {
 public:
  ScratchTrace() { clear(); }
  const char *path() const { return path_.c_str(); }
  void clear() {
    std::string fresh = "VKTFO=36    VKTFW=0     VKTFS=16384\n";
    fresh.resize(16384, '\0');
    if (!files::write(path_, fresh)) ADD_FAILURE() << "cannot write " << path_;
  }
  // "routine: message" of each entry.
  std::vector<std::string> entries() const {
    const trace_file::Trace trace = trace_file::read(path_);
    EXPECT_EQ(trace.problem, "");
    EXPECT_EQ(trace.wraps, 0) << "more entries than the file holds";
    return trace.summaries();
  }

 private:
  files::TemporaryDirectory directory_;
  std::string path_ = directory_ / "trace";
};

// What entries() shows for a message of this text: cut and folded as the trace file has it.
inline std::string trace_entry(std::string_view routine, const std::string &text) {
  return std::string(routine) + ": " + trace_file::folded_text("%s", text.c_str());
}

// The call gives `result` and these entries with the trace switch 1, and the same result without a trace with any
// other.
inline void expect_result_and_trace(const std::function<int(int trace_on, const char *trace_path)> &call, int result,
                                    const std::vector<std::string> &entries) {
  ScratchTrace trace;
  EXPECT_EQ(call(1, trace.path()), result);
  EXPECT_THAT(trace.entries(), testing::ElementsAreArray(entries));
  trace.clear();
  for (int off : {0, 2, -1}) {
    EXPECT_EQ(call(off, trace.path()), result) << "trace switch " << off;
    EXPECT_THAT(trace.entries(), testing::IsEmpty()) << "trace switch " << off;
  }
  EXPECT_EQ(call(0, nullptr), result);
}

#endif
