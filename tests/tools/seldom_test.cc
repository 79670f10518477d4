// What the verbs make of records, logs, environments and nodes of the kinds that are seldom seen.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/job.1.20231114.221320";

std::uint64_t bits_of(double value) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

// A command in words.
tool::result run(const std::string &command, const tool::options &how = {}) {
  std::vector<std::string> arguments{"vosk"};
  std::istringstream words(command);
  for (std::string word; words >> word;) arguments.push_back(word);
  return tool::run(arguments, how);
}

class Seldom : public testing::Test {
 protected:
  // The node's only stack holds this record.
  static void make(builder::record r) {
    tool::write_stack(kStack, builder::bytes(1));
    if (!r.eid.empty()) r.at(1700000000, 1, tool::inode_of(kStack));
    builder::model m;
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(kStack, m.file());
  }

  static std::string eid() { return builder::stack_eid(tool::inode_of(kStack), 1700000000, 1); }

  struct row {
    std::string command;
    int status;
    std::string says;
  };
  static void expect_all(const std::vector<row> &rows, const tool::options &how = {}) {
    for (const row &r : rows) {
      SCOPED_TRACE(r.command);
      const tool::result seen = run(r.command, how);
      EXPECT_EQ(seen.status, r.status) << seen.out << seen.err;
      EXPECT_THAT(seen.out + seen.err, HasSubstr(r.says));
    }
  }

  files::TemporaryDirectory dir_;
};

}  // namespace

TEST_F(Seldom, AnOutputThatIsFullIsNamedByEveryVerb) {
  make({});
  for (const std::string &command :
       {"detail " + eid(), "show --log none " + eid(), "trace --log none " + eid(), std::string("list"),
        "verify --json " + kStack, std::string("doctor"), std::string("env show"), "report " + kStack,
        "collect --all --log none -o " + dir_ / "x", std::string("prune --older-than 1d")}) {
    SCOPED_TRACE(command);
    const tool::result r = run(command, tool::options::to("/dev/full"));
    EXPECT_EQ(r.status, 1);
    EXPECT_THAT(r.err, HasSubstr("cannot write the output: No space left on device"));
  }
}

TEST_F(Seldom, EveryTypeOfArgumentIsShown) {
  builder::record r;
  r.default_text = "text";
  r.arguments = {{2, "", 7},    {3, "", 8},   {4, "", 9},  {6, "", bits_of(NAN)},      {6, "", bits_of(INFINITY)},
                 {7, "", 0x12}, {8, "", 'c'}, {99, "", 1}, {6, "", bits_of(-INFINITY)}};
  make(r);
  const std::string out = run("report -v " + kStack).out;
  for (const char *line : {"1      unsigned int 7\n", "2      long 8\n", "3      unsigned long 9\n",
                           "4      double nan\n", "5      double inf\n", "6      pointer 0x12\n", "7      char 99\n",
                           "8      unknown type 0x1\n", "9      double -inf\n"})
    EXPECT_THAT(out, HasSubstr(std::string("  Argument ") + line));
}

TEST_F(Seldom, ARecordThatIsCutIsMarked) {
  builder::record r;
  r.detail = std::string(1000, 'x');
  make(r);
  expect_all({{"report " + kStack, 0, " [cut] "},
              {"report -v " + kStack, 0, ", cut to the record size\n"},
              {"report --json " + kStack, 0, R"("cut":true)"}});
}

TEST_F(Seldom, ADetailThatIsATextOrEmptyIsShownAsJson) {
  make({});
  expect_all({{"detail --json " + eid(), 0, R"("kind":"text","content":"errno 13"})"}});
  builder::record r;
  r.detail.clear();
  make(r);
  expect_all({{"detail --json " + eid(), 4, R"("kind":"none"})"}, {"detail " + eid(), 4, "the record has no detail"}});
  r.detail = std::string(sandbox::kDumps) + "/large";
  make(r);
  ASSERT_TRUE(files::write(r.detail, std::string((1 << 20) + 1, 'x')));
  expect_all({{"detail --json " + eid(), 0, R"("size":1048577})"}});
}

TEST_F(Seldom, AStackThatIsReservedIsReportedAsThat) {
  std::string reserved(16384, '\0');
  reserved.replace(0, 36, "VKTFO=36    VKTFW=0     VKTFS=16384\n");
  ASSERT_TRUE(files::write(kStack, reserved));
  expect_all({{"report " + kStack, 4, ": reserved for a first recording that has not written its header"},
              {"report --json " + kStack, 4, R"("from":null,"to":null)"}});
}

