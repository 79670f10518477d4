// What the tools read out of the System Log: of real daemons, of copied and of hostile logs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "proof/instrumented.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "tools/log_daemons.h"
#include "tools/reader/log_source.h"
#include "tools/tool.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tool::json;

namespace {

constexpr std::uint64_t kStart = 1700000000;

// An identifier of the System Log, daemon.err.
std::string log_eid(std::uint64_t seconds, const std::string &address = builder::kAddress) {
  return "822...." + builder::digits(seconds, 6) + builder::digits(0, 4) + address;
}

// A line of a syslog file.
std::string log_line(const std::string &eid, const std::string &cause, const std::string &message,
                     const std::string &detail = "") {
  return "Nov 14 22:13:20 node1 service[4711]: (Recorded using libqx_vosk.a cv 2):::Error ID: " + eid +
         ":::Reference ID: " + cause + ":::Template ID: 2a:::Details File: " + detail +
         ":::Location: product,file.c,1.7,321" + std::string(24, ' ') + ":::" + message + "\n";
}

struct shown {
  int status;
  json verdict;
  std::vector<json> lines;
  std::string err;

  // The values of one kind of evidence.
  std::vector<json> facts(const std::string &name) const {
    std::vector<json> values;
    for (const json &fact : verdict["evidence"].elements())
      if (fact.contains(name)) values.push_back(fact[name]);
    return values;
  }
};

shown show(std::vector<std::string> arguments, const tool::options &how = {}) {
  arguments.insert(arguments.begin(), {"vosk", "show", "--json"});
  const tool::result r = tool::run(arguments, how);
  shown s{r.status, nullptr, tool::json_lines(r.out), r.err};
  for (const json &line : s.lines)
    if (line["type"] == "verdict") s.verdict = line;
  return s;
}

// Records as a service does.
std::string log_error(const std::string &cause, const std::string &message, const std::string &detail_file = "") {
  vk_eid_t eid = "";
  EXPECT_EQ(vk_log_error_1(&eid, cause.c_str(), "order service", "orders", "/src/order.c", "1.7", 42, 0, VOSK_ERROR,
                           0x2A, detail_file.empty() ? "d" : nullptr, 1,
                           detail_file.empty() ? nullptr : detail_file.c_str(), "%s", message.c_str()),
            0);
  return eid;
}

std::string push(const std::string &cause) {
  vk_eid_t eid = "", assoc = "";
  (void)std::snprintf(assoc, sizeof assoc, "%s", cause.c_str());
  EXPECT_EQ(vk_push_stack_1(&eid, assoc, "r", "p", "s.c", "1", 1, 0, "detail", nullptr, "c", 1, 1, "pushed"), 0);
  return eid;
}

// A stand-in for journalctl until the end of the body.
class journalctl {
 public:
  explicit journalctl(const std::string &script) {
    EXPECT_TRUE(files::write(dir_ / "journalctl", "#!/bin/sh\n" + script));
    EXPECT_EQ(chmod((dir_ / "journalctl").c_str(), 0755), 0);
    EXPECT_EQ(mount((dir_ / "journalctl").c_str(), "/usr/bin/journalctl", nullptr, MS_BIND, nullptr), 0);
  }
  ~journalctl() { (void)umount2("/usr/bin/journalctl", MNT_DETACH); }
  std::string file(const std::string &name) const { return dir_ / name; }

 private:
  files::TemporaryDirectory dir_;
};

class Log : public testing::Test {
 protected:
  static void SetUpTestSuite() { problem_ = log_daemons::prepare(); }
  void SetUp() override {
    if (!problem_.empty()) CANNOT_RUN_HERE(problem_);
    (void)!std::system("rm -rf /var/log/* /run/*");
    setenv("VOSKSTACK", (std::string(sandbox::kStacks) + "/orderd.1.20231114.221320").c_str(), 1);
    for (const char *name : {"VOSKORIG", "VOSKPID"}) setenv(name, std::to_string(getpid()).c_str(), 1);
    setenv("VOSKADDR", builder::kAddress, 1);
    setenv("VOSKPNAME", "orderd", 1);
  }
  static std::string problem_;
  files::TemporaryDirectory dir_;
};
std::string Log::problem_;

}  // namespace

