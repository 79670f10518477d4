// vosk trace: an incident as a tree, whatever its references do.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "proof/instrumented.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::ElementsAre;
using testing::HasSubstr;
using tool::json;

namespace {

constexpr std::uint64_t kStart = 1700000000;

// A stack in a directory of copies, of an i-node and node of its own.
class stack_copy {
 public:
  stack_copy(const std::string &path, std::uint64_t inode, const std::string &address = builder::kAddress)
      : path_(path), inode_(inode), address_(address), model_(16384) {}

  // Records at `seconds` behind the start, following from `cause`; returns the identifier.
  std::string record(const std::string &process, std::uint64_t seconds, const std::string &cause) {
    push(eid(seconds), kStart + seconds, process, cause);
    return eid(seconds);
  }
  // The same without an identifier and a time.
  void record_nameless(const std::string &process, const std::string &cause) { push("", 0, process, cause); }
  std::string eid(std::uint64_t seconds) const { return builder::stack_eid(inode_, kStart + seconds, 0, address_); }

 private:
  void push(const std::string &made, std::uint64_t seconds, const std::string &process, const std::string &cause) {
    builder::record r;
    r.eid = made;
    r.seconds = seconds;
    r.associated = cause;
    r.process = process;
    r.default_text = process + " failed";
    r.arguments.clear();
    EXPECT_TRUE(model_.push(builder::record_bytes(r)));
    tool::write_stack(path_, model_.file());
  }

  std::string path_;
  std::uint64_t inode_;
  std::string address_;
  builder::model model_;
};

// Process names in the order of the tree, each with its depth; "?" for a missing record, "=" for one that is above.
std::vector<std::string> tree_of(const std::string &dir, const std::string &eid) {
  const tool::result r = tool::run({"vosk", "trace", "--json", "--dir", dir, eid});
  EXPECT_EQ(r.status, 0) << r.out << r.err;
  std::vector<std::string> tree;
  for (const json &line : tool::json_lines(r.out)) {
    if (line["type"] != "trace") continue;
    std::string name = line["repeated"] == true ? "=" : line["records"].empty() ? "?" : "";
    if (name.empty())
      for (const json &record : line["records"].elements()) name += record["process"].text();
    tree.push_back(std::to_string(line["depth"].number()) + name);
  }
  return tree;
}

const std::string kOtherAddress = builder::digits(0x0B01A8C0, 6) + "...................";

class Trace : public testing::Test {
 protected:
  files::TemporaryDirectory dir_;
};

}  // namespace

TEST_F(Trace, PrintsTheTreeFromTheFirstCauseOn) {
  stack_copy one(dir_ / "one", 500), two(dir_ / "two", 600, kOtherAddress);
  const std::string disk = one.record("disk", 0, ""), db = two.record("db", 2, disk), log = one.record("log", 1, disk),
                    app = one.record("app", 65, db);
  (void)one.record("unrelated", 3, "");
  const std::string expected = "2023-11-14 22:13:20.000000 +0000 disk[4711] on 192.168.1.10 worker.c:12 disk failed " +
                               disk +
                               "\n"
                               "├─ +1.000000 s log[4711] worker.c:12 log failed " +
                               log +
                               "\n"
                               "└─ +2.000000 s db[4711] on 192.168.1.11 worker.c:12 db failed " +
                               db +
                               " <- asked for\n"
                               "   └─ +1 min 3 s app[4711] on 192.168.1.10 worker.c:12 app failed " +
                               app + "\n";
  const tool::result r = tool::run({"vosk", "trace", "--dir", dir_.path(), db});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, expected);
  EXPECT_THAT(tool::run({"vosk", "trace", "--dir", dir_.path(), db}, tool::options::with({{"LC_ALL", "C"}})).out,
              HasSubstr("\n|- +1.000000 s log[4711] worker.c:12 log failed " + log + "\n`- +2"));
}

