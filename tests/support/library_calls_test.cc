// What tests/support promises about the library itself: its platform calls, its reports and its allocations are seen
// and can be changed, whether it is the shared library or linked into the program (both are built from this file).
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <cstring>

#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/trace_file.h"

namespace {

using testing::ElementsAre;

TEST(LibraryCalls, AreRecordedAndFailed) {
  files::TemporaryDirectory directory;
  std::string path = directory / "file";
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  std::string name = std::to_string(fd);
  platform::Calls calls;
  calls.ignore("getrlimit");
  calls.fail_nth("write", 2, ENOSPC);
  EXPECT_EQ(calls.during([&] { return fclear(fd, 2500); }), -1);
  close(fd);
  EXPECT_THAT(calls.log(), ElementsAre("lseek(" + name + ", 0, SEEK_CUR) = 0", "write(" + name + ", 1024) = 1024",
                                       "write(" + name + ", 1024) = -1 ENOSPC"));
  EXPECT_EQ(files::read(path), std::string(1024, '\0'));
}

TEST(LibraryCalls, ReportsReachTheDouble) {
  cu_double::reset();
  platform::Environment environment;
  environment.unset("VOSKDEBUG");
  EXPECT_EQ(vk_init_1(7), 12);
  ASSERT_EQ(cu_double::errors().size(), 1u);
  EXPECT_EQ(cu_double::errors()[0].id, 12);
  EXPECT_EQ(cu_double::errors()[0].catalogue, "vosk.cat");
}

TEST(LibraryCalls, AllocationsFail) {
  cu_double::reset();
  platform::Environment environment;
  for (const char *name : {"VOSKDEBUG", "VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME", "VOSKSDISABLE"}) {
    environment.unset(name);
  }
  platform::Calls calls;
  calls.fail_nth("allocation", 1, ENOMEM);
  EXPECT_EQ(calls.during([] { return vk_init_1(VK_LOG); }), 18);
  EXPECT_EQ(cu_double::reports().size(), 1u);
}

TEST(LibraryCalls, TracesAreReadBack) {
  files::TemporaryDirectory directory;
  std::string path = directory / "trace";
  ASSERT_EQ(vk_create_debug_file(path.c_str()), 0);
  ASSERT_EQ(trace_file::read(path).problem, "");
  platform::UtcZone zone;
  platform::Calls calls;
  calls.fixed_clock(0, 0);
  calls.return_all("getpid", 4711);
  calls.return_all("pthread_self", 0x1ffffffffLL);
  std::string message(250, 'm');
  for (int i = 0; i < 100; ++i) {  // past the first recycling
    ASSERT_EQ(calls.during([&] { return vk_debug(path.c_str(), "routine", "%d\n%s", i, message.c_str()); }), 0);
  }
  trace_file::Trace trace = trace_file::read(path);
  EXPECT_EQ(trace.problem, "");
  EXPECT_EQ(trace.wraps, 2);
  EXPECT_TRUE(trace.recycle_marker);
  const trace_file::Entry &last = trace.entries.back();
  EXPECT_EQ(last.time, "Thu Jan  1 00:00:00 1970");
  EXPECT_EQ(last.routine, "routine");
  EXPECT_EQ(last.pid, 4711);
  EXPECT_EQ(last.thread, -1);
  EXPECT_EQ(last.lines, trace_file::folded("%d\n%s", 99, message.c_str()));
  // Nothing is lost between the oldest entry left and the newest.
  int expected = 100 - static_cast<int>(trace.entries.size());
  for (const trace_file::Entry &entry : trace.entries) EXPECT_EQ(entry.lines.at(0), std::to_string(expected++));
}

}  // namespace
