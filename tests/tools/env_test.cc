// vosk env: what shells get from it, in every way in which they can ask.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "support/sandbox.h"
#include "tools/shells.h"
#include "tools/tool.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

class Env : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (const std::string missing = shells::missing(); !missing.empty()) CANNOT_RUN_HERE(missing);
  }
  static shells::result run(const std::string &script, const std::map<std::string, std::string> &variables = {}) {
    return shells::run(GetParam(), script, variables);
  }
};
INSTANTIATE_TEST_SUITE_P(Shells, Env, testing::ValuesIn(shells::kAll), [](const auto &shell) { return shell.param; });

// A complete environment of a process of its own.
std::map<std::string, std::string> environment(const std::string &owner) {
  return {{"VOSKSTACK", "/var/adm/vosk/stacks/other.1.20261121.000000"},
          {"VOSKORIG", "1"},
          {"VOSKPID", owner},
          {"VOSKADDR", ".XO.8...................."},
          {"VOSKPNAME", "other"}};
}

std::vector<std::string> words(const tool::result &r) {
  std::vector<std::string> all;
  std::istringstream lines(r.out);
  for (std::string line; std::getline(lines, line);) all.push_back(line);
  return all;
}

TEST_P(Env, GivesTheShellAnEnvironmentAndItsProgramsInheritIt) {
  const auto r =
      run("eval \"$(vosk env create $$)\" || exit\n"
          "echo \"$VOSKPID $VOSKORIG\" | sed \"s/$$/OWN/g\"\n"
          "echo \"$VOSKPNAME ${VOSKADDR:+address} $VOSKRECLAIM\"\n"
          "echo \"$VOSKSTACK\" | sed \"s/$$/OWN/\"\n"
          "sh -c 'eval \"$(vosk env inherit --name child $$)\"; test $VOSKPID = $$; echo $? $VOSKPNAME'\n");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_THAT(r.out, testing::MatchesRegex("OWN OWN\n" + GetParam() + " address \n/var/adm/vosk/stacks/" + GetParam() +
                                           "\\.OWN\\.[0-9]{8}\\.[0-9]{6}\n0 child\n"));
}

TEST_P(Env, KeepsTheNewestRecordsWhereThatIsWanted) {
  EXPECT_EQ(run("eval \"$(vosk env create --keep-newest $$)\"; echo $VOSKRECLAIM").out, "whole\n");
  EXPECT_EQ(run("eval \"$(vosk env create $$)\"; echo \"[$VOSKRECLAIM]\"").out, "[]\n");
}

TEST_P(Env, PreparesTheSystemLogAlone) {
  const auto r = run("eval \"$(vosk env log --name l $$)\"; echo $? \"${VOSKPNAME}[$VOSKSTACK$VOSKPID]${#VOSKADDR}\"");
  EXPECT_EQ(r.out, "0 l[]25\n");
}

TEST_P(Env, TakesAnyNameAndNeverMoreThanAName) {
  const struct {
    std::string name, taken;
  } rows[] = {{"it's", "it's"},
              {"a;b&c|d", "a;b&c|d"},
              {"$(touch $D/made)", "$(touch $D_made)"},
              {"`touch made`", "`touch made`"},
              {"'; touch $D/made; '", "'; touch $D_made; '"},
              {"two\nlines", "two_lines"},
              {"a/b", "a_b"},
              {"..", ".."},
              {"\x1b[31m", "_[31m"},
              {"\xc2\x9b", "_"},
              {"\xff\xfe", "\xff\xfe"},
              {"-n", "-n"},
              {"%s%n", "%s%n"},
              {" ", " "},
              {"''", "''"},
              {"\"\\", "\"\\"},
              {"*", "*"},
              {"!x#~", "!x#~"},
              {"\xc3\xbc", "\xc3\xbc"},
              {std::string(228, 'n'), std::string(228, 'n')}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const auto r =
        run("eval \"$(vosk env create --name \"$NAME\" $$)\" || exit\n"
            "printf '%s|%s' \"$VOSKPNAME\" \"${VOSKSTACK%.$$.*}\"\n"
            "vosk push message >/dev/null || exit\n"
            "test -e \"$D/made\" || test -e made || exit 0; exit 9",
            {{"NAME", row.name}});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, row.taken + "|/var/adm/vosk/stacks/" + row.taken);
  }
}

TEST_P(Env, TakesTheCommandsNameWithoutOne) {
  EXPECT_EQ(run("eval \"$(vosk env create --name= $$)\"; echo $VOSKPNAME").out, GetParam() + "\n");
  const auto r =
      run("cp \"$D/script.sh\" /dev/null; printf '#!%s\\neval \"$(vosk env create $$)\"; echo $VOSKPNAME\\n' "
          "\"$(command -v " +
          GetParam() + ")\" >\"$D/nightly run\"; chmod +x \"$D/nightly run\"; \"$D/nightly run\"");
  EXPECT_EQ(r.out, "nightly run\n") << r.err;
}

