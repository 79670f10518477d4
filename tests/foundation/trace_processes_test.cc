// Several processes and threads write to one trace file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "foundation/trace_bytes.h"
#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_file.h"

namespace {

// The message that writer `w` gives to its n-th entry: every line and length says whose it is.
std::string message_of(int w, int n) {
  return std::to_string(w) + "." + std::to_string(n) + " " +
         std::string(static_cast<std::size_t>(1 + (w * 37 + n * 11) % 200), static_cast<char>('A' + w));
}

// Starts the writers together and returns how many of their calls failed, and their process ids.
std::map<pid_t, int> write_from_processes(const std::string &path, int writers, int entries, int &failures) {
  int gate[2];
  EXPECT_EQ(pipe(gate), 0);
  std::map<pid_t, int> children;
  for (int w = 0; w < writers; ++w) {
    const pid_t child = fork();
    if (child != 0) {
      children[child] = w;
      continue;
    }
    close(gate[1]);
    char byte;
    while (read(gate[0], &byte, 1) == -1) continue;  // until the gate is closed
    int failed = 0;
    for (int n = 0; n < entries; ++n)
      if (vk_debug(path.c_str(), "writer", "%s", message_of(w, n).c_str()) != 0) ++failed;
    _exit(failed > 100 ? 100 : failed);
  }
  close(gate[0]);
  close(gate[1]);
  failures = 0;
  for (const auto &[child, w] : children) {
    int status = 0;
    waitpid(child, &status, 0);
    failures += WIFEXITED(status) ? WEXITSTATUS(status) : 1000;
  }
  return children;
}

TEST(TraceOfProcesses, LosesNoEntryWhereThereIsRoom) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_TRUE(files::write(path, foundation::fresh_trace(99999)));
  int failures = 0;
  const std::map<pid_t, int> writers = write_from_processes(path, 6, 60, failures);
  EXPECT_EQ(failures, 0);
  const trace_file::Trace trace = trace_file::read(path);
  EXPECT_EQ(trace.problem, "");
  EXPECT_EQ(trace.wraps, 0);
  ASSERT_EQ(trace.entries.size(), 360U);
  std::map<int, int> next;  // each writer's entries stand in its own order
  for (const trace_file::Entry &entry : trace.entries) {
    ASSERT_TRUE(writers.contains(entry.pid)) << entry.pid;
    const int w = writers.at(entry.pid);
    EXPECT_EQ(entry.lines, trace_file::folded("%s", message_of(w, next[w]++).c_str()));
  }
}

TEST(TraceOfProcesses, LeavesEverySurvivingEntryWholeWhileTheFileGoesRound) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_TRUE(files::write(path, foundation::fresh_trace(8192)));
  int failures = 0;
  const std::map<pid_t, int> writers = write_from_processes(path, 8, 150, failures);
  EXPECT_EQ(failures, 0);
  const trace_file::Trace trace = trace_file::read(path);
  EXPECT_EQ(trace.problem, "");
  EXPECT_GT(trace.wraps, 10);
  EXPECT_GT(trace.entries.size(), 15U);
  std::map<int, int> last;
  for (const trace_file::Entry &entry : trace.entries) {
    ASSERT_TRUE(writers.contains(entry.pid)) << entry.pid;
    const int w = writers.at(entry.pid);
    const std::string head = entry.lines.at(0).substr(0, entry.lines.at(0).find(' '));
    const int n = std::stoi(head.substr(head.find('.') + 1));
    EXPECT_EQ(head.substr(0, head.find('.')), std::to_string(w));
    EXPECT_EQ(entry.lines, trace_file::folded("%s", message_of(w, n).c_str()));
    if (last.contains(w)) {
      EXPECT_GT(n, last[w]);
    }
    last[w] = n;
  }
}

TEST(TraceOfProcesses, WaitsForAnotherProcessThatHoldsTheFile) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_TRUE(files::write(path, foundation::fresh_trace()));
  int held[2], release[2];
  ASSERT_EQ(pipe(held), 0);
  ASSERT_EQ(pipe(release), 0);
  const pid_t holder = fork();
  if (holder == 0) {
    const int fd = open(path.c_str(), O_RDWR);
    char byte = lockf(fd, F_LOCK, 0) == 0 ? 'y' : 'n';
    if (write(held[1], &byte, 1) != 1 || read(release[0], &byte, 1) != 1) _exit(1);
    // The writer asks for the lock now or later; either way it reads only what is put here under the lock.
    const std::string marked = foundation::header(200, 0, 16384);
    _exit(pwrite(fd, marked.data(), marked.size(), 0) == 36 ? 0 : 1);
  }
  char byte = 0;
  ASSERT_EQ(read(held[0], &byte, 1), 1);
  ASSERT_EQ(byte, 'y');
  platform::Calls calls;
  calls.before("lockf", 1, [&](const platform::Call &) { EXPECT_EQ(write(release[1], "g", 1), 1); });
  EXPECT_EQ(foundation::write_entry(calls, path, 100), 0);
  EXPECT_EQ(files::read(path)->substr(0, 36), foundation::header(300, 0, 16384)) << "read under the lock";
  int status = 0;
  waitpid(holder, &status, 0);
  EXPECT_EQ(status, 0);
  for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
}

TEST(TraceOfProcesses, LeavesNoDescriptorOpen) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_TRUE(files::write(path, foundation::fresh_trace()));
  const auto before = files::descriptors();
  for (int i = 0; i < 300; ++i) ASSERT_EQ(vk_debug(path.c_str(), "r", "%d", i), 0);
  ASSERT_TRUE(files::write(path, "no header"));
  for (int i = 0; i < 5; ++i) ASSERT_EQ(vk_debug(path.c_str(), "r", "%d", i), -26);
  EXPECT_EQ(files::descriptors(), before);
  EXPECT_FALSE(files::locked(path));
}

// Threads that take turns are told apart by their identities.
TEST(TraceOfThreads, ShowsWhichThreadWrote) {
  files::TemporaryDirectory directory;
  const std::string path = directory / "trace";
  ASSERT_TRUE(files::write(path, foundation::fresh_trace()));
  std::vector<int> expected;
  for (int i = 0; i < 3; ++i) {
    std::thread([&] {
      expected.push_back(static_cast<int>(static_cast<unsigned>(pthread_self())));
      EXPECT_EQ(vk_debug(path.c_str(), "r", "m"), 0);
    }).join();
  }
  std::vector<int> threads;
  for (const trace_file::Entry &entry : trace_file::read(path).entries) threads.push_back(entry.thread);
  EXPECT_EQ(threads, expected);
}

}  // namespace
