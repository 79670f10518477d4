// vosk report and vkstkrpt: whole outputs, filters, exit statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/files.h"
#include "tools/tool.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

class Report : public testing::Test {
 protected:
  files::TemporaryDirectory dir_;
  const std::string stack_ = dir_ / "mydaemon.4711.20231114.221320";

  // A file whose records name its own i-node.
  template <class Make>
  void make(const std::string &path, Make make) {
    tool::write_stack(path, builder::bytes(1));
    tool::write_stack(path, make(tool::inode_of(path)));
  }

  void make_incident() {
    make(stack_, [](std::uint64_t inode) {
      builder::model m;
      builder::record child;
      child.at(1700000000, 123456, inode);
      child.eid = builder::stack_eid(inode, 1700000000, 123456);
      child.process = "child";
      child.pid = 4712;
      child.parent = 4711;
      child.default_text = "cannot open %1$s:\n\tthe file is %2$d bytes long";
      child.arguments = {{5, "/etc/thing"}, {1, "", static_cast<std::uint64_t>(-3)}};
      child.detail = "Permission denied\nerrno 13";
      EXPECT_TRUE(m.push(builder::record_bytes(child)));
      builder::record parent;
      parent.at(1700000061, 5, inode);
      parent.associated = child.eid;
      parent.parent = 0;
      parent.source = "main.c";
      parent.line = 99;
      parent.number = 8;
      parent.default_text = "no answer from \x1b[31m%1$s";
      parent.arguments = {{5, "child\n"}};
      parent.detail.clear();
      EXPECT_TRUE(m.push(builder::record_bytes(parent)));
      return m.file();
    });
  }

  // The identifiers of the incident, to put into expected texts.
  std::string child_eid() const { return builder::stack_eid(tool::inode_of(stack_), 1700000000, 123456); }
  std::string parent_eid() const { return builder::stack_eid(tool::inode_of(stack_), 1700000061, 5); }
  std::string coverage() const {
    return "-- " + stack_ +
           ": 2023-11-14 22:13:20.123456 +0000 to 2023-11-14 22:14:21.000005 +0000, never wrapped, 2 records, 0 bytes "
           "unreadable\n";
  }
};

}  // namespace

TEST_F(Report, PrintsCoverageAndOneLineARecord) {
  make_incident();
  const tool::result r = tool::run({"vosk", "report", stack_});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out,
            coverage() + "2023-11-14 22:13:20.123456 +0000 child[4712] myproduct worker.c:12 cannot open /etc/thing: " +
                child_eid() + "\n" +
                "2023-11-14 22:14:21.000005 +0000 mydaemon[4711] myproduct main.c:99 no answer from \\x1b[31mchild " +
                parent_eid() + "\n");
}

TEST_F(Report, IsTheSameUnderItsOtherName) {
  make_incident();
  EXPECT_EQ(tool::run({"vkstkrpt", "-v", stack_}).out, tool::run({"vosk", "report", "-v", stack_}).out);
}

TEST_F(Report, ShowsEveryFieldInVerboseForm) {
  make_incident();
  const tool::result r = tool::run({"vosk", "report", "-v", stack_});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, coverage() + "\nRecord at offset 24 of " + stack_ + ", 267 bytes\n" + "  Identifier      " +
                       child_eid() + "\n" +
                       "  Follows from    -\n"
                       "  Time            2023-11-14 22:13:20.123456 +0000\n"
                       "  Node            192.168.1.10\n"
                       "  Process         child[4712], parent 4711, thread 77\n"
                       "  Product         myproduct\n"
                       "  Source          worker.c:12, version 1.4\n"
                       "  Message         my.cat, set 1, number 7\n"
                       "  Description     cannot open /etc/thing:\n"
                       "                  \tthe file is -3 bytes long\n"
                       "  Default text    cannot open %1$s:\n"
                       "                  \tthe file is %2$d bytes long\n"
                       "  Argument 1      string \"/etc/thing\"\n"
                       "  Argument 2      int -3\n"
                       "  Detail          Permission denied\n"
                       "                  errno 13\n"
                       "\nRecord at offset 291 of " +
                       stack_ + ", 204 bytes\n" + "  Identifier      " + parent_eid() + "\n" + "  Follows from    " +
                       child_eid() + "\n" +
                       "  Time            2023-11-14 22:14:21.000005 +0000\n"
                       "  Node            192.168.1.10\n"
                       "  Process         mydaemon[4711], parent 0, thread 77\n"
                       "  Product         myproduct\n"
                       "  Source          main.c:99, version 1.4\n"
                       "  Message         my.cat, set 1, number 8\n"
                       "  Description     no answer from \\x1b[31mchild\n"
                       "  Default text    no answer from \\x1b[31m%1$s\n"
                       "  Argument 1      string \"child\\n\"\n"
                       "  Detail          -\n");
}