// The identifier names a file of this node that holds something else now.
TEST_F(Seldom, AFileThatIsNoStackAnyMoreIsJudged) {
  for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
  ASSERT_EQ(vk_init_main_1(VK_STACK_CREAT, "job", getpid(), 0), 0);
  vk_eid_t eid = "";
  ASSERT_EQ(vk_push_stack_1(&eid, nullptr, "r", "p", "s.c", "1", 1, 0, "d", nullptr, "c", 1, 1, "text"), 0);
  ASSERT_TRUE(files::write(getenv("VOSKSTACK"), "no stack"));
  const std::string now = eid, before = now.substr(0, 7) + builder::digits(1600000000, 6) + now.substr(13);
  expect_all({{"show --log none " + now, 4, "  Verdict         damaged: "},
              {"show --log none " + now, 4, "  What it is      no stack: neither its header nor any record"},
              {"show --log none " + before, 4, "  Verdict         inode_reused: "},
              {"show --log none " + before, 4, "  File made       "}});
}

TEST_F(Seldom, ARecordWithoutAnIdentifierHasNoTime) {
  builder::record r;
  r.eid.clear();
  r.time = 0;
  make(r);
  expect_all({{"report " + kStack, 0, ": no time covered, never wrapped, 1 record"},
              {"report " + kStack, 0, "(no time) mydaemon[4711]"},
              {"report -v " + kStack, 0, "  Identifier      -\n"},
              {"list", 0, "-"},
              {"prune --older-than 1d", 0, "kept 1 file"},
              {"collect --all --log none -o " + dir_ / "a.tar", 0, "1 files of "}});
}

