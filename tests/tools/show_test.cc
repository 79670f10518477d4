// vosk show: every verdict, with what it rests on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <functional>

#include "proof/instrumented.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/reader/verdict.h"
#include "tools/tool.h"

using testing::HasSubstr;
using tool::json;

namespace {

const std::string kStack = std::string(sandbox::kStacks) + "/mydaemon.4711.20231114.221320";
const std::string kOtherAddress = builder::digits(0x0B01A8C0, 6) + "...................";  // 192.168.1.11
const std::string kLoopback = builder::digits(0x0100007F, 6) + "...................";

// The node's only address but the loopback one is 192.168.1.10, the builder's.
sandbox::Options a_node() {
  sandbox::Options options;
  options.network = true;
  options.ip = {"link set lo up", "addr add 192.168.1.10/32 dev lo"};
  return options;
}

// Files made now have a time of birth, so records are made a little later.
std::uint64_t soon() {
  return static_cast<std::uint64_t>(time(nullptr)) + 5;
}

builder::record record_at(std::uint64_t seconds, std::uint64_t inode) {
  builder::record r;
  r.at(seconds, 7, inode);
  return r;
}

// Makes the node's stack. `make` gets its i-node.
std::uint64_t make_stack(const std::function<builder::bytes(std::uint64_t)> &make, const std::string &path = kStack) {
  tool::write_stack(path, builder::bytes(1));
  const std::uint64_t inode = tool::inode_of(path);
  tool::write_stack(path, make(inode));
  return inode;
}

builder::bytes never_wrapped(std::uint64_t inode, std::uint64_t first) {
  builder::model m;
  for (unsigned i = 0; i < 4; ++i) EXPECT_TRUE(m.push(builder::record_bytes(record_at(first + 10 * i, inode))));
  return m.file();
}

builder::bytes wrapped(std::uint64_t inode, std::uint64_t first) {
  builder::model m;
  for (unsigned i = 0; m.control().wrapped == 0 || i % 2 == 0; ++i) {
    builder::record r = record_at(first + i, inode);
    r.detail = std::string(i < 4 ? 400 : 13 * (i % 5), '*');
    (void)m.push(builder::record_bytes(r));
  }
  return m.file();
}

struct shown {
  int status;
  json verdict;
  std::vector<json> lines;
  json fact(const char *name) const {
    for (const json &one : verdict["evidence"].elements())
      if (one.contains(name)) return one[name];
    return nullptr;
  }
};

// The text must say the same: the verdict, and each fact under its name.
void expect_text(std::vector<std::string> arguments, const shown &s) {
  arguments.insert(arguments.begin(), {"vosk", "show", "--utc"});
  const tool::result r = tool::run(arguments);
  EXPECT_EQ(r.status, s.status);
  EXPECT_THAT(r.out, HasSubstr("\n  Verdict         " + s.verdict["verdict"].text() + ": "));
  for (const json &fact : s.verdict["evidence"].elements()) {
    auto [label, value] = fact.members().at(0);
    std::replace(label.begin(), label.end(), '_', ' ');
    label[0] = static_cast<char>(std::toupper(label[0]));
    label = "\n  " + label;
    label.resize(std::max<std::size_t>(label.size(), 19), ' ');
    const bool is_time = value.is_string() && value.text().ends_with('Z');
    const std::string text = is_time ? value.text().substr(0, 10) : value.is_string() ? value.text() : value.dump();
    EXPECT_THAT(r.out, HasSubstr(label + text));
  }
}

shown show(std::vector<std::string> arguments) {
  const std::vector<std::string> asked = arguments;
  arguments.insert(arguments.begin(), {"vosk", "show", "--json"});
  const tool::result r = tool::run(arguments);
  shown s{r.status, nullptr, tool::json_lines(r.out)};
  EXPECT_FALSE(s.lines.empty()) << r.err;
  if (s.lines.empty()) return s;
  s.verdict = s.lines[0];
  expect_text(asked, s);
  return s;
}

}  // namespace

