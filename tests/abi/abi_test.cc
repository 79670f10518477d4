// The gates before the ABI: each passes what is kept, and fails on the change that it is there for. The libraries
// themselves are compared by "./dev packages", which builds them with debug information.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "dev/run_shell.h"
#include "support/files.h"

namespace {

using testing::HasSubstr;
using vk::test::run_shell;

const std::string kDump = QX_SOURCE_DIR "/abi/libqx_vosk.abi";
const std::string kHeader = QX_SOURCE_DIR "/include/qx_vosk.h", kCuHeader = QX_SOURCE_DIR "/include/qx_cu.h";

class Abi : public testing::Test {
 protected:
  // A copy of `file` in which `edit`, a program of sed, has changed something.
  std::string edited(const std::string &file, const std::string &edit) {
    const std::string copy = folder_ / ("copy" + file.substr(file.rfind('.')));
    EXPECT_EQ(run_shell("/", "sed '" + edit + "' '" + file + "' >" + copy).status, 0);
    EXPECT_NE(files::read(copy), files::read(file)) << "nothing to edit: " << edit;
    return copy;
  }
  static vk::test::shell_result gate(const std::string &arguments) {
    return run_shell(QX_SOURCE_DIR, "sh cmake/dev/abi.sh " + arguments);
  }
  files::TemporaryDirectory folder_;
};

TEST_F(Abi, OfTheHeadersHasEveryCodeThatIsKept) {
  const auto result = gate("compare-codes abi/codes " + kHeader + " " + kCuHeader);
  EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(Abi, GateFailsOnAChangedOrRemovedCodeAndPassesANewOne) {
  const struct {
    const char *edit;
    const char *says;  // null: passes
    const std::string &header = kHeader, &other = kCuHeader;
  } rows[] = {{"s/^#define VOSK_PERM_DENIED (-16)/#define VOSK_PERM_DENIED (-116)/", "VOSK_PERM_DENIED -16"},
              {"s/^#define VK_RECORD_TRUNCATED 44/#define VK_RECORD_TRUNCATED 45/", "VK_RECORD_TRUNCATED 44"},
              {"/^#define VK_STACK_CREAT 1/d", "VK_STACK_CREAT 1"},
              {"s/VK_FLAG_NO_EID = 13/VK_FLAG_NO_EID = 19/", "VK_FLAG_NO_EID 13"},
              {"s/^#define CU_ARG_DOUBLE 6/#define CU_ARG_DOUBLE 9/", "CU_ARG_DOUBLE 6", kCuHeader, kHeader},
              {"s/^#define VK_SUCCESS 0/&\\n#define VK_NEWER 120/", nullptr}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.edit);
    const auto result = gate("compare-codes abi/codes " + edited(row.header, row.edit) + " " + row.other);
    EXPECT_EQ(result.status, row.says == nullptr ? 0 : 1) << result.output;
    if (row.says != nullptr) {
      EXPECT_THAT(result.output, HasSubstr(std::string("gone or changed: ") + row.says));
    }
  }
}

TEST_F(Abi, GateFailsOnARemovedSymbolAndAChangedStructAndPassesANewSymbol) {
  if (run_shell("/", "command -v abidiff").status != 0) CANNOT_RUN_HERE("abigail-tools is missing");
  EXPECT_EQ(gate("compare " + kDump + " " + kDump).status, 0);
  const struct {
    const char *edit, *says;
  } rows[] = {
      {"/<elf-symbol name=.vk_a64l./d; /<function-decl name=.vk_a64l./,/<.function-decl>/d", "vk_a64l"},
      {"/<class-decl name=.vk_syslog_field. /s/size-in-bits=.256./size-in-bits=\"320\"/", "vk_syslog_field"},
      {"/<elf-symbol name=.vk_a64l./{p;s/vk_a64l/vk_newer/}", nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.edit);
    const auto result = gate("compare " + kDump + " " + edited(kDump, row.edit));
    if (row.says == nullptr) {
      EXPECT_EQ(result.status, 0) << result.output;
    } else {
      EXPECT_EQ(result.status, 1) << result.output;
      EXPECT_THAT(result.output, HasSubstr(row.says));
    }
  }
}

TEST_F(Abi, CarriesAProgramThatWasBuiltWithTheFirstHeader) {
  ASSERT_TRUE(files::write(folder_ / "first.c", R"(
#include <qx_vosk.h>
#include <string.h>
int main(void) {
  static const vk_syslog_field_t fields[] = {{4, 1, 2, "Port: ", 1}};
  static const vk_syslog_tmpl_t tmpl = {0, "DOWN", 1, 1, "It is down.", 1, fields};
  const int32_t port = 7;
  char text[946];
  vk_eid_t eid = "";
  if (vk_init_1(VK_STACK_CREAT) != VK_SUCCESS) return 1;
  if (vk_push_stack_1(&eid, 0, "r", "p", "f.c", "1", 1, 0, "why", 0, "c.cat", 1, 1, "%s", "failed") != VK_SUCCESS) return 2;
  if (strlen(eid) != VK_EID_SIZE - 1) return 3;
  vk_mk_syslog_msg_1(&tmpl, &port, sizeof port, text, sizeof text, (nl_catd)-1);
  return strstr(text, "Port: ") != 0 && strchr(text, '7') != 0 ? 0 : 4;
}
)"));
  const auto made = run_shell(folder_.path(),
                              "cc -std=c11 -Wall -Wextra -Werror first.c -o first -I" QX_SOURCE_DIR
                              "/abi/1.0 -L" QX_BINARY_DIR "/lib -lqx_vosk -Wl,-rpath," QX_BINARY_DIR "/lib && ./first");
  EXPECT_EQ(made.status, 0) << made.output;
}

}  // namespace
