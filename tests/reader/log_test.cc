// Records out of lines of the System Log, and the sources that the lines come from.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "reader/builder.h"
#include "reader/child.h"
#include "reader/journal_entry.h"
#include "reader/line_reader.h"
#include "reader/log_record.h"
#include "reader/log_search.h"
#include "support/files.h"

using testing::ElementsAre;

namespace {

constexpr char kEid[] = "822.....2zIZ/.7S..XO.8....................",
               kCause[] = "75Oh2...2zIZ/.7S..XO.8....................";

const std::string kFields = std::string("):::Error ID: ") + kEid + ":::Reference ID: " + kCause +
                            ":::Template ID: 2a:::Details File: /var/adm/vosk/dumps/p.1.20231114.221320:::Location: ";
const std::string kRecord = "(Recorded using libqx_vosk.a cv 2" + kFields + "product,file.c,1.7,321" +
                            std::string(24, ' ') + ":::the disk is gone";

std::optional<vosk::log_record> parse(const std::string &text) {
  const std::string source = "log";
  return vosk::parse_log_record({source, 7, text, false});
}

// All lines of the sources, each behind the name of its own.
std::vector<std::string> lines_of(const std::vector<std::string> &names,
                                  std::vector<vosk::log_outcome> *outcomes = nullptr) {
  std::vector<std::string> lines;
  const auto got = vosk::for_each_log_line(names, [&](const vosk::log_line &line) {
    lines.push_back(line.source.substr(line.source.rfind('/') + 1) + ":" + std::to_string(line.number) + ":" +
                    std::string(line.text));
    return true;
  });
  if (outcomes != nullptr) *outcomes = got;
  return lines;
}

bool compress(const std::string &program, const std::string &path) {
  return !vosk::program_path(program).empty() &&
         std::system((program + " -c < " + path + " > " + path + ".packed").c_str()) == 0 &&
         rename((path + ".packed").c_str(), path.c_str()) == 0;
}

}  // namespace

TEST(LogRecord, IsReadFromALineOfEachDaemonsForm) {
  struct {
    const char *name;
    std::string line, process, host;
    std::optional<std::uint32_t> pid;
  } const rows[] = {
      {"traditional", "Nov  5 14:21:42 node1 order service[4711]: " + kRecord, "order service", "node1", 4711},
      {"without process id", "Nov 15 14:21:42 node1 orders: " + kRecord, "orders", "node1", {}},
      {"time in one word", "2023-11-14T22:13:20.123456+01:00 node1 orders[12]: " + kRecord, "orders", "node1", 12},
      {"structured", "<27>1 2023-11-14T22:13:20Z node1 orders 12 - - " + kRecord, "orders", "node1", 12},
      {"of a relay", "<27>Nov  5 14:21:42 node1 orders[12]: " + kRecord, "orders", "node1", 12},
      {"of a small daemon", "Nov  5 14:21:42 node1 daemon.err orders[12]: " + kRecord, "orders", "node1", 12},
      {"of its own", "something orders[12]: " + kRecord, "orders", "", 12},
      {"of its own, in more words", "some thing orders[12]: " + kRecord, "orders", "", 12},
      {"of its own, in one word", "orders[12]: " + kRecord, "orders", "", 12},
      {"of its own, in long words", "a-word-of-20-letters orders[12]: " + kRecord, "orders", "", 12},
      {"nearly a time", "2023-a-word-of-20-lt orders[12]: " + kRecord, "orders", "", 12},
      {"more nearly a time", "2023-11-a-word-of-20 orders[12]: " + kRecord, "orders", "", 12},
      {"most nearly a time", "2023-11-14 22:13:20Z orders[12]: " + kRecord, "orders", "", 12},
      {"letters of two months", "anF 5 orders[12]: " + kRecord, "orders", "", 12},
      {"structured without a time", "<27>1 now node1 orders 12 - - " + kRecord, "", "", {}},
      {"a bracket that is not opened", "Nov  5 14:21:42 n orders]: " + kRecord, "orders]", "n", {}},
      {"nothing in front", kRecord, "", "", {}},
      {"brackets that hold no number", "Nov  5 14:21:42 n orders[x]: " + kRecord, "orders[x]", "n", {}},
      {"journal",
       "{\"_HOSTNAME\":\"node1\", \"MESSAGE\" : \"" + kRecord + "\",\"_PID\":\"9\",\"SYSLOG_IDENTIFIER\":\"o\"}", "o",
       "node1", 9},
      {"journal with a sent process id", "{\"_PID\":\"9\",\"SYSLOG_PID\":\"12\",\"MESSAGE\":\"" + kRecord + "\"}", "",
       "", 12},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const auto r = parse(row.line);
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->source, "log");
    EXPECT_EQ(r->line, 7u);
    EXPECT_EQ(r->process, row.process);
    EXPECT_EQ(r->host, row.host);
    EXPECT_EQ(r->pid, row.pid);
    EXPECT_EQ(r->eid, kEid);
    EXPECT_EQ(r->reference, kCause);
    EXPECT_EQ(r->template_id, 0x2Au);
    EXPECT_EQ(r->detail_file, "/var/adm/vosk/dumps/p.1.20231114.221320");
    EXPECT_EQ(r->location, "product,file.c,1.7,321");
    EXPECT_EQ(r->product + "|" + r->file + "|" + r->version, "product|file.c|1.7");
    EXPECT_EQ(r->file_line, 321u);
    EXPECT_EQ(r->message, "the disk is gone");
    EXPECT_TRUE(r->complete);
  }
}

