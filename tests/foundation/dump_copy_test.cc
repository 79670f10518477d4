// vk_make_dump_file_copy where it succeeds: the copy, its name, its calls and its trace.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "foundation/dump_copy.h"

namespace {

using foundation::DumpCopy;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

// Bytes of every value, zeros and line feeds among them.
std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 256);
  return bytes;
}

TEST_F(DumpCopy, MakesItsCallsInOrder) {
  ASSERT_TRUE(files::write(input_, pattern(1500)));
  Calls calls;
  calls.fixed_clock(1706745599, 0);
  calls.return_all("getpid", 4711);
  EXPECT_EQ(calls.during([&] { return vk_make_dump_file_copy(0, nullptr, input_.c_str(), output_); }), 0);
  EXPECT_THAT(calls.log(),
              ElementsAre("stat(\"/var/adm/vosk\") = 0", "stat(\"" + input_ + "\") = 0", "stat(\"/var/adm/vosk\") = 0",
                          "stat(\"/var/adm/vosk/dumps\") = 0", "getrlimit(RLIMIT_FSIZE) = 0",
                          "getenv(\"VOSKPNAME\") = \"prog\"", "gettimeofday() = 0", "localtime_r(1706745599) = pointer",
                          "getpid() = 4711", "stat(\"/var/adm/vosk/dumps\") = 0", "stat(\"" + name_ + "\") = -1 ENOENT",
                          "open(\"" + name_ + "\", 0x4c1, 0644) = fd1",
                          "fstatat(AT_FDCWD, \"" + input_ + "\", 0x0) = 0", "open(\"" + input_ + "\", 0x0) = fd2",
                          "read(fd2, 1024) = 1024", "write(fd1, 1024) = 1024", "read(fd2, 1024) = 476",
                          "write(fd1, 476) = 476", "read(fd2, 1024) = 0", "close(fd2) = 0", "close(fd1) = 0"));
  EXPECT_EQ(cited(), name_);
  EXPECT_THAT(calls.left_open(), IsEmpty());
}

TEST_F(DumpCopy, OfTheNullDeviceIsEmpty) {
  EXPECT_EQ(vk_make_dump_file_copy(0, nullptr, "/dev/null", output_), 0);
  EXPECT_EQ(files::read(cited()), "");
}

TEST_F(DumpCopy, TracesTheCopying) {
  ASSERT_TRUE(files::write(input_, "data"));
  Calls calls;
  std::vector<std::string> before_reading, before_closing, after_closing;
  calls.before(
      "read", 1, [&](const platform::Call &) { before_reading = entries(); }, input_);
  calls.before(
      "close", 1, [&](const platform::Call &) { before_closing = entries(); }, name_);
  calls.after(
      "close", 1, [&](const platform::Call &) { after_closing = entries(); }, name_);
  EXPECT_EQ(copy(calls, input_), 0);
  const std::string first =
      "vk_copy_dump_file: " + folded_text("Copying File \"%s\" to file \"%s\"\n", input_.c_str(), name_.c_str());
  EXPECT_THAT(before_reading, ElementsAre(first));
  EXPECT_THAT(before_closing, ElementsAre(first));
  EXPECT_THAT(after_closing, ElementsAre(first));
  EXPECT_THAT(entries(),
              ElementsAre(first, "vk_copy_file: Successfully copied files\nReturning VOSK_SUCCESS(0) to caller",
                          "vk_copy_dump_file: " + folded_text("File \"%s\" successfully copied to \"%s\"\nReturning "
                                                              "VOSK_SUCCESS(0) to the caller\n",
                                                              input_.c_str(), name_.c_str())));
}

TEST_F(DumpCopy, HasTheSameBytes) {
  std::int64_t second = 1706745599;
  for (std::size_t size : {0U, 1U, 1023U, 1024U, 1025U, 2047U, 2048U, 2049U, 100000U}) {
    SCOPED_TRACE(size);
    ASSERT_TRUE(files::write(input_, pattern(size)));
    Calls calls;
    EXPECT_EQ(copy(calls, input_, second), 0);
    EXPECT_EQ(calls.count("write"), static_cast<int>((size + 1023) / 1024));
    EXPECT_EQ(calls.count("read"), static_cast<int>((size + 1023) / 1024 + 1));
    EXPECT_EQ(files::difference(pattern(size), files::read(cited()).value_or("none")), "");
    EXPECT_EQ(files::difference(pattern(size), *files::read(input_)), "") << "the caller's file stays";
    second -= 1;
  }
  EXPECT_EQ(dumps().size(), 9U);
}

TEST_F(DumpCopy, WritesWhatShortReadsDeliver) {
  ASSERT_TRUE(files::write(input_, pattern(3000)));
  Calls calls;
  calls.short_nth("read", 1, 10);
  calls.short_nth("read", 2, 1023);
  EXPECT_EQ(copy(calls, input_), 0);
  EXPECT_THAT(calls.log_of({"write"}), ElementsAre("write(fd1, 10) = 10", "write(fd1, 1023) = 1023",
                                                   "write(fd1, 1024) = 1024", "write(fd1, 943) = 943"));
  EXPECT_EQ(files::difference(pattern(3000), *files::read(name_)), "");
}