TEST_F(Seldom, RecordsOfTheSystemLogAreShownAsFarAsTheyGo) {
  const std::string id = "822...." + builder::digits(1700000000, 6) + builder::digits(0, 4) + builder::kAddress,
                    nowhere = "822...." + builder::digits(1700000000, 6) + builder::digits(0, 4) + std::string(25, '.'),
                    log = dir_ / "log";
  const std::string line = "(Recorded using libqx_vosk.a cv 2):::Error ID: " + id +
                           ":::Reference ID: :::Template ID: 2a:::Details File: " + sandbox::kDumps +
                           "/job.1.20231114.221320:::Location: product,file.c,1.7,321" + std::string(24, ' ') +
                           ":::in the log";
  const std::string show = "show --log " + log + " " + id;
  struct {
    std::string line;
    std::vector<row> rows;
  } const cases[] = {
      {line,
       {{show, 0, "Source          file.c:321, version 1.7"}, {"trace --log " + log + " " + id, 0, "in the log"}}},
      {line.substr(0, line.find(":::Location")), {{show, 0, ", cut\n"}, {show, 0, "  Location        -\n"}}},
      {line.substr(0, line.find(":::Details")), {{show, 0, "  Detail          -\n"}}},
      {line.substr(0, line.find(":::Reference")),
       {{show, 0, "  Description     -\n"},
        {"show --json --log " + log + " " + id, 0, R"("complete":false)"},
        {"trace --log " + log + " " + id, 0, id}}},
      {"node service[1]: " + line, {{show, 0, "  Process         service[1]\n"}}},
      {"Nov  5 14:21:42 node service: " + line, {{show, 0, "  Process         service[-], host node\n"}}},
  };
  for (const auto &one : cases) {
    ASSERT_TRUE(files::write(log, one.line + "\n"));
    expect_all(one.rows);
  }
  ASSERT_EQ(mkdir((dir_ / "logs").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(dir_ / "logs/syslog", line + "\n"));
  expect_all({{"collect --all --log " + log + " -o " + dir_ / "a.tar", 0, "-- not collected: "},
              {"show --log " + dir_ / "logs/" + " " + id, 0, dir_ / "logs/syslog"},
              {"show --log none --dir " + dir_.path() + " " + id, 4, "not_in_logs"},
              {"show --log none --dir " + dir_ / "none" + " " + id, 4, ""},
              {"annotate " + dir_ / "none", 4, "No such file or directory"},
              {"annotate /etc/shadow/x", 1, "Not a directory"}});
}

TEST_F(Seldom, FiltersRefuseWhatIsNoNumber) {
  make({});
  expect_all({{"report --msg 1 " + kStack, 2, "--msg: '1' is not SET/NUMBER"},
              {"report --msg x/1 " + kStack, 2, "is not SET/NUMBER"},
              {"report --msg 1/x " + kStack, 2, "is not SET/NUMBER"},
              {"report --msg 1/ " + kStack, 2, "is not SET/NUMBER"},
              {"report --msg 99999999999/1 " + kStack, 2, "is not SET/NUMBER"},
              {"report --msg 1/8 " + kStack, 4, "no record to show"},
              {"report --msg 1/7 " + kStack, 0, "cannot open /etc/thing"},
              {"report --source worker.c:12 " + kStack, 0, "cannot open /etc/thing"},
              {"report --source worker.c:13 " + kStack, 4, "no record to show"},
              {"report --grep %1.s " + kStack, 0, "cannot open /etc/thing"},
              {"report --grep 13 " + kStack, 0, "cannot open /etc/thing"},
              {"report --grep nothing " + kStack, 4, "no record to show"},
              {"report --around " + eid() + "=1h --until now " + kStack, 2, "--around excludes --since and --until"},
              {"report --around " + eid() + "=1h --since now " + kStack, 2, "--around excludes --since and --until"}});
}

TEST_F(Seldom, EnvironmentsAreToldApart) {
  const std::string address = builder::kAddress;
  const auto with = [](std::map<std::string, std::string> variables) {
    return tool::options::with(std::move(variables));
  };
  expect_all({{"env show", 4, "-- no environment"}, {"doctor", 1, "note no_environment: "}});
  expect_all({{"env show", 4, "-- no environment"}}, with({{"VOSKSTACK", ""}, {"VOSKADDR", ""}}));
  expect_all({{"env show", 4, "-- for the System Log only"}}, with({{"VOSKADDR", address}}));
  expect_all(
      {{"env show", 4, "owned by nobody"}},
      with({{"VOSKSTACK", kStack}, {"VOSKORIG", "1"}, {"VOSKPID", "x"}, {"VOSKADDR", address}, {"VOSKPNAME", "p"}}));
  expect_all({{"doctor", 1, "note stacks_disabled: "}}, with({{"VOSKSDISABLE", "1"}}));
  for (const char *name : {"VOSKORIG", "VOSKPID"})
    expect_all({{"doctor", 1, "fault variable_missing: "}}, with({{name, "1"}}));
  for (const std::string &wrong : {address + ".", "-" + address.substr(1), address.substr(0, 24) + "0"})
    expect_all({{"doctor", 1, "fault address_invalid: "}}, with({{"VOSKADDR", wrong}}));
  for (const char *wrong : {"0", "-1", "99999999999", "1x"})
    expect_all({{"doctor", 1, "fault owner_invalid: VOSKPID is no process id"}}, with({{"VOSKPID", wrong}}));
  expect_all({{"doctor", 1, "fault process_name_invalid: "}}, with({{"VOSKPNAME", "a\nb"}}));
  ASSERT_TRUE(files::write(dir_ / "trace", ""));
  for (const std::string &usable : {dir_ / "trace", dir_ / "other"})
    EXPECT_THAT(run("doctor", with({{"VOSKDEBUG", usable}})).out, testing::Not(HasSubstr("trace_unusable")));
  ASSERT_EQ(chmod((dir_ / "trace").c_str(), 0444), 0);
  ASSERT_EQ(chmod(dir_.path().c_str(), 0555), 0);
  for (const std::string &unusable : {dir_ / "trace", dir_ / "other"}) {
    tool::options how = with({{"VOSKDEBUG", unusable}});
    how.powerless = true;
    expect_all({{"doctor", 1, "fault trace_unusable: "}}, how);
  }
  ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
}

TEST_F(Seldom, CataloguesAreComparedWithTheLibrarysTexts) {
  ASSERT_TRUE(files::write(dir_ / "source", "$set 1\n1 %d %d %d %d %d %d\n"));
  ASSERT_EQ(std::system(("gencat " + dir_ / "vosk.cat" + " " + dir_ / "source").c_str()), 0);
  expect_all({{"doctor", 1, "fault catalogue_wrong: the message catalogue vosk.cat lacks or changes "}},
             tool::options::with({{"NLSPATH", dir_ / "%N"}}));
}

TEST_F(Seldom, NodesOfTheirOwnKindAreNoted) {
  sandbox::Options lonely;
  lonely.network = true;
  lonely.ip = sandbox::network::loopback_up();
  RUN_IN_SANDBOX(lonely, [] { EXPECT_THAT(run("doctor").out, HasSubstr("note only_loopback: ")); });
  const sandbox::Outcome apart = sandbox::run_child([] {
    if (unshare(CLONE_NEWPID) != 0) GTEST_SKIP() << "no process ids of its own";
    EXPECT_THAT(run("doctor").out, HasSubstr("note container: "));
  });
  EXPECT_NE(apart.kind, sandbox::Outcome::kFailed) << apart.text;
}

// Signals without a handler do not reach the first process of a container, not even its own.
TEST_F(Seldom, TheFirstProcessOfAContainerEndsWithTheStatusOfAKilledCommand) {
  const sandbox::Outcome apart = sandbox::run_child([] {
    if (unshare(CLONE_NEWPID) != 0) GTEST_SKIP() << "no process ids of its own";
    const tool::result r = tool::run({"vosk", "run", "--", "sh", "-c", "kill -TERM $$"});
    EXPECT_EQ(r.status, 128 + SIGTERM) << r.err;
    EXPECT_THAT(r.err, HasSubstr("sh: killed by signal 15 (SIGTERM)"));
  });
  EXPECT_NE(apart.kind, sandbox::Outcome::kFailed) << apart.text;
}

TEST_F(Seldom, ColoursAreForTerminalsThatHaveThem) {
  make({});
  expect_all({{"report --color always " + kStack, 0, "\x1b["}}, tool::options::with({{"NO_COLOR", "1"}}));
  EXPECT_THAT(run("report --color always --json " + kStack).out, testing::Not(HasSubstr("\x1b[")));
  EXPECT_THAT(run("report --color auto " + kStack).out, testing::Not(HasSubstr("\x1b[")));
}
