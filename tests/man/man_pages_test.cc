// The manual pages against the header, the list of exports and the message table; their examples compiled and run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "dev/run_shell.h"
#include "qx_vosk.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using vk::test::all_groups;
using vk::test::run_shell;

const std::string kPages = QX_SOURCE_DIR "/man/";

std::string contents(const std::string &path) {
  return files::read(path).value_or("");
}

// A page, by way of its link where it is one.
std::string page(const std::string &name) {
  std::string text = contents(kPages + name);
  if (text.starts_with(".so man3/")) text = contents(kPages + text.substr(9, text.find('\n') - 9));
  return text;
}

// Of both libraries.
std::vector<std::string> exports() {
  return all_groups(contents(QX_SOURCE_DIR "/lib/libqx_vosk.map") + contents(QX_SOURCE_DIR "/libqx_cu/libqx_cu.map"),
                    "^    ([a-z0-9_]+);");
}

std::string without_comments(std::string text) {
  for (std::size_t from; (from = text.find("/*")) != std::string::npos;)
    text.erase(from, text.find("*/", from) + 2 - from);
  return text;
}

// One blank between words, none beside parentheses, commas and stars.
std::string squeezed(const std::string &text) {
  std::string result;
  for (const char c : text) {
    const char next = c == '\n' ? ' ' : c;
    const bool tight = result.empty() || std::string(" (,*").find(result.back()) != std::string::npos;
    if (next == ' ' && tight) continue;
    if (std::string("(),*").find(next) != std::string::npos && !result.empty() && result.back() == ' ')
      result.pop_back();
    result += next;
  }
  return result;
}

// The declaration of `routine` in its header.
std::string declaration(const std::string &routine) {
  static const std::string header =
      without_comments(contents(QX_SOURCE_DIR "/include/qx_vosk.h") + contents(QX_SOURCE_DIR "/include/qx_cu.h"));
  const std::size_t name = header.find(routine + "(");
  if (name == std::string::npos) return "";
  const std::size_t line = header.rfind('\n', name) + 1;
  std::size_t end = header.find(';', name);
  end = std::min(end, header.find("VK_PRINTF_FORMAT", name));
  const std::string text = header.substr(line, header.rfind(')', end) + 1 - line);
  return squeezed(text);
}

// The same from the synopsis of a page.
std::string synopsis(const std::string &text, const std::string &routine) {
  std::istringstream lines(text);
  std::string type, made;
  const auto argument = [](const std::string &line) {
    const std::string value = line.substr(4);
    return value.starts_with('"') ? value.substr(1, value.size() - 2) : value;
  };
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(".Ft ")) type = argument(line);
    if (line == ".Fo " + routine) {
      while (std::getline(lines, line) && line != ".Fc") made += (made.empty() ? "" : ", ") + argument(line);
      return squeezed(type + " " + routine + "(" + made + ")");
    }
  }
  return "";
}

// The lines of the display below the heading EXAMPLES, as a reader sees them.
std::string example(const std::string &text) {
  const std::size_t heading = text.find(".Sh EXAMPLES\n.Bd -literal\n");
  if (heading == std::string::npos) return "";
  std::istringstream lines(text.substr(heading));
  std::string line, program;
  std::getline(lines, line);
  std::getline(lines, line);
  while (std::getline(lines, line) && line != ".Ed") {
    if (line.starts_with("\\&")) line.erase(0, 2);
    for (std::size_t at = 0; (at = line.find("\\e", at)) != std::string::npos; ++at) line.erase(at + 1, 1);
    program += line + "\n";
  }
  return program;
}

std::vector<std::string> own_pages(const std::string &section) {
  std::vector<std::string> names;
  for (const std::string &name : files::list(kPages))
    if (name.ends_with("." + section) && !contents(kPages + name).starts_with(".so ")) names.push_back(name);
  return names;
}

TEST(ManPages, ThereIsOneForEveryExport) {
  ASSERT_GE(exports().size(), 42U);
  for (const std::string &name : exports()) {
    const std::string text = page(name + ".3");
    EXPECT_THAT("\n" + text, testing::AnyOf(HasSubstr("\n.Nm " + name + "\n"), HasSubstr("\n.Nm " + name + " ,\n")))
        << name;
  }
}

TEST(ManPages, OfSectionThreeAreAllAboutExports) {
  const std::vector<std::string> names = exports();
  const std::set<std::string> known(names.begin(), names.end());
  for (const std::string &name : files::list(kPages))
    if (name.ends_with(".3")) {
      EXPECT_TRUE(known.contains(name.substr(0, name.size() - 2))) << name;
    }
}

