// What the documents show has to be so: programs compile, scripts run, and what a text names is there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "run_shell.h"
#include "support/files.h"
#include "support/sandbox.h"

namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::HasSubstr;
using vk::test::all_groups;
using vk::test::first_group;
using vk::test::run_shell;

struct block {
  std::string language, text;
};
struct document {
  std::string name, text;
  std::vector<block> blocks;
  std::vector<std::string> code;  // spans, indented lines and lines of scripts
};

std::string contents(const std::string &path) {
  return files::read(path).value_or("");
}

document read_document(const std::string &name) {
  document made{name, contents(QX_SOURCE_DIR "/" + name), {}, {}};
  std::istringstream lines(made.text);
  bool fenced = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      fenced = !fenced;
      if (fenced) made.blocks.push_back({line.substr(3), ""});
    } else if (fenced) {
      made.blocks.back().text += line + "\n";
      if (made.blocks.back().language == "sh") made.code.push_back(line);
    } else if (line.starts_with("    ")) {
      made.code.push_back(line.substr(4));
    } else {
      for (const std::string &span : all_groups(line, "`([^`]+)`")) made.code.push_back(span);
    }
  }
  return made;
}

std::vector<document> documents() {
  std::vector<document> all;
  for (const char *name : {"README.md", "CONTRIBUTING.md", "tests/README.md"}) all.push_back(read_document(name));
  for (const std::string &name : files::list(QX_SOURCE_DIR "/docs")) all.push_back(read_document("docs/" + name));
  return all;
}

// A simple command in its words; what it is piped to, and what it is given by another, are commands of their own.
std::vector<std::vector<std::string>> commands(const std::string &line) {
  std::vector<std::vector<std::string>> all;
  std::istringstream parts(line.substr(0, line.find(" #")));
  const std::string ends = "|;()&";
  std::string rest = parts.str();
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(ends), rest.size());
    std::istringstream words(rest.substr(0, end));
    std::vector<std::string> command;
    for (std::string word; words >> word;) command.push_back(word);
    if (!command.empty()) all.push_back(command);
    rest.erase(0, std::min(end + 1, rest.size()));
  }
  return all;
}

// The names in a text that begin as the headers' names do.
std::set<std::string> names(const std::string &text) {
  const auto found = all_groups(" " + text, "[^a-zA-Z0-9_/]((vk|cu|VK|CU|VOSK)_[a-zA-Z0-9_]*[a-zA-Z0-9])");
  return {found.begin(), found.end()};
}

bool is_read(const std::string &variable) {
  return run_shell(QX_SOURCE_DIR, "grep -rqF '\"" + variable + "\"' lib utils tools").status == 0;
}

std::string compile(const std::string &directory, const std::string &program, const std::string &name) {
  EXPECT_TRUE(files::write(directory + "/" + name + ".c", program));
  return run_shell(directory, "cc -std=c11 -Wall -Wextra -Werror " + name + ".c -o " + name +
                                  " -I" QX_SOURCE_DIR "/include -L" QX_BINARY_DIR
                                  "/lib -lqx_vosk -Wl,-rpath," QX_BINARY_DIR "/lib")
      .output;
}

TEST(Documents, AreThereToBeLookedAt) {
  const auto all = documents();
  EXPECT_GE(all.size(), 9U);
  std::size_t programs = 0, code = 0;
  for (const document &one : all) {
    code += one.code.size();
    for (const block &b : one.blocks) programs += b.language == "c";
  }
  EXPECT_GE(programs, 1U);
  EXPECT_GE(code, 100U);
}

TEST(Documents, HaveLinksThatLeadToFiles) {
  for (const document &one : documents())
    for (const std::string &link : all_groups(one.text, "]\\(([^):#]+)(#[^)]*)?\\)"))
      EXPECT_TRUE(fs::exists(fs::path(QX_SOURCE_DIR) / fs::path(one.name).parent_path() / link)) << one.name << link;
}