TEST(Show, ShowsThePresentRecord) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, now); });
    const std::string eid = builder::stack_eid(inode, now + 10, 7);
    const shown s = show({eid});
    EXPECT_EQ(s.status, 0);
    EXPECT_EQ(s.verdict["verdict"], "present");
    EXPECT_EQ(s.verdict["node_test"], "this_node");
    EXPECT_EQ(s.fact("file"), kStack);
    ASSERT_EQ(s.lines.size(), 2u);
    EXPECT_EQ(s.lines[1]["type"], "record");
    EXPECT_EQ(s.lines[1]["identifier"], eid);
    EXPECT_EQ(s.lines[1]["offset"], s.fact("offset"));

    const tool::result text = tool::run({"vosk", "show", eid, "--utc"});
    EXPECT_THAT(text.out, testing::StartsWith(eid + "\n  Made            "));
    EXPECT_THAT(text.out, HasSubstr("\n  Kept in         an Error Stack, i-node " + std::to_string(inode) +
                                    "\n  Node            192.168.1.10, this node\n"
                                    "  Verdict         present: the record is there\n  File            " +
                                    kStack + "\n  Offset          "));
    EXPECT_THAT(text.out, HasSubstr("\n  Description     cannot open /etc/thing\n"));
  });
}

TEST(Show, SaysThatARecordWasOverwritten) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return wrapped(i, now); });
    const shown s = show({builder::stack_eid(inode, now, 7)});
    EXPECT_EQ(s.status, 4);
    EXPECT_EQ(s.verdict["verdict"], "overwritten");
    EXPECT_EQ(s.fact("file"), kStack);
    EXPECT_FALSE(s.fact("newest_record").is_null());
  });
}

TEST(Show, SaysThatARecordWasNeverStored) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, now); });
    for (const std::uint64_t at : {now + 5, now + 1000}) {
      const shown s = show({builder::stack_eid(inode, at, 7)});
      EXPECT_EQ(s.status, 4);
      EXPECT_EQ(s.verdict["verdict"], "never_stored");
      EXPECT_EQ(s.fact("records"), 4);
    }
  });
}

TEST(Show, DoesNotCallARecordNeverStoredWhereItsPlaceMayBeBroken) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon();
    std::size_t second = 0;
    const std::uint64_t inode = make_stack([&](std::uint64_t i) {
      builder::bytes file = never_wrapped(i, now);
      second = 24 + builder::record_bytes(record_at(now, i)).size();
      file[second + 54] = 'x';
      return file;
    });
    EXPECT_EQ(show({builder::stack_eid(inode, now + 10, 7)}).verdict["verdict"], "damaged");
    EXPECT_EQ(show({builder::stack_eid(inode, now + 5, 7)}).verdict["verdict"], "damaged");
    EXPECT_EQ(show({builder::stack_eid(inode, now + 25, 7)}).verdict["verdict"], "damaged");
    EXPECT_EQ(show({builder::stack_eid(inode, now, 7)}).verdict["verdict"], "present");
  });
}

TEST(Show, CallsARecordNeverStoredWhereOnlyLaterOnesAreBroken) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon();
    const std::uint64_t inode = make_stack([&](std::uint64_t i) {
      builder::bytes file = never_wrapped(i, now);
      file[24 + 3 * builder::record_bytes(record_at(now, i)).size() + 54] = 'x';
      return file;
    });
    EXPECT_EQ(show({builder::stack_eid(inode, now + 5, 7)}).verdict["verdict"], "never_stored");
    EXPECT_EQ(show({builder::stack_eid(inode, now + 25, 7)}).verdict["verdict"], "damaged");
  });
}