TEST(ManPages, DeclareTheRoutinesAsTheHeaderDoes) {
  for (const std::string &name : exports()) {
    if (name.ends_with("_vk_lib")) continue;
    EXPECT_FALSE(declaration(name).empty()) << name;
    EXPECT_EQ(synopsis(page(name + ".3"), name), declaration(name));
  }
}

TEST(ManPages, TellOfEveryParameter) {
  for (const std::string &name : exports()) {
    if (name.ends_with("_vk_lib")) continue;
    const std::string text = page(name + ".3");
    const std::string description = text.substr(text.find(".Sh DESCRIPTION"));
    const std::string declared = declaration(name);
    std::istringstream parameters(declared.substr(declared.find('(') + 1));
    for (std::string parameter; std::getline(parameters, parameter, ',');) {
      while (parameter.ends_with(')')) parameter.pop_back();
      const std::size_t start = parameter.find_last_not_of("abcdefghijklmnopqrstuvwxyz_0123456789");
      if (parameter == "void" || parameter == "...") continue;
      const std::string word = start == std::string::npos ? parameter : parameter.substr(start + 1);
      EXPECT_THAT(description, testing::ContainsRegex("(It|,) *(Fa )?([a-z_]+ , )*" + word + "( |\n)")) << name;
    }
  }
}

TEST(ManPages, HaveTheSectionsThatACallerNeeds) {
  const auto names = own_pages("3");
  ASSERT_GE(names.size(), 18U);
  for (const std::string &name : names)
    for (const char *heading : {"NAME", "LIBRARY", "SYNOPSIS", "DESCRIPTION", "RETURN VALUES", "ENVIRONMENT AND FILES",
                                "SAFETY", "EXAMPLES", "SEE ALSO"})
      EXPECT_THAT(contents(kPages + name), HasSubstr(std::string("\n.Sh ") + heading + "\n")) << name;
}

TEST(ManPages, SayWhatThreadsSignalsForkAndSetUidProgramsMayRelyOn) {
  for (const std::string &name : own_pages("3")) {
    if (name == "vk_mesgtbl_vk_lib.3") continue;  // constants
    const std::string text = contents(kPages + name);
    const std::size_t from = text.find(".Sh SAFETY"), to = text.find(".Sh EXAMPLES");
    const std::string safety = text.substr(from, to - from);
    EXPECT_THAT(safety, testing::ContainsRegex("thread|locale of the process|process's own")) << name;
    for (const char *word : {"signal handlers", "fork 2", "set-uid"}) EXPECT_THAT(safety, HasSubstr(word)) << name;
  }
}

TEST(ManPages, AreQuietUnderTheLinter) {
  const auto names = files::list(kPages);
  ASSERT_FALSE(names.empty());
  if (run_shell("/", "command -v mandoc").status != 0) CANNOT_RUN_HERE("mandoc is missing");
  for (const std::string &name : names) {
    if (contents(kPages + name).starts_with(".so ")) continue;
    const auto lint = run_shell(kPages, "mandoc -Tlint -Wwarning " + name);
    EXPECT_EQ(lint.status, 0) << lint.output;
  }
}

TEST(ManPages, ReferToPagesThatExist) {
  for (const char *section : {"1", "3", "5", "7"})
    for (const std::string &name : own_pages(section))
      for (const std::string &other :
           all_groups(contents(kPages + name), "^\\.Xr ((vk|cu|vosk|libqx|fclear)[^ ]* [1357])"))
        EXPECT_TRUE(fs::exists(kPages + other.substr(0, other.size() - 2) + "." + other.back())) << name << other;
}

TEST(ManPages, AreAllFoundFromTheOverview) {
  const std::string overview = contents(kPages + "libqx_vosk.7");
  const std::string others = overview.substr(overview.find("\n.Sh SEE ALSO\n"));
  for (const char *section : {"1", "3", "5", "7"})
    for (const std::string &name : own_pages(section))
      if (name != "libqx_vosk.7") {
        EXPECT_THAT(others, HasSubstr("\n.Xr " + name.substr(0, name.size() - 2) + " " + section)) << name;
      }
}

TEST(ManPages, TellOfEveryTypeOfAnArgument) {
  const std::string text = contents(kPages + "cu_set_error_args_1.3");
  const auto types = all_groups(contents(QX_SOURCE_DIR "/include/qx_cu.h"), "^#define (CU_ARG_[A-Z]+ [0-9]+)");
  ASSERT_EQ(types.size(), 8U);
  for (const std::string &type : types)
    EXPECT_THAT(text,
                HasSubstr("\n.It " + type.substr(type.find(' ') + 1) + " Dv " + type.substr(0, type.find(' ')) + "\n"));
}