TEST_F(Log, OfARealDaemonIsFoundShownAndTraced) {
  const log_daemons::Rsyslogd daemon;
  if (!daemon.listens()) CANNOT_RUN_HERE("no rsyslogd (package rsyslog)");
  ASSERT_TRUE(files::write(dir_ / "settings", "port = none\n"));
  const std::string disk = push(""), db = log_error(disk, "the data base\nis 100% gone", dir_ / "settings"),
                    app = push(db), web = log_error(app, "no page");
  ASSERT_TRUE(daemon.has(web));
  const std::vector<std::string> copies = files::list(sandbox::kDumps);
  ASSERT_EQ(copies.size(), 1u);
  const std::string copy = std::string(sandbox::kDumps) + "/" + copies[0];

  // Found without being told where.
  const shown s = show({db});
  EXPECT_EQ(s.status, 0) << s.err;
  EXPECT_EQ(s.verdict["verdict"], "present");
  EXPECT_THAT(s.facts("log"), ElementsAre("/var/log/syslog"));
  ASSERT_EQ(s.lines.size(), 2u);
  const json &record = s.lines[1];
  EXPECT_EQ(record["type"], "log_record");
  EXPECT_EQ(record["log"], "/var/log/syslog");
  EXPECT_EQ(s.facts("line"), std::vector<json>{record["log_line"]});
  EXPECT_EQ(record["identifier"], db);
  EXPECT_EQ(record["associated"], disk);
  EXPECT_EQ(record["process"], "order service");
  EXPECT_EQ(record["pid"], getpid());
  EXPECT_EQ(record["product"], "orders");
  EXPECT_EQ(record["source"], "order.c");
  EXPECT_EQ(record["version"], "1.7");
  EXPECT_EQ(record["line"], 42);
  EXPECT_EQ(record["template"], 0x2A);
  EXPECT_EQ(record["detail"], copy);
  EXPECT_EQ(record["description"], "the data base#012is 100% gone");
  EXPECT_EQ(record["complete"], true);

  EXPECT_EQ(tool::run({"vosk", "detail", db}).out,
            "-- detail file " + copy + ": there, owner root, 12 bytes\nport = none\n");
  EXPECT_THAT(tool::run({"vosk", "show", "--detail", db}).out, testing::EndsWith("12 bytes\nport = none\n"));
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", dir_ / "saved", db}).status, 0);
  EXPECT_EQ(files::read(dir_ / "saved"), "port = none\n");

  const tool::result r = tool::run({"vosk", "trace", app});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.out, testing::ContainsRegex(
                         "^[0-9: .+-]+ orderd\\[[0-9]+\\] on 192.168.1.10 s.c:1 pushed " + disk +
                         "\n└─ \\+.* s order service\\[.*\\] order.c:42 the data base#012is 100% gone " + db +
                         "\n   └─ \\+.* s orderd\\[.*\\] s.c:1 pushed " + app +
                         " <- asked for\n      └─ \\+.* order service\\[.*\\] order.c:42 no page " + web + "\n$"));
  std::vector<std::string> tree;
  for (const json &line : tool::json_lines(tool::run({"vosk", "trace", "--json", web}).out)) {
    EXPECT_EQ(line["type"], "trace");
    tree.push_back(std::to_string(line["depth"].number()) + (line["records"].empty() ? "log " : "stack ") +
                   (line["records"].empty() ? line["log_records"] : line["records"])[0]["identifier"].text());
    EXPECT_EQ(line["depth"] == 0, line["follows_from"].is_null());
  }
  EXPECT_THAT(tree, ElementsAre("0stack " + disk, "1log " + db, "2stack " + app, "3log " + web));

  // Rotated, compressed, and once more in another file of the daemon.
  ASSERT_EQ(std::system("cd /var/log && mv syslog syslog.2 && gzip -k syslog.2 && mv syslog.2 messages"), 0);
  const shown again = show({db});
  EXPECT_EQ(again.status, 0) << again.err;
  EXPECT_EQ(again.verdict["verdict"], "present") << "one recording, kept twice";
  EXPECT_THAT(again.facts("log"), ElementsAre("/var/log/messages", "/var/log/syslog.2.gz"));
  EXPECT_EQ(tool::run({"vosk", "trace", "--utc", app}).out, tool::run({"vosk", "trace", app}).out);
}

