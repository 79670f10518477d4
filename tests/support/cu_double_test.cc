#include "support/cu_double.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;

int collect(cu_arg_t **out, int *count, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  int result = cu_set_error_args_1(format, arguments, out, count);
  va_end(arguments);
  return result;
}

class CuDouble : public testing::Test {
 protected:
  void SetUp() override { cu_double::reset(); }
  void TearDown() override { cu_double::reset(); }
};

TEST_F(CuDouble, RecordsAReportWithItsInserts) {
  static const char text[] = "%2$s: no room for %1$d of 100%% bytes";
  EXPECT_EQ(cu_set_error_1(40, 0, "vosk.cat", 1, 36, text, 8192, "/var"), 40);
  EXPECT_EQ(cu_set_no_error_1(), 0);
  EXPECT_THAT(cu_double::reports(), ElementsAre("40: vosk.cat 1/36 (8192, \"/var\")", "no error"));
  EXPECT_EQ(cu_double::errors().at(0).text_pointer, text);
  EXPECT_EQ(cu_double::formatted(cu_double::errors().at(0)), "/var: no room for 8192 of 100% bytes");
}

TEST_F(CuDouble, CopiesTheStringsOfAReport) {
  char insert[] = "before";
  cu_set_error_1(1, 0, "vosk.cat", 1, 2, "%s", insert);
  insert[0] = 'X';
  EXPECT_EQ(cu_double::errors().at(0).inserts.at(0).text, "before");
}

TEST_F(CuDouble, HandsOutTheArgumentsOfAMessage) {
  cu_arg_t *arguments = nullptr;
  int count = -1;
  EXPECT_EQ(collect(&arguments, &count, "%s %d %lu", "text", -3, 5000000000UL), 0);
  ASSERT_EQ(count, 3);
  EXPECT_EQ(arguments[0].type, CU_ARG_STRING);
  EXPECT_STREQ(arguments[0].value.string, "text");
  EXPECT_EQ(arguments[1].value.i64, -3);
  EXPECT_EQ(arguments[2].value.u64, 5000000000u);
  EXPECT_EQ(cu_double::arguments_outstanding(), 1);
  cu_rel_error_args_1(arguments, count);
  EXPECT_EQ(cu_double::arguments_outstanding(), 0);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("args 3 = 0", "release 3"));
}

TEST_F(CuDouble, FailsToCollectWithACount) {
  cu_double::fail_arguments(-1, 7);
  cu_arg_t *arguments = nullptr;
  int count = 0;
  EXPECT_EQ(collect(&arguments, &count, "%s", "text"), -1);
  EXPECT_EQ(count, 7);
  EXPECT_NE(arguments, nullptr) << "what must not be used, in case somebody does";
}

TEST_F(CuDouble, HandsOutAMadeUpArray) {
  cu_arg_t made{};
  made.type = 99;
  made.value.u64 = 0x1122334455667788;
  cu_double::give_arguments({made});
  cu_arg_t *arguments = nullptr;
  int count = 0;
  EXPECT_EQ(collect(&arguments, &count, "nothing"), 0);
  ASSERT_EQ(count, 1);
  EXPECT_EQ(arguments[0].type, 99);
  cu_rel_error_args_1(arguments, count);
}

TEST_F(CuDouble, NamesAProcessOrFails) {
  cu_proc_info_t record{};
  EXPECT_EQ(cu_get_proc_info_1(&record, getpid()), 1);
  EXPECT_STREQ(record.command, "cu_double_test");
  cu_double::give_process_name("given");
  EXPECT_EQ(cu_get_proc_info_1(&record, 12), 1);
  EXPECT_STREQ(record.command, "given");
  cu_double::fail_process_info();
  EXPECT_EQ(cu_get_proc_info_1(&record, 12), 0);
}

}  // namespace