TEST(Show, SaysThatTheFileIsGone) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, now); });
    const shown s = show({builder::stack_eid(inode + 1000, now, 7)});
    EXPECT_EQ(s.status, 4);
    EXPECT_EQ(s.verdict["verdict"], "file_gone");
    EXPECT_EQ(s.verdict["inode"], inode + 1000);
  });
}

TEST(Show, SaysThatTheInodeWasReused) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, soon()); });
    const shown s = show({builder::stack_eid(inode, 1700000000, 7)});
    EXPECT_EQ(s.status, 4);
    EXPECT_EQ(s.verdict["verdict"], "inode_reused");
    EXPECT_EQ(s.fact("file"), kStack);
    // Whichever of them this file system offers.
    EXPECT_FALSE(s.fact("file_made").is_null() && s.fact("time_in_its_name").is_null());
  });
}

TEST(Show, TakesBirthThenNameThenFirstRecordAsEvidenceForAReusedInode) {
  const auto id = vosk::decode_identifier(builder::stack_eid(builder::kInode, 1700000000, 0));
  builder::model m;
  ASSERT_TRUE(m.push(builder::record_bytes(record_at(1700000005, builder::kInode))));
  setenv("TZ", "UTC", 1);
  tzset();
  struct {
    const char *name, *path;
    std::optional<vosk::moment> birth;
    std::uint64_t inode;
    const char *evidence;
  } const rows[] = {
      {"born later", "x", vosk::moment{1700000000, 1}, builder::kInode, "file_made"},
      {"born just then, whatever the rest says", "x.1.20231114.221330", vosk::moment{1700000000, 0}, builder::kInode,
       nullptr},
      {"named later", "x.1.20231114.221321", std::nullopt, builder::kInode, "time_in_its_name"},
      {"named before, whatever the first record says", "x.1.20231114.221320", std::nullopt, builder::kInode, nullptr},
      {"first record later", "x", std::nullopt, builder::kInode, "first_record"},
      {"a copy: only its records count", "x.1.20231114.221320", vosk::moment{0, 0}, 99, "first_record"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    vosk::stack_file file;
    file.path = row.path;
    file.facts.inode = row.inode;
    file.facts.birth = row.birth;
    file.contents = vosk::read_stack(m.file(), row.inode);
    const auto found = made_after(*id, file);
    EXPECT_EQ(found ? found->name : "", row.evidence != nullptr ? row.evidence : "");
  }
}

TEST(Show, SaysThatTheAddressIsNotThisNodes) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, now); });
    const shown s = show({builder::stack_eid(inode, now + 5, 7, kOtherAddress)});
    EXPECT_EQ(s.status, 4);
    EXPECT_EQ(s.verdict["verdict"], "other_node");
    EXPECT_EQ(s.verdict["node"], "192.168.1.11");
  });
}

// An address can change after the recording: the record decides.
TEST(Show, FindsARecordHereWhateverItsAddressUnlessNodeOnly) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon();
    std::string eid;
    (void)make_stack([&](std::uint64_t i) {
      builder::model m;
      builder::record r;
      eid = r.eid = builder::stack_eid(i, now, 7, kOtherAddress);
      r.seconds = now;
      EXPECT_TRUE(m.push(builder::record_bytes(r)));
      return m.file();
    });
    EXPECT_EQ(show({eid}).verdict["verdict"], "present");
    EXPECT_EQ(show({eid, "--node-only"}).verdict["verdict"], "other_node");
  });
}

TEST(Show, SaysThatTheIdentifierDoesNotTellItsNode) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon(), inode = make_stack([&](std::uint64_t i) { return never_wrapped(i, now); });
    const std::string none = std::string(24, '.') + "/";
    for (const std::string &address : {kLoopback, none}) {
      const shown s = show({builder::stack_eid(inode, now + 5, 7, address)});
      EXPECT_EQ(s.status, 4);
      EXPECT_EQ(s.verdict["verdict"], "node_not_told");
    }
  });
}

