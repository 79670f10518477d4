// vosk push: the records that shells make with it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "support/sandbox.h"
#include "tools/shells.h"
#include "tools/tool.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

namespace {

constexpr char kIdentifier[] = "[./0-9A-Za-z]{42}\n";
constexpr char kBegin[] = "eval \"$(vosk env create --name s $$)\" || exit 99\n";

class Push : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (const std::string missing = shells::missing(); !missing.empty()) CANNOT_RUN_HERE(missing);
  }
  // In a shell that has an Error Stack.
  static shells::result run(const std::string &script, const std::map<std::string, std::string> &variables = {}) {
    return shells::run(GetParam(), kBegin + script, variables);
  }
};
INSTANTIATE_TEST_SUITE_P(Shells, Push, testing::ValuesIn(shells::kAll), [](const auto &shell) { return shell.param; });

// The records of all stacks, by their description.
std::map<std::string, tool::json> records() {
  std::map<std::string, tool::json> all;
  const tool::result r = tool::run({"vosk", "report", "--json"});
  EXPECT_EQ(r.status, 0) << r.err;
  for (const tool::json &line : tool::json_lines(r.out))
    if (line["type"] == "record") {
      EXPECT_TRUE(all.emplace(line["description"], line).second) << line["description"] << " is there twice";
    }
  return all;
}

enum class who { shell, other, either };  // whose process id the record has

// A form in which a shell can call the tool; what it records is the form's name.
struct form {
  const char *name;
  who process;
  std::string script;
  bool for_dash = true;
};
const form kForms[] = {
    {"plain", who::shell, "vosk push plain"},
    {"substitution", who::shell, "id=$(vosk push substitution); echo $id"},
    {"backquotes", who::shell, "id=`vosk push backquotes`; echo $id"},
    {"redirection", who::either, "id=$(vosk push redirection 2>\"$D/err\"); echo $id"},
    {"group", who::shell, "{ vosk push group; }"},
    {"subshell", who::either, "(vosk push subshell)"},
    {"long subshell", who::other, "(:; vosk push 'long subshell'; :)"},
    {"nested subshell", who::other, "(:; (:; vosk push 'nested subshell'; :); :)"},
    {"pipe to", who::either, "echo x | vosk push 'pipe to' --detail-file -"},
    {"pipe from", who::either, "vosk push 'pipe from' | cat"},
    {"condition", who::shell, "if vosk push condition; then :; fi"},
    {"negation", who::shell, "! vosk push negation || :"},
    {"or", who::shell, "false || vosk push or"},
    {"function", who::shell, "f() { vosk push \"$1\"; }; f function"},
    {"function's output", who::either, "g() { vosk push \"$1\"; }; id=$(g \"function's output\"); echo $id"},
    {"background", who::either, "vosk push background & wait"},
    {"background group", who::other, "{ :; vosk push 'background group'; :; } & wait"},
    {"for", who::shell, "for i in for; do vosk push $i; done"},
    {"while read", who::either, "echo 'while read' | while read line; do vosk push \"$line\"; done"},
    {"case", who::shell, "case x in x) vosk push case;; esac"},
    {"eval", who::shell, "eval 'vosk push eval'"},
    {"dot", who::shell, "echo 'vosk push dot' >\"$D/dot\"; . \"$D/dot\""},
    {"environment", who::shell, "X=1 vosk push environment"},
    {"command", who::shell, "command vosk push command"},
    {"env", who::either, "env X=1 vosk push env"},
    {"nice", who::either, "nice -n 1 vosk push nice"},
    {"timeout", who::other, "timeout 20 vosk push timeout"},
    {"xargs", who::other, "echo xargs | xargs vosk push"},
    {"xargs at once", who::other, "printf 'one\\ntwo\\n' | xargs -n 1 -P 2 vosk push 'xargs at once' --detail"},
    {"find", who::other, "find \"$D\" -name script.sh -exec vosk push find ';'"},
    {"setsid", who::either, "setsid -w vosk push setsid"},
    {"nohup", who::either, "nohup vosk push nohup"},
    {"another shell", who::other, "sh -c ':; vosk push \"another shell\"; :'"},
    {"exec", who::either, "(exec vosk push exec)"},
    {"EXIT", who::other, "(:; trap 'vosk push EXIT' EXIT; :)"},
    {"here document", who::shell, "{ vosk push 'here document' --detail-file - <<.\ntext\n.\n}"},
    {"ERR", who::shell, "trap 'vosk push ERR' ERR; false; trap - ERR", false},
    {"process substitution", who::either, "cat <(vosk push 'process substitution')", false},
    {"file of a substitution", who::shell, "vosk push 'file of a substitution' --detail-file <(echo x)", false},
};

