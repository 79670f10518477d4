// The public headers as a caller's compiler sees them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dev/run_shell.h"
#include "support/files.h"

namespace {

using vk::test::run_shell;
using vk::test::shell_result;

struct Language {
  const char *compiler, *option, *standard;
  bool cxx;
};
const Language kLanguages[] = {
    {"gcc", "-x c", "c11", false},        {"gcc", "-x c", "c17", false},     {"gcc", "-x c", "gnu11", false},
    {"g++", "-x c++", "c++17", true},     {"g++", "-x c++", "c++20", true},  {"clang", "-x c", "c11", false},
    {"clang", "-x c", "c17", false},      {"clang", "-x c", "gnu17", false}, {"clang++", "-x c++", "c++17", true},
    {"clang++", "-x c++", "c++20", true},
};

class Headers : public testing::Test {
 protected:
  static bool have(const char *compiler) { return run_shell("/", std::string("command -v ") + compiler).status == 0; }

  shell_result compile(const Language &language, const std::string &source, const std::string &options = "") {
    EXPECT_TRUE(files::write(directory_ / "caller", source));
    return run_shell(
        directory_.path(),
        std::string("LC_ALL=C ") + language.compiler + " " + language.option + " -std=" + language.standard +
            " -Wall -Wextra -pedantic -Werror -Wundef -Wconversion -Wshadow -I'" + QX_SOURCE_DIR "/include' " +
            options + " " + (options.find("-c ") == std::string::npos ? "-fsyntax-only " : "") + "caller");
  }
  // Runs `check` for every compiler that is there; all must be where CI is set.
  template <class Check>
  void for_each_language(Check check) {
    std::string missing;
    for (const Language &language : kLanguages) {
      SCOPED_TRACE(std::string(language.compiler) + " " + language.standard);
      if (have(language.compiler)) {
        check(language);
      } else {
        missing = language.compiler;
      }
    }
    if (!missing.empty()) CANNOT_RUN_HERE("the compiler " + missing + " is not installed; the others were tried");
  }

  files::TemporaryDirectory directory_;
};

TEST_F(Headers, CompileAloneAndTwiceInEveryLanguage) {
  for_each_language([this](const Language &language) {
    for (const char *header : {"qx_vosk.h", "qx_cu.h", "qx_vosk_macros.h", "qx_vosk.hpp"}) {
      if (!language.cxx && std::string(header).ends_with(".hpp")) continue;
      if (std::string(language.standard) == "c++17" && std::string(header).ends_with(".hpp")) continue;  // is C++20
      SCOPED_TRACE(header);
      const std::string include = std::string("#include <") + header + ">\n";
      const shell_result once = compile(language, include + "int used;\n");
      EXPECT_EQ(once.status, 0) << once.output;
      const shell_result twice =
          compile(language, include + include + "int used;\n", "-fvisibility=hidden -Wformat=2 -DVK_CHECK_FORMAT");
      EXPECT_EQ(twice.status, 0) << twice.output;
    }
  });
}

// A caller with hidden visibility still sees the library's names as another file's.
TEST_F(Headers, LeaveTheVisibilityOfTheCallersOwnNamesAlone) {
  for_each_language([this](const Language &language) {
    const shell_result result = compile(language,
                                        "#include <qx_vosk.h>\nint mine(void);\nint mine(void) { return "
                                        "vk_test_stack_1(); }\n",
                                        "-fvisibility=hidden -fPIC -c -o caller.o");
    ASSERT_EQ(result.status, 0) << result.output;
    const shell_result names = run_shell(directory_.path(), "LC_ALL=C readelf -sW caller.o");
    EXPECT_NE(vk::test::first_group(names.output, "(GLOBAL +HIDDEN.*mine)"), "") << names.output;
    EXPECT_NE(vk::test::first_group(names.output, "(GLOBAL +DEFAULT +UND vk_test_stack_1)"), "") << names.output;
  });
}

TEST_F(Headers, ConstantsAreFitForThePreprocessor) {
  for_each_language([this](const Language &language) {
    const shell_result result = compile(language,
                                        "#include <qx_vosk.h>\n"
                                        "#if VOSK_UNSUPPORTED != -99 || VK_UNEXPECTED != 99 || VOSK_DEBUG != 6\n"
                                        "#error values\n"
                                        "#endif\n"
                                        "int used;\n");
    EXPECT_EQ(result.status, 0) << result.output;
  });
}

// The calls are right as far as printf can tell, and use forms that strict compilers warn of.
const char kLegalCalls[] = R"(
#include <qx_vosk.h>
#include <stddef.h>
int used(vk_eid_t *eid, const char *text);
int used(vk_eid_t *eid, const char *text) {
  return vk_debug("t", "r", "") + vk_debug("t", "r", "%2$s %1$d", 1, text) +
         vk_push_stack_1(eid, NULL, "r", "p", "f", "v", 1, 0, NULL, NULL, "c", 1, 2, "") +
         vk_push_stack_1(eid, NULL, "r", "p", "f", "v", 1, 0, NULL, NULL, "c", 1, 2, NULL) +
         vk_push_stack_cmd_1(eid, NULL, "r", "p", "f", "v", 1, 0, NULL, NULL, "c", 1, 2, "%2$s %1$s", text, text) +
         vk_log_error_1(eid, NULL, "r", "p", "f", "v", 1, 0, VOSK_ERROR, 0, NULL, 0, NULL, "%1$s", text);
}
)";