TEST_F(DumpCopy, HasTheModeThatTheUmaskLeaves) {
  ASSERT_TRUE(files::write(input_, "x"));
  ASSERT_EQ(chmod(input_.c_str(), 0400), 0);
  struct Row {
    mode_t mask, mode;
  };
  std::int64_t second = 1706745599;
  const mode_t former = umask(0);
  for (const Row &row : {Row{0, 0644}, Row{0022, 0644}, Row{0077, 0600}, Row{0222, 0444}}) {
    umask(row.mask);
    EXPECT_EQ(copy(input_, second--), 0);
    struct stat status;
    ASSERT_EQ(stat(cited().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, row.mode);
  }
  umask(former);
  struct stat status;
  ASSERT_EQ(stat(input_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0400U);
}

TEST_F(DumpCopy, TakesTheInputThroughLinksAndRelativePaths) {
  ASSERT_TRUE(files::write(input_, "linked"));
  ASSERT_EQ(symlink("input", "/var/adm/vosk/link"), 0);
  EXPECT_EQ(copy("/var/adm/vosk/link"), 0);
  EXPECT_EQ(files::read(name_), "linked");
  EXPECT_EQ(copy("/var/adm/../adm//vosk/./input", 1706745598), 0);
  EXPECT_EQ(files::read(cited()), "linked");
  char directory[4096];
  ASSERT_NE(getcwd(directory, sizeof directory), nullptr);
  ASSERT_EQ(chdir("/var/adm/vosk"), 0);
  EXPECT_EQ(copy("input", 1706745597), 0);
  EXPECT_EQ(files::read(cited()), "linked");
  EXPECT_EQ(chdir(directory), 0);
}

TEST_F(DumpCopy, TracesWhenTracingIsExactlyOne) {
  ASSERT_TRUE(files::write(input_, "x"));
  for (int trace_on : {0, 2, -1, 0x101}) {
    EXPECT_EQ(vk_make_dump_file_copy(trace_on, trace_.c_str(), "", output_), -4);
    EXPECT_EQ(vk_make_dump_file_copy(trace_on, trace_.c_str(), input_.c_str(), nullptr), -5);
    EXPECT_EQ(vk_make_dump_file_copy(trace_on, trace_.c_str(), input_.c_str(), output_), 0);
    ASSERT_EQ(unlink(output_), 0);
  }
  EXPECT_THAT(entries(), IsEmpty());
}

// --- The name ---

TEST_F(DumpCopy, IsNamedAfterTheCommandTheProcessAndTheLocalTime) {
  ASSERT_TRUE(files::write(input_, "x"));
  struct Row {
    const char *command, *zone;
    std::int64_t seconds;
    const char *name;
  };
  const Row rows[] = {
      {"myprog", "UTC0", 1706745599, "myprog.4711.20240131.235959"},
      {"myprog", "EST5", 1706745599, "myprog.4711.20240131.185959"},
      {"myprog", "UTC-1", 1706745599, "myprog.4711.20240201.005959"},
      {"myprog", "UTC0", 1709611629, "myprog.4711.20240305.040709"},
      {"myprog", "UTC0", 0, "myprog.4711.19700101.000000"},
      {"myprog", "UTC0", -30610224001, "myprog.4711. 9991231.235959"},  // four places, blanks and not zeros
      {"myprog", "UTC0", 253402300800, "myprog.4711.100000101.000000"},
      {"a b%s%n.c", "UTC0", 1706745599, "a b%s%n.c.4711.20240131.235959"},
      {"..", "UTC0", 1706745599, "...4711.20240131.235959"},
      {"x", "UTC0", 1706745599, "x.4711.20240131.235959"},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    platform::Environment environment;
    environment.set("VOSKPNAME", row.command);
    environment.set("TZ", row.zone);
    tzset();
    EXPECT_EQ(copy(input_, row.seconds), 0);
    EXPECT_EQ(cited(), std::string("/var/adm/vosk/dumps/") + row.name);
    EXPECT_THAT(dumps(), ElementsAre(row.name));
    ASSERT_EQ(unlink(output_), 0);
  }
}

TEST_F(DumpCopy, IsNamedAfterThisProcessAndNotTheEnvironmentsOwner) {
  ASSERT_TRUE(files::write(input_, "x"));
  environment_.set("VOSKPID", "12345");
  EXPECT_EQ(vk_make_dump_file_copy(0, nullptr, input_.c_str(), output_), 0);
  EXPECT_THAT(std::string(output_), testing::StartsWith("/var/adm/vosk/dumps/prog." + std::to_string(getpid()) + "."));
}

}  // namespace
