// vosk log, and vosk push where there is no stack: records in a real System Log, read back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <random>
#include <sstream>

#include "reader/identifier.h"
#include "tools/log_daemons.h"
#include "tools/shells.h"
#include "tools/tool.h"
#include "vosk/message_format.h"
#include "vosk/recording.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

constexpr char kIdentifier[] = "[./0-9A-Za-z]{42}\n";

class LogVerb : public testing::Test {
 protected:
  static void SetUpTestSuite() { problem_ = log_daemons::prepare(); }
  void SetUp() override {
    if (!problem_.empty()) CANNOT_RUN_HERE(problem_);
    if (const std::string missing = shells::missing(); !missing.empty()) CANNOT_RUN_HERE(missing);
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"}) unsetenv(name);
  }
  static std::string problem_;
};
std::string LogVerb::problem_;

class WithDaemon : public LogVerb {
 protected:
  void SetUp() override {
    LogVerb::SetUp();
    if (IsSkipped()) return;
    daemon_ = std::make_unique<log_daemons::Rsyslogd>();
    if (!daemon_->listens()) CANNOT_RUN_HERE("no rsyslogd (package rsyslog)");
  }
  std::unique_ptr<log_daemons::Rsyslogd> daemon_;
};

// The line of the identifier, once it is there; what stands behind the last separator of it.
std::string line_of(const std::string &identifier) {
  EXPECT_TRUE(log_daemons::Rsyslogd::has(identifier));
  std::istringstream lines(files::read("/var/log/syslog").value_or(""));
  for (std::string line; std::getline(lines, line);)
    if (line.find("Error ID: " + identifier) != std::string::npos) return line;
  return "";
}
std::string message_of(const std::string &line) {
  // The location is filled with blanks to its width.
  return line.substr(line.find(":::", line.find(":::Location: ") + 13) + 3);
}

TEST_F(WithDaemon, RecordsWithAnIdentifierWithoutAnEnvironment) {
  for (const std::string &shell : shells::kAll) {
    SCOPED_TRACE(shell);
    const auto r = shells::run(shell, "vosk log 'the backup failed'; (vosk log 'in a subshell')");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "") << "no attention";
    ASSERT_THAT(r.out, MatchesRegex(std::string(kIdentifier) + kIdentifier));
    const std::string line = line_of(r.out.substr(0, 42));
    EXPECT_THAT(line, AllOf(HasSubstr(" " + shell + "["), HasSubstr(":::Location: scripts,script.sh,unversioned,1 "),
                            EndsWith(":::the backup failed")));
    const tool::result shown = tool::run({"vosk", "show", r.out.substr(0, 42)});
    EXPECT_EQ(shown.status, 0) << shown.out;
    EXPECT_THAT(shown.out, HasSubstr("the backup failed"));
    EXPECT_EQ(message_of(line_of(r.out.substr(43, 42))), "in a subshell");
  }
}

TEST_F(WithDaemon, TakesEveryField) {
  const auto r = shells::run("dash",
                             "first=$(vosk log first)\n"
                             "vosk log --cause \"$first\" --source s.sh --source-version 2.5 --line 17 --product p "
                             "--resource tag --template 2aF --detail 'more of it' second; echo $first\n"
                             "echo streamed | vosk log --detail-file - third");
  EXPECT_EQ(r.err, "");
  const std::string second = r.out.substr(0, 42), first = r.out.substr(43, 42), third = r.out.substr(86, 42);
  EXPECT_THAT(line_of(second),
              AllOf(HasSubstr(" tag["), HasSubstr(":::Reference ID: " + first + ":::Template ID: 2af:::"),
                    HasSubstr(":::Location: p,s.sh,2.5,17 "), EndsWith(":::second")));
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", "-", second}).out, "more of it");
  EXPECT_EQ(tool::run({"vosk", "detail", "-o", "-", third}).out, "streamed\n");
}

TEST_F(WithDaemon, MapsTheTypeToASeverity) {
  const std::pair<const char *, unsigned> rows[] = {{"emerg", 0}, {"error", 3}, {"state", 5}, {"perf", 4},
                                                    {"trace", 6}, {"recov", 7}, {"debug", 7}};
  for (const auto &[type, priority] : rows) {
    const tool::result r = tool::run({"vosk", "log", "--type", type, "m"});
    ASSERT_THAT(r.out, MatchesRegex(kIdentifier)) << r.err;
    EXPECT_EQ(vosk::decode_identifier(r.out.substr(0, 42))->priority, priority) << type;
  }
}