TEST(LogRecord, HoldsWhatAnEntryOfTheJournalEscapes) {
  const auto r =
      parse(R"({"x":null,"n":7,"MESSAGE":"(Recorded using libqx_vosk.a cv 2):::Error ID: )" + std::string(kEid) +
            R"(:::Reference ID: a\"\\\/\u0007\u00e4\ud83d\ude00:::Template ID: 0:::Details File: )"
            R"(:::Location: a,b,c,1:::one\ntwo"})");
  ASSERT_TRUE(r.has_value());
  EXPECT_EQ(r->reference, "a\"\\/\aä😀");
  EXPECT_EQ(r->message, "one\ntwo");
  std::string list;
  for (const char c : kRecord + "\x01\xFF") list += std::to_string(static_cast<unsigned char>(c)) + ",";
  list.back() = ']';
  const auto bytes = parse("{\"MESSAGE\":[" + list + ",\"_PID\":\"3\"}");
  ASSERT_TRUE(bytes.has_value());
  EXPECT_EQ(bytes->message, "the disk is gone\x01\xFF");
  EXPECT_EQ(bytes->pid, 3u);
}

TEST(LogRecord, KeepsWhatThereIsOfOneThatWasCut) {
  const std::size_t eid_end = kRecord.find(":::Reference"), reference_at = kRecord.find(kCause);
  EXPECT_EQ(parse(kRecord.substr(0, eid_end))->eid, kEid);
  EXPECT_EQ(parse(kRecord.substr(0, eid_end - 1))->eid, "") << "an identifier is taken whole or not at all";
  EXPECT_EQ(parse(kRecord.substr(0, reference_at + 5))->reference, std::string(kCause).substr(0, 5));
  for (std::size_t size = 0; size < kRecord.size() - 16; ++size) {
    const auto r = parse(kRecord.substr(0, size));
    EXPECT_FALSE(r && r->complete) << size;
  }
}

TEST(LogRecord, IsAnotherWhereAnyPartOfItIs) {
  const vosk::log_record one = *parse(kRecord);
  EXPECT_TRUE(vosk::same_recording(one, *parse("Nov  5 14:21:42 node1 orders[12]: " + kRecord)));
  for (std::string vosk::log_record::*part :
       {&vosk::log_record::eid, &vosk::log_record::reference, &vosk::log_record::detail_file,
        &vosk::log_record::location, &vosk::log_record::message}) {
    vosk::log_record other = one;
    other.*part += 'x';
    EXPECT_FALSE(vosk::same_recording(one, other));
  }
}