TEST_P(Push, RecordsInEveryFormOfTheShell) {
  std::string script;
  std::vector<const form *> tried;
  for (const form &one : kForms)
    if (one.for_dash || GetParam() != "dash") {
      script += one.script + " >\"$D/out\" || echo failed\ncat \"$D/out\"\n";
      tried.push_back(&one);
    }
  ASSERT_GE(tried.size(), 25u);
  const auto r = run("echo $$\n" + script);
  EXPECT_EQ(r.err, "");
  std::istringstream lines(r.out);
  std::string shell_id, line;
  std::getline(lines, shell_id);
  std::set<std::string> printed;
  while (std::getline(lines, line)) {
    EXPECT_THAT(line + "\n", MatchesRegex(kIdentifier));
    EXPECT_TRUE(printed.insert(line).second) << line;
  }
  EXPECT_EQ(printed.size(), tried.size() + 1);

  std::map<std::string, std::vector<tool::json>> found;
  const tool::result report = tool::run({"vosk", "report", "--json"});
  EXPECT_EQ(report.status, 0) << report.err;
  for (const tool::json &record : tool::json_lines(report.out))
    if (record["type"] == "record") found[record["description"]].push_back(record);
  for (const form *one : tried) {
    SCOPED_TRACE(one->name);
    ASSERT_EQ(found[one->name].size(), one->name == std::string("xargs at once") ? 2u : 1u);
    for (const tool::json &record : found[one->name]) {
      EXPECT_TRUE(printed.contains(record["identifier"]));
      EXPECT_THAT(std::string(record["file"]), HasSubstr("/s." + shell_id + "."));
      EXPECT_EQ(record["source"], "script.sh");
      const bool own = record["pid"] == std::stoi(shell_id);
      if (one->process != who::either) {
        EXPECT_EQ(own, one->process == who::shell);
      }
      EXPECT_EQ(record["parent"], own ? 0 : record["pid"].number());
      EXPECT_THAT(std::string(record["detail"]), Not(IsEmpty()));
    }
  }
  EXPECT_EQ(found["long subshell"][0]["process"], "s") << "a subshell has its shell's name";
  EXPECT_EQ(found["timeout"][0]["process"], "timeout");
  EXPECT_EQ(tool::run({"vosk", "verify"}).status, 0);
}

TEST_P(Push, PrintsTheIdentifierAndRaisesNoAttention) {
  const auto r = run("vosk push 'the backup failed'");
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.out, MatchesRegex(kIdentifier));
  EXPECT_EQ(r.err, "");
  const auto record = records().at("the backup failed");
  EXPECT_EQ(record["process"], "s");
  EXPECT_EQ(record["product"], "scripts");
  EXPECT_EQ(record["source"], "script.sh");
  EXPECT_EQ(record["version"], "unversioned");
  EXPECT_THAT(std::string(record["detail"]), MatchesRegex("user .*, directory /.*"));
  // Empty ones are as good as none, as where a shell has no LINENO.
  const auto empty = run("vosk push --line= --cause= --detail= --source= --product= --resource= 'empty ones'");
  EXPECT_EQ(empty.err, "");
  EXPECT_EQ(records().at("empty ones")["line"], 1);
}

// Dash has no LINENO.
TEST_P(Push, RecordsByTheExamplesOfItsHelpInEveryShell) {
  const std::string help = tool::run({"vosk", "push", "--help"}).out;
  std::istringstream lines(help.substr(help.find("\nExamples:\n") + 11));
  std::string script = "file=orders why=missing message=-lost; make() { echo made; }\n", line;
  while (std::getline(lines, line) && line.starts_with("  "))
    script += line.substr(0, line.find("    in the System Log")) + "\n";
  const auto r = run(script);
  EXPECT_EQ(r.status, 0) << script;
  EXPECT_EQ(r.err, "");
  auto all = records();
  for (const char *text :
       {"cannot copy orders", "the backup failed", "the build failed", "cannot read orders: missing", "-lost"})
    EXPECT_TRUE(all.contains(text)) << text;
  EXPECT_EQ(all["the backup failed"]["associated"], all["cannot copy orders"]["identifier"]);
}

