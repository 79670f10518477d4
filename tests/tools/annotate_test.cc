// vosk annotate: text passes through, and identifiers are explained.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <random>

#include "proof/instrumented.h"
#include "proof/soak.h"
#include "reader/ordinary_text.h"
#include "support/files.h"
#include "support/sandbox.h"
#include "tools/tool.h"

using testing::HasSubstr;

namespace {

tool::result annotate(const std::string &text, std::vector<std::string> arguments = {}) {
  arguments.insert(arguments.begin(), {"vosk", "annotate"});
  tool::options how;
  how.input = text;
  return tool::run(arguments, how);
}

const std::string kPath = std::string(sandbox::kStacks) + "/service.1.20231114.221320";

builder::record make_stack() {
  tool::write_stack(kPath, builder::bytes(1));
  builder::record r;
  r.at(1700000000, 123456, tool::inode_of(kPath)).default_text = "cannot open %1$s\nat all";
  builder::model m;
  EXPECT_TRUE(m.push(builder::record_bytes(r)));
  tool::write_stack(kPath, m.file());
  return r;
}

std::string without_annotations(const std::string &text) {
  std::string out;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
    if (text.compare(at, 6, "    ^ ") != 0) out += text.substr(at, end - at);
    at = end;
  }
  return out;
}

}  // namespace

TEST(Annotate, ExplainsAnIdentifierUnderItsLine) {
  const builder::record r = make_stack();
  const std::string other = "822.....2zIZ/.7S..XO.8....................";
  const tool::result shown = annotate("first line\nservice failed: " + r.eid + ".\nlast " + other + " line\n");
  EXPECT_EQ(shown.status, 0);
  EXPECT_EQ(shown.out,
            "first line\nservice failed: " + r.eid + ".\n    ^ " + r.eid +
                ": 2023-11-14 22:13:20.123456 +0000; an Error Stack, i-node " + std::to_string(tool::inode_of(kPath)) +
                "; 192.168.1.10, not an address of this node now; mydaemon[4711] worker.c:12 cannot open /etc/thing\n"
                "last " +
                other + " line\n    ^ " + other +
                ": 2023-11-14 22:13:20.123456 +0000; the System Log, daemon.err; 192.168.1.10, not an address of this "
                "node now\n");
}

TEST(Annotate, PrintsWhatItFindsAsJson) {
  const builder::record r = make_stack();
  const auto lines = tool::json_lines(annotate("\n\n" + r.eid + "\nx" + r.eid + " " + r.eid, {"--json"}).out);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0]["type"], "identifier");
  EXPECT_EQ(lines[0]["line"], 3);
  EXPECT_EQ(lines[1]["line"], 4);
  EXPECT_EQ(lines[2]["line"], 4);
  EXPECT_EQ(lines[0]["identifier"], r.eid);
  EXPECT_EQ(lines[0]["record"]["process"], "mydaemon");
}

// Pieces of a text arrive as they like; whatever is passed in comes out.
TEST(Annotate, PassesEverythingThroughHoweverItIsCut) {
  std::mt19937 random(10);
  for (const std::size_t size : {0u, 1u, 100u, 262143u, 262144u, 262145u, 1000000u}) {
    SCOPED_TRACE(size);
    std::string text;
    while (text.size() < size) {
      switch (random() % 5) {
        case 0:
          text += builder::stack_eid(random(), 1600000000 + random() % 1000000, 5);
          break;
        case 1:
          text += std::string(random() % 300, '.');
          break;
        case 2:
          text += '\n';
          break;
        case 3:
          text += static_cast<char>(random());
          break;
        default:
          text += "some words ";
      }
    }
    text.resize(size);
    const tool::result r = annotate(text);
    EXPECT_EQ(r.status, 0);
    const bool line_open = !text.empty() && text.back() != '\n';
    const std::string passed = without_annotations(r.out);
    EXPECT_TRUE(passed == text || (line_open && passed == text + "\n"));
  }
}

TEST(Annotate, FindsIdentifiersWhereverTheTextIsCut) {
  const std::string eid = builder::stack_eid(77, 1700000000, 1);
  for (const std::size_t before : {262144u - 42, 262144u - 41, 262144u - 20, 262144u - 1, 262144u}) {
    for (const char filler : {' ', '.', 'a'}) {
      const tool::result r = annotate(std::string(before, filler) + eid + std::string(300, filler) + "\n");
      EXPECT_THAT(r.out, HasSubstr("\n    ^ " + eid + ": ")) << before << filler;
    }
  }
}