TEST_F(Trace, IsTheSameFromEveryRecordOfTheIncident) {
  stack_copy s(dir_ / "s", 500);
  const std::string a = s.record("a", 0, ""), b = s.record("b", 1, a), c = s.record("c", 2, b), d = s.record("d", 3, a);
  for (const std::string &eid : {a, b, c, d})
    EXPECT_THAT(tree_of(dir_.path(), eid), ElementsAre("0a", "1b", "2c", "1d"));
}

TEST_F(Trace, SurvivesLoops) {
  stack_copy s(dir_ / "s", 500);
  const std::string a = s.record("a", 5, s.eid(7)), b = s.record("b", 6, a), c = s.record("c", 7, b),
                    d = s.record("d", 8, b);
  for (const std::string &eid : {a, b, c, d})
    EXPECT_THAT(tree_of(dir_.path(), eid), ElementsAre("0a", "1b", "2c", "3=", "2d"));
}

TEST_F(Trace, SurvivesARecordThatRefersToItself) {
  stack_copy s(dir_ / "s", 500);
  const std::string a = s.record("a", 5, s.eid(5)), b = s.record("b", 6, a);
  EXPECT_THAT(tree_of(dir_.path(), b), ElementsAre("0a", "1b"));
  EXPECT_THAT(tool::run({"vosk", "trace", "--dir", dir_.path(), b}).out, HasSubstr(a + " (refers to itself)\n"));
}

TEST_F(Trace, ShowsWhereALinkIsMissing) {
  stack_copy s(dir_ / "s", 500);
  const std::string missing = builder::stack_eid(9, kStart, 0, kOtherAddress), b = s.record("b", 6, missing);
  EXPECT_THAT(tree_of(dir_.path(), b), ElementsAre("0?", "1b"));
  EXPECT_THAT(tree_of(dir_.path(), missing), ElementsAre("0?", "1b"));
  EXPECT_THAT(tool::run({"vosk", "trace", "--dir", dir_.path(), b}).out,
              testing::StartsWith("2023-11-14 22:13:20.000000 +0000 (no record: other_node) on 192.168.1.11 " +
                                  missing + "\n"));
}

TEST_F(Trace, ShowsWhatRefersToSomethingThatIsNoIdentifier) {
  stack_copy s(dir_ / "s", 500);
  const std::string b = s.record("b", 6, "not an\x1b identifier");
  const tool::result r = tool::run({"vosk", "trace", "--dir", dir_.path(), b});
  EXPECT_THAT(r.out, testing::StartsWith(
                         "(no time) (no record: not_an_identifier) not an\\x1b identifier\n└─ 2023-11-14 22:13:26"));
}

TEST_F(Trace, ShowsARecordUnderEachOfTwoCausesButItsBranchOnce) {
  stack_copy one(dir_ / "one", 500), two(dir_ / "two", 600);
  const std::string root = one.record("root", 0, ""), a = one.record("a", 1, root), b = one.record("b", 2, root);
  // The same identifier twice, with a cause each.
  const std::string c = one.record("c", 3, a);
  EXPECT_EQ(one.record("c2", 3, b), c);
  const std::string d = one.record("d", 4, c);
  EXPECT_THAT(tree_of(dir_.path(), d), ElementsAre("0root", "1a", "2cc2", "3d", "1b", "2="));
}

TEST_F(Trace, ShowsRecordsThatHaveNoIdentifierUnderTheirCause) {
  stack_copy s(dir_ / "s", 500);
  const std::string a = s.record("a", 0, "");
  s.record_nameless("one", a);
  s.record_nameless("two", a);
  s.record_nameless("of no incident", "");
  s.record_nameless("of none either", "");
  EXPECT_THAT(tree_of(dir_.path(), a), ElementsAre("0a", "1one", "1two"));
  EXPECT_THAT(tool::run({"vosk", "trace", "--log", "none", "--dir", dir_.path(), a}).out,
              testing::EndsWith("\n├─ (no time) one[4711] worker.c:12 one failed (no identifier)\n"
                                "└─ (no time) two[4711] worker.c:12 two failed (no identifier)\n"));
}