TEST_F(Report, PrintsJsonLines) {
  make_incident();
  const tool::result r = tool::run({"vosk", "report", "--json", "-n", "1", stack_});
  EXPECT_EQ(r.status, 0);
  const std::string inode = std::to_string(tool::inode_of(stack_));
  EXPECT_EQ(
      r.out,
      R"({"type":"coverage","schema":1,"file":")" + stack_ + R"(","file_inode":)" + inode + R"(,"inode":)" + inode +
          R"(,"from":"2023-11-14T22:13:20.123456Z","to":"2023-11-14T22:14:21.000005Z","header_written":true,"wrapped":false,)"
          R"("records":2,"unreadable_bytes":0,"damage":0,"read_in_one_piece":true,"next_push_taken":true})"
          "\n"
          R"({"type":"record","schema":1,"file":")" +
          stack_ + R"(","offset":291,"length":196,"intact":true,"cut":false,"identifier":")" + parent_eid() +
          R"(","associated":")" + child_eid() +
          R"(","time":"2023-11-14T22:14:21.000005Z","seconds":1700000061,"microseconds":5,"node":"192.168.1.10",)"
          R"("stored_time":1700000061,"process":"mydaemon","pid":4711,"parent":0,"thread":77,"source":"main.c",)"
          R"("version":"1.4","product":"myproduct","line":99,"catalogue":"my.cat","set":1,"number":8,)"
          R"("default_text":"no answer from \u001b[31m%1$s","argument_count":1,"arguments":[{"type":5,"text":"child\u000a"}],)"
          R"("detail":"","description":"no answer from \u001b[31mchild\u000a"})"
          "\n");
}

