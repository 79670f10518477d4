// A trace file made by hand, for the routines that trace.
#ifndef QX_TESTS_FOUNDATION_TRACED_H
#define QX_TESTS_FOUNDATION_TRACED_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_file.h"

namespace foundation {

// The bytes of a trace file of `size` bytes that nothing was written to.
inline std::string fresh_trace(int size = 16384) {
  char header[64];
  std::snprintf(header, sizeof header, "VKTFO=36    VKTFW=0     VKTFS=%-5d\n", size);
  std::string bytes = header;
  bytes.resize(static_cast<std::size_t>(size), '\0');
  return bytes;
}

class TraceFile {
 public:
  explicit TraceFile(const std::string &path) : path_(path) { EXPECT_TRUE(files::write(path_, fresh_trace(99999))); }
  const char *c_str() const { return path_.c_str(); }
  // "routine: message" of every entry; the message's lines are folded.
  std::vector<std::string> entries() const {
    const trace_file::Trace trace = trace_file::read(path_);
    EXPECT_EQ(trace.problem, "");
    return trace.summaries();
  }
  // Keeps the calls made for the trace out of a recording.
  void hide(platform::Calls &calls) const {
    calls.ignore_path(path_);
    for (const char *name : {"ctime_r", "pthread_self", "getrlimit"}) calls.ignore(name);
  }

 private:
  std::string path_;
};

}  // namespace foundation

#endif