TEST(Show, SaysThatSeveralRecordsHaveTheIdentifier) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::vector<std::string> rows[] = {{"one", "two"}, {"one", "three"}, {"one", "two", "two"}};
    for (const std::vector<std::string> &details : rows) {
      SCOPED_TRACE(testing::PrintToString(details));
      const std::uint64_t now = soon();
      const std::uint64_t inode = make_stack([&](std::uint64_t i) {
        builder::model m;
        for (const std::string &detail : details) {
          builder::record r = record_at(now, i);
          r.detail = detail;
          EXPECT_TRUE(m.push(builder::record_bytes(r)));
        }
        return m.file();
      });
      const shown s = show({builder::stack_eid(inode, now, 7)});
      EXPECT_EQ(s.status, 0);
      EXPECT_EQ(s.verdict["verdict"], "ambiguous");
      ASSERT_EQ(s.lines.size(), 3u) << "each of them once";
      EXPECT_EQ(s.lines[1]["detail"], details[0]);
      EXPECT_EQ(s.lines[2]["detail"], details[1]);
    }
  });
}

TEST(Show, SaysWhatIsNoIdentifier) {
  const std::string good = builder::stack_eid(5, 1700000000, 7);
  struct {
    const char *name;
    std::string text;
  } const rows[] = {{"one short", good.substr(1)},
                    {"one long", good + "."},
                    {"header", "1" + good.substr(1)},
                    {"a character outside the alphabet", good.substr(0, 3) + "_" + good.substr(4)},
                    {"no seconds", good.substr(0, 7) + "......" + good.substr(13)},
                    {"microseconds", good.substr(0, 13) + ".7o1" + good.substr(17)},
                    {"an address behind an address", good.substr(0, 30) + "/" + good.substr(31)},
                    {"address type", good.substr(0, 41) + "0"}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const shown s = show({row.text});
    EXPECT_EQ(s.status, 4);
    EXPECT_EQ(s.verdict["verdict"], "not_an_identifier");
    EXPECT_FALSE(s.fact("reason").is_null());
  }
}

