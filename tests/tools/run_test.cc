// vosk run: a command in the caller's place, and a record when it fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "support/files.h"
#include "support/sandbox.h"
#include "tools/scripts.h"

using scripts::kWithStack;
using scripts::script;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

const std::string kIdentifier = "[./0-9A-Za-z]{42}";

}  // namespace

TEST(Run, HasTheStatusOfItsCommand) {
  struct {
    const char *words;
    int status;
  } const rows[] = {
      {"-- true", 0},
      {"-- false", 1},
      {"-- sh -c 'exit 42'", 42},
      {"-- sh -c 'exit 255'", 255},
      {"-- no-such-command", 127},
      {"-- ./missing", 127},
      {"-- ''", 127},
      {"-- /etc/passwd", 126},
      {"-- /etc", 126},
      {"-- /etc/passwd/file", 127},
      {"-- vosk run -- sh -c 'exit 9'", 9},
      {"--stderr-tail -- sh -c 'exit 42'", 42},
      {"--stderr-tail=100 -- no-such-command", 127},
      {"--stderr-tail=1M --id-file id -- true", 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.words);
    EXPECT_EQ(script().run(std::string("vosk run ") + row.words).status, row.status);
    EXPECT_EQ(script().run(kWithStack + "vosk run " + row.words).status, row.status);
  }
}

TEST(Run, SaysOneHundredAndTwentyFiveWhereItDoesNotStartTheCommand) {
  for (const char *words :
       {"", "--", "touch started", "--no-such-option -- touch started", "touch -- touch started",
        "--cause nonsense -- touch started", "--id-file /no/such/file -- touch started",
        "--stderr-tail=0 -- touch started", "--stderr-tail=2M -- touch started", "--stderr-tail=x -- touch started",
        "--stderr-tail=99999999999999999999 -- touch started"}) {
    SCOPED_TRACE(words);
    script s;
    const tool::result r = s.run(kWithStack + "vosk run " + words);
    EXPECT_EQ(r.status, 125);
    EXPECT_THAT(r.err, StartsWith("vosk: "));
    EXPECT_FALSE(files::exists(s.directory() / "started"));
  }
  script no_process;
  EXPECT_EQ(no_process.run("exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ulimit -n 4; vosk run -- touch started").status,
            125);
  EXPECT_FALSE(files::exists(no_process.directory() / "started"));
  EXPECT_EQ(tool::run({"vosk", "run", "--help"}).status, 0);
}

TEST(Run, SaysAndRecordsNothingOfACommandThatSucceeds) {
  script s;
  const tool::result r =
      s.run(kWithStack + "echo old > id; vosk run --id-file id --stderr-tail -- sh -c 'echo a; echo b >&2'");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "a\n");
  EXPECT_EQ(r.err, "b\n");
  EXPECT_EQ(s.file("id", 0), "");
  EXPECT_THAT(files::list(sandbox::kStacks), testing::IsEmpty());
  EXPECT_THAT(files::list(sandbox::kDumps), testing::IsEmpty());
}

TEST(Run, RecordsAFailureForTheShell) {
  script s;
  const tool::result r = s.run(kWithStack +
                               "cause=$(vosk push 'the cause')\n"
                               "vosk run --cause \"$cause\" --id-file id -- sh -c 'exit 3'\n"
                               "echo $$ $cause > shell");
  ASSERT_THAT(r.err, MatchesRegex("vosk: sh: exit status 3; recorded as " + kIdentifier + "\n"));
  const std::string eid = r.err.substr(r.err.size() - 43, 42);
  EXPECT_EQ(s.file("id"), eid + "\n");
  const auto records = scripts::records();
  ASSERT_EQ(records.size(), 2u);
  const auto &record = records[1];
  EXPECT_EQ(record["identifier"], eid);
  EXPECT_EQ(std::to_string(record["pid"].number()) + " " + record["associated"].text() + "\n", s.file("shell"));
  EXPECT_EQ(record["process"], "job");
  EXPECT_THAT(
      record["description"].text(),
      MatchesRegex("sh -c 'exit 3': exit status 3 after 0\\.[0-9]+ s \\(0\\.[0-9]+ s user, 0\\.[0-9]+ s system, "
                   "[0-9]+ KiB\\)"));
  const std::string detail = record["detail"];
  EXPECT_THAT(detail, StartsWith("command: sh -c 'exit 3'\ndirectory: " + s.directory().path() +
                                 "\nresult: exit status 3\nstarted: 20"));
  for (const char *part :
       {"\nended: 20", "\nelapsed: 0.", "\ncpu: 0.", " KiB at most\n", "\nfaults: ", "\nblocks: ", "\nswitches: "})
    EXPECT_THAT(detail, HasSubstr(part));
}

