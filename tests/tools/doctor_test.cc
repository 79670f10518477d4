// vosk doctor: each fault has a name.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <functional>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "syslog/private_log.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/job.1.20261121.120000";

class Doctor : public testing::Test {
 protected:
  // A node and an environment without a fault.
  Doctor() {
    trouble_ = private_log::cover_dev();
    if (trouble_.empty()) log_.emplace();
    EXPECT_EQ(sandbox::fresh(healthy()), "");
    for (const char *path : {sandbox::kStacks, sandbox::kDumps}) EXPECT_EQ(chmod(path, 01777), 0);
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
    EXPECT_EQ(vk_init_main_1(VK_STACK_CREAT, "job", getpid(), 0), 0);
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"})
      how_.environment[name] = getenv(name);
    how_.environment["VOSKSTACK"] = kStack;
  }

  static sandbox::Options healthy() {
    sandbox::Options options;
    options.inodes = "1000";
    return options;
  }

  // The names of the faults that are found.
  std::vector<std::string> faults() const {
    std::vector<std::string> names;
    const tool::result r = tool::run({"vosk", "doctor", "--json"}, how_);
    for (const auto &line : tool::json_lines(r.out)) {
      if (line["type"] != "finding") continue;
      EXPECT_NE(line["text"], "");
      EXPECT_NE(line["remedy"], "");
      if (line["severity"] == "fault") names.push_back(line["name"]);
    }
    EXPECT_EQ(r.status, names.empty() ? 0 : 1) << r.out << r.err;
    return names;
  }

  std::string trouble_;
  std::optional<private_log::Listener> log_;
  tool::options how_;
};

// A process that does something and waits to be ended.
class other_process {
 public:
  explicit other_process(const std::function<void()> &body) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    child_ = fork();
    if (child_ == 0) {
      body();
      (void)!write(ready[1], "", 1);
      pause();
      _exit(0);
    }
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    (void)close(ready[0]);
    (void)close(ready[1]);
  }
  ~other_process() {
    (void)kill(child_, SIGKILL);
    (void)waitpid(child_, nullptr, 0);
  }
  pid_t pid() const { return child_; }

 private:
  pid_t child_;
};

pid_t id_of_nobody() {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  (void)waitpid(child, nullptr, 0);
  return child;
}

}  // namespace

TEST_F(Doctor, FindsNoFaultOnASoundNode) {
  if (!trouble_.empty()) CANNOT_RUN_HERE(trouble_);
  EXPECT_THAT(faults(), testing::IsEmpty());
  tool::write_stack(kStack, builder::never_wrapped_file());
  ASSERT_EQ(chmod(kStack.c_str(), 0666), 0);
  EXPECT_THAT(faults(), testing::IsEmpty());
  const tool::result r = tool::run({"vosk", "doctor"}, how_);
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, HasSubstr("-- no fault found\n"));
}