TEST(Show, FindsARecordInCopiesByTheIdentifierInIt) {
  RUN_IN_SANDBOX(a_node(), [] {
    files::TemporaryDirectory copies;
    ASSERT_EQ(mkdir((copies / "node11").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((copies / "node12").c_str(), 0755), 0);
    builder::model m;
    builder::record r;
    r.eid = builder::stack_eid(500, 1700000000, 7, kOtherAddress);
    ASSERT_TRUE(m.push(builder::record_bytes(r)));
    tool::write_stack(copies / "node11/stack", m.file());
    tool::write_stack(copies / "node12/same", m.file());
    const shown s = show({"--dir", copies.path(), r.eid});
    EXPECT_EQ(s.verdict["verdict"], "present");
    EXPECT_EQ(s.fact("file"), copies / "node11/stack");
    EXPECT_EQ(s.lines.size(), 2u) << "copies of one record are one record";
    EXPECT_EQ(s.status, 0);

    // The copy says what it can of its node's other identifiers.
    EXPECT_EQ(show({"--dir", copies.path(), builder::stack_eid(500, 1700000000, 6, kOtherAddress)}).verdict["verdict"],
              "inode_reused");
    EXPECT_EQ(show({"--dir", copies.path(), builder::stack_eid(500, 1700000000, 8, kOtherAddress)}).verdict["verdict"],
              "copied_before");
    EXPECT_EQ(show({"--dir", copies.path(), builder::stack_eid(501, 1700000000, 7, kOtherAddress)}).verdict["verdict"],
              "other_node");
  });
}

// Of several copies the one that says most counts, whichever comes first.
TEST(Show, JudgesByTheRecordsOfCopies) {
  RUN_IN_SANDBOX(a_node(), [] {
    constexpr std::uint64_t kStart = 1700000000;
    const auto copy_of = [](const std::vector<builder::record> &records) {
      builder::model m;
      for (const builder::record &r : records) EXPECT_TRUE(m.push(builder::record_bytes(r)));
      return m.file();
    };
    const auto foreign = [](std::uint64_t seconds, std::uint64_t inode) {
      builder::record r;
      r.seconds = kStart + seconds;
      r.eid = builder::stack_eid(inode, r.seconds, 7, kOtherAddress);
      return r;
    };
    builder::record nameless;
    nameless.eid.clear();
    const builder::bytes before = copy_of({foreign(0, 500)}), around = copy_of({foreign(0, 500), foreign(20, 500)});
    struct {
      const char *what;
      std::vector<builder::bytes> copies;
      const char *verdict;
      std::size_t best;  // which copy
      bool first_is_told;
    } const rows[] = {
        {"it ends before", {before}, "copied_before", 0, true},
        {"it goes on", {around}, "never_stored", 0, true},
        {"the second says more", {before, around}, "never_stored", 1, true},
        {"the first says more", {around, before}, "never_stored", 0, true},
        {"they say the same", {before, before}, "copied_before", 0, true},
        {"its first record has no identifier",
         {copy_of({nameless, foreign(0, 501), foreign(20, 500)})},
         "never_stored",
         0,
         false},
        {"it is another node's", {copy_of({record_at(kStart, 500)})}, "other_node", 1, false},
    };
    for (const auto &row : rows) {
      SCOPED_TRACE(row.what);
      const files::TemporaryDirectory dir;
      for (std::size_t i = 0; i < row.copies.size(); ++i) tool::write_stack(dir / std::to_string(i), row.copies[i]);
      const shown s = show({"--dir", dir.path(), builder::stack_eid(500, kStart + 10, 7, kOtherAddress)});
      EXPECT_EQ(s.status, 4);
      EXPECT_EQ(s.verdict["verdict"], row.verdict);
      EXPECT_EQ(s.fact("first_record").is_null(), !row.first_is_told);
      if (row.best < row.copies.size()) {
        EXPECT_EQ(s.fact("file"), dir / std::to_string(row.best));
      }
    }
  });
}

TEST(Show, SaysThatARecordWasNeverStoredInAStackThatIsEmpty) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t inode = make_stack([](std::uint64_t) { return builder::model().file(); });
    const shown s = show({builder::stack_eid(inode, soon(), 7)});
    EXPECT_EQ(s.verdict["verdict"], "never_stored");
    EXPECT_EQ(s.fact("records"), 0);
    EXPECT_TRUE(s.fact("first_record").is_null() && s.fact("newest_record").is_null());
  });
}

// The i-node is that of something that cannot be read, has no time of birth, or is a directory.
TEST(Show, JudgesWhatHasTheInodeNow) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::string eid = builder::stack_eid(make_stack([](std::uint64_t) { return builder::bytes(1); }), 1, 7);
    EXPECT_EQ(show({eid}).verdict["verdict"], "inode_reused") << "it was made later than the identifier";
    // The i-node is still that of the file below.
    ASSERT_EQ(mount("/proc/version", kStack.c_str(), nullptr, MS_BIND, nullptr), 0);
    const shown ageless = show({eid});
    EXPECT_EQ(ageless.verdict["verdict"], "damaged");
    EXPECT_EQ(ageless.fact("file"), kStack);
    EXPECT_TRUE(ageless.fact("file_made").is_null());
    ASSERT_EQ(umount(kStack.c_str()), 0);

    const std::string later = builder::stack_eid(tool::inode_of(kStack), soon(), 7);
    ASSERT_EQ(chmod(kStack.c_str(), 0), 0);
    const tool::result refused = tool::run({"vosk", "show", later}, tool::options::without_power());
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.out, HasSubstr("\n  Verdict         not_searched: the stacks could not be looked through\n"
                                       "  File            " +
                                       kStack + "\n  What it is      Permission denied\n"));

    ASSERT_EQ(mkdir((kStack + ".d").c_str(), 0755), 0);
    EXPECT_EQ(show({builder::stack_eid(tool::inode_of(kStack + ".d"), soon(), 7)}).verdict["verdict"], "file_gone");
  });
}