TEST_P(Env, WorksWhereverAShellEvaluatesIt) {
  const struct {
    const char *name, *script;
    bool for_dash = true;
  } rows[] = {
      {"with a redirection", "eval \"$(vosk env create $$ 2>\"$D/err\")\"; show"},
      {"with every stream", "eval \"$(vosk env create $$ </dev/null 2>&1)\"; show"},
      {"in a function", "f() { eval \"$(vosk env create $$)\"; }; f; show"},
      {"in backquotes", "eval \"`vosk env create $$`\"; show"},
      {"through a variable", "text=$(vosk env create $$) && eval \"$text\"; show"},
      {"strictly", "set -eu; eval \"$(vosk env create $$)\"; show"},
      {"with noclobber and noglob", "set -Cf; eval \"$(vosk env create $$)\"; show"},
      {"in a subshell for it", "(eval \"$(vosk env create $$)\"; show)"},
      {"with other fields", "IFS=/; eval \"$(vosk env create $$)\"; IFS=' '; show"},
      {"at the end", "trap 'eval \"$(vosk env create $$)\"; show' EXIT"},
      {"after a failure", "trap 'eval \"$(vosk env create $$)\"; show' ERR; false; trap - ERR", false},
      {"in a loop", "for i in 1; do eval \"$(vosk env create $$)\"; done; show"},
      {"in a condition", "if eval \"$(vosk env create $$)\"; then show; fi"},
      {"without an output to spare", "eval \"$(vosk env create $$ 2>&-)\"; show"},
      {"where no file can grow", "eval \"$(ulimit -f 0; vosk env create $$)\"; show"},
      {"without any input", "eval \"$(vosk env create $$ <&-)\"; show"},
  };
  for (const auto &row : rows) {
    if (!row.for_dash && GetParam() == "dash") continue;
    SCOPED_TRACE(row.name);
    const auto r =
        run(std::string("show() { test \"$VOSKPID\" = $$ && vosk env show >/dev/null && echo good; }\n") + row.script);
    EXPECT_EQ(r.out, "good\n") << r.err;
  }
}

// Which of these substitutions run in a process between the shell and the tool differs from shell to shell.
TEST_P(Env, WithoutAProcessIdEitherMeansTheShellOrRefuses) {
  const char *const rows[] = {
      "eval \"$(vosk env create)\"",
      "eval \"$(vosk env create 2>\"$D/err\")\"",
      "eval \"$(vosk env create </dev/null)\"",
      "eval \"$(:; vosk env create)\"",
      "eval \"$(vosk env create; :)\"",
      "eval \"$(vosk env create | cat)\"",
      "eval \"$( (vosk env create) )\"",
      "eval \"$({ vosk env create; })\"",
      "eval \"$(X=1 vosk env create)\"",
      "eval \"$(exec vosk env create)\"",
      "eval \"`vosk env create`\"",
      "eval \"$(if :; then vosk env create; fi)\"",
      "f() { eval \"$(vosk env create)\"; }; f",
      "f() { vosk env create; }; eval \"$(f)\"",
      "eval \"$(timeout 9 vosk env create)\"",
      "eval \"$(nice vosk env create)\"",
      "trap : EXIT; eval \"$(vosk env create)\"",
      "text=$(vosk env create); eval \"$text\"",
  };
  int meant = 0;
  for (const char *const row : rows) {
    SCOPED_TRACE(row);
    const auto r = run(std::string(row) +
                       "\ns=$?; if test \"$VOSKPID\" = $$; then echo mine $s; else echo "
                       "\"other[$VOSKPID$VOSKSTACK]\" $s; fi");
    EXPECT_THAT(r.out, testing::AnyOf("mine 0\n", "other[] 2\n")) << r.err;
    meant += r.out == "mine 0\n";
  }
  EXPECT_GE(meant, 4);
}

// Addresses do not tell a shell from the one that started it where they are not random.
TEST_P(Env, TellsAShellFromASubshellAtTheSameAddresses) {
  if (run("setarch -R true").status != 0) CANNOT_RUN_HERE("setarch may not fix addresses");
  const auto r = run("setarch -R " + GetParam() + " -c ':; " + GetParam() +
                     " -c \"eval \\\"\\$(vosk env create)\\\"; test \\$VOSKPID = \\$\\$; echo \\$?\"; :'");
  EXPECT_EQ(r.out, "0\n") << r.err;
}