TEST_F(WithDaemon, KeepsTextsRichInPercentSignsAsTheyAre) {
  static const std::vector<std::string> pieces = {"%", "%", "%%", "%s", "%n", "%1$s", "%m", "%*d", "%%m", "m",
                                                  "s", "$", "1",  " ",  "a",  "\\",   "'",  "\"",  ":",   "ü"};
  std::mt19937 random(11);
  std::vector<std::pair<std::string, std::string>> made;
  for (int i = 0; i < 2000; ++i) {
    std::string text;
    for (std::size_t n = std::uniform_int_distribution<std::size_t>(1, 30)(random); n > 0; --n)
      text += pieces[std::uniform_int_distribution<std::size_t>(0, pieces.size() - 1)(random)];
    vosk::incident what;
    what.format = vosk::as_format(text + ".");
    vosk::fill_in_defaults(what, vosk::recorder::self);
    const vosk::recording one = vosk::record(what, vosk::recorder::self, vosk::road::log);
    ASSERT_EQ(one.code, 0) << one.text;
    made.emplace_back(one.identifier, text + ".");
  }
  ASSERT_TRUE(log_daemons::Rsyslogd::has(made.back().first));
  std::istringstream lines(files::read("/var/log/syslog").value_or(""));
  std::size_t next = 0;
  for (std::string line; std::getline(lines, line) && next < made.size();)
    if (line.find(made[next].first) != std::string::npos) {
      ASSERT_EQ(message_of(line), made[next].second);
      ++next;
    }
  EXPECT_EQ(next, made.size());
  // Through the tool, with percent signs in the other texts, too.
  for (const char *const text : {"100%", "%%", "%m", "%%m%", "50% of %s"}) {
    const tool::result r = tool::run({"vosk", "log", "--source", "%m%%.sh", "--product", "%", text});
    EXPECT_EQ(r.status, 0) << r.err;
    const std::string line = line_of(r.out.substr(0, 42));
    EXPECT_EQ(message_of(line), text);
    EXPECT_THAT(line, HasSubstr(":::Location: %,%m%%.sh,unversioned,1"));
  }
  const tool::result formatted =
      tool::run({"vosk", "log", "--format", "%2$s|%1$.2s|%%", "--arg", "%%m", "--arg", "%m"});
  EXPECT_EQ(message_of(line_of(formatted.out.substr(0, 42))), "%m|%%|%");
}

TEST_F(WithDaemon, SaysThatALongMessageIsCut) {
  bool cut = false;
  for (std::size_t size = 770; size < 810; ++size) {
    const std::string text(size, 'x');
    const tool::result r = tool::run({"vosk", "log", "--json", text});
    EXPECT_EQ(r.status, 0);
    const auto answer = tool::json_lines(r.out).at(0);
    const std::string message = message_of(line_of(answer["identifier"]));
    EXPECT_EQ(answer["cut"], message != text) << size;
    EXPECT_EQ(r.err.empty(), message == text) << r.err;
    if (answer["cut"] == true) cut = true;
  }
  EXPECT_TRUE(cut);
  const tool::result r = tool::run({"vosk", "log", std::string(5000, '%') + "\xc3\xbc"});
  EXPECT_THAT(r.err, HasSubstr("cut"));
  // A name that leaves no room at all.
  const auto named = tool::options::with({{"VOSKADDR", builder::kAddress}, {"VOSKPNAME", std::string(900, 'n')}});
  const tool::result none = tool::run({"vosk", "log", "--json", "--detail", "text", "short"}, named);
  EXPECT_THAT(none.err, HasSubstr("the message is cut"));
  EXPECT_EQ(tool::json_lines(none.out).at(0)["cut"], true);
  EXPECT_THAT(message_of(line_of(r.out.substr(0, 42))), MatchesRegex("%{300,}"));
}

TEST_F(WithDaemon, IsTheRoadWhereNoStackIsUsable) {
  const struct {
    const char *script, *road, *text, *option = "";
  } rows[] = {
      {"", "log", ""},
      {"", "log", "not in the Error Stack (15): ", "--verbose"},
      {"eval \"$(vosk env create $$)\";", "stack", ""},
      {"eval \"$(vosk env log $$)\";", "log", ""},
      {"eval \"$(vosk env create $$)\"; export VOSKPID=2000000000;", "log", ""},
      {"eval \"$(vosk env create $$)\"; mkdir \"$VOSKSTACK\";", "log", "not in the Error Stack (25): 2615-015"},
      {"eval \"$(vosk env create $$)\"; export VOSKORIG=;", "log", "not in the Error Stack (17): 2615-006"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.script);
    const auto r = shells::run("bash", std::string(row.script) + " vosk push --road=auto --json m " + row.option);
    EXPECT_EQ(r.status, 0);
    const auto answer = tool::json_lines(r.out).at(0);
    EXPECT_EQ(answer["road"], row.road);
    EXPECT_EQ(answer["recorded"], true);
    EXPECT_EQ(answer["code"], 0) << r.out;
    EXPECT_EQ(tool::run({"vosk", "show", answer["identifier"]}).status, 0);
    if (*row.text == '\0')
      EXPECT_EQ(r.err, "");
    else
      EXPECT_THAT(r.err, HasSubstr(row.text));
  }
}

TEST_F(LogVerb, WithoutADaemonFails) {
  (void)unlink("/dev/log");
  for (const char *const road : {"log", "auto"}) {
    const tool::result r = tool::run({"vosk", "push", "--road", road, "m"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_THAT(r.err, HasSubstr("not recorded (38): No System Log daemon listens on /dev/log."));
  }
  EXPECT_EQ(tool::run({"vosk", "log", "m"}).status, 1);
  // Left behind by a daemon that is gone.
  { const private_log::Listener gone; }
  EXPECT_EQ(tool::run({"vosk", "log", "m"}).status, 1);
}

TEST_F(LogVerb, TakesTheOptionsOfPushButNoRoad) {
  for (const std::vector<std::string> &words : {std::vector<std::string>{"vosk", "log"},
                                                {"vosk", "log", "--road", "log", "m"},
                                                {"vosk", "log", "--type", "fatal", "m"},
                                                {"vosk", "log", "--template", "-1", "m"},
                                                {"vosk", "log", "--template", "100000000", "m"},
                                                {"vosk", "log", "--format", "%d", "--arg", "1"}})
    EXPECT_EQ(tool::run(words).status, 2) << words.back();
}

}  // namespace