TEST(Run, RecordsWhatEndedTheCommand) {
  struct {
    const char *words, *text, *description;
  } const rows[] = {
      {"sh -c 'kill -SEGV $$'", "sh: killed by signal 11 (SIGSEGV)", "killed by signal 11 (SIGSEGV) after "},
      {"sh -c 'kill -KILL $$'", "sh: killed by signal 9 (SIGKILL)", "killed by signal 9 (SIGKILL) after "},
      {"no-such-command", "no-such-command: cannot be started: No such file or directory",
       "no-such-command: cannot be started: No such file or directory"},
      {"/etc/passwd", "/etc/passwd: cannot be started: Permission denied", "cannot be started: Permission denied"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.words);
    ASSERT_EQ(sandbox::fresh(), "");
    const tool::result r = script().run(kWithStack + "vosk run -- " + row.words + "; :");
    EXPECT_THAT(r.err, HasSubstr(std::string("vosk: ") + row.text + "; recorded as "));
    const auto records = scripts::records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_THAT(records[0]["description"].text(), HasSubstr(row.description));
  }
}

TEST(Run, LeavesTheCommandLineAsItIs) {
  const tool::result r = script().run(kWithStack +
                                      "vosk run -- sh -c 'printf \"<%s>\" \"$@\"; exit 1' sh '[a,b]' '{}' '' -- --json "
                                      "'%s%n' \"a'b\" \"$(printf 'x\\033[2J\\ny')\" | cat -v");
  EXPECT_EQ(r.out, "<[a,b]><{}><><--><--json><%s%n><a'b><x^[[2J\ny>");
  const auto records = scripts::records();
  ASSERT_EQ(records.size(), 1u);
  const std::string arguments = R"(sh '[a,b]' '{}' '' -- --json %s%n 'a'\''b' 'x\x1b[2J\ny')";
  EXPECT_THAT(records[0]["description"].text(), HasSubstr(arguments + ": exit status 1 after"));
}

TEST(Run, CutsWhatDoesNotFitIntoARecordWithoutAWarning) {
  const tool::result r = script().run(kWithStack + "vosk run -- sh -c 'exit 1' $(seq 100000)");
  EXPECT_THAT(r.err, MatchesRegex("vosk: sh: exit status 1; recorded as " + kIdentifier + "\n"));
  const auto records = scripts::records();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_THAT(records[0]["description"].text(), HasSubstr("...: exit status 1 after"));
  EXPECT_THAT(records[0]["detail"].text(), HasSubstr("\nswitches: "));
}

TEST(Run, KeepsTheTailOfStandardError) {
  script s;
  const tool::result r =
      s.run(kWithStack + "vosk run --stderr-tail=8 -- sh -c 'printf 0123456789 >&2; echo abc >&2; exit 1'");
  EXPECT_THAT(r.err, MatchesRegex("0123456789abc\nvosk: sh: exit status 1; recorded as " + kIdentifier + "\n"));
  const auto records = scripts::records();
  ASSERT_EQ(records.size(), 1u);
  const std::string copy = records[0]["detail"];
  ASSERT_THAT(copy, StartsWith(std::string(sandbox::kDumps) + "/job."));
  EXPECT_THAT(*files::read(copy), StartsWith("command: sh -c 'printf"));
  EXPECT_THAT(*files::read(copy), testing::EndsWith("\n\nstandard error, the last 8 of 14 bytes:\n6789abc\n"));
}

TEST(Run, KeepsAllThatWasWrittenBeforeTheEndHoweverMuch) {
  script s;
  const tool::result r =
      s.run(kWithStack +
            "vosk run --stderr-tail=1M -- sh -c 'seq 200000 >&2; exit 1' 2>all; grep -v vosk: all | cmp - expected");
  const std::string copy = scripts::records().at(0)["detail"];
  std::string expected;
  for (int i = 1; i <= 200000; ++i) expected += std::to_string(i) + "\n";
  const std::string kept = *files::read(copy);
  EXPECT_THAT(kept,
              HasSubstr("\nstandard error, the last 1048576 of " + std::to_string(expected.size()) + " bytes:\n"));
  EXPECT_EQ(kept.substr(kept.size() - (1 << 20)), expected.substr(expected.size() - (1 << 20)));
  const std::string all = s.file("all");
  EXPECT_EQ(all.substr(0, expected.size()), expected);
  EXPECT_THAT(all.substr(expected.size()), StartsWith("vosk: sh: exit status 1; recorded as "));
}