TEST(JournalEntry, IsReadAsFarAsItIsOne) {
  struct {
    const char *line;
    const char *message;  // null: it is none
  } const rows[] = {
      {R"({"MESSAGE":"x"})", "x"},
      {"{\t\"MESSAGE\" :\t\"x\"}", "x"},
      {R"({"MESSAGE":"\u20ac\u00e4\u0041\ue000"})", "€äA\xEE\x80\x80"},
      {R"({"MESSAGE":"\ud83d\ude00"})", "😀"},
      {R"({"MESSAGE":"\ud83d!"})", "\xED\xA0\xBD!"},
      {R"({"MESSAGE":"\ude00"})", "\xED\xB8\x80"},
      {R"({"MESSAGE":[]})", ""},
      {R"({"MESSAGE":[65, 66]})", "AB"},
      {R"({"MESSAGE":7,"_PID":})", "7"},
      {R"({"MESSAGE":"x","_PID")", "x"},
      {R"({"MESSAGE":"x",7})", "x"},
      {R"({"MESSAGE" "x"})", nullptr},
      {R"({"MESSAGE":"x)", nullptr},
      {R"({"MESSAGE":")", nullptr},
      {R"({"MESSAGE":7)", nullptr},
      {R"({"MESSAGE":,)", nullptr},
      {R"({"MESSAGE":"\)", nullptr},
      {R"({"MESSAGE":"\n)", nullptr},
      {R"({"MESSAGE":"\q"})", nullptr},
      {R"({"MESSAGE":"\u12)", nullptr},
      {R"({"MESSAGE":"\uxyzw"})", nullptr},
      {R"({"MESSAGE":"\u12zw"})", nullptr},
      {R"({"MESSAGE":"\ud83d\u00"})", nullptr},
      {R"({"MESSAGE":"\ud83d\u0041"})", nullptr},
      {R"({"MESSAGE":"\ud83d\uffff"})", nullptr},
      {R"({"MESSAGE":[x]})", nullptr},
      {R"({"MESSAGE":[256]})", nullptr},
      {R"({"MESSAGE":[1 2]})", nullptr},
      {R"(["MESSAGE"])", nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    const auto entry = vosk::parse_journal_entry(row.line, "");
    ASSERT_EQ(entry.has_value(), row.message != nullptr);
    if (entry) {
      EXPECT_EQ(entry->message, row.message);
    }
  }
}

TEST(LogRecord, KeepsALocationWhosePartsCannotBeTold) {
  const auto location = [](const std::string &text) {
    return parse("(Recorded using libqx_vosk.a cv 2" + kFields + text);
  };
  const std::string cut = "product_of_a_long_name,a_long_file_name.cc,1.>";
  ASSERT_EQ(cut.size(), 46u);
  EXPECT_EQ(location(cut + ":::m")->location, cut);
  EXPECT_EQ(location(cut + ":::m")->file, "");
  EXPECT_EQ(location("a,b,c,d,1" + std::string(37, ' ') + ":::m")->location, "a,b,c,d,1");
  EXPECT_EQ(location("a:::b,c,d,1" + std::string(35, ' ') + ":::m:::n")->location, "a:::b,c,d,1");
  EXPECT_EQ(location("a:::b,c,d,1" + std::string(35, ' ') + ":::m:::n")->message, "m:::n");
  EXPECT_EQ(location("a,b,c,1 :::m")->file_line, 1u) << "a relay took blanks away";
}

TEST(LogRecord, IsNotSeenInOtherLines) {
  for (const std::string line : {"", "{", "{}", "{\"MESSAGE\":[1,2", "(Recorded using libqx_vosk.a cv 2",
                                 "(Recorded using libqx_vosk.a cv x):::Error ID: ", "{\"MESSAGE\":[300]}",
                                 "{\"MESSAGE\":\"(Recorded using libqx_vosk.a cv \"}",
                                 "{\"x\":\"(Recorded using libqx_vosk.a cv 2\",\"MESSAGE\":\"m\"}",
                                 "(recorded using libqx_vosk.a cv 2):::Error ID: "})
    EXPECT_FALSE(parse(line).has_value()) << line;
}

TEST(LogSource, ReadsPlainAndCompressedFiles) {
  const files::TemporaryDirectory dir;
  std::vector<std::string> names;
  for (const char *program : {"", "gzip", "xz", "zstd", "bzip2", "lz4"}) {
    const std::string path = dir / (std::string("log") + program);
    ASSERT_TRUE(files::write(path, "one\ntwo\r\n\nfour"));
    if (*program != '\0' && !compress(program, path)) continue;  // only the compressors that are installed can be tried
    SCOPED_TRACE(program);
    const std::string name = path.substr(path.rfind('/') + 1);
    std::vector<vosk::log_outcome> outcomes;
    EXPECT_THAT(lines_of({path}, &outcomes),
                ElementsAre(name + ":1:one", name + ":2:two", name + ":3:", name + ":4:four"));
    ASSERT_EQ(outcomes.size(), 1u);
    EXPECT_EQ(outcomes[0].result, vosk::outcome::read) << outcomes[0].reason;
    EXPECT_EQ(outcomes[0].lines, 4u);
    names.push_back(name);
  }
  EXPECT_THAT(names, testing::Contains("loggzip"));
}

TEST(LogSource, ReadsTheUsualFilesOfADirectory) {
  const files::TemporaryDirectory dir;
  for (const char *name : {"syslog", "syslog.1", "syslog.10", "messages-20231114", "daemon.log", "user.log.2",
                           "auth.log", "syslog.old", "syslogd", "messages-", "syslog.1.txt"})
    ASSERT_TRUE(files::write(dir / name, "x\n"));
  ASSERT_TRUE(files::write(dir / "syslog.2.gz", "x\n") && compress("gzip", dir / "syslog.2.gz"));
  ASSERT_EQ(symlink((dir / "auth.log").c_str(), (dir / "messages").c_str()), 0);
  ASSERT_EQ(mkfifo((dir / "debug").c_str(), 0644), 0);
  std::vector<vosk::log_outcome> outcomes;
  EXPECT_THAT(lines_of({dir.path()}, &outcomes),
              ElementsAre("daemon.log:1:x", "messages-20231114:1:x", "syslog:1:x", "syslog.1:1:x", "syslog.10:1:x",
                          "syslog.2.gz:1:x", "user.log.2:1:x"));
  std::map<std::string, std::string> refused;
  for (const vosk::log_outcome &o : outcomes)
    if (o.result != vosk::outcome::read) refused[o.source] = o.reason;
  EXPECT_EQ(refused,
            (std::map<std::string, std::string>{{dir / "debug", "a FIFO"}, {dir / "messages", "a symbolic link"}}));
}

TEST(LogSource, NamesWhatCannotBeRead) {
  const files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "damaged", "some text that is long enough to be cut in its middle\n"));
  ASSERT_TRUE(compress("gzip", dir / "damaged"));
  const std::string packed = *files::read(dir / "damaged");
  ASSERT_TRUE(files::write(dir / "damaged", packed.substr(0, packed.size() / 2)));
  ASSERT_TRUE(files::write(dir / "good", "x\n"));
  std::vector<vosk::log_outcome> outcomes;
  EXPECT_THAT(lines_of({dir / "missing", dir / "damaged", "/dev/null", dir / "good"}, &outcomes),
              testing::Contains("good:1:x"));
  ASSERT_EQ(outcomes.size(), 4u);
  EXPECT_EQ(outcomes[0].result, vosk::outcome::missing);
  EXPECT_EQ(outcomes[0].reason, "No such file or directory");
  EXPECT_EQ(outcomes[1].result, vosk::outcome::failed);
  EXPECT_THAT(outcomes[1].reason, testing::HasSubstr("unexpected end of file"));
  EXPECT_EQ(outcomes[2].result, vosk::outcome::skipped);
  EXPECT_EQ(outcomes[3].result, vosk::outcome::read);
}