TEST(Documents, NameFilesOfTheTreeThatExist) {
  for (const document &one : documents())
    for (const std::string &code : one.code)
      for (const std::string &path :
           all_groups(" " + code,
                      "[ (]((abi|bench|cmake|completion|debian|docs|examples|fuzz|include|lib|libqx_cu|man|messages|"
                      "tests|tools|utils)/[a-zA-Z0-9_./-]*)"))
        EXPECT_TRUE(fs::exists(fs::path(QX_SOURCE_DIR) / path)) << one.name << ": " << path;
}

TEST(Documents, NameRoutinesAndCodesThatTheHeadersHave) {
  std::set<std::string> known;
  for (const std::string &header : files::list(QX_SOURCE_DIR "/include"))
    known.merge(names(contents(QX_SOURCE_DIR "/include/" + header)));
  EXPECT_GE(known.size(), 100U);
  for (const document &one : documents())
    for (const std::string &code : one.code)
      for (const std::string &name : names(code))
        EXPECT_TRUE(known.contains(name) || is_read(name)) << one.name << name;
}

TEST(Documents, NameVariablesThatAreRead) {
  std::string texts;
  for (const document &one : documents()) texts += one.text;
  for (const std::string &name : files::list(QX_SOURCE_DIR "/man")) texts += contents(QX_SOURCE_DIR "/man/" + name);
  const auto found = all_groups(texts, "[^a-zA-Z_](VOSK[A-Z]{3,})[^a-zA-Z_]");
  const std::set<std::string> variables(found.begin(), found.end());
  EXPECT_GE(variables.size(), 8U);
  for (const std::string &name : variables) EXPECT_TRUE(is_read(name)) << name;
}

TEST(Manual, TellsOfEveryVariableThatTheLibraryReads) {
  const auto read = run_shell(QX_SOURCE_DIR, "grep -rhoE '\"VOSK[A-Z]+' lib utils");
  const std::string page = contents(QX_SOURCE_DIR "/man/libqx_vosk.7");
  const auto variables = all_groups(read.output, "\"([A-Z]+)");
  EXPECT_GE(variables.size(), 8U);
  for (const std::string &name : variables) EXPECT_THAT(page, HasSubstr("\n.It Ev " + name + "\n"));
}

TEST(Documents, ShowVerbsAndOptionsOfTheToolThatItHas) {
  std::size_t seen = 0;
  for (const document &one : documents())
    for (const std::string &line : one.code)
      for (const auto &command : commands(line)) {
        const std::string program = command[0].substr(command[0].rfind('/') + 1);
        if ((program != "vosk" && program != "vkstkrpt") || command.size() == 1) continue;
        SCOPED_TRACE(one.name + ": " + line);
        const bool has_verb = program == "vosk";
        std::string verb = has_verb ? " " + command[1] : "";
        std::size_t words = has_verb ? 2 : 1;
        if (verb == " env" && command.size() > 2) verb += " " + command[words++];
        const auto help = run_shell("/", QX_BINARY_DIR "/bin/" + program + verb + " --help");
        EXPECT_EQ(help.status, 0) << help.output;
        if (has_verb) {
          EXPECT_THAT(help.output, HasSubstr("Usage: vosk" + verb));
        }
        for (std::size_t i = words; i < command.size() && command[i] != "--"; ++i)
          if (const std::string option = command[i].substr(0, command[i].find('=')); option.starts_with("-")) {
            EXPECT_THAT("\n" + help.output, ContainsRegex("[ ,\n]" + option + "[^a-z-]"));
          }
        ++seen;
      }
  EXPECT_GE(seen, 8U);
}

TEST(Documents, ShowCommandsOfTheTreeThatItHas) {
  const std::string help = run_shell(QX_SOURCE_DIR, "./dev help").output;
  for (const document &one : documents())
    for (const std::string &line : one.code)
      for (const auto &command : commands(line))
        if (command[0] == "./dev" && command.size() > 1) {
          EXPECT_THAT(help, HasSubstr("\n  " + command[1] + " ")) << one.name << ": " << line;
        }
}