TEST_P(Push, LeavesAnEqualsSignInAValueAsItIs) {
  const auto r =
      run("vosk push --detail=Zm9vYg== joined && vosk push --detail --source= apart &&"
          " vosk push --detail -- --resource= dashes && vosk push --format='<%s> %s' --arg=a== --arg --b=");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  auto all = records();
  EXPECT_EQ(all["joined"]["detail"], "Zm9vYg==");
  EXPECT_EQ(all["apart"]["detail"], "--source=");
  EXPECT_EQ(all["dashes"]["detail"], "--");
  EXPECT_TRUE(all.contains("<a==> --b="));
  EXPECT_EQ(run("vosk push --detail=Zm9vYg==").status, 2);
}

TEST_P(Push, TakesEveryField) {
  const auto r =
      run("cause=$(vosk push first)\n"
          "vosk push --cause \"$cause\" --source s.sh --source-version 2.5 --line 17 --product p --resource r "
          "--catalogue c.cat --msg 3/4 --detail 'more of it' second\n"
          "vosk push --cause \"$cause\" --detail-file \"$D/script.sh\" third");
  EXPECT_EQ(r.status, 0) << r.err;
  auto all = records();
  const auto second = all["second"], third = all["third"];
  EXPECT_EQ(second["associated"], all["first"]["identifier"]);
  EXPECT_EQ(second["source"], "s.sh");
  EXPECT_EQ(second["version"], "2.5");
  EXPECT_EQ(second["line"], 17);
  EXPECT_EQ(second["catalogue"], "c.cat");
  EXPECT_EQ(second["set"], 3);
  EXPECT_EQ(second["number"], 4);
  EXPECT_EQ(second["product"], "p");
  EXPECT_EQ(second["detail"], "more of it");
  EXPECT_THAT(std::string(third["detail"]), testing::StartsWith("/var/adm/vosk/dumps/s."));
  EXPECT_THAT(tool::run({"vosk", "detail", third["identifier"]}).out, HasSubstr("--product p"));
}