TEST(LogSearch, HoldsEachRecordingOnceAndOnlySoMany) {
  const files::TemporaryDirectory dir;
  std::string text;
  for (int i = 0; i < 1000; ++i) text += kRecord + std::to_string(i % 100) + "\nanother line\n";
  ASSERT_TRUE(files::write(dir / "a", text) && files::write(dir / "b", text));
  const vosk::log_findings all = vosk::all_log_records({dir / "a", dir / "b"});
  EXPECT_EQ(all.records.size(), 100u);
  EXPECT_FALSE(all.too_many);
  EXPECT_TRUE(all.all_read());
  const vosk::log_findings few = vosk::all_log_records({dir / "a", dir / "b"}, 10000);
  EXPECT_TRUE(few.too_many);
  EXPECT_THAT(few.records.size(), testing::AllOf(testing::Gt(3u), testing::Lt(20u)));
  const vosk::log_findings one = vosk::find_log_records({dir / "a", dir / "b"}, kEid);
  EXPECT_EQ(one.records.size(), 100u);
  EXPECT_EQ(one.places.size(), 16u) << "the first lines are enough";
  EXPECT_EQ(one.places[1].line, 3u);
  EXPECT_EQ(vosk::recordings_of(all, kEid).records.size(), 100u);
  EXPECT_TRUE(vosk::recordings_of(all, kCause).records.empty());
}

TEST(LogSource, EndsWhereNoMoreIsWanted) {
  const files::TemporaryDirectory dir;
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "a line of some length\n";
  ASSERT_TRUE(files::write(dir / "a", text) && files::write(dir / "b", text) && compress("gzip", dir / "a"));
  std::size_t taken = 0;
  const auto outcomes =
      vosk::for_each_log_line({dir / "a", dir / "b"}, [&](const vosk::log_line &) { return ++taken < 3; });
  EXPECT_EQ(taken, 3u);
  ASSERT_EQ(outcomes.size(), 1u);
  EXPECT_EQ(outcomes[0].result, vosk::outcome::read);
}

TEST(LogSource, EndsWhereTheRestOfALineIsNotWantedEither) {
  const files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "a", "one") && files::write(dir / "b", "two\n"));
  std::string seen;
  (void)vosk::for_each_log_line({dir / "a", dir / "b"}, [&](const vosk::log_line &line) {
    seen += line.text;
    return false;
  });
  EXPECT_EQ(seen, "one");
}