TEST_F(Trace, CountsCopiesOfOneRecordAsOne) {
  stack_copy one(dir_ / "one", 500);
  const std::string a = one.record("a", 0, ""), b = one.record("b", 1, a);
  ASSERT_TRUE(files::write(dir_ / "two", *files::read(dir_ / "one")));
  EXPECT_THAT(tree_of(dir_.path(), b), ElementsAre("0a", "1b"));
}

TEST_F(Trace, DoesNotMoveADeepChainOutOfSight) {
  stack_copy s(dir_ / "s", 500);
  std::string cause = s.record("p", 0, "");
  for (std::uint64_t i = 1; i < 40; ++i) cause = s.record("p", i, cause);
  const tool::result r = tool::run({"vosk", "trace", "--dir", dir_.path(), cause});
  EXPECT_THAT(r.out, HasSubstr("\n[25 deep] +1.000000 s p[4711] worker.c:12 p failed "));
  EXPECT_THAT(r.out,
              testing::EndsWith("\n[39 deep] +1.000000 s p[4711] worker.c:12 p failed " + cause + " <- asked for\n"));
}

TEST_F(Trace, FollowsWhatTheLibraryRecorded) {
  const auto push = [](const char *process, const std::string &cause) {
    setenv("VOSKSTACK", (std::string(sandbox::kStacks) + "/" + process).c_str(), 1);
    for (const char *name : {"VOSKORIG", "VOSKPID"}) setenv(name, std::to_string(getpid()).c_str(), 1);
    setenv("VOSKADDR", builder::kAddress, 1);
    setenv("VOSKPNAME", process, 1);
    vk_eid_t eid = "", assoc = "";
    (void)std::snprintf(assoc, sizeof assoc, "%s", cause.c_str());
    EXPECT_EQ(vk_push_stack_1(&eid, assoc, "r", "p", "s.c", "1", 1, 0, "detail", nullptr, "c", 1, 1, "text"), 0);
    return std::string(eid);
  };
  const std::string child = push("child", ""), parent = push("parent", child), command = push("command", parent);
  const tool::result r = tool::run({"vosk", "trace", parent});
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, testing::ContainsRegex("^[0-9: .+-]+ child\\[.*" + child + "\n└─ \\+.* parent\\[.*" + parent +
                                            " <- asked for\n   └─ \\+.* command\\[.*" + command + "\n$"));
}

TEST_F(Trace, IsDoneInTimeForAThousandRecordsInFiftyStacks) {
  std::vector<std::string> eids;
  for (std::uint64_t n = 0; n < 50; ++n) {
    stack_copy s(dir_ / std::to_string(n), 500 + n);
    for (std::uint64_t i = 0; i < 20; ++i)
      eids.push_back(s.record("p", 100 * n + i, eids.empty() ? "" : eids[eids.size() * 7 / 8]));
  }
  const double milliseconds = tool::milliseconds_of(
      {"vosk", "trace", "--dir", dir_.path(), eids.back()},
      [](const tool::result &r) { EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1000); });
  std::printf("milliseconds: %.0f\n", milliseconds);
  if (proof::kInstrumented) return;  // the time is the sanitizer's
  EXPECT_LT(milliseconds, 200);
}

TEST_F(Trace, HasAnExitStatusForEveryOutcome) {
  stack_copy s(dir_ / "s", 500);
  const std::string a = s.record("a", 0, "");
  EXPECT_EQ(tool::run({"vosk", "trace", "--dir", dir_.path(), a}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "trace"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "trace", "--dir", dir_.path(), s.eid(99)}).status, 4);
  std::string bytes = *files::read(dir_ / "s");
  bytes[24] = static_cast<char>(bytes[24] ^ 1);
  ASSERT_TRUE(files::write(dir_ / "s", bytes));
  EXPECT_EQ(tool::run({"vosk", "trace", "--dir", dir_.path(), a}).status, 3);
  ASSERT_EQ(chmod((dir_ / "s").c_str(), 0), 0);
  EXPECT_EQ(tool::run({"vosk", "trace", "--dir", dir_.path(), a}, tool::options::without_power()).status, 1);
}