TEST(Run, PutsTheTailIntoTheRecordWhereNoCopyCanBeKept) {
  ASSERT_EQ(rmdir(sandbox::kDumps), 0);
  const tool::result r = script().run(kWithStack + "vosk run --stderr-tail -- sh -c 'seq 1000 >&2; exit 1'");
  EXPECT_THAT(r.err, HasSubstr("recorded as "));
  const std::string detail = scripts::records().at(0)["detail"];
  EXPECT_THAT(detail, StartsWith("standard error, the last 256 of 3893 bytes:\n"));
  EXPECT_THAT(detail, testing::EndsWith("\n999\n1000\n"));
}

TEST(Run, PutsTheTailIntoTheRecordWhereNoFileCanBePutTogether) {
  const tool::result r =
      script().run(kWithStack +
                   "vosk push first >pushed\n"
                   "(ulimit -f 8; exec vosk run --stderr-tail -- sh -c 'seq 2000 >&2; exit 1') 2>&1 | cat");
  EXPECT_THAT(r.out, HasSubstr("\nvosk: cannot keep the details: File too large\n"));
  EXPECT_THAT(r.out, HasSubstr("\nvosk: sh: exit status 1; recorded as "));
  const auto records = scripts::records();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_THAT(records[1]["detail"].text(), StartsWith("standard error, the last 256 of 8893 bytes:\n"));
}

TEST(Run, NeitherWaitsForALateWriterNorKillsIt) {
  script s;
  const tool::result r = s.run(kWithStack +
                               "vosk run --stderr-tail -- sh -c "
                               "'(while [ ! -e go ]; do sleep 0.02; done; echo late >&2; echo $? > wrote) & exit 3'\n"
                               "echo $? > status; cat err > then; touch go");
  EXPECT_EQ(s.file("status"), "3\n");
  EXPECT_THAT(s.file("then"), MatchesRegex("vosk: sh: exit status 3; recorded as " + kIdentifier + "\n"));
  EXPECT_EQ(s.file("wrote"), "0\n");
  EXPECT_THAT(s.file("err", 2), testing::EndsWith("\nlate\n"));
}

TEST(Run, LetsAPipeEndWhereTheCommandClosesIt) {
  script s;
  // The reader sees the end while the command still runs.
  (void)s.run(
      "vosk run --stderr-tail -- sh -c 'exec >&-; while [ ! -e read ]; do sleep 0.02; done' | { cat; touch read; }");
  (void)s.run(
      "vosk run -- sh -c 'exec 5>&-; while [ ! -e read5 ]; do sleep 0.02; done' 5>&1 >/dev/null | { cat; touch read5; "
      "}");
  EXPECT_TRUE(files::exists(s.directory() / "read5"));
}

TEST(Run, HandsEveryDescriptorOnAsItIs) {
  script s;
  for (const char *around : {"", "<&-", ">&-", "<&- >&- 2>&-", "5</etc/passwd 9>nine", "</etc/passwd"}) {
    SCOPED_TRACE(around);
    const auto seen = [&](const std::string &how) {
      (void)s.run("rm -f seen; " + how + " sh -c 'ls -l /proc/$$/fd > seen' " + around);
      std::string text = s.file("seen", 0), links;
      for (std::size_t at = 0; (at = text.find(" -> ", at)) != std::string::npos; ++at) {
        const std::size_t start = text.rfind(' ', at - 1) + 1;
        links += text.substr(start, text.find('\n', at) - start) + "\n";
      }
      return links;
    };
    const std::string plain = seen("");
    EXPECT_NE(plain, "");
    EXPECT_EQ(seen("vosk run --"), plain);
  }
}

TEST(Run, HandsSignalDispositionsAndMaskOnAsTheyAre) {
  script s;
  for (const char *before : {"", "trap '' PIPE CHLD HUP TSTP USR1;", "trap '' INT QUIT TTIN TTOU;"}) {
    SCOPED_TRACE(before);
    const std::string look = "grep -E '^Sig(Blk|Ign|Cgt)' /proc/self/status";
    const std::string plain = s.run(before + look).out;
    EXPECT_EQ(s.run(before + ("vosk run -- " + look)).out, plain);
    EXPECT_EQ(s.run(before + ("vosk run --stderr-tail -- " + look)).out, plain);
  }
  // An ignored SIGCHLD does not take the status away.
  EXPECT_EQ(s.run("trap '' CHLD; vosk run -- sh -c 'exit 5'").status, 5);
}