TEST_P(Env, FailsTheEvalWithTheLibrarysResultAndChangesNothing) {
  sandbox::fresh();
  const struct {
    int code;
    std::string command;
    std::map<std::string, std::string> variables;
    const char *text, *before = "";
  } rows[] = {
      {14, "create $$", environment("0"), "2615-005", "export VOSKPID=$$;"},
      {14, "inherit $$", environment("0"), "2615-005", "export VOSKPID=$$;"},
      {15, "inherit $$", {}, "2615-004"},
      {16, "create 2000000000", {}, "2615-008"},
      {16, "log 2000000000", {}, "2615-008"},
      {17, "create $$", {{"VOSKORIG", "7"}}, "2615-006"},
      {17, "inherit $$", {{"VOSKSTACK", "/x"}}, "2615-006"},
      {19, "create $$", {}, "2615-010", "rmdir /var/adm/vosk/stacks;"},
      {21,
       "create --name n $$",
       {},
       "2615-009",
       "now=$(date +%s); for s in 0 1 2 3 4; do\n"
       "  : >/var/adm/vosk/stacks/n.$$.$(date -d \"@$((now + s))\" +%Y%m%d.%H%M%S); done;"},
      {2, "create --bogus", {}, "--bogus"},
      {2, "create nobody", {}, "PID"},
      {2, "create 0", {}, "PID"},
      {2, "create 1 2", {}, "2"},
      {2, "", {}, "subcommand"},
      {2, "create --name " + std::string(229, 'n') + " $$", {}, "228"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.command);
    sandbox::fresh();
    const auto r = run(row.before + std::string("env | grep VOSK | sort >\"$D/before\"\n") + "eval \"$(vosk env " +
                           row.command + ")\"; echo $?\nenv | grep VOSK | sort | cmp - \"$D/before\" && echo same",
                       row.variables);
    EXPECT_EQ(r.out, std::to_string(row.code) + "\nsame\n");
    EXPECT_THAT(r.err, HasSubstr(row.text));
    EXPECT_THAT(run(row.before + std::string("set -e; eval \"$(vosk env ") + row.command + " 2>/dev/null)\"; echo on",
                    row.variables)
                    .status,
                row.code);
  }
}

TEST_P(Env, WithStacksDisabledPreparesTheSystemLogAndSaysSo) {
  const auto r = run("eval \"$(vosk env create --name n $$)\"; echo $? \"${VOSKPNAME}[$VOSKSTACK]${#VOSKADDR}\"",
                     {{"VOSKSDISABLE", ""}});
  EXPECT_EQ(r.out, "42 n[]25\n");
  EXPECT_THAT(r.err, HasSubstr("2615-025"));
}

TEST(EnvTool, NeedsAShellAboveItWhereNoProcessIsNamed) {
  const tool::result r = tool::run({"vosk", "env", "create"});
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "(exit 2)\n");
  EXPECT_THAT(r.err, HasSubstr("no shell"));
}

// One program that is many: what it is called is what it is.
TEST(EnvTool, KnowsAShellAmongTheAppletsOfOneProgram) {
  const struct {
    const char *name;
    int status;
  } rows[] = {{"sh", 0}, {"-ash", 0}, {"/bin/sh", 0}, {"vi", 2}, {"", 2}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const auto r =
        shells::run("bash", std::string("cp /bin/dash \"$D/busybox\"\nexec -a '") + row.name +
                                "' \"$D/busybox\" -c '" QX_BINARY_DIR "/bin/vosk env create >/dev/null; exit $?'");
    EXPECT_EQ(r.status, row.status) << r.err;
  }
}

TEST(EnvTool, GivesTheFirstProcessOfAContainerAnEnvironment) {
  const auto r = shells::run(
      "dash", "unshare --pid --fork --kill-child --propagation unchanged --mount-proc sh -c 'vosk env create; :'");
  if (r.err.find("unshare: ") != std::string::npos) CANNOT_RUN_HERE(r.err);
  EXPECT_EQ(r.err, "");
  EXPECT_THAT(r.out, HasSubstr("export VOSKPID='1'\n"));
}

TEST(EnvTool, NeedsAShellOfItsOwnUserWhereNoProcessIsNamed) {
  const auto r = shells::run("dash", "setpriv --reuid=65534 --clear-groups vosk env create; :");
  if (r.err.find("setpriv: ") != std::string::npos) CANNOT_RUN_HERE(r.err);
  EXPECT_THAT(r.err, HasSubstr("the parent process is no shell: give the process id, $$ in a shell"));
  EXPECT_EQ(r.out, "(exit 2)\n");
}

