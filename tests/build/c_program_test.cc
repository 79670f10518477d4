// A plain C program that uses every name of the interface links with the two libraries alone and runs.
#include <gtest/gtest.h>

#include <string>

#include "dev/run_shell.h"
#include "support/files.h"

namespace {

const char kProgram[] = R"(
#include <qx_vosk.h>
#include <stdio.h>
#include <string.h>

typedef void (*routine)(void);
#define ALL(name) (routine)name
int main(void) {
  const routine all[] = {
      ALL(vk_init_1), ALL(vk_init_main_1), ALL(vk_test_stack_1), ALL(vk_test_stack_main_1), ALL(vk_push_stack_1),
      ALL(vk_push_stack_cmd_1), ALL(vk_log_error_1), ALL(vk_mk_syslog_msg_1), ALL(vk_generate_eid),
      ALL(vk_generate_eid_2), ALL(vk_decode_eid), ALL(vk_decode_eid_2), ALL(vk_display_fid_1),
      ALL(vk_display_fid_main_1), ALL(vk_obtain_ipaddrs), ALL(vk_get_ipaddr), ALL(vk_conv_ipaddr), ALL(vk_test_ipaddr),
      ALL(vk_l64a_r), ALL(vk_a64l), ALL(vk_selector_substr), ALL(vk_debug), ALL(vk_is_debug_file_set),
      ALL(vk_create_debug_file), ALL(fclear), ALL(vk_test_for_file), ALL(vk_test_for_dir), ALL(vk_determine_max_fsize),
      ALL(vk_allocate_file), ALL(vk_make_dump_file_copy), ALL(vk_make_file_info_msg), ALL(vk_determine_bsd_priority),
      ALL(vk_truncate_description), ALL(vk_get_msgcat_name)};
  for (size_t i = 0; i < sizeof all / sizeof all[0]; ++i)
    if (all[i] == 0) return 1;
  printf("%zu %s|%s", sizeof all / sizeof all[0], vk_mesgtbl_vk_lib[44] + strlen(vk_mesgtbl_vk_lib[44]) - 28,
         vk_badid_vk_lib);
  return vk_test_for_dir(0, NULL, "/");
}
)";

TEST(CProgram, LinksWithEveryNameAndWithoutTheCxxRuntime) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "program.c", kProgram));
  const std::string library = QX_LIBRARY_DIR;
  const vk::test::shell_result built = vk::test::run_shell(
      directory.path(), "${CC:-cc} -std=c11 -Wall -Wextra -pedantic -Werror -I'" QX_SOURCE_DIR
                        "/include' program.c -L'" +
                            library + "' -lqx_vosk -lqx_cu -Wl,-rpath,'" + library + "' -o program");
  ASSERT_EQ(built.status, 0) << built.output;
  const vk::test::shell_result ran = vk::test::run_shell(directory.path(), "./program");
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.output, "34 to the process environment.\n|Bad message id for message set vk_lib");
  const vk::test::shell_result needed = vk::test::run_shell(directory.path(), "LC_ALL=C ldd program");
  EXPECT_EQ(needed.status, 0) << needed.output;
  EXPECT_EQ(needed.output.find("stdc++"), std::string::npos) << needed.output;
  EXPECT_NE(needed.output.find(library + "/libqx_vosk.so.1"), std::string::npos) << needed.output;
  EXPECT_NE(needed.output.find(library + "/libqx_cu.so.1"), std::string::npos) << needed.output;
}

}  // namespace