TEST_P(Push, KeepsWhatPipesAndDevicesHold) {
  const auto r =
      run("echo from a pipe | vosk push --detail-file - pipe\n"
          "cd \"$D\"; echo planted >-\n"
          "vosk push --detail-file - 'closed' <&-; echo $?\n"
          "mkfifo \"$D/fifo\"; echo from a fifo >\"$D/fifo\" & vosk push --detail-file \"$D/fifo\" fifo; wait\n"
          "vosk push --detail-file /dev/null null\n"
          "vosk push --detail-file \"$VOSKSTACK\" 'the stack itself'\n"
          "ulimit -S -f 64; head -c 100000 /dev/zero | vosk push --detail-file - 'too large'; echo $?\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(r.err, AllOf(HasSubstr("recorded (32)"), HasSubstr("cannot keep the details: File too large")));
  auto all = records();
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", "-", all["pipe"]["identifier"]}).out, "from a pipe\n");
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", "-", all["fifo"]["identifier"]}).out, "from a fifo\n");
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", "-", all["null"]["identifier"]}).out, "");
  EXPECT_THAT(tool::run({"vosk", "detail", "-o", "-", all["closed"]["identifier"]}).out, Not(HasSubstr("planted")));
  EXPECT_TRUE(all.contains("the stack itself"));
  EXPECT_TRUE(all.contains("too large"));
}

TEST_P(Push, RecordsWhereNothingCanBePrinted) {
  const auto r = run("vosk push first >&-; echo $?; vosk push second >/dev/full; echo $?");
  EXPECT_EQ(r.out, "0\n0\n");
  EXPECT_THAT(r.err, HasSubstr("cannot write the output"));
  EXPECT_EQ(records().size(), 2u);
}

TEST_P(Push, PrintsTheLastAttentionInALineAndInFullWhenAsked) {
  const auto r = run("vosk push ''; echo $?");
  EXPECT_THAT(r.out, EndsWith("\n0\n"));
  EXPECT_THAT(r.err, MatchesRegex("vosk: recorded \\(30\\): libqx_vosk.a Attention: [^\n]*\\.\n"));
  const auto whole = run("vosk push -v ''");
  EXPECT_THAT(whole.err, AllOf(HasSubstr("recorded (30): libqx_vosk.a Attention: "),
                               EndsWith("limits the usefulness of the entry to the system administrator.\n\n")));
  EXPECT_THAT(run("vosk push --detail-file /missing m").err, HasSubstr("recorded (32)"));
  EXPECT_THAT(run("vosk push --format %s --arg " + std::string(65, 'a')).err, HasSubstr("argument 1 is kept to"));
}

TEST_P(Push, LeavesAnOwnerThatIsNoAncestorToTheLibrary) {
  const char *const strangers[] = {"VOSKPID=2000000000", "VOSKPID=nobody", "VOSKPID=0"};
  for (const char *const stranger : strangers) {
    const auto r = run(std::string("export ") + stranger + "; vosk push m; echo $?");
    EXPECT_EQ(r.out, "1\n");
    EXPECT_THAT(r.err, AllOf(HasSubstr("not recorded (15): libqx_vosk.a Status: An VOSK Environment does not exist"),
                             HasSubstr("--road=auto")));
  }
  // A process that was above this one and is gone.
  const auto orphan =
      run("(:; eval \"$(vosk env inherit $(exec sh -c 'echo $PPID'))\"; vosk env show) >/dev/null\n"
          "dead=$(sh -c 'echo $$'); VOSKPID=$dead vosk push m; echo $?");
  EXPECT_EQ(orphan.out, "1\n");
}

TEST_P(Push, InASubshellHasTheShellsNameUnlessThereIsNone) {
  const auto r = run("(:; vosk push named; :); unset VOSKPNAME; (:; vosk push unnamed; :)");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(records().at("named")["process"], "s");
  EXPECT_EQ(records().at("unnamed")["process"], GetParam());
}

TEST_P(Push, SaysWhyNothingWasRecorded) {
  const struct {
    int code;
    const char *script, *text;
  } rows[] = {
      {15, "unset VOSKSTACK VOSKORIG VOSKPID VOSKADDR VOSKPNAME;", "An VOSK Environment does not exist"},
      {17, "unset VOSKADDR;", "2615-006"},
      {19, "rmdir /var/adm/vosk/stacks;", "2615-010"},
      {24, "head -c 16384 /dev/zero | tr '\\0' x >$VOSKSTACK;", "2615-022"},
      {25, "mkdir $VOSKSTACK;", "2615-015"},
      {42, "export VOSKSDISABLE=; timeout 9", "2615-025"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.code);
    sandbox::fresh();
    const auto r = run(std::string(row.script) + " vosk push m; echo $?");
    EXPECT_EQ(r.out, "1\n");
    EXPECT_THAT(r.err, AllOf(HasSubstr("not recorded (" + std::to_string(row.code) + "): "), HasSubstr(row.text),
                             HasSubstr("--road=auto")));
  }
}

TEST_P(Push, RefusesFormatsThatAreNotForStrings) {
  const char *const rows[] = {"--format %d --arg 1",
                              "--format '%*s' --arg 1",
                              "--format '%2$s' --arg 1 --arg 2",
                              "--format %s",
                              "--format x --arg 1",
                              "--format %",
                              "--format '% s' --arg 1",
                              "--format %ls --arg 1",
                              "--format '%s %1$s' --arg 1",
                              "--format %n",
                              "--format %m",
                              "--format '%.*s' --arg 1",
                              "--format %c --arg 1",
                              "--arg 1 m",
                              "--format m m",
                              "",
                              "--format '%99999999999s' --arg 1",
                              "--format %s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s $(seq --format='--arg %.0f' 17)",
                              "--cause x m",
                              "--cause \"$(printf '%042d' 9 | tr 0 ' ')\" m",
                              "--line 0 m",
                              "--line x m",
                              "--line -1 m",
                              "--line 99999999999 m",
                              "--msg 1 --catalogue c m",
                              "--msg 1/x --catalogue c m",
                              "--msg 1/1 m",
                              "--msg -1/1 --catalogue c m",
                              "--type bad m",
                              "--template xyz m",
                              "--road bad m",
                              "--detail d --detail-file f m",
                              "--bogus m",
                              "m n"};
  std::string script;
  for (const char *const row : rows) script += std::string("vosk push ") + row + " >>\"$D/out\"; echo $?\n";
  // zsh does not split the words of a substitution.
  const auto r =
      run((GetParam() == "zsh" ? "setopt shwordsplit\n" : "") + script + "cat \"$D/out\"; vosk report 2>/dev/null");
  std::string expected;
  for (std::size_t i = 0; i < std::size(rows); ++i) expected += "2\n";
  EXPECT_EQ(r.out, expected + "-- no record to show\n") << r.err;
}

// An Error Stack of this process.
std::map<std::string, std::string> own_environment() {
  std::map<std::string, std::string> environment;
  const std::string id = std::to_string(getpid());
  const auto made = tool::json_lines(tool::run({"vosk", "env", "create", "--json", id}).out).at(0)["variables"];
  for (const auto &[name, value] : made.members()) environment[name] = value;
  return environment;
}

TEST(PushTool, TakesMessagesAsTheyAre) {
  if (const std::string missing = shells::missing(); !missing.empty()) CANNOT_RUN_HERE(missing);
  const struct {
    std::vector<std::string> words;
    std::string description;
  } rows[] = {
      {{"100% sure %n %s %1$s %m %"}, "100% sure %n %s %1$s %m %"},
      {{"%%"}, "%%"},
      {{"[a,b]"}, "[a,b]"},
      {{"{a}"}, "{a}"},
      {{"'quoted' \"twice\""}, "'quoted' \"twice\""},
      {{"back\\slash\\n"}, "back\\slash\\n"},
      {{"two\nlines\n"}, "two\nlines\n"},
      {{" "}, " "},
      {{"-5 degrees"}, "-5 degrees"},
      {{"--", "--detail"}, "--detail"},
      {{"a=b"}, "a=b"},
      {{"--format=%2$s %1$-4s|%%", "--arg", "a", "--arg=b"}, "b a   |%"},
      {{"--format", "%.2s", "--arg", "%%%%"}, "%%"},
      {{"--format", "%5s|%-5s|%s", "--arg", "-x", "--arg=", "--arg", "[1,2]"}, "   -x|     |[1,2]"},
      {{"--format", ""}, ""},
      {{"--format", "%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s%s",
        "--arg",    "1",
        "--arg",    "2",
        "--arg",    "3",
        "--arg",    "4",
        "--arg",    "5",
        "--arg",    "6",
        "--arg",    "7",
        "--arg",    "8",
        "--arg",    "9",
        "--arg",    "a",
        "--arg",    "b",
        "--arg",    "c",
        "--arg",    "d",
        "--arg",    "e",
        "--arg",    "f",
        "--arg",    "g"},
       "123456789abcdefg"},
  };
  const std::map<std::string, std::string> environment = own_environment();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.description);
    std::vector<std::string> command{"vosk", "push"};
    command.insert(command.end(), row.words.begin(), row.words.end());
    const tool::result pushed = tool::run(command, tool::options::with(environment));
    EXPECT_EQ(pushed.status, 0) << pushed.err;
    ASSERT_THAT(pushed.out, MatchesRegex(kIdentifier));
    const tool::result shown = tool::run({"vosk", "show", "--json", pushed.out.substr(0, 42)});
    EXPECT_EQ(tool::json_lines(shown.out).back()["description"], row.description) << shown.out;
  }
}