TEST_F(Headers, TakePositionalAndEmptyFormatsWithoutAWarning) {
  for_each_language([this](const Language &language) {
    const shell_result result = compile(language, kLegalCalls, "-Wformat=2");
    EXPECT_EQ(result.status, 0) << result.output;
  });
}

TEST_F(Headers, CheckFormatsOnlyWhereTheCallerAsksForIt) {
  const std::string front = "#include <qx_vosk.h>\n#include <stddef.h>\nint used(void);\nint used(void) { return ";
  const std::string push = "_1(NULL, NULL, \"r\", \"p\", \"f\", \"v\", 1, 0, NULL, NULL, \"c\", 1, 2, ";
  const std::string log = "vk_log_error_1(NULL, NULL, \"r\", \"p\", \"f\", \"v\", 1, 0, 0, 0, NULL, 0, NULL, ";
  struct Row {
    std::string call;
    bool right;
  };
  const Row rows[] = {
      {"vk_debug(\"t\", \"r\", \"%s %d\", \"a\", 1)", true},
      {"vk_debug(\"t\", \"r\", \"%s\", 1)", false},
      {"vk_debug(\"t\", \"r\", \"%d\")", false},
      {"vk_debug(\"%s\", \"%d\", \"plain\")", true},
      {"vk_push_stack" + push + "\"%s %d\", \"a\", 1)", true},
      {"vk_push_stack" + push + "\"%s\", 1)", false},
      {"vk_push_stack" + push + "\"%d\")", false},
      {"vk_push_stack_cmd" + push + "\"%s\", 1)", false},
      {"vk_push_stack_cmd" + push + "\"%c\", 'x')", true},
      {log + "\"%s\", 1)", false},
      {log + "\"%s\", \"a\")", true},
  };
  for_each_language([&](const Language &language) {
    std::string all = front + "0", right = front + "0";
    for (const Row &row : rows) {
      all += " + " + row.call;
      if (row.right) {
        right += " + " + row.call;
        continue;
      }
      SCOPED_TRACE(row.call);
      const shell_result refused = compile(language, front + row.call + "; }\n", "-DVK_CHECK_FORMAT");
      EXPECT_NE(refused.status, 0);
      EXPECT_NE(refused.output.find("-Werror"), std::string::npos) << refused.output;
      EXPECT_NE(refused.output.find("format"), std::string::npos) << refused.output;
    }
    const shell_result unasked = compile(language, all + "; }\n");
    EXPECT_EQ(unasked.status, 0) << unasked.output;
    const shell_result asked = compile(language, right + "; }\n", "-DVK_CHECK_FORMAT");
    EXPECT_EQ(asked.status, 0) << asked.output;
  });
}

}  // namespace
