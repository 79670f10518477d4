// The tools' manual pages and completion against what the tools themselves say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include "dev/run_shell.h"
#include "support/files.h"
#include "tools/tool.h"

using testing::ElementsAreArray;
using testing::HasSubstr;

namespace {

const std::string kSource = QX_SOURCE_DIR;
const std::vector<std::string> kVerbs = {"annotate", "collect", "detail", "doctor", "list",
                                         "prune",    "report",  "show",   "trace",  "verify"};
// Those that have pages of their own; some are verbs of verbs.
const std::map<std::string, std::string> kRecordingVerbs = {
    {"env create", "vosk-env.1"}, {"env inherit", "vosk-env.1"}, {"env log", "vosk-env.1"}, {"env show", "vosk-env.1"},
    {"log", "vosk-push.1"},       {"push", "vosk-push.1"},       {"run", "vosk-run.1"}};

// What a shell command prints, and its exit status.
tool::result shell(const std::string &command) {
  tool::result r;
  FILE *const pipe = popen(("{ " + command + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) return r;
  char buffer[4096];
  for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) r.out.append(buffer, n);
  const int status = pclose(pipe);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

std::set<std::string> all_matches(const std::string &text, const std::string &pattern) {
  const std::vector<std::string> found = vk::test::all_groups(text, pattern);
  return {found.begin(), found.end()};
}

std::string help_of(const std::string &verb) {
  std::vector<std::string> command{"vosk"};
  std::istringstream words(verb);
  for (std::string word; words >> word;) command.push_back(word);
  command.push_back("--help");
  return tool::run(command).out;
}

// The long options in a verb's own summary.
std::set<std::string> options_of(const std::string &verb) {
  return all_matches(help_of(verb), "\n  [^ ]*(--[a-z][a-z-]*)");
}

std::string manual(const std::string &page) {
  std::string text = shell("mandoc -Tascii " + kSource + "/man/" + page).out;
  // Bold and underlined characters are struck over others.
  for (std::size_t at; (at = text.find('\b')) != std::string::npos;) text.erase(at - 1, 2);
  return text;
}

}  // namespace

TEST(ToolPages, AreQuietUnderTheLinter) {
  if (shell("command -v mandoc").status != 0) CANNOT_RUN_HERE("mandoc is missing");
  for (const char *page : {"vosk.1", "vosk-env.1", "vosk-push.1", "vosk-run.1", "vkstkrpt.1", "vosk-stack.5",
                           "vosk-trace.5", "vosk-identifier.5"}) {
    const tool::result lint = shell("mandoc -Tlint -Wwarning " + kSource + "/man/" + page);
    EXPECT_EQ(lint.status, 0) << lint.out;
  }
}

TEST(ToolPages, ReferToPagesThatExist) {
  for (const char *page : {"vosk.1", "vosk-env.1", "vosk-push.1", "vosk-run.1", "vkstkrpt.1", "vosk-stack.5",
                           "vosk-trace.5", "vosk-identifier.5"}) {
    const std::string text = *files::read(kSource + "/man/" + page);
    for (const std::string &other : all_matches(text, "\n\\.Xr ((vk|vosk|libqx)[^ ]* [0-9])"))
      EXPECT_TRUE(files::exists(kSource + "/man/" + other.substr(0, other.size() - 2) + "." + other.back()))
          << page << ": " << other;
  }
}

TEST(ToolPages, TellOfEveryVerbOptionVerdictAndJsonType) {
  if (shell("command -v mandoc").status != 0) CANNOT_RUN_HERE("mandoc is missing");
  const std::string text = manual("vosk.1");
  for (const std::string &verb : kVerbs) {
    EXPECT_THAT(text, HasSubstr("vosk " + verb + "\n")) << "a section of its own";
    for (const std::string &option : options_of(verb)) EXPECT_THAT(text, HasSubstr(option)) << verb;
  }
  for (const char *source : {"coverage", "report", "reporter", "verify", "list", "lookup", "show", "log_text",
                             "detail_output", "trace", "annotate", "prune", "doctor", "collect"}) {
    const std::string code = *files::read(kSource + "/tools/vosk/" + source + ".cc");
    for (const std::string &type : all_matches(code, "json_line line\\(\"([a-z_]+)\"\\)"))
      EXPECT_THAT(text, HasSubstr(type)) << source;
  }
  for (const std::string &name :
       all_matches(*files::read(kSource + "/tools/reader/verdict.cc"), "\\{verdict_kind::[a-z_]+, \"([a-z_]+)\""))
    EXPECT_THAT(text, HasSubstr("\n     " + name));
}

TEST(ToolPages, OfTheRecordingVerbsTellOfEveryOptionAndMember) {
  if (shell("command -v mandoc").status != 0) CANNOT_RUN_HERE("mandoc is missing");
  for (const auto &[verb, page] : kRecordingVerbs) {
    const std::string text = manual(page);
    EXPECT_THAT(text, HasSubstr(verb.substr(verb.rfind(' ') + 1)));
    for (const std::string &option : options_of(verb)) EXPECT_THAT(text, HasSubstr(option)) << verb;
  }
  const std::string code = *files::read(kSource + "/tools/vosk/recording.cc");
  for (const std::string &member :
       all_matches(code.substr(code.find("json_line line(")), "[(.][a-z_]*\\(\"([a-z_]+)\""))
    EXPECT_THAT(manual("vosk-push.1"), HasSubstr(member));
  for (const std::string &member :
       all_matches(*files::read(kSource + "/tools/vosk/run_text.cc"), "[(.][a-z_]*\\(\"([a-z_]+)\""))
    EXPECT_THAT(manual("vosk-run.1"), HasSubstr(member));
}

TEST(ToolHelp, HasExamplesAndExitStatuses) {
  std::vector<std::string> verbs = kVerbs;
  for (const auto &[verb, page] : kRecordingVerbs) verbs.push_back(verb);
  for (const std::string &verb : verbs) {
    const std::string text = help_of(verb);
    EXPECT_THAT(text, HasSubstr("\nExamples:\n"));
    EXPECT_THAT(text, HasSubstr("\nExit status: 0 "));
  }
}

TEST(Completion, OffersEveryVerbAndOption) {
  if (shell("command -v bash").status != 0) CANNOT_RUN_HERE("bash is missing");
  const auto complete = [](const std::string &words, int word) {
    const std::string script = ". " + kSource + "/completion/vosk; COMP_WORDS=(" + words +
                               "); COMP_CWORD=" + std::to_string(word) +
                               "; _vosk; printf \"%s\\n\" \"${COMPREPLY[@]}\"";
    return all_matches("\n" + shell("bash -c '" + script + "'").out, "([^\n]+)\n");
  };
  EXPECT_THAT(complete("vosk \"\"", 1), testing::IsSupersetOf(kVerbs));
  EXPECT_THAT(complete("vosk rep", 1), ElementsAreArray({"report"}));
  for (const std::string &verb : kVerbs)
    EXPECT_THAT(complete("vosk " + verb + " --", 2), ElementsAreArray(options_of(verb))) << verb;
  for (const auto &[verb, page] : kRecordingVerbs)
    EXPECT_THAT(complete("vosk " + verb + " --", verb.find(' ') == std::string::npos ? 2 : 3),
                ElementsAreArray(options_of(verb)))
        << verb;
  EXPECT_THAT(complete("vosk run -- mandoc --col", 4), testing::Each(testing::Not(HasSubstr("--color"))));
  EXPECT_THAT(complete("vosk run --cause x -- printen", 5), testing::Contains("printenv"));
  EXPECT_THAT(complete("vosk env i", 2), ElementsAreArray({"inherit"}));
  EXPECT_THAT(complete("vosk env --", 2), ElementsAreArray({"--help"}));
  EXPECT_THAT(complete("vosk push --road a", 3), ElementsAreArray({"auto"}));
  EXPECT_THAT(complete("vosk log --type = e", 4), testing::ElementsAre("emerg", "error"));
  EXPECT_THAT(complete("vosk push --detail-file " + kSource + "/completi", 3),
              ElementsAreArray({kSource + "/completion"}));
  EXPECT_THAT(complete("vkstkrpt --", 1), ElementsAreArray(options_of("report")));
  EXPECT_THAT(complete("vosk report --color = a", 4), testing::ElementsAre("always", "auto"));
  EXPECT_THAT(complete("vosk report -o \"\"", 3), testing::ElementsAre("json", "short", "verbose"));
  EXPECT_THAT(complete("vosk trace --log jo", 3), testing::ElementsAre("journal"));
  EXPECT_THAT(complete("vosk list " + kSource + "/completi", 2), ElementsAreArray({kSource + "/completion"}));
}