TEST(PushTool, RefusesNumbersOutsideTheirRange) {
  const char *const number = " is no number in its range", *const message = "--msg is SET/NUMBER";
  const struct {
    const char *option, *says;
  } rows[] = {{"--msg=-1/2", "--msg is SET/NUMBER, both 0 or more"},
              {"--msg=1/-2", "--msg is SET/NUMBER, both 0 or more"},
              {"--msg=1", message},
              {"--msg=/", number},
              {"--msg=1/2x", number},
              {"--line=0", "--line is a number from 1 on"},
              {"--line=-1", "--line is a number from 1 on"},
              {"--line=99999999999", number},
              {"--line=x", number},
              {"--line=1x", number},
              {"--template=2ag", number}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.option);
    const tool::result r = tool::run({"vosk", "push", "--catalogue=c", row.option, "m"});
    EXPECT_EQ(r.status, 2);
    EXPECT_THAT(r.err, HasSubstr(row.says));
  }
}

TEST(PushTool, CutsALongMessageAndLeavesItToTheLibraryToSayThat) {
  const tool::result r = tool::run({"vosk", "push", std::string(2000, 'x')}, tool::options::with(own_environment()));
  EXPECT_EQ(r.status, 0);
  EXPECT_THAT(r.err, AllOf(HasSubstr("vosk: recorded (44)"), Not(HasSubstr("the message is cut"))));
}

