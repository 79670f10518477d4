// What the verbs make of records, logs, environments and nodes of the kinds that are seldom seen.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

// The exit status of a command whose output nobody reads; 1000 and the signal that ended it.
int status_unread(const std::string &command) {
  int out[2];
  EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
  (void)close(out[0]);
  const pid_t child = fork();
  if (child == 0) {
    (void)dup2(out[1], 1);
    (void)alarm(20);
    execl("/bin/sh", "sh", "-c", ("exec " QX_BINARY_DIR "/bin/vosk " + command).c_str(), nullptr);
    _exit(127);
  }
  (void)close(out[1]);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// A line of the System Log.
std::string log_line(const std::string &eid, const std::string &reference, const std::string &text) {
  return "Nov 14 22:13:20 node1 service[4711]: (Recorded using libqx_vosk.a cv 2):::Error ID: " + eid +
         ":::Reference ID: " + reference + ":::Template ID: 2a:::Details File: :::Location: product,file.c,1.7,321" +
         std::string(24, ' ') + ":::" + text + "\n";
}

std::string log_eid(std::uint64_t seconds, const std::string &microseconds, const std::string &address) {
  return "822...." + builder::digits(seconds, 6) + microseconds + address;
}

builder::bytes stack_of(const std::vector<builder::record> &records, std::int32_t size = 8192) {
  builder::model m(size);
  for (const builder::record &r : records) EXPECT_TRUE(m.push(builder::record_bytes(r)));
  return m.file();
}

std::size_t count(const std::string &text, const std::string &part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

const std::string kNoAddress(25, 'z');  // what no writer leaves
const std::string kNoMicroseconds(4, 'z');

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
              {"report --msg 1x/7 " + kStack, 2, "is not SET/NUMBER"},
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

TEST_F(Seldom, ASourceIsFoundByItsPathOrNameWithOrWithoutALine) {
  builder::record r;
  r.source = "src/worker.c";
  make(r);
  for (const char *pattern : {"src/worker.c", "worker.c", "src/worker.c:12", "worker.c:12", "s*.c"})
    expect_all({{std::string("report --source ") + pattern + " " + kStack, 0, "cannot open /etc/thing"}});
  for (const char *pattern : {"src", "worker", "rc/worker.c", "rc/worker.c:12", "worker.c:1"})
    expect_all({{std::string("report --source ") + pattern + " " + kStack, 4, "no record to show"}});
}

// A long field can leave no room for those behind it.
TEST_F(Seldom, AFieldThatARecordDoesNotHaveIsSelectedByNothing) {
  builder::record r;
  r.process = std::string(1000, 'p');
  make(r);
  expect_all({{"report --pid 4711 " + kStack, 4, "no record to show"},
              {"report --not --pid 4711 " + kStack, 0, "ppp[-]"},
              {"report --msg 1/7 " + kStack, 4, "no record to show"},
              {"report --not --msg 1/7 " + kStack, 0, "ppp[-]"}});
  // The set is there, the number is not: up to the catalogue's name, its end and the set.
  constexpr std::size_t kBody = 1016, kFieldsAt = 102 - 8;
  r = {};
  const std::size_t before =
      kFieldsAt + r.process.size() + 1 + 12 + r.source.size() + 1 + r.version.size() + 1 + r.product.size() + 1 + 4;
  r.catalogue = std::string(kBody - 2 - 4 - 1 - before, 'c');
  make(r);
  expect_all({{"report --json " + kStack, 0, R"("set":1,"default_text":"ca",)"},
              {"report --msg 1/7 " + kStack, 4, "no record to show"},
              {"report --not --msg 1/7 " + kStack, 0, "mydaemon[4711]"}});
}

TEST_F(Seldom, TimesAreThoseOfTheZoneThatIsAskedFor) {
  make({});
  ASSERT_TRUE(files::write(dir_ / "log", log_line(log_eid(1700000000, "....", builder::kAddress), "", "in the log")));
  const std::string show = " --log " + dir_ / "log" + " " + log_eid(1700000000, "....", builder::kAddress);
  const tool::options abroad = tool::options::with({{"TZ", "JST-9"}});
  expect_all({{"report " + kStack, 0, ": 2023-11-15 07:13:20.000001 +0900 to "},
              {"report --utc " + kStack, 0, ": 2023-11-14 22:13:20.000001 +0000 to "},
              {"report --since 2023-11-14T22:13:21 " + kStack, 0, "2023-11-15 07:13:20.000001 +0900 mydaemon"},
              {"report --utc --since 2023-11-14T22:13:21 " + kStack, 4, "no record to show"},
              {"report --utc --since 2023-11-14T22:13:20 " + kStack, 0, "2023-11-14 22:13:20.000001 +0000 mydaemon"},
              {"show" + show, 0, "  Time            2023-11-15 07:13:20.000000 +0900\n"},
              {"show --utc" + show, 0, "  Time            2023-11-14 22:13:20.000000 +0000\n"},
              {"report -o json " + kStack, 0, R"({"type":"record")"}},
             abroad);
}

TEST_F(Seldom, FilesThatAreNotReadHaveTheirReasonsInJson) {
  ASSERT_TRUE(files::write(dir_ / "text", "no stack"));
  expect_all({{"report --json " + dir_ / "none", 4, R"({"type":"unreadable")"},
              {"report --json " + dir_ / "text", 4, R"({"type":"skipped")"},
              {"report --json /proc/self/mem", 1, R"({"type":"unreadable")"},
              {"report " + dir_ / "none", 4, "cannot read "},
              {"report " + dir_ / "text", 4, "skipped "},
              {"report /proc/self/mem", 1, "cannot read "}});
}

TEST_F(Seldom, TheStackOfTheEnvironmentIsLookedAt) {
  make({});
  const std::string own = dir_ / "own", of_own = builder::stack_eid(builder::kInode, 1700000100, 1);
  builder::record r;
  r.at(1700000100, 1).default_text = "elsewhere";
  r.arguments.clear();
  tool::write_stack(own, stack_of({r}));
  const auto with = [](const std::string &stack) { return tool::options::with({{"VOSKSTACK", stack}}); };
  expect_all({{"report", 0, "-- " + own + ": "},
              {"show --log none " + of_own, 0, "  File            " + own + "\n"},
              {"show --log none " + eid(), 0, "  File            " + kStack + "\n"}},
             with(own));
  EXPECT_THAT(run("report", with(own)).out, testing::Not(HasSubstr(kStack)));
  for (const std::string &stack : {std::string(), kStack}) {
    SCOPED_TRACE(stack);
    expect_all({{"report", 0, "-- " + kStack + ": "}, {"show --log none " + of_own, 4, ""}}, with(stack));
    EXPECT_EQ(count(run("show --log none " + eid(), with(stack)).out, "  File            "), 1u);
  }
  expect_all({{"show --log none " + of_own, 4, ""}});
}

TEST_F(Seldom, OnlyThisNodesStacksAreLookedThroughWhereThatIsWanted) {
  sandbox::Options node;
  node.network = true;
  node.ip = {"link set lo up", "addr add 10.0.0.1/32 dev lo"};
  RUN_IN_SANDBOX(node, [] {
    const std::string here = builder::digits(0x0100000A, 6) + std::string(19, '.');
    tool::write_stack(kStack, builder::bytes(1));
    const std::uint64_t inode = tool::inode_of(kStack);
    builder::record own, foreign;
    own.at(1700000000, 1).eid = builder::stack_eid(inode, 1700000000, 1, here);
    foreign.at(1700000001, 1, inode);
    tool::write_stack(kStack, stack_of({own, foreign}));
    expect_all({{"show --log none --node-only " + own.eid, 0, "  Node            10.0.0.1, this node\n"},
                {"show --log none --node-only " + own.eid, 0, "  Verdict         present: "},
                {"show --log none --node-only " + foreign.eid, 4, "  Verdict         other_node: "},
                {"show --log none " + foreign.eid, 0, "  Verdict         present: "}});
  });
}

// A line says the node where records of several are shown; identifiers that do not tell it go without.
TEST_F(Seldom, NodesAreToldWhereRecordsOfSeveralAreShown) {
  const auto at = [](std::uint64_t seconds, const std::string &address) {
    builder::record r;
    r.at(seconds, 1).eid = builder::stack_eid(builder::kInode, seconds, 1, address);
    return r;
  };
  builder::record nameless;
  nameless.eid.clear();
  nameless.time = 0;
  const std::string other = builder::digits(0x0100000A, 6) + std::string(19, '.'), name = dir_ / "stack";
  tool::write_stack(name, stack_of({at(1700000000, builder::kAddress), nameless, at(1700000001, kNoAddress)}));
  EXPECT_EQ(count(run("report " + name).out, " on "), 0u);
  tool::write_stack(
      name, stack_of({at(1700000000, builder::kAddress), nameless, at(1700000001, kNoAddress), at(1700000002, other)}));
  const std::string out = run("report " + name).out;
  EXPECT_EQ(count(out, "mydaemon[4711]"), 4u);
  EXPECT_EQ(count(out, "mydaemon[4711] on 192.168.1.10 "), 1u);
  EXPECT_EQ(count(out, "mydaemon[4711] on 10.0.0.1 "), 1u);
  EXPECT_EQ(count(out, " on "), 2u);
}

TEST_F(Seldom, ACauseWithoutANodeIsOfNoOtherNode) {
  builder::record r;
  r.associated = "7......" + builder::digits(1700000005, 6) + builder::digits(0, 4) + kNoAddress;
  make(r);
  expect_all({{"report " + kStack, 0, "later: the clock was set back"},
              {"report --json " + kStack, 0, R"("microseconds":4999999})"}});
  r.associated = "7......" + builder::digits(1700000005, 6) + builder::digits(0, 4) + builder::kAddress;
  make(r);
  expect_all({{"report --json " + kStack, 0, R"("microseconds":4999999,"node_of_cause":"192.168.1.10"})"}});
}

TEST_F(Seldom, IdentifiersThatTellLittleAreTraced) {
  const std::string first = log_eid(1700000000, "....", builder::kAddress),
                    nowhere = log_eid(1700000001, "....", kNoAddress),
                    whenever = log_eid(1700000002, kNoMicroseconds, builder::kAddress), log = dir_ / "log";
  ASSERT_TRUE(files::write(
      log, log_line(first, "", "one") + log_line(nowhere, first, "two") + log_line(whenever, nowhere, "three")));
  expect_all({{"trace --log " + log + " " + first, 0, " service[4711] on 192.168.1.10 file.c:321 one "},
              {"trace --log " + log + " " + first, 0, "+1.000000 s service[4711] file.c:321 two "},
              {"trace --log " + log + " " + first, 0, "+1.000000 s service[4711] on 192.168.1.10 file.c:321 three "}});
  const auto lines = tool::json_lines(run("trace --json --log " + log + " " + first).out);
  ASSERT_EQ(lines.size(), 3u);
  const auto member = [&](int line, const char *name) {
    return lines[std::size_t(line)]["log_records"][0].contains(name);
  };
  EXPECT_TRUE(member(0, "microseconds"));
  EXPECT_TRUE(member(0, "node"));
  EXPECT_TRUE(member(1, "microseconds"));
  EXPECT_FALSE(member(1, "node"));
  EXPECT_FALSE(member(2, "microseconds"));
  EXPECT_TRUE(member(2, "node"));
}

TEST_F(Seldom, AnnotationsAreOfWhatIsThere) {
  make({});
  const std::string other = builder::stack_eid(7, 1700000000, 1);
  tool::options how;
  how.input = other + "\n" + eid() + "\n";
  const auto lines = tool::json_lines(run("annotate --json -", how).out);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_FALSE(lines[0].contains("record"));
  EXPECT_TRUE(lines[1].contains("record"));
}

// What would come behind is not looked at any more.
TEST_F(Seldom, AnOutputThatNobodyReadsEndsACommand) {
  EXPECT_EQ(status_unread("annotate /dev/zero"), 0);
  const std::string cause = log_eid(1700000000, "....", builder::kAddress), log = dir_ / "log";
  std::string text = log_line(cause, "", "the cause");
  for (unsigned i = 1; i < 200; ++i)
    text += log_line(log_eid(1700000000 + i, "....", builder::kAddress), cause, std::string(600, 'x'));
  ASSERT_TRUE(files::write(log, text));
  builder::record r;
  r.at(1700001000, 1).associated = cause;
  builder::bytes bytes = stack_of({r});
  bytes[24] ^= 1;
  tool::write_stack(kStack, bytes);
  const std::string trace = "trace --dir " + std::string(sandbox::kStacks) + " --log " + log + " " + cause;
  EXPECT_EQ(run(trace).status, 3);
  EXPECT_EQ(status_unread(trace), 0);
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