TEST_F(Report, SelectsByEachFilter) {
  make_incident();
  struct {
    std::vector<std::string> arguments;
    const char *shown;  // c: the child's record, p: the parent's
  } const rows[] = {
      {{"--process", "child"}, "c"},
      {{"--process", "my*"}, "p"},
      {{"--process", "child", "--process", "mydaemon"}, "cp"},
      {{"--process", "child", "--not"}, "p"},
      {{"--pid", "4711"}, "p"},
      {{"--pid", "47"}, ""},
      {{"--product", "myproduct"}, "cp"},
      {{"--product", "my"}, ""},
      {{"--source", "worker.c"}, "c"},
      {{"--source", "main.c:99"}, "p"},
      {{"--source", "main.c:98"}, ""},
      {{"--msg", "1/7"}, "c"},
      {{"--msg", "2/7"}, ""},
      {{"--grep", "^cannot open /etc"}, "c"},
      {{"--grep", "errno 1[0-9]"}, "c"},
      {{"--grep", "Answer"}, ""},
      {{"--since", "2023-11-14 22:14"}, "p"},
      {{"--until", "2023-11-14 22:13:20.123456"}, "c"},
      {{"--until", "2023-11-14 22:13:20.123455"}, ""},
      {{"--since", "@1700000000.123456"}, "cp"},
      {{"--since", "2023-11-15T00:14:00+02:00"}, "p"},
      {{"--around", child_eid()}, "cp"},
      {{"--around", child_eid() + "=30s"}, "c"},
      {{"--around", parent_eid() + "=60s"}, "p"},
      {{"-n", "1"}, "p"},
      {{"-n", "0"}, ""},
      {{"--reverse"}, "pc"},
      {{"-r", "-n", "1"}, "p"},
      {{"--process", "child", "--pid", "4711"}, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    std::vector<std::string> arguments{"vosk", "report", stack_};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    const tool::result r = tool::run(arguments);
    std::string shown;
    for (std::size_t at = 0; at < r.out.size(); at = r.out.find('\n', at) + 1) {
      const std::string line = r.out.substr(at, r.out.find('\n', at) - at);
      if (line.ends_with(child_eid())) shown += 'c';
      if (line.ends_with(parent_eid())) shown += 'p';
    }
    EXPECT_EQ(shown, row.shown);
    EXPECT_EQ(r.status, *row.shown != '\0' ? 0 : 4);
  }
}

TEST_F(Report, SaysHowManyRecordsAreOutsideTheWindow) {
  make_incident();
  EXPECT_THAT(tool::run({"vosk", "report", "--since", "2023-11-14 22:14", stack_}).out,
              testing::EndsWith("-- 1 record outside the time window: 1 before it, 0 after it\n"));
  EXPECT_THAT(tool::run({"vosk", "report", "--since", "-1h", "--json", stack_}).out,
              testing::EndsWith("{\"type\":\"window\",\"schema\":1,\"before\":2,\"after\":0}\n"));
  EXPECT_THAT(tool::run({"vosk", "report", "--until", "now", stack_}).out, testing::Not(HasSubstr("window")));
}

TEST_F(Report, NeverLeavesOutARecordThatHasNoTime) {
  make(stack_, [](std::uint64_t inode) {
    builder::model m;
    builder::record r;
    EXPECT_TRUE(m.push(builder::record_bytes(r.at(1700000000, 0, inode))));
    r.eid.clear();
    r.detail.clear();
    r.default_text = "without";
    r.arguments.clear();
    EXPECT_TRUE(m.push(builder::record_bytes(r)));
    return m.file();
  });
  EXPECT_THAT(tool::run({"vosk", "report", "--since", "-1h", stack_}).out,
              HasSubstr("\n(no time) mydaemon[4711] myproduct worker.c:12 without -\n"));
}

TEST_F(Report, MarksClockSteps) {
  make(stack_, [](std::uint64_t inode) {
    builder::model m;
    builder::record r;
    for (const unsigned second : {100U, 200U, 100U, 300U})
      EXPECT_TRUE(m.push(builder::record_bytes(r.at(1700000000 + second, 0, inode))));
    return m.file();
  });
  const tool::result r = tool::run({"vosk", "report", stack_});
  EXPECT_THAT(r.out, HasSubstr("22:16:40.000000 +0000"));
  EXPECT_THAT(r.out,
              HasSubstr("\n-- the clock went back by 1 min 40 s in " + stack_ + "\n2023-11-14 22:15:00.000000 +0000"));
}

TEST_F(Report, MergesSeveralStacksOnOneLineOfTime) {
  for (unsigned node = 0; node < 3; ++node) {
    builder::model m;
    builder::record r;
    for (unsigned i = 0; i < 3; ++i) {
      r.process = "p" + std::to_string(3 * i + node);
      EXPECT_TRUE(m.push(builder::record_bytes(r.at(1700000000 + 3 * i + node, 0))));
    }
    tool::write_stack(dir_ / ("copy" + std::to_string(node)), m.file());
  }
  const tool::result r = tool::run({"vosk", "report", "--dir", dir_.path()});
  std::string order;
  for (std::size_t at = 0; (at = r.out.find("+0000 p", at)) != std::string::npos; ++at) order += r.out[at + 7];
  EXPECT_EQ(order, "012345678");
  EXPECT_THAT(r.out, HasSubstr(", copied from i-node 1234567\n"));
}

// Each node has a clock of its own; a record tells its node, and what cannot be true of one clock is said.
TEST_F(Report, MergesSeveralNodesAndDoesNotHideThatTheirClocksDiffer) {
  const std::string other = builder::digits(0x0B01A8C0, 6) + "...................";  // 192.168.1.11
  builder::record disk, app, db;
  disk.at(1700000010, 0, 500).process = "disk";
  app.eid = builder::stack_eid(600, 1700000008, 500000, other);
  app.seconds = 1700000008;
  app.associated = disk.eid;
  app.process = "app";
  db.at(1700000009, 0, 500).process = "db";
  db.associated = disk.eid;
  ASSERT_EQ(mkdir((dir_ / "node10").c_str(), 0755), 0);
  ASSERT_EQ(mkdir((dir_ / "node11").c_str(), 0755), 0);
  const auto write = [](const std::string &path, const std::vector<builder::record> &records) {
    builder::model m;
    for (const builder::record &r : records) EXPECT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(path, m.file());
  };
  write(dir_ / "node10/same_name", {disk, db});
  write(dir_ / "node11/same_name", {app});
  const tool::result r = tool::run({"vosk", "report", "--dir", dir_.path()});
  EXPECT_EQ(r.status, 0);
  const auto line = [](const std::string &second, const std::string &process, const std::string &eid) {
    return "2023-11-14 22:13:" + second + " +0000 " + process + " myproduct worker.c:12 cannot open /etc/thing " + eid +
           "\n";
  };
  EXPECT_THAT(r.out,
              testing::EndsWith(
                  "\n-- the next record follows from one that was made 1.500000 s later on 192.168.1.10: the nodes' "
                  "clocks differ\n" +
                  line("28.500000", "app[4711] on 192.168.1.11", app.eid) +
                  line("30.000000", "disk[4711] on 192.168.1.10", disk.eid) +
                  "-- the clock went back by 1.000000 s in " + dir_ / "node10/same_name" +
                  "\n-- the next record follows from one that was made 1.000000 s later: the clock was set back\n" +
                  line("29.000000", "db[4711] on 192.168.1.10", db.eid)));
  std::vector<std::string> types;
  for (const auto &object : tool::json_lines(tool::run({"vosk", "report", "--json", "--dir", dir_.path()}).out)) {
    types.push_back(object["type"]);
    if (types.back() != "clock_difference") continue;
    EXPECT_THAT(object["microseconds"].number(), testing::AnyOf(1500000, 1000000));
    EXPECT_EQ(object["node_of_cause"], "192.168.1.10");
  }
  EXPECT_THAT(types, testing::ElementsAre("coverage", "coverage", "clock_difference", "record", "record", "clock_step",
                                          "clock_difference", "record"));
  // The tree has both nodes' records, with the same to say about their clocks.
  const std::string tree = tool::run({"vosk", "trace", "--log", "none", "--dir", dir_.path(), app.eid}).out;
  EXPECT_THAT(tree, HasSubstr("\n├─ -1.500000 s (the nodes' clocks differ) app[4711] on 192.168.1.11 worker.c:12"));
  EXPECT_THAT(tree, HasSubstr("\n└─ -1.000000 s (the clock went back) db[4711] worker.c:12"));
}

TEST_F(Report, ReadsTheStackThatTheEnvironmentNames) {
  make_incident();
  EXPECT_THAT(tool::run({"vosk", "report"}, tool::options::with({{"VOSKSTACK", stack_}})).out, StartsWith(coverage()));
}

TEST_F(Report, NamesAStoppedStackAndTheRemedy) {
  builder::model m;
  builder::record r;
  // What one refused recording has cleared lets the next one in; at some point every one is refused.
  unsigned refused = 0;
  for (unsigned i = 0; i < 1000 && refused < 20; ++i) {
    r.detail = std::string(40 + 97 * i % 300, 'x');
    refused = m.push(builder::record_bytes(r.at(1700000000 + i, 0))) ? 0 : refused + 1;
  }
  ASSERT_EQ(refused, 20u);
  tool::write_stack(stack_, m.file());
  const tool::result shown = tool::run({"vosk", "report", stack_});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.out,
              HasSubstr("-- " + stack_ +
                        ": stopped: the standard reclamation refuses the next recording; set VOSKRECLAIM=whole for the "
                        "processes that record into it\n"));
}