TEST(PushTool, IsAVerbOfOneProgramOnly) {
  const tool::result r = tool::run({"vkstkrpt", "push"});
  EXPECT_EQ(r.status, 4);
  EXPECT_THAT(r.err, HasSubstr("push: No such file or directory"));
}

TEST(PushTool, NamesTheScriptOfFifteenProcessesAboveAtMost) {
  // A shell below another, so many times; the last one records.
  const std::string nest = "export N='[ $1 = 0 ] && vosk push \"below $2\" || sh -c \"$N\" - $(($1 - 1)) $2; :'\n";
  const auto r = shells::run("dash", kBegin + nest + "for n in 14 15; do sh -c \"$N\" - $n $n; done");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(records().at("below 14")["source"], "script.sh");
  EXPECT_EQ(records().at("below 15")["source"], "sh");
}

TEST(PushTool, KeepsTheFirstSixteenMiBOfDetails) {
  constexpr std::size_t kMost = 16 << 20;
  sandbox::Options room;
  room.size = "64m";
  ASSERT_EQ(sandbox::fresh(room), "");
  for (const std::size_t size : {kMost, kMost + 1}) {
    ASSERT_EQ(sandbox::fresh(room), "");
    tool::options how = tool::options::with(own_environment());
    how.input.assign(size, 'd');
    const tool::result r = tool::run({"vosk", "push", "--detail-file", "-", "m"}, how);
    EXPECT_EQ(r.status, 0) << r.err;
    const auto copies = files::list(sandbox::kDumps);
    ASSERT_EQ(copies.size(), 1u);
    EXPECT_EQ(files::read(std::string(sandbox::kDumps) + "/" + copies[0])->size(), kMost);
    EXPECT_EQ(r.err.find("kept to their first 16 MiB") != std::string::npos, size > kMost) << r.err;
  }
}

TEST(PushTool, RecordsWithoutDetailsThatCannotBeRead) {
  files::TemporaryDirectory dir;
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0), 0);
  tool::options how = tool::options::with(own_environment());
  how.powerless = true;
  for (const std::string &name : {dir / "fifo", dir.path()}) {
    SCOPED_TRACE(name);
    const tool::result r = tool::run({"vosk", "push", "--detail-file", name, "m"}, how);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_THAT(r.err, HasSubstr("recorded (32)"));
  }
  const shells::result closed = shells::run("dash", std::string(kBegin) + "vosk push m --detail-file - <&-");
  EXPECT_EQ(closed.status, 0);
  EXPECT_THAT(closed.err, AllOf(HasSubstr("cannot read the details"), HasSubstr("recorded (32)")));
}

TEST(PushTool, NamesTheScriptOfAnyInterpreter) {
  const auto r = shells::run("dash", std::string(kBegin) +
                                         "printf '#!/usr/bin/awk -f\nBEGIN { system(\"vosk push interpreted\") }\n' "
                                         ">\"$D/tool.awk\"\nchmod +x \"$D/tool.awk\"\n\"$D/tool.awk\"");
  EXPECT_THAT(r.out, MatchesRegex(kIdentifier)) << r.err;
  EXPECT_EQ(records().at("interpreted")["source"], "tool.awk");
}

// What the shell says of the processes has been tried above; here the parent is this test.
TEST(PushTool, AnswersInJson) {
  const tool::result refused = tool::run({"vosk", "push", "--json", "m"});
  EXPECT_EQ(refused.status, 1);
  const auto line = tool::json_lines(refused.out).at(0);
  EXPECT_EQ(line["type"], "recording");
  EXPECT_EQ(line["recorded"], false);
  EXPECT_EQ(line["road"], "stack");
  EXPECT_EQ(line["code"], 15);
  EXPECT_TRUE(line["identifier"].is_null());
  EXPECT_THAT(std::string(line["text"]), HasSubstr("does not exist"));
}

}  // namespace