TEST_F(Doctor, NamesEachFault) {
  if (!trouble_.empty()) CANNOT_RUN_HERE(trouble_);
  const auto set = [](const char *name, const std::string &value) {
    return [=](tool::options &how) { how.environment[name] = value; };
  };
  const auto run = [](const std::string &command) {
    return [=](tool::options &) { EXPECT_EQ(system(command.c_str()), 0) << command; };
  };
  const auto stack = [](builder::bytes bytes) {
    return [=](tool::options &) {
      tool::write_stack(kStack, bytes);
      EXPECT_EQ(chmod(kStack.c_str(), 0666), 0);
    };
  };
  builder::bytes damaged = builder::never_wrapped_file(), header = damaged;
  damaged[24] ^= 1;
  header[8] = header[9] = header[10] = 0xFF;
  const std::string dumps = sandbox::kDumps;
  struct {
    const char *name;
    std::function<void(tool::options &)> seed;
  } const rows[] = {
      {"variable_missing", set("VOSKADDR", "")},
      {"variable_missing", set("VOSKSTACK", "")},
      {"owner_invalid", set("VOSKPID", "12x")},
      {"originator_invalid", set("VOSKORIG", "\x1b[2J")},
      {"owner_gone", set("VOSKPID", std::to_string(id_of_nobody()))},
      {"address_invalid", set("VOSKADDR", "not an address")},
      {"address_invalid", set("VOSKADDR", std::string(6, 'z') + std::string(19, '.'))},
      {"address_of_other_node", set("VOSKADDR", builder::kAddress)},
      {"address_of_other_node", set("VOSKADDR", builder::digits(0x0120, 24) + "/")},
      {"process_name_invalid", set("VOSKPNAME", "a/b")},
      {"stack_elsewhere", set("VOSKSTACK", "/tmp/no-such-stack")},
      {"stack_elsewhere", set("VOSKSTACK", std::string(sandbox::kStacks) + "/../x")},
      {"reclaim_unknown", set("VOSKRECLAIM", "Whole")},
      {"trace_unusable", set("VOSKDEBUG", "/no/such/directory/trace")},
      {"trace_unusable", set("VOSKDEBUG", "/tmp")},
      {"directory_missing", run("rmdir " + dumps)},
      {"directory_replaced", run("rmdir " + dumps + " && ln -s /tmp " + dumps)},
      {"directory_replaced", run("rmdir " + dumps + " && touch " + dumps)},
      {"directory_mode", run("chmod 0777 " + dumps)},
      {"directory_mode", run("chmod 1775 " + dumps)},
      {"directory_owner", run("chown 65534 " + dumps)},
      {"stack_replaced", run("mkdir " + kStack)},
      {"stack_replaced", run("mkfifo " + kStack)},
      {"stack_replaced", run("ln -s /etc/passwd " + kStack)},
      {"stack_replaced", run("echo text > " + kStack)},
      {"stack_damaged", stack(damaged)},
      {"stack_header", stack(header)},
      {"clock_behind", run("true")},
      {"catalogue_unusable", run("echo no catalogue > /var/adm/vosk/vosk.cat")},
      {"catalogue_unusable", run("mkdir /var/adm/vosk/vosk.cat")},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const tool::options before = how_;
    ASSERT_EQ(sandbox::fresh(healthy()), "");
    for (const char *path : {sandbox::kStacks, sandbox::kDumps}) ASSERT_EQ(chmod(path, 01777), 0);
    row.seed(how_);
    if (std::string(row.name) == "catalogue_unusable") how_.environment["NLSPATH"] = "/var/adm/vosk/%N";
    if (std::string(row.name) == "clock_behind") {
      tool::write_stack(kStack, builder::never_wrapped_file());
      EXPECT_EQ(system(("chmod 666 " + kStack + "; touch -d tomorrow " + kStack).c_str()), 0);
    }
    EXPECT_THAT(faults(), testing::Contains(row.name));
    how_ = before;
  }
}

TEST_F(Doctor, NamesAnOwnerThatIsNoAncestor) {
  other_process stranger([] {});
  how_.environment["VOSKPID"] = std::to_string(stranger.pid());
  EXPECT_THAT(faults(), testing::Contains("owner_unrelated"));
}

TEST_F(Doctor, NamesWhoHoldsTheLock) {
  tool::write_stack(kStack, builder::never_wrapped_file());
  other_process holder([] {
    const int fd = open(kStack.c_str(), O_RDWR);
    EXPECT_EQ(lockf(fd, F_LOCK, 0), 0);
  });
  EXPECT_THAT(tool::run({"vosk", "doctor"}, how_).out,
              HasSubstr("fault lock_held: process " + std::to_string(holder.pid()) + " holds the lock of " + kStack));
}

TEST_F(Doctor, CannotNameAHolderOfAnotherNamespace) {
  tool::write_stack(kStack, builder::never_wrapped_file());
  other_process holder([] {
    const int fd = open(kStack.c_str(), O_RDWR);
    EXPECT_EQ(lockf(fd, F_LOCK, 0), 0);
  });
  const sandbox::Outcome apart = sandbox::run_child([&] {
    if (unshare(CLONE_NEWPID) != 0) GTEST_SKIP() << "no process ids of its own";
    EXPECT_THAT(tool::run({"vosk", "doctor"}, how_).out,
                HasSubstr("fault lock_held: a process of another namespace holds the lock of " + kStack +
                          ": recordings wait; let it go on or end it\n"));
  });
  EXPECT_NE(apart.kind, sandbox::Outcome::kFailed) << apart.text;
}

// Of a stack without identifiers the file's own time counts.
TEST_F(Doctor, CountsTheStacksThatAreNewerThanTheClock) {
  builder::record nameless, late;
  nameless.eid.clear();
  nameless.time = 0;
  late.at(static_cast<std::uint64_t>(time(nullptr)) + 86400 * 3, 0);
  const std::string first = std::string(sandbox::kStacks) + "/a", second = std::string(sandbox::kStacks) + "/b";
  for (const auto &[path, record] : {std::pair(first, nameless), std::pair(second, late)}) {
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(record)));
    tool::write_stack(path, m.file());
  }
  ASSERT_EQ(system(("touch -d '2 days' " + first).c_str()), 0);
  EXPECT_THAT(tool::run({"vosk", "doctor"}, how_).out,
              testing::ContainsRegex("fault clock_behind: 2 stacks are newer than the clock; " + first +
                                     " by [12] d [0-9]+ h; "));
  ASSERT_EQ(system(("touch -d '2 days ago' " + first).c_str()), 0);
  EXPECT_THAT(tool::run({"vosk", "doctor"}, how_).out,
              testing::ContainsRegex("fault clock_behind: 1 stacks are newer than the clock; " + second +
                                     " by [23] d [0-9]+ h; "));
}