TEST(Show, LooksIntoFilesOnly) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::string eid = builder::stack_eid(500, soon(), 7);
    const auto searched = [&](const std::string &copies) {
      return show({"--dir", copies, eid}).fact("files_searched").number();
    };
    EXPECT_EQ(searched(kStack + ".none"), searched("/dev/null"));
    tool::write_stack("/var/adm/vosk/copy", builder::bytes(1));
    EXPECT_GT(searched("/var/adm/vosk/copy"), searched("/dev/null"));
  });
}

TEST(Show, TakesAnErrorTemplateIdentifierApart) {
  const shown s = show({"6" + builder::digits(0xABCD, 6) + builder::stack_eid(5, 1700000000, 7).substr(7)});
  EXPECT_EQ(s.status, 4);
  EXPECT_EQ(s.verdict["verdict"], "error_template");
  EXPECT_EQ(s.verdict["template"], 0xABCD);
}

TEST(Show, HasAnExitStatusForEveryOutcome) {
  RUN_IN_SANDBOX(a_node(), [] {
    const std::uint64_t now = soon();
    const std::uint64_t inode = make_stack([&](std::uint64_t i) {
      builder::bytes file = never_wrapped(i, now);
      file[24] ^= 1;  // the first record's length
      return file;
    });
    EXPECT_EQ(tool::run({"vosk", "show", builder::stack_eid(inode, now + 10, 7)}).status, 0);
    EXPECT_EQ(tool::run({"vosk", "show", builder::stack_eid(inode, now, 7)}).status, 3);
    EXPECT_EQ(tool::run({"vosk", "show", builder::stack_eid(inode + 1, now, 7)}).status, 4);
    EXPECT_EQ(tool::run({"vosk", "show"}).status, 2);
    EXPECT_EQ(tool::run({"vosk", "show", "a", "b"}).status, 2);
    EXPECT_EQ(tool::run({"vosk", "show", "--help"}).status, 0);
    ASSERT_EQ(chmod(sandbox::kStacks, 0), 0);
    EXPECT_EQ(tool::run({"vosk", "show", builder::stack_eid(inode, now, 7)}, tool::options::without_power()).status, 1);
  });
}

// The bars: by i-node over 10,000 stacks, by content over as many copies.
TEST(Show, FindsOneOfTenThousandStacksInTime) {
  sandbox::Options options = a_node();
  options.size = "0";
  RUN_IN_SANDBOX(options, [] {
    const std::uint64_t now = soon();
    std::string eid;
    for (int i = 0; i < 10000; ++i) {
      const std::string path = std::string(sandbox::kStacks) + "/daemon." + std::to_string(i) + ".20231114.221320";
      const std::uint64_t inode = make_stack([&](std::uint64_t n) { return never_wrapped(n, now); }, path);
      if (i == 7000) eid = builder::stack_eid(inode, now, 7);
    }
    const auto fastest = [&](const std::vector<std::string> &arguments) {
      return tool::milliseconds_of(arguments, [](const tool::result &r) {
        EXPECT_EQ(r.status, 0);
        EXPECT_THAT(r.out, HasSubstr("daemon.7000."));
      });
    };
    const double by_inode = fastest({"vosk", "show", eid});
    ASSERT_EQ(rename(sandbox::kStacks, "/var/adm/vosk/copies"), 0);
    const double in_copies = fastest({"vosk", "show", "--dir", "/var/adm/vosk/copies", eid});
    std::printf("milliseconds: %.1f by i-node, %.1f in copies\n", by_inode, in_copies);
    if (proof::kInstrumented) return;  // the times are the sanitizer's
    EXPECT_LT(by_inode, 20);
    EXPECT_LT(in_copies, 150);
  });
}