TEST_F(Log, OfTheRealJournalIsFoundShownAndTraced) {
  log_daemons::Journald daemon;
  if (!daemon.listens()) CANNOT_RUN_HERE("no systemd-journald (package systemd)");
  const std::string disk = push(""), db = log_error(disk, "two\nlines and \x01 ünd 100%");
  if (!daemon.has(db)) CANNOT_RUN_HERE("systemd-journald takes no message here");
  for (const std::string source : {"auto", "journal"}) {
    SCOPED_TRACE(source);
    const shown s = show({"--log", source, db});
    EXPECT_EQ(s.status, 0) << s.err;
    EXPECT_EQ(s.verdict["verdict"], "present");
    EXPECT_THAT(s.facts("log"), ElementsAre("journal"));
    ASSERT_EQ(s.lines.size(), 2u);
    EXPECT_EQ(s.lines[1]["description"], "two\nlines and \x01 ünd 100%");
    EXPECT_EQ(s.lines[1]["process"], "order service");
    EXPECT_EQ(s.lines[1]["pid"], getpid());
    EXPECT_EQ(s.lines[1]["associated"], disk);
  }
  EXPECT_THAT(tool::run({"vosk", "show", db}).out,
              HasSubstr("\n  Description     two\n                  lines and \\x01 ünd 100%\n"));
  EXPECT_THAT(tool::run({"vosk", "trace", db}).out, HasSubstr("\n└─ +"));
  daemon.stop();
  // A file of the journal that was copied, and one that journalctl wrote out.
  ASSERT_EQ(std::system(("cp $(find /run/log/journal -name system.journal) " + dir_ / "copied" +
                         " && journalctl -o json > " + dir_ / "exported")
                            .c_str()),
            0);
  ASSERT_EQ(std::system("rm -rf /run/log/journal"), 0);
  EXPECT_EQ(show({db}).verdict["verdict"], "not_in_logs");
  for (const char *name : {"copied", "exported"}) {
    const shown s = show({"--log", dir_ / name, db});
    EXPECT_EQ(s.status, 0) << name << s.err;
    EXPECT_THAT(s.facts("log"), ElementsAre(dir_ / name));
  }
}

TEST_F(Log, IsNotSearchedForAStacksIdentifier) {
  const journalctl stand_in("touch /run/asked\n");
  const std::string eid = push("");
  EXPECT_EQ(tool::run({"vosk", "show", eid}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "detail", eid}).status, 0);
  EXPECT_FALSE(files::exists("/run/asked"));
  EXPECT_EQ(tool::run({"vosk", "trace", "--log", "none", eid}).status, 0);
  EXPECT_FALSE(files::exists("/run/asked"));
  EXPECT_EQ(tool::run({"vosk", "trace", eid}).status, 0);
  EXPECT_TRUE(files::exists("/run/asked"));
}

// One after the other, in the order of their names; a collection's logs are parts of it.
TEST_F(Log, IsReadUpToTheLineThatIsNotWantedAnyMore) {
  const journalctl stand_in("echo of the journal\n");
  for (const char *name : {"messages", "syslog"})
    ASSERT_TRUE(files::write(std::string("/var/log/") + name, std::string("of ") + name + "\n"));
  const std::string all = dir_ / "all.tar";
  ASSERT_EQ(std::system(("mkdir " + dir_ / "logs" + " && echo of one > " + dir_ / "logs/one" + " && echo of two > " +
                         dir_ / "logs/two" + " && tar cf " + all + " -C " + dir_.path() + " logs/one logs/two")
                            .c_str()),
            0);
  const std::vector<std::string> lines{"of the journal", "of messages", "of syslog", "of one", "of two"},
      sources{"journal", "/var/log/messages", "/var/log/syslog", all, all + "/logs/one", all + "/logs/two"};
  for (std::size_t wanted = 1; wanted <= lines.size(); ++wanted) {
    SCOPED_TRACE(wanted);
    std::vector<std::string> taken, read;
    for (const vosk::log_outcome &source : vosk::for_each_log_line({"auto", all}, [&](const vosk::log_line &line) {
           taken.emplace_back(line.text);
           return taken.size() < wanted;
         }))
      read.push_back(source.source);
    EXPECT_EQ(taken, std::vector<std::string>(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(wanted)));
    const std::size_t in_archive = wanted > 3 ? 1 : 0;
    EXPECT_EQ(read, std::vector<std::string>(sources.begin(),
                                             sources.begin() + static_cast<std::ptrdiff_t>(wanted + in_archive)));
  }
}