TEST(Run, RunsTheCommandInItsOwnProcessGroupAndSession) {
  const tool::result r =
      script().run("ps() { cut -d' ' -f5,6 /proc/$1/stat; }; ps self; vosk run -- cut -d' ' -f5,6 /proc/self/stat");
  EXPECT_EQ(r.out.substr(0, r.out.size() / 2), r.out.substr(r.out.size() / 2));
}

TEST(Run, NeverChangesTheStatusForARecordThatFails) {
  const auto status = [](const std::string &before, const std::string &words) {
    return script().run(before + "vosk run " + words + " -- sh -c 'exit 7'").status;
  };
  sandbox::Options no_room, refused;
  no_room.size = "8k";
  refused.read_only = true;
  for (const char *words : {"", "--stderr-tail", "--id-file /dev/full", "--json"}) {
    SCOPED_TRACE(words);
    ASSERT_EQ(sandbox::fresh(), "");
    EXPECT_EQ(status("", words), 7);
    EXPECT_EQ(status("export VOSKSTACK=/etc/passwd VOSKORIG=$$ VOSKPID=$$ VOSKADDR=x VOSKPNAME=y;", words), 7);
    EXPECT_EQ(status("export VOSKSTACK=x;", words), 7);
    EXPECT_EQ(status("exec 2>&-;", words), 7);
    EXPECT_EQ(status("exec 2>/dev/full;", words), 7);
    EXPECT_EQ(status("ulimit -f 0;", words), 7);
    ASSERT_EQ(sandbox::fresh(no_room), "");
    EXPECT_EQ(status(kWithStack, words), 7);
    ASSERT_EQ(sandbox::fresh(refused), "");
    EXPECT_EQ(status(kWithStack, words), 7);
  }
}

TEST(Run, SaysWhereTheIdentifierCannotBeKept) {
  const tool::result r = script().run(kWithStack + "vosk run --id-file /dev/full -- false");
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(r.err, HasSubstr("vosk: cannot write the identifier: No space left on device\n"));
  EXPECT_EQ(scripts::records().size(), 1u);
}

TEST(Run, SaysThatARecordHasNoIdentifier) {
  const tool::result r = script().run(kWithStack + "VOSKADDR=short vosk run --id-file id -- false; test ! -s id");
  EXPECT_EQ(r.status, 0) << "the file stays empty";
  EXPECT_THAT(r.err, HasSubstr("vosk: false: exit status 1; recorded as (no identifier)\n"));
  EXPECT_EQ(scripts::records().size(), 1u);
}

TEST(Run, RecordsInADirectoryThatIsGone) {
  const tool::result r = script().run(kWithStack + "mkdir d; cd d; rmdir ../d; vosk run -- false");
  EXPECT_EQ(r.status, 1);
  EXPECT_THAT(std::string(scripts::records().at(0)["detail"]), HasSubstr("\ndirectory: ?\n"));
}

TEST(Run, CutsAnEndlessNameBetweenCharacters) {
  std::string name = "./x";
  for (int i = 0; i < 60; ++i) name += "\xc3\xa4";
  const tool::result r = script().run("vosk run -- " + name);
  EXPECT_EQ(r.status, 127);
  EXPECT_THAT(r.err, StartsWith("vosk: " + name.substr(0, 77) + "...: cannot be started: No such file"));
}

TEST(Run, PrintsJsonLinesAboutAFailure) {
  const tool::result r =
      script().run(kWithStack + "vosk run --json -- sh -c 'kill -TERM $$'; vosk run --json -- ./none; :");
  std::string printed = r.err;  // the shell tells of the signal, too
  for (std::size_t at; (at = printed.find("Terminated\n")) != std::string::npos;) printed.erase(at, 11);
  const auto lines = tool::json_lines(printed);
  ASSERT_EQ(lines.size(), 4u) << r.err;
  EXPECT_EQ(lines[0]["type"], "run");
  EXPECT_EQ(lines[0]["command"].dump(), R"(["sh","-c","kill -TERM $$"])");
  EXPECT_EQ(lines[0]["exit_status"], 143);
  EXPECT_EQ(lines[0]["signal"], 15);
  EXPECT_EQ(lines[0]["core"], false);
  EXPECT_GT(lines[0]["microseconds"].number(), 0);
  EXPECT_GT(lines[0]["max_resident_kib"].number(), 0);
  EXPECT_EQ(lines[1]["type"], "recording");
  EXPECT_EQ(lines[1]["identifier"], scripts::records().at(0)["identifier"]);
  EXPECT_EQ(lines[2]["exit_status"], 127);
  EXPECT_EQ(lines[2]["start_error"], "No such file or directory");
}