TEST(EnvTool, RefusesForTheShellThatEvaluatesItAlone) {
  const struct {
    std::vector<std::string> words;
    std::string out;
  } rows[] = {{{"env", "create", "--bogus"}, "(exit 2)\n"},
              {{"env", "--bogus"}, "(exit 2)\n"},
              {{"env", "show", "--bogus"}, ""},
              {{"env", "create", "--name", std::string(300, 'n'), "1"}, "(exit 2)\n"},
              {{"env", "create", "--json", "--name", std::string(300, 'n'), "1"}, ""}};
  for (const auto &row : rows) {
    std::vector<std::string> command{"vosk"};
    command.insert(command.end(), row.words.begin(), row.words.end());
    SCOPED_TRACE(testing::PrintToString(command));
    const tool::result r = tool::run(command);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, row.out);
  }
  EXPECT_EQ(tool::run({"vosk", "--help"}, tool::options::to("/dev/full")).status, 1);
}

TEST(EnvTool, PrintsTheExportsAndNothingElse) {
  const std::string id = std::to_string(getpid());
  const tool::result r = tool::run({"vosk", "env", "create", "--name", "it's", id});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_THAT(words(r), ElementsAre(StartsWith("export VOSKSTACK='/var/adm/vosk/stacks/it'\\''s." + id + "."),
                                    "export VOSKORIG='" + id + "'", "export VOSKPID='" + id + "'",
                                    StartsWith("export VOSKADDR='"), "export VOSKPNAME='it'\\''s'"));
  EXPECT_THAT(words(tool::run({"vosk", "env", "inherit", "--name", "n", id}, tool::options::with(environment("77")))),
              ElementsAre("export VOSKPID='" + id + "'", "export VOSKPNAME='n'"));
}

TEST(EnvTool, FailsWhereItCannotPrint) {
  EXPECT_EQ(tool::run({"vosk", "env", "create", "1"}, tool::options::to("/dev/full")).status, 1);
}

TEST(EnvTool, PrintsJson) {
  const std::string id = std::to_string(getpid());
  const auto made = tool::json_lines(tool::run({"vosk", "env", "create", "--keep-newest", "--json", id}).out);
  ASSERT_EQ(made.size(), 1u);
  EXPECT_EQ(made[0]["type"], "environment");
  EXPECT_EQ(made[0]["code"], 0);
  EXPECT_EQ(made[0]["variables"]["VOSKPID"], id);
  EXPECT_EQ(made[0]["variables"]["VOSKRECLAIM"], "whole");
  const tool::result refused = tool::run({"vosk", "env", "inherit", "--json", id});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(tool::json_lines(refused.out)[0]["code"], 15);
  EXPECT_THAT(tool::json_lines(refused.out)[0]["variables"], IsEmpty());
}

TEST(EnvTool, ShowsWhatThereIsAndWhoCanUseIt) {
  const std::string id = std::to_string(getpid());
  auto contradicting = environment(id);
  contradicting.erase("VOSKADDR");
  const struct {
    std::map<std::string, std::string> variables;
    const char *state;
    int status;
  } rows[] = {
      {{}, "none", 4},
      {{{"VOSKADDR", ".XO.8...................."}, {"VOSKPNAME", "n"}}, "log", 4},
      {environment(id), "own", 0},
      {environment(std::to_string(getppid())), "above", 0},
      {environment("2000000000"), "foreign", 4},
      {environment("nobody"), "foreign", 4},
      {contradicting, "corrupt", 3},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.state);
    const auto how = tool::options::with(row.variables);
    const tool::result text = tool::run({"vosk", "env", "show"}, how);
    EXPECT_EQ(text.status, row.status) << text.err;
    for (const auto &[name, value] : row.variables) EXPECT_THAT(text.out, HasSubstr(name + "=" + value + "\n"));
    EXPECT_THAT(text.out, HasSubstr("-- "));
    const tool::result json = tool::run({"vosk", "env", "show", "--json"}, how);
    EXPECT_EQ(json.status, row.status);
    ASSERT_EQ(tool::json_lines(json.out).size(), 1u);
    EXPECT_EQ(tool::json_lines(json.out)[0]["state"], row.state);
  }
  const auto of_another = tool::run({"vosk", "env", "show", "--json", "1"}, tool::options::with(environment("1")));
  EXPECT_EQ(tool::json_lines(of_another.out).at(0)["process"], 1);
  EXPECT_EQ(tool::json_lines(of_another.out).at(0)["state"], "own");
  const auto hostile = tool::run({"vosk", "env", "show"}, tool::options::with({{"VOSKPNAME", "\x1b[31m"}}));
  EXPECT_THAT(hostile.out, Not(HasSubstr("\x1b")));
}

}  // namespace