// Where the journal is kept from start to start, it is all there is; else the files may reach further back.
TEST_F(Log, IsTheJournalOrTheUsualFiles) {
  const std::string in_journal = log_eid(kStart), in_file = log_eid(kStart + 1);
  std::string entry = log_line(in_journal, "", "m");
  const std::string message = entry.substr(entry.find('('), entry.size() - entry.find('(') - 1);
  entry = "{\"MESSAGE\":" + json(message).dump() + "}";
  const journalctl stand_in("cat <<'END'\n" + entry + "\nEND\n");
  ASSERT_TRUE(files::write("/var/log/syslog.1", log_line(in_file, "", "m")));
  EXPECT_THAT(show({in_journal}).facts("log"), ElementsAre("journal"));
  EXPECT_THAT(show({in_file}).facts("log"), ElementsAre("/var/log/syslog.1"));
  ASSERT_EQ(mkdir("/var/log/journal", 0755), 0);
  EXPECT_THAT(show({in_journal}).facts("log"), ElementsAre("journal"));
  EXPECT_THAT(show({in_file}).facts("searched"), ElementsAre("journal"));
  EXPECT_EQ(show({"--log", "auto", "--log", "/var/log/syslog.1", in_file}).status, 0);
}

TEST_F(Log, NamesWhatWasSearchedAndWhatCouldNotBe) {
  const std::string eid = log_eid(kStart);
  ASSERT_TRUE(files::write(dir_ / "good", log_line(log_eid(kStart + 1), eid, "m")));
  const shown not_there = show({"--log", dir_ / "good", "--log", "-", eid});
  EXPECT_EQ(not_there.status, 4);
  EXPECT_EQ(not_there.verdict["verdict"], "not_in_logs");
  EXPECT_THAT(not_there.facts("searched"), ElementsAre(dir_ / "good", "standard input"));
  const shown missing = show({"--log", dir_ / "good", "--log", dir_ / "missing", eid});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.verdict["verdict"], "logs_not_readable");
  EXPECT_THAT(missing.facts("not_readable"), ElementsAre(dir_ / "missing" + ": No such file or directory"));
  const tool::result said = tool::run({"vosk", "show", "--log", dir_ / "good", "--log", dir_ / "missing", eid});
  EXPECT_THAT(said.out,
              HasSubstr("\n  Verdict         logs_not_readable: the record is in none of the logs that could be "
                        "read, and others could not\n  Searched        " +
                        dir_ / "good" + "\n  Not readable    " + dir_ / "missing" + ": No such file or directory\n"));
  EXPECT_EQ(missing.lines[1]["type"], "unreadable");
  EXPECT_EQ(missing.lines[1]["file"], dir_ / "missing");

  const tool::result text = tool::run({"vosk", "trace", "--log", dir_ / "good", "--log", dir_ / "missing", eid});
  EXPECT_EQ(text.status, 1);
  EXPECT_THAT(text.out, HasSubstr("(no record: logs_not_readable)"));
  EXPECT_EQ(text.err, "vosk: cannot read " + dir_ / "missing" + ": No such file or directory\n");
  EXPECT_THAT(tool::run({"vosk", "trace", "--log", dir_ / "good", eid}).out, HasSubstr("(no record: not_in_logs)"));

  // The usual logs are named, too, but only what cannot be answered without them is a failure.
  ASSERT_TRUE(files::write("/var/log/syslog", "x\n"));
  ASSERT_EQ(chmod("/var/log/syslog", 0), 0);
  const journalctl none("echo 'Hint: You are currently not seeing messages from other users.' >&2\n");
  const shown refused = show({eid}, tool::options::without_power());
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.facts("not_readable"),
              ElementsAre("journal: Hint: You are currently not seeing messages from other users.",
                          "/var/log/syslog: Permission denied"));
  const std::string pushed = push("");
  const tool::result traced = tool::run({"vosk", "trace", pushed}, tool::options::without_power());
  EXPECT_EQ(traced.status, 0);
  EXPECT_THAT(traced.err, HasSubstr("vosk: cannot read /var/log/syslog: Permission denied\n"));
}