TEST(Annotate, NeedsNoMoreMemoryForALongerText) {
  std::string text;
  std::mt19937 random(11);
  while (text.size() < (std::size_t{64} << 20)) {
    text += std::string(random() % 2000, 'x');
    text += builder::stack_eid(random(), 1700000000, 1) + (random() % 1000 == 0 ? "\n" : " ");
  }
  (void)annotate(text);
  rusage usage{};
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
  if (proof::kInstrumented) GTEST_SKIP() << "a sanitizer's memory is not the program's";
  // Children that ran before need less; a child begins as a copy of this process, so the text's size counts.
  EXPECT_LT(usage.ru_maxrss, (64 + 64 + 80) * 1024L);
}

// 1 GB under "./dev soak annotate_test", else a part of it: no identifier where none is, all that were planted, in time
// and in little memory.
TEST(Annotate, FindsWhatWasPlantedInOrdinaryLogsAndNothingElse) {
  const std::string beside[] = {".",    "/",   "'", "\"",  ":::",       "#012", "\x1b[31m", "\x1b[0m",  "\r\n", "\n",
                                "...7", "//8", "a", "zzz", "2615-000 ", "=",    ")",        "\xc3\xbc", "",     "\t"};
  const std::size_t wanted = proof::soaking() ? std::size_t{1} << 30 : std::size_t{24} << 20, planted = 10000;
  files::TemporaryDirectory dir;
  std::vector<std::string> expected;
  std::size_t size = 0;
  {
    builder::ordinary_text lines(proof::seed());
    std::mt19937 random(proof::seed());
    std::ofstream file(dir / "text");
    std::string block;
    for (std::size_t i = 0; i < planted; ++i) {
      block.clear();
      while (size + block.size() < wanted / planted * i) lines.append_line(block);
      const std::uint32_t address = static_cast<std::uint32_t>(random());
      expected.push_back(builder::stack_eid(random() % 50000000, 1000000000 + random() % 700000000,
                                            static_cast<std::uint32_t>(random() % 1000000),
                                            builder::digits(address, 6) + "..................."));
      block += beside[random() % std::size(beside)] + expected.back() + beside[random() % std::size(beside)] + "\n";
      file << block;
      size += block.size();
    }
    ASSERT_TRUE(file.flush());
  }
  rusage before{}, after{};
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &before), 0);
  ASSERT_EQ(tool::run({"vosk", "annotate", dir / "text"}, tool::options::to(dir / "annotated")).status, 0);
  ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &after), 0);
  const auto seconds = [](const timeval &from, const timeval &to) {
    return static_cast<double>(to.tv_sec - from.tv_sec) + static_cast<double>(to.tv_usec - from.tv_usec) / 1e6;
  };
  const double spent = seconds(before.ru_utime, after.ru_utime) + seconds(before.ru_stime, after.ru_stime);

  std::ifstream annotated(dir / "annotated");
  std::size_t found = 0;
  for (std::string line; std::getline(annotated, line);) {
    if (line.compare(0, 6, "    ^ ") != 0) continue;
    ASSERT_LT(found, planted);
    ASSERT_EQ(line.substr(6, 42), expected[found++]);
  }
  EXPECT_EQ(found, planted);
  const double per_gigabyte = spent / static_cast<double>(size) * (1 << 30);
  std::printf("seconds for 1 GiB: %.1f; kilobytes: %ld\n", per_gigabyte, after.ru_maxrss);
  if (proof::kInstrumented) return;  // time and memory are the sanitizer's
  EXPECT_LT(per_gigabyte, 10);
  EXPECT_LT(after.ru_maxrss, 300 * 1024) << "of all children of this program";
}

TEST(Annotate, HasAnExitStatusForEveryOutcome) {
  files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "text", "x\n"));
  EXPECT_EQ(tool::run({"vosk", "annotate", dir / "text"}).status, 0);
  EXPECT_EQ(tool::run({"vosk", "annotate", dir.path()}).status, 1);
  EXPECT_EQ(tool::run({"vosk", "annotate", "--no-such-option"}).status, 2);
  EXPECT_EQ(tool::run({"vosk", "annotate", dir / "missing"}).status, 4);
  const builder::record r = make_stack();
  std::string bytes = *files::read(kPath);
  bytes[24] = static_cast<char>(bytes[24] ^ 1);
  ASSERT_TRUE(files::write(kPath, bytes));
  EXPECT_EQ(annotate(r.eid + "\n").status, 3);
  EXPECT_EQ(tool::run({"vosk", "annotate", dir / "text"}, tool::options::to("/dev/full")).status, 1);
}
