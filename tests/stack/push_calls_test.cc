// The platform calls of a push while tracing is off: which, in which order, and not one more.
#include <algorithm>

#include "stack/stack_test.h"
#include "support/cu_double.h"

namespace {

using stack_test::file_of;
using stack_test::header;
using stack_test::kStack;
using stack_test::push;
using testing::ElementsAre;
using testing::ElementsAreArray;

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::string quoted(const std::string &text) {
  return "\"" + text + "\"";
}
const std::string kPath = quoted(kStack);

const Lines kTest = {"getenv(\"VOSKDEBUG\")", "getenv(\"VOSKSTACK\")", "getenv(\"VOSKORIG\")",
                     "getenv(\"VOSKPID\")",   "getenv(\"VOSKADDR\")",  "getenv(\"VOSKPNAME\")"};
const Lines kStart = Lines{"getpid()", "getrlimit(RLIMIT_FSIZE)", "getenv(\"VOSKDEBUG\")"} + kTest;
const Lines kLookUp = {"getenv(\"VOSKSTACK\")", "getenv(\"VOSKPID\")", "getenv(\"VOSKORIG\")",
                       "stat(\"/var/adm/vosk/stacks\") = 0"};
const Lines kFound = {"stat(" + kPath + ") = 0"};
const Lines kNotFound = {"stat(" + kPath + ") = -1 ENOENT"};
const Lines kOpen = {"open(" + kPath + ", 0x2) = fd1", "lockf(fd1, F_LOCK, 0) = 0"};
const Lines kContext = {"getenv(\"VOSKPNAME\")", "pthread_self()"};
const Lines kIdentifier = {"gettimeofday()", "getenv(\"VOSKADDR\")", "stat(" + kPath + ") = 0"};
// Which of the two rules makes room is asked where the header is read.
const Lines kReadHeader = {"getenv(\"VOSKRECLAIM\")", "lseek(fd1, 0, SEEK_SET) = 0", "read(fd1, 4) = 4",
                           "read(fd1, 20) = 20"};
Lines write_record(const std::string &offset, const std::string &size) {
  return {"lseek(fd1, " + offset + ", SEEK_SET) = " + offset, "write(fd1, " + size + ") = " + size,
          "lseek(fd1, 4, SEEK_SET) = 4", "write(fd1, 20) = 20"};
}
const Lines kLeave = {"lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"};

class PushCalls : public stack_test::StackTest {
 protected:
  PushCalls() {
    cu_double::reset();
    calls_.fixed_clock(stack_test::kNow, stack_test::kMicroseconds);
  }
  // Every call; of those that only ask for something the result is left out.
  Lines lines() const {
    const Lines asking = {"getenv", "getauxval", "gettimeofday", "pthread_self",
                          "getpid", "getppid",   "getrlimit",    "localtime_r"};
    Lines out;
    for (const platform::Call &call : calls_.calls()) {
      const bool asks = std::find(asking.begin(), asking.end(), call.name) != asking.end();
      out.push_back(asks ? call.name + "(" + call.arguments + ")" : call.text());
    }
    return out;
  }
  int pushed(const stack_test::Incident &in) {
    return calls_.during([&] { return push(in); });
  }
  platform::Calls calls_;
};

TEST_F(PushCalls, OfALaterRecordAreTheseAndNoMore) {
  put_stack(file_of(16384, header(0, 24, 1000, 24, 16384, 0)));
  EXPECT_EQ(pushed(incident()), 0);
  EXPECT_THAT(lines(), ElementsAreArray(kStart + kLookUp + kFound + kOpen + kContext + kIdentifier + kReadHeader +
                                        write_record("1000", "189") + kLeave));
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error", "args 0 = 0", "release 0", "no error"));
}

TEST_F(PushCalls, OfTheFirstRecordReserveTheFileAndWriteItsHeader) {
  EXPECT_EQ(pushed(incident()), 0);
  const std::string directory = quoted(sandbox::kStacks);
  const Lines reservation = Lines{"statfs(" + directory + ") = 0", "open(" + kPath + ", 0x2c2, 0666) = fd1",
                                  "lockf(fd1, F_LOCK, 0) = 0", "fchmod(fd1, 0666) = 0", "lseek(fd1, 0, SEEK_CUR) = 0"} +
                            Lines(16, "write(fd1, 1024) = 1024") +
                            Lines{"lseek(fd1, 0, SEEK_SET) = 0", "write(fd1, 36) = 36", "statfs(" + kPath + ") = 0",
                                  "lockf(fd1, F_ULOCK, 0) = 0", "close(fd1) = 0"};
  Lines rest = kOpen + Lines{"write(fd1, 4) = 4", "write(fd1, 20) = 20"} + kContext + kIdentifier + kReadHeader +
               write_record("24", "189") + kLeave;
  for (std::string &line : rest) {  // the second descriptor that was opened
    if (const std::size_t at = line.find("fd1"); at != std::string::npos) line[at + 2] = '2';
  }
  EXPECT_THAT(lines(), ElementsAreArray(kStart + kLookUp + kNotFound + reservation + rest));
}

TEST_F(PushCalls, OfTheFirstRecordWriteTheVersionAndThenTheControlInformation) {
  EXPECT_EQ(pushed(incident()), 0);
  Lines written;
  for (const platform::Call &call : calls_.calls()) {
    if (call.name == "write" && call.data.size() < 100) written.push_back(call.data);
  }
  ASSERT_EQ(written.size(), 4u);
  EXPECT_EQ(written[0], "VKTFO=36    VKTFW=0     VKTFS=16384\n");
  EXPECT_EQ(written[1], std::string("\0\0\0\0", 4));
  EXPECT_EQ(written[2], std::string("\x18\0\0\0\x18\0\0\0\x18\0\0\0\0\x40\0\0\0\0\0\0", 20));
  EXPECT_EQ(written[3], std::string("\x18\0\0\0\xd5\0\0\0\x18\0\0\0\0\x40\0\0\0\0\0\0", 20));
}

TEST_F(PushCalls, OfARecordThatWrapsReadAndClearBeforeTheyWrite) {
  put_stack(file_of(16384, header(0, 24, 16380, 24, 16384, 0), {{24, files::u32(400)}}, 'x'));
  EXPECT_EQ(pushed(incident()), 0);
  const Lines clearing = {"lseek(fd1, 24, SEEK_SET) = 24", "read(fd1, 4) = 4", "lseek(fd1, 24, SEEK_SET) = 24",
                          "lseek(fd1, 0, SEEK_CUR) = 24", "write(fd1, 404) = 404"};
  EXPECT_THAT(lines(), ElementsAreArray(kStart + kLookUp + kFound + kOpen + kContext + kIdentifier + kReadHeader +
                                        clearing + write_record("24", "189") + kLeave));
}

TEST_F(PushCalls, OfARecordWithADetailFileCompareItWithTheStackAndCopyIt) {
  files::TemporaryDirectory directory;
  const std::string details = directory / "details";
  ASSERT_TRUE(files::write(details, "three lines"));
  put_stack(file_of(16384, header(0, 24, 24, 24, 16384, 0)));
  stack_test::Incident in = incident();
  in.data = nullptr;
  in.detail_file = details.c_str();
  EXPECT_EQ(pushed(in), 0);
  const std::string copy = quoted("/var/adm/vosk/dumps/service." + std::to_string(getpid()) + ".20231114.221320");
  const std::string dumps = "stat(\"/var/adm/vosk/dumps\") = 0";
  const Lines copying = {"fstatat(AT_FDCWD, " + quoted(details) + ", 0x0) = 0",
                         "fstatat(AT_FDCWD, " + kPath + ", 0x0) = 0",
                         "stat(" + quoted(directory.path()) + ") = 0",
                         "stat(" + quoted(details) + ") = 0",
                         "stat(\"/var/adm/vosk\") = 0",
                         dumps,
                         "getrlimit(RLIMIT_FSIZE)",
                         "getenv(\"VOSKPNAME\")",
                         "gettimeofday()",
                         "localtime_r(1700000000)",
                         "getpid()",
                         dumps,
                         "stat(" + copy + ") = -1 ENOENT",
                         "open(" + copy + ", 0x4c1, 0644) = fd2",
                         "fstatat(AT_FDCWD, " + quoted(details) + ", 0x0) = 0",
                         "open(" + quoted(details) + ", 0x0) = fd3",
                         "read(fd3, 1024) = 11",
                         "write(fd2, 11) = 11",
                         "read(fd3, 1024) = 0",
                         "close(fd3) = 0",
                         "close(fd2) = 0"};
  // The detail is the copy's name: 20 + 8 + 16 characters and those of the process number, instead of 9.
  const std::string size = std::to_string(189 - 9 + copy.size() - 2);
  EXPECT_THAT(lines(), ElementsAreArray(kStart + kLookUp + kFound + kOpen + kContext + copying + kIdentifier +
                                        kReadHeader + write_record("24", size) + kLeave));
}

TEST_F(PushCalls, OfADescendantAskForItsParent) {
  set("VOSKORIG", std::to_string(getppid()));
  put_stack(file_of(16384, header(0, 24, 24, 24, 16384, 0)));
  EXPECT_EQ(pushed(incident()), 0);
  EXPECT_THAT(lines(), ElementsAreArray(kStart + kLookUp + kFound + kOpen + kContext + Lines{"getppid()"} +
                                        kIdentifier + kReadHeader + write_record("24", "189") + kLeave));
}

TEST_F(PushCalls, ForACommandDifferInWhoseNumberIsAskedForOnly) {
  put_stack(file_of(16384, header(0, 24, 24, 24, 16384, 0)));
  set("VOSKPID", std::to_string(getppid()));
  set("VOSKORIG", std::to_string(getppid()));
  const stack_test::Incident in = incident();
  EXPECT_EQ(calls_.during([&] {
    return vk_push_stack_cmd_1(in.fid, nullptr, in.resource, in.product, in.file, in.version, in.line, 0, in.data,
                               nullptr, in.catalogue, in.set, in.number, in.message);
  }),
            0);
  Lines start = kStart;
  start.front() = "getppid()";
  EXPECT_THAT(lines(), ElementsAreArray(start + kLookUp + kFound + kOpen + kContext + kIdentifier + kReadHeader +
                                        write_record("24", "189") + kLeave));
}

TEST_F(PushCalls, EndWithTheTestOfTheEnvironmentWhereItIsNotTheCallersOwn) {
  set("VOSKPID", std::to_string(getppid()));
  EXPECT_EQ(pushed(incident()), VK_NO_VK_ENVIR);
  EXPECT_THAT(lines(), ElementsAreArray(kStart));
  EXPECT_THAT(cu_double::sequence(), ElementsAre("15: vosk.cat 1/1 ()"));
  EXPECT_EQ(identifier(), untouched());
}

}  // namespace