TEST_F(Log, SaysThatAnIdentifierWasMadeTwice) {
  const std::string eid = log_eid(kStart);
  ASSERT_TRUE(
      files::write(dir_ / "log", log_line(eid, "", "one") + log_line(eid, "", "two") + log_line(eid, "", "one")));
  const shown s = show({"--log", dir_ / "log", eid});
  EXPECT_EQ(s.status, 0);
  EXPECT_EQ(s.verdict["verdict"], "ambiguous");
  EXPECT_THAT(tool::run({"vosk", "show", "--log", dir_ / "log", eid}).out,
              HasSubstr("\n  Verdict         ambiguous: several different records have this identifier\n"
                        "  Log             " +
                        dir_ / "log" + "\n  Line            1\n"));
  EXPECT_THAT(s.facts("line"), ElementsAre(1, 2, 3));
  EXPECT_EQ(s.lines.size(), 3u);
}

TEST_F(Log, IsReadFromStandardInputAndFifos) {
  const std::string eid = log_eid(kStart);
  tool::options how;
  how.input = "x\n" + log_line(eid, "", "m");
  EXPECT_EQ(show({"--log", "-", eid}, how).facts("line"), std::vector<json>{2});
  EXPECT_EQ(show({"--log", "/dev/stdin", eid}, how).facts("line"), std::vector<json>{2});
  ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0644), 0);
  EXPECT_EQ(show({"--log", dir_ / "fifo", eid}).status, 4) << "nobody writes";
}

TEST_F(Log, OfANodeIsShownWholeAsText) {
  const std::string eid = log_eid(kStart), cause = builder::stack_eid(7, kStart, 0);
  ASSERT_TRUE(files::write(dir_ / "log", "x\n" + log_line(eid, cause, "the disk is gone", "/var/adm/vosk/dumps/gone")));
  const tool::result r = tool::run({"vosk", "show", "--detail", "--log", dir_ / "log", eid});
  EXPECT_EQ(r.status, 4) << "the detail file is gone";
  EXPECT_EQ(r.out, eid +
                       "\n  Made            2023-11-14 22:13:20.000000 +0000\n"
                       "  Kept in         the System Log, daemon.err\n"
                       "  Node            192.168.1.10, not an address of this node now\n"
                       "  Verdict         present: the record is there\n"
                       "  Log             " +
                       dir_ / "log" + "\n  Line            2\n\nRecord in line 2 of " + dir_ / "log" +
                       "\n  Identifier      " + eid + "\n  Follows from    " + cause +
                       "\n  Time            2023-11-14 22:13:20.000000 +0000\n"
                       "  Node            192.168.1.10\n"
                       "  Process         service[4711], host node1\n"
                       "  Product         product\n"
                       "  Source          file.c:321, version 1.7\n"
                       "  Template        0x2a\n"
                       "  Description     the disk is gone\n"
                       "  Detail          /var/adm/vosk/dumps/gone\n"
                       "-- detail file /var/adm/vosk/dumps/gone: gone: No such file or directory\n");
}

// Everything in a log is anybody's.
TEST_F(Log, OfAHostileKindIsReadHarmlesslyAndInBounds) {
  const std::string eid = log_eid(kStart), other = log_eid(kStart + 1);
  {
    std::string text(std::size_t{40} << 20, 'x');
    text += "\n" + log_line(eid, "\x1b[31m\r%s%n", "\x1b]0;title\x07 \xff %s%n", "/etc/passwd");
    text += log_line(other, eid, "m", "/var/adm/vosk/dumps/../../../../etc/passwd");
    text += "(Recorded using libqx_vosk.a cv 2):::Error ID: " + std::string(std::size_t{40} << 20, '8');
    ASSERT_TRUE(files::write(dir_ / "log", text));
  }
  const tool::result r = tool::run({"vosk", "show", "--detail", "--log", dir_ / "log", eid});
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(r.out, HasSubstr("\n  Follows from    \\x1b[31m\\r%s%n\n"));
  EXPECT_THAT(r.out, HasSubstr("\n  Description     \\x1b]0;title\\x07 \\xff %s%n\n"));
  EXPECT_THAT(r.out, HasSubstr("-- the record cites no detail file; its detail is\n/etc/passwd\n"));
  EXPECT_THAT(tool::run({"vosk", "detail", "--log", dir_ / "log", other}).out, Not(HasSubstr("root:")));
  EXPECT_THAT(tool::run({"vosk", "trace", "--log", dir_ / "log", eid}).out, Not(HasSubstr("\x1b")));
  EXPECT_EQ(show({"--log", dir_ / "log", eid}).lines[1]["associated"], "\x1b[31m\r%s%n");
  rusage usage{};
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
  if (proof::kInstrumented) return;  // a sanitizer's memory is not the program's
  EXPECT_LT(usage.ru_maxrss, 64 * 1024) << "kilobytes, of a log of 80 MiB";
}