TEST(Documents, HoldProgramsThatCompileAndScriptsThatRecordWithThem) {
  for (const document &one : documents()) {
    SCOPED_TRACE(one.name);
    const files::TemporaryDirectory bin;
    for (const block &b : one.blocks) {
      if (b.language != "c") continue;
      // Its first comment is "NAME ARGUMENT...: what it does" where a script runs it.
      std::string name = first_group(b.text, "^/[*] ([a-z]+) [^:]*: ");
      if (name.empty()) name = "program";
      EXPECT_EQ(compile(bin.path(), b.text, name), "") << b.text;
    }
    for (const block &b : one.blocks) {
      if (b.language != "sh") continue;
      const bool whole = b.text.starts_with("#!/bin/sh\n");
      ASSERT_TRUE(files::write(bin / "script", (whole ? "" : "#!/bin/sh\n") + b.text));
      const auto lint = run_shell(bin.path(), "shellcheck script");
      EXPECT_EQ(lint.status, 0) << lint.output;
      if (!whole) continue;
      sandbox::fresh({});
      const auto ran = run_shell(bin.path(), "PATH=" + bin.path() + ":" QX_BINARY_DIR "/bin:$PATH sh ./script");
      EXPECT_EQ(ran.status, 0) << ran.output;
      const auto reported = run_shell("/", QX_BINARY_DIR "/bin/vkstkrpt");
      EXPECT_EQ(reported.status, 0) << reported.output;
      EXPECT_THAT(reported.output, testing::Not(testing::IsEmpty())) << "nothing was recorded";
    }
  }
}

// With a program that this machine has, and the name that makes a timer find its service.
void write_unit(const std::string &folder, std::string unit) {
  const std::size_t program = unit.find("\nExecStart=/");
  if (program != std::string::npos) {
    const std::size_t from = program + 11;
    unit.replace(from, unit.find_first_of(" \n", from) - from, "/bin/true");
  }
  const bool timer = unit.find("[Timer]") != std::string::npos;
  ASSERT_TRUE(files::write(folder + (timer ? "/unit.timer" : "/unit.service"), unit));
}

TEST(Documents, ShowUnitsThatTheServiceManagerTakes) {
  if (run_shell("/", "command -v systemd-analyze").status != 0) CANNOT_RUN_HERE("systemd is missing");
  const std::string verify = "systemd-analyze verify --man=no --recursive-errors=one ./unit.*";
  std::size_t units = 0;
  for (const document &one : documents()) {
    const files::TemporaryDirectory folder;
    std::string last;
    for (const block &b : one.blocks)
      if (b.language == "ini") write_unit(folder.path(), last = b.text), ++units;
    if (last.empty()) continue;
    const auto checked = run_shell(folder.path(), verify);
    EXPECT_EQ(checked.status, 0) << one.name << checked.output;
    write_unit(folder.path(), last + "Wished=yes\n");
    EXPECT_NE(run_shell(folder.path(), verify).status, 0) << "it takes anything";
  }
  EXPECT_GE(units, 1U);
}

TEST(CentralLogs, ShowAFilterThatTheDaemonTakes) {
  if (run_shell("/", "command -v rsyslogd").status != 0) CANNOT_RUN_HERE("rsyslog is missing");
  const std::string filter = first_group(contents(QX_SOURCE_DIR "/docs/central-logs.md"), "^    (if [$].*)$");
  ASSERT_THAT(filter, HasSubstr("libqx_vosk"));
  const files::TemporaryDirectory folder;
  ASSERT_TRUE(files::write(folder / "rsyslog.conf", filter + "\n"));
  const auto checked = run_shell(folder.path(), "rsyslogd -N1 -f rsyslog.conf");
  EXPECT_EQ(checked.status, 0) << checked.output;
  ASSERT_TRUE(files::write(folder / "rsyslog.conf", filter.substr(3) + "\n"));
  EXPECT_NE(run_shell(folder.path(), "rsyslogd -N1 -f rsyslog.conf").status, 0) << "it takes anything";
}

}  // namespace