TEST_F(Report, NamesDamageAndShowsTheRest) {
  builder::bytes file = builder::never_wrapped_file();
  file[24 + 54] = 'x';
  tool::write_stack(stack_, file);
  const tool::result r = tool::run({"vosk", "report", stack_});
  EXPECT_EQ(r.status, 3);
  EXPECT_THAT(r.out,
              HasSubstr("-- " + stack_ + ": damage at offset 78: terminator of the identifier: 0x78; allowed: 0x0\n"));
  EXPECT_THAT(r.out, HasSubstr(", never wrapped, 5 records, 208 bytes unreadable"));
}

TEST_F(Report, ShowsTextsWithoutWhatATerminalObeysUnlessRaw) {
  make_incident();
  EXPECT_EQ(tool::run({"vosk", "report", stack_}).out.find('\x1b'), std::string::npos);
  EXPECT_NE(tool::run({"vosk", "report", "--raw", stack_}).out.find("\x1b[31mchild"), std::string::npos);
}

TEST_F(Report, ColoursOnlyWhenAskedTo) {
  make_incident();
  EXPECT_EQ(tool::run({"vosk", "report", "--color=auto", stack_}).out.find('\x1b'), std::string::npos);
  EXPECT_THAT(tool::run({"vosk", "report", "--color=always", stack_}).out,
              HasSubstr("\x1b[33m" + child_eid() + "\x1b[0m\n"));
  EXPECT_THAT(tool::run({"vosk", "report", "--color=always", "--json", stack_}).out, testing::Not(HasSubstr("\x1b")));
}