TEST_F(Log, SurvivesLoopsAndSelfReferencesAcrossStacksAndLogs) {
  const std::string a = log_eid(kStart), b = builder::stack_eid(500, kStart + 1, 0), c = log_eid(kStart + 2),
                    self = log_eid(kStart + 3);
  builder::record r;
  r.eid = b;
  r.seconds = kStart + 1;
  r.associated = a;
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(dir_ / "stack", m.file());
  ASSERT_TRUE(files::write(dir_ / "log", log_line(a, c, "a") + log_line(c, b, "c") + log_line(self, self, "self") +
                                             log_line("", self, "last")));
  for (const std::string &eid : {a, b, c}) {
    const tool::result t = tool::run({"vosk", "trace", "--dir", dir_ / "stack", "--log", dir_ / "log", eid});
    EXPECT_EQ(t.status, 0) << t.err;
    EXPECT_THAT(t.out, testing::ContainsRegex("^2023[^\n]* a " + a + "[^\n]*\n└─ \\+1[^\n]* " + b +
                                              "[^\n]*\n   └─ \\+1[^\n]* c " + c +
                                              "[^\n]*\n      └─ [^\n]*\\(above already\\) " + a + "\n$"));
  }
  const tool::result t = tool::run({"vosk", "trace", "--log", dir_ / "log", self});
  EXPECT_THAT(t.out, testing::ContainsRegex("self " + self + " <- asked for \\(refers to itself\\)\n└─ [^\n]*last"));
}

TEST_F(Log, OfAnotherNodeHasItsDetailFilesAmongTheCopies) {
  const std::string eid = log_eid(kStart), gone = log_eid(kStart + 1);
  ASSERT_EQ(mkdir((dir_ / "dumps").c_str(), 0755), 0);
  ASSERT_TRUE(files::write(dir_ / "dumps/orderd.1.20231114.221320", "settings\n"));
  ASSERT_TRUE(files::write(std::string(sandbox::kDumps) + "/orderd.1.20231114.221320", "of this node\n"));
  ASSERT_TRUE(files::write(dir_ / "log", log_line(eid, "", "m", "/var/adm/vosk/dumps/orderd.1.20231114.221320") +
                                             log_line(gone, "", "m", "/var/adm/vosk/dumps/gone")));
  EXPECT_EQ(tool::run({"vosk", "detail", "--dir", dir_.path(), "--log", dir_ / "log", eid}).out,
            "-- detail file " + dir_ / "dumps/orderd.1.20231114.221320" + ": there, owner root, 9 bytes\nsettings\n");
  EXPECT_EQ(tool::run({"vosk", "detail", "--dir", dir_.path(), "--log", dir_ / "log", gone}).status, 4);
  EXPECT_THAT(tool::run({"vosk", "detail", "--log", dir_ / "log", eid}).out, HasSubstr("of this node\n"));
}

TEST_F(Log, GivesRecordsWithoutAnIdentifierTheirPlaceInTheIncident) {
  const std::string eid = log_eid(kStart);
  ASSERT_TRUE(files::write(dir_ / "log", log_line(eid, "", "cause") + log_line("", eid, "one") +
                                             log_line("", eid, "two") + log_line("", "", "three")));
  const tool::result r = tool::run({"vosk", "trace", "--log", dir_ / "log", eid});
  EXPECT_THAT(r.out, HasSubstr("\n├─ (no time) service[4711] file.c:321 one (no identifier)\n"));
  EXPECT_THAT(r.out, testing::EndsWith("\n└─ (no time) service[4711] file.c:321 two (no identifier)\n"));
  EXPECT_TRUE(tool::json_lines(tool::run({"vosk", "trace", "--json", "--log", dir_ / "log", eid}).out)[1]["identifier"]
                  .is_null());
}