// As those of the kernel do, which are regular files.
TEST(LogSource, ReadsAFileThatTellsNoSize) {
  const auto lines = lines_of({"/proc/self/status"});
  ASSERT_FALSE(lines.empty());
  EXPECT_THAT(lines[0], testing::StartsWith("status:1:Name:"));
}

TEST(LogSource, ReadsAFifoThatTheUserNames) {
  const files::TemporaryDirectory dir;
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0644), 0);
  EXPECT_THAT(lines_of({dir / "fifo"}), ElementsAre()) << "nobody writes to it";
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "x\ny", 3), 3);
  (void)close(ends[1]);
  const std::string path = "/dev/fd/" + std::to_string(ends[0]);
  const std::string name = std::to_string(ends[0]);
  EXPECT_THAT(lines_of({path}), ElementsAre(name + ":1:x", name + ":2:y"));
  (void)close(ends[0]);
}

// However long lines are and wherever reading cuts them, each is handed on once, in bounded memory.
TEST(Lines, AreHandedOnWithABound) {
  for (const std::size_t size : {0u, 1u, 65535u, 65536u, 65537u, 262143u, 262144u, 262145u, 327680u, 3000000u}) {
    SCOPED_TRACE(size);
    const files::TemporaryDirectory dir;
    const std::string line(size, 'x');
    ASSERT_TRUE(files::write(dir / "a", line + "\nsecond\r\n" + line));
    std::vector<std::pair<std::size_t, bool>> seen;
    const vosk::unique_fd fd(open((dir / "a").c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(vosk::read_lines(fd.get(), -1,
                               [&](std::string_view text, bool cut) {
                                 seen.emplace_back(text.size(), cut);
                                 return true;
                               }),
              vosk::lines_end::read);
    std::vector<std::pair<std::size_t, bool>> expected{{std::min<std::size_t>(size, 65536), size > 65536}, {6, false}};
    if (size > 0) expected.push_back(expected[0]);
    EXPECT_EQ(seen, expected);
  }
}

TEST(LogSource, EndsAlthoughALogGrowsWhileItIsRead) {
  const files::TemporaryDirectory dir;
  ASSERT_TRUE(files::write(dir / "a", "one\ntwo\n"));
  std::size_t lines = 0;
  const auto outcomes = vosk::for_each_log_line({dir / "a"}, [&](const vosk::log_line &) {
    const vosk::unique_fd fd(open((dir / "a").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    EXPECT_EQ(write(fd.get(), "more\n", 5), 5);
    return ++lines < 100;
  });
  EXPECT_EQ(lines, 2u);
  EXPECT_EQ(outcomes[0].result, vosk::outcome::read);
}

TEST(Lines, AreNotWaitedForBeyondThePatience) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const auto nothing = [](std::string_view, bool) { return true; };
  EXPECT_EQ(vosk::read_lines(ends[0], 20, nothing), vosk::lines_end::silent);
  (void)close(ends[0]);
  (void)close(ends[1]);
}

TEST(Child, IsStoppedWhereItGoesOnForEver) {
  const vosk::unique_fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  vosk::child endless({vosk::program_path("yes")}, nothing.get());
  ASSERT_GE(endless.output(), 0);
  EXPECT_EQ(endless.finish(), "yes ended by signal 13");
  vosk::child silent({vosk::program_path("sleep"), "1000"}, nothing.get());
  EXPECT_EQ(silent.finish(), "sleep ended by signal 9");
  EXPECT_EQ(vosk::child({"/nonexistent/program"}, nothing.get()).finish(), "cannot be started");
}

TEST(Child, ThatFailsWithoutAWordIsNamedWithItsStatus) {
  const vosk::unique_fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  vosk::child failed({vosk::program_path("sh"), "-c", "exit 3"}, nothing.get());
  (void)vosk::read_lines(failed.output(), 5000, [](std::string_view, bool) { return true; });
  EXPECT_EQ(failed.finish(), "sh ended with status 3");
}

TEST(Child, MayComplainOnlySoMuch) {
  const vosk::unique_fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
  vosk::child loud({vosk::program_path("sh"), "-c", "yes complaint | head -n 100000 >&2; exit 3"}, nothing.get());
  EXPECT_THAT(lines_of({"none"}), ElementsAre());
  (void)vosk::read_lines(loud.output(), 5000, [](std::string_view, bool) { return true; });
  EXPECT_EQ(loud.finish(), "complaint");
}