TEST(ManPages, TellOfEveryEventTypeFlagAndOptionByItsValue) {
  std::string texts;
  for (const std::string &name : own_pages("3")) texts += contents(kPages + name);
  const std::string header = contents(QX_SOURCE_DIR "/include/qx_vosk.h");
  const std::string numbers = header.substr(header.find("---- Log event types"));
  const auto flags = all_groups(numbers, "^  (VK_FLAG_[A-Z_]+) = [0-9]+,");
  ASSERT_EQ(flags.size(), std::size_t{VK_FLAG_COUNT});
  for (std::size_t flag = 0; flag < flags.size(); ++flag)
    EXPECT_THAT(texts, HasSubstr("\n.It " + std::to_string(flag) + " Dv " + flags[flag] + "\n"));
  const auto names = all_groups(numbers, "^#define ((VOSK|VK)_[A-Z_]+ [0-9]+)");
  ASSERT_GE(names.size(), 17U);
  const std::set<std::string> sizes = {"VK_EID_SIZE", "VK_MESSAGE_COUNT", "VK_ADDRESS_SLOT", "VK_ADDRESS_MAX"};
  for (const std::string &define : names) {
    const std::string name = define.substr(0, define.find(' ')), value = define.substr(name.size() + 1);
    if (sizes.contains(name)) continue;
    EXPECT_THAT(texts, HasSubstr("\n.It " + value + " Dv " + name + "\n")) << name;
  }
}

TEST(MessagesPage, HasEveryCodeOfTheHeaderWithItsValue) {
  const std::string text = contents(kPages + "vosk_messages.7");
  const std::string header = contents(QX_SOURCE_DIR "/include/qx_vosk.h");
  const std::string codes = header.substr(0, header.find("---- Log event types"));
  const auto names = all_groups(codes, "^#define (VO?S?K_[A-Z0-9_]+) [(]?-?[0-9]");
  const auto values = all_groups(codes, "^#define VO?S?K_[A-Z0-9_]+ [(]?(-?[0-9]+)");
  ASSERT_GE(names.size(), 55U);
  ASSERT_EQ(names.size(), values.size());
  for (std::size_t i = 0; i < names.size(); ++i)
    EXPECT_THAT(text, HasSubstr("\n.It " + values[i] + " Dv " + names[i] + "\n"));
  for (const char *value : {"19", "21", "22", "24", "25", "40", "42"})  // have no name
    EXPECT_THAT(text, HasSubstr(std::string("\n.It ") + value + "\n"));
}

TEST(MessagesPage, TellsOfEveryMessageByItsNumbers) {
  const std::string text = contents(kPages + "vosk_messages.7");
  const std::string messages = text.substr(0, text.find(".Ss Results"));
  EXPECT_EQ(all_groups(messages, "^\\.It ([0-9]+)").size(), std::size_t{VK_MESSAGE_COUNT});
  for (int number = 0; number < VK_MESSAGE_COUNT; ++number) {
    const std::string item = "\n.It " + std::to_string(number);
    const std::size_t from =
        messages.find(item + " Pq") != std::string::npos ? messages.find(item + " Pq") : messages.find(item + "\n");
    ASSERT_NE(from, std::string::npos) << number;
    const std::string entry = messages.substr(from, messages.find("\n.It ", from + 1) - from);
    const std::string id = vk_mesgtbl_vk_lib[number];
    if (id.starts_with("2615-")) {
      EXPECT_THAT(entry, HasSubstr(id.substr(0, 8))) << number;
    }
    EXPECT_THAT(entry, HasSubstr("\n.br\n")) << number << " without what to do";
  }
}

TEST(ManPageExamples, CompileWithoutAWarningAndRun) {
  files::TemporaryDirectory folder;
  for (const std::string &name : own_pages("3")) {
    SCOPED_TRACE(name);
    const std::string program = example(contents(kPages + name));
    ASSERT_THAT(program, HasSubstr("int main(")) << "no complete program";
    ASSERT_TRUE(files::write(folder / "example.c", program));
    const std::string library = name.starts_with("cu_") ? "qx_cu" : "qx_vosk";
    const auto compiled =
        run_shell(folder.path(), "cc -std=c11 -Wall -Wextra -Werror example.c -o example -I" QX_SOURCE_DIR
                                 "/include -L" QX_BINARY_DIR "/lib -Wl,-rpath," QX_BINARY_DIR "/lib -l" +
                                     library);
    EXPECT_EQ(compiled.status, 0) << compiled.output << program;
    const auto run = run_shell(folder.path(), "env -u VOSKDEBUG ./example");
    EXPECT_EQ(run.status, 0) << run.output << program;
  }
}

}  // namespace
