// The tools where another library has taken the place of libqx_cu: one with the five routines that libqx_vosk needs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dev/run_shell.h"
#include "support/sandbox.h"
#include "tools/shells.h"
#include "tools/tool.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSubsetOf;
using testing::MatchesRegex;
using testing::Not;

namespace {

std::vector<std::string> listed(const std::string &command, const std::string &expression) {
  const auto result = vk::test::run_shell("/", "LC_ALL=C " + command);
  EXPECT_EQ(result.status, 0) << result.output;
  return vk::test::all_groups(result.output, expression);
}

std::map<std::string, std::string> with_five(std::map<std::string, std::string> more = {}) {
  more["LD_LIBRARY_PATH"] = QX_FIVE_ROUTINES;
  return more;
}

TEST(FiveRoutines, AreAllThatTheToolsCannotDoWithout) {
  const std::string symbols = "nm -D --undefined-only " QX_BINARY_DIR "/bin/vosk";
  EXPECT_THAT(listed(symbols, " U (cu_[a-z_0-9]+)"),
              IsSubsetOf({"cu_set_error_1", "cu_set_no_error_1", "cu_set_error_args_1", "cu_rel_error_args_1",
                          "cu_get_proc_info_1"}));
  EXPECT_THAT(listed(symbols, " w (cu_[a-z_0-9]+)"), ElementsAre("cu_get_error_1"));
  EXPECT_THAT(listed("readelf -dW " QX_BINARY_DIR "/bin/vkstkrpt", "NEEDED.*\\[(.*)\\]"),
              Not(Contains(HasSubstr("libqx_"))))
      << "it reads where there is no library";
}

TEST(FiveRoutines, ServeEveryVerb) {
  if (const std::string missing = shells::missing(); !missing.empty()) CANNOT_RUN_HERE(missing);
  const auto r = shells::run("dash",
                             "eval \"$(vosk env create --name five $$)\" || exit\n"
                             "vosk push message || exit\n"
                             "(:; vosk push 'in a subshell'; :)\n"
                             "vosk env show >/dev/null && vosk report\n",
                             with_five());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_THAT(r.out, AllOf(HasSubstr(" five["), HasSubstr(" script.sh:1 message "), HasSubstr("in a subshell")));
}

TEST(FiveRoutines, LeaveTheCodeToTellWhatWentWrong) {
  const tool::result refused = tool::run({"vosk", "push", "m"}, tool::options::with(with_five()));
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("not recorded (15): libqx_vosk returned 15."));
  const tool::result none = tool::run({"vosk", "env", "inherit", "1"}, tool::options::with(with_five()));
  EXPECT_EQ(none.out, "(exit 15)\n");
  EXPECT_THAT(none.err, HasSubstr("no environment (15): libqx_vosk returned 15."));
}

}  // namespace