TEST_F(Report, ShowsOtherCharactersAsBytesWhereTheLocaleHasNone) {
  make(stack_, [](std::uint64_t inode) {
    builder::model m;
    builder::record r;
    r.at(1700000000, 0, inode).default_text = "gr\xC3\xBC\xC3\x9F\x80";
    r.arguments.clear();
    EXPECT_TRUE(m.push(builder::record_bytes(r)));
    return m.file();
  });
  EXPECT_THAT(tool::run({"vosk", "report", stack_}).out, HasSubstr("gr\xC3\xBC\xC3\x9F\\x80"));
  EXPECT_THAT(tool::run({"vosk", "report", stack_}, tool::options::with({{"LC_ALL", "C"}})).out,
              HasSubstr("gr\\xc3\\xbc\\xc3\\x9f\\x80"));
  EXPECT_THAT(tool::run({"vosk", "report", "--json", stack_}).out,
              HasSubstr(R"("default_text":{"hex":"6772c3bcc39f80"})"));
}

TEST_F(Report, HasAnExitStatusForEveryOutcome) {
  make_incident();
  builder::bytes damaged = builder::never_wrapped_file();
  damaged[24] ^= 1;
  tool::write_stack(dir_ / "damaged", damaged);
  tool::write_stack(dir_ / "unreadable", builder::never_wrapped_file());
  ASSERT_EQ(chmod((dir_ / "unreadable").c_str(), 0), 0);
  struct {
    const char *name;
    std::vector<std::string> arguments;
    int status;
  } const rows[] = {
      {"fine", {stack_}, 0},
      {"unreadable", {dir_ / "unreadable"}, 1},
      {"unreadable outranks not found", {dir_ / "unreadable", dir_ / "missing"}, 1},
      {"usage", {"--no-such-option"}, 2},
      {"usage: a time that is none", {"--since", "whenever", stack_}, 2},
      {"usage: a span that is none", {"--around", child_eid() + "=x", stack_}, 2},
      {"usage: no identifier", {"--around", "x", stack_}, 2},
      {"usage: a message that is none", {"--msg", "7", stack_}, 2},
      {"usage: a pattern that is none", {"--grep", "(", stack_}, 2},
      {"usage: two windows", {"--around", child_eid(), "--since", "-1h", stack_}, 2},
      {"usage: a format that is none", {"-o", "xml", stack_}, 2},
      {"usage outranks the rest", {"--since", "whenever", dir_ / "missing"}, 2},
      {"damage", {dir_ / "damaged"}, 3},
      {"missing file", {dir_ / "missing"}, 4},
      {"missing file outranks damage", {dir_ / "missing", dir_ / "damaged"}, 4},
      {"no record selected", {"--pid", "1", stack_}, 4},
      {"help", {"--help"}, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    std::vector<std::string> arguments{"vosk", "report"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    const tool::result r = tool::run(arguments, tool::options::without_power());
    EXPECT_EQ(r.status, row.status) << r.out << r.err;
  }
}

TEST_F(Report, IsAnErrorWhereItsOutputCannotBeWritten) {
  make_incident();
  const tool::result r = tool::run({"vosk", "report", stack_}, tool::options::to("/dev/full"));
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vosk: cannot write the output: No space left on device\n");
}