TEST_F(Log, OfManyRecordingsIsTracedInTime) {
  std::string text, cause = log_eid(kStart);
  for (std::uint64_t i = 0; i < 100000; ++i) {
    text += "Nov 14 22:13:20 node1 other[1]: a line that is of no interest to anybody who looks for failures here\n";
    if (i % 100 == 0) text += log_line(log_eid(kStart + i), i == 0 ? "" : cause, "m");
  }
  ASSERT_TRUE(files::write("/var/log/syslog", text));
  const double milliseconds = tool::milliseconds_of({"vosk", "trace", cause}, [](const tool::result &r) {
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1000);
  });
  std::printf("milliseconds for %zu MiB: %.0f\n", text.size() >> 20, milliseconds);
  if (proof::kInstrumented) return;  // the time is the sanitizer's
  EXPECT_LT(milliseconds, 300);
}

TEST_F(Log, OfManyRecordingsWithOneIdentifierIsTracedInTime) {
  const std::string eid = log_eid(kStart);
  std::string text;
  for (int i = 0; i < 20000; ++i) text += log_line(eid, "", std::to_string(i));
  // One that follows from each of many.
  for (std::uint64_t i = 1; i <= 4000; ++i)
    text += log_line(log_eid(kStart + i), eid, "") + log_line(log_eid(kStart + 5000), log_eid(kStart + i), "");
  ASSERT_TRUE(files::write("/var/log/syslog", text));
  const double milliseconds = tool::milliseconds_of(
      {"vosk", "trace", eid}, [](const tool::result &r) { EXPECT_THAT(r.out, HasSubstr(" 19999 ")); });
  std::printf("milliseconds for %zu MiB: %.0f\n", text.size() >> 20, milliseconds);
  if (proof::kInstrumented) return;  // the time is the sanitizer's
  EXPECT_LT(milliseconds, 1000);
}

TEST_F(Log, GivesAnExitStatusForEveryOutcome) {
  const std::string eid = log_eid(kStart), gone = log_eid(kStart + 1);
  ASSERT_TRUE(files::write(dir_ / "log", log_line(eid, "", "m") + log_line(gone, "", "m", "/var/adm/vosk/dumps/gone")));
  ASSERT_TRUE(files::write(std::string(sandbox::kDumps) + "/there", "x"));
  const std::string there = log_eid(kStart + 2);
  ASSERT_TRUE(files::write(dir_ / "log2", log_line(there, "", "m", "/var/adm/vosk/dumps/there")));
  struct {
    std::vector<std::string> arguments;
    int status;
  } const rows[] = {
      {{"show", "--log", dir_ / "log", eid}, 0},
      {{"trace", "--log", dir_ / "log", eid}, 0},
      {{"detail", "--log", dir_ / "log2", there}, 0},
      {{"show", "--log", dir_ / "log", "--log", dir_ / "missing", eid}, 1},
      {{"trace", "--log", dir_ / "log", "--log", dir_ / "missing", eid}, 1},
      {{"detail", "--log", dir_ / "log2", "--log", dir_ / "missing", there}, 1},
      {{"show", "--log", dir_ / "missing", eid}, 1},
      {{"show", eid, "--log"}, 2},
      {{"trace", eid, "--log"}, 2},
      {{"detail", eid, "--log"}, 2},
      {{"show", "--log", dir_ / "log2", eid}, 4},
      {{"trace", "--log", dir_ / "log2", eid}, 4},
      {{"detail", "--log", dir_ / "log2", eid}, 4},
      {{"detail", "--log", dir_ / "log", eid}, 4},   // it has no detail
      {{"detail", "--log", dir_ / "log", gone}, 4},  // the file is gone
  };
  for (const auto &row : rows) {
    std::vector<std::string> arguments = row.arguments;
    arguments.insert(arguments.begin(), "vosk");
    EXPECT_EQ(tool::run(arguments).status, row.status) << testing::PrintToString(row.arguments);
  }
}