TEST_F(Doctor, ComparesACatalogueWithTheLibrarysTexts) {
  how_.environment["NLSPATH"] = "/var/adm/vosk/%N";
  for (const bool changed : {false, true}) {
    std::string source = "$quote \"\n$set 1\n";
    for (int i = 1; i < VK_MESSAGE_COUNT; ++i) {
      std::string text = vk_mesgtbl_vk_lib[i];
      for (std::size_t at; (at = text.find('\n')) != std::string::npos;) text.replace(at, 1, "\\n");
      if (changed && i == 7) text += "%5$d";
      source += std::to_string(i) + " \"" + text + "\"\n";
    }
    ASSERT_TRUE(files::write("/var/adm/vosk/source", source));
    ASSERT_EQ(system("rm -f /var/adm/vosk/vosk.cat; gencat /var/adm/vosk/vosk.cat /var/adm/vosk/source"), 0);
    const std::string out = tool::run({"vosk", "doctor"}, how_).out;
    if (changed)
      EXPECT_THAT(out, HasSubstr("fault catalogue_wrong: the message catalogue vosk.cat lacks or changes 1 messages"));
    else
      EXPECT_THAT(out, testing::Not(HasSubstr("catalogue")));
  }
}

TEST_F(Doctor, NamesAStackThatTheStandardRuleHasStopped) {
  setenv("VOSKSTACK", kStack.c_str(), 1);
  vk_eid_t eid = "";
  int refused = 0;
  for (int i = 0; i < 5000 && refused < 20; ++i) {
    const std::string detail(1 + static_cast<std::size_t>(i) * 37 % 500, 'd');
    const int code =
        vk_push_stack_1(&eid, nullptr, "r", "p", "s.c", "1", 1, 0, detail.c_str(), nullptr, "c", 1, 1, "text");
    refused = code == 24 ? refused + 1 : 0;
  }
  ASSERT_EQ(refused, 20);
  EXPECT_THAT(faults(), testing::ElementsAre("stack_full"));
  how_.environment["VOSKRECLAIM"] = "half";
  EXPECT_THAT(faults(), testing::ElementsAre("reclaim_unknown", "stack_full"));
  how_.environment["VOSKRECLAIM"] = "whole";
  EXPECT_THAT(faults(), testing::IsEmpty());
}

TEST_F(Doctor, NamesAFullOrReadOnlyFileSystem) {
  ASSERT_TRUE(sandbox::fill(0));
  EXPECT_THAT(faults(), testing::Contains("no_space"));
  sandbox::Options few = healthy();
  few.inodes = "3";
  ASSERT_EQ(sandbox::fresh(few), "");
  EXPECT_THAT(faults(), testing::Contains("no_inodes"));
  sandbox::Options closed = healthy();
  closed.read_only = true;
  ASSERT_EQ(sandbox::fresh(closed), "");
  EXPECT_THAT(faults(), testing::Contains("directory_denied"));
}

TEST_F(Doctor, NamesALimitThatNoStackFits) {
  constexpr rlim_t kLargestStack = 16384;
  const rlimit small{kLargestStack - 1, RLIM_INFINITY}, enough{kLargestStack, RLIM_INFINITY},
      any{RLIM_INFINITY, RLIM_INFINITY};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_THAT(faults(), testing::Contains("file_size_limit"));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &enough), 0);
  EXPECT_THAT(faults(), testing::Not(testing::Contains("file_size_limit")));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &any), 0);
}

TEST_F(Doctor, NamesWhatTheNodeLacks) {
  if (!trouble_.empty()) CANNOT_RUN_HERE(trouble_);
  log_.reset();
  EXPECT_THAT(faults(), testing::ElementsAre("no_system_log"));
}

TEST_F(Doctor, ShowsHostileValuesHarmlessAndHasAnExitStatusForEveryOutcome) {
  how_.environment["VOSKSTACK"] = "/tmp/\x1b[2J\n%s%n";
  const tool::result r = tool::run({"vosk", "doctor"}, how_);
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.out, HasSubstr(R"(/tmp/\x1b[2J\n%s%n)"));
  EXPECT_EQ(tool::run({"vosk", "doctor", "--no-such-option"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "doctor", "word"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "doctor", "--help"}).status, 0);
}
