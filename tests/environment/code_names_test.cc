// The names under which traces show result codes.
#include "code_names.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

namespace {

const std::map<int, std::string> kUtilityCodes = {
    {0, "VOSK_SUCCESS"},         {-1, "VOSK_FAILURE"},      {-2, "VOSK_INV_PARAM1"},    {-3, "VOSK_INV_PARAM2"},
    {-4, "VOSK_INV_PARAM3"},     {-5, "VOSK_INV_PARAM4"},   {-6, "VOSK_INV_PARAM5"},    {-7, "VOSK_INV_PARAM6"},
    {-8, "VOSK_INV_PARAM7"},     {-9, "VOSK_INV_PARAM8"},   {-10, "VOSK_INV_PARAM9"},   {-11, "VOSK_INV_PARAMCOMBO"},
    {-13, "VOSK_DIR_ACCESS"},    {-14, "VOSK_DIR_MISSING"}, {-15, "VOSK_STALE_FS"},     {-16, "VOSK_PERM_DENIED"},
    {-17, "VOSK_NOT_DIR"},       {-18, "VOSK_NO_SPACE"},    {-20, "VOSK_NO_RESOURCE"},  {-21, "VOSK_LINK_LOOP"},
    {-22, "VOSK_NAME_TOO_LONG"}, {-23, "VOSK_IS_DIR"},      {-24, "VOSK_FILE_MISSING"}, {-25, "VOSK_FILE_ACCESS"},
    {-26, "VOSK_FILE_CORRUPT"},  {-27, "VOSK_FILE_EXIST"},  {-28, "VOSK_LOCK_FAILED"},  {-29, "VOSK_UNLOCK_FAILED"},
    {-30, "VOSK_IO_ERROR"},      {-31, "VOSK_INV_ENV"},     {-36, "VOSK_INV_FID"},      {-38, "VOSK_STACK_STEP_FAILED"},
    {-99, "VOSK_UNSUPPORTED"},
};

const std::map<int, std::string> kReportedCodes = {
    {0, "VK_SUCCESS"},         {1, "VK_INHERIT_SUCCESS"},   {12, "VK_UNKNOWN_OPTION"},   {13, "VK_INHERIT_INV"},
    {14, "VK_ENV_EXIST"},      {15, "VK_NO_VK_ENVIR"},      {16, "VK_ENV_FAILED"},       {17, "VK_ENV_CORRUPT"},
    {18, "VK_NO_MEMORY"},      {20, "VK_STACK_ACCESS"},     {41, "VK_IO_FAILED"},        {99, "VK_UNEXPECTED"},
    {26, "VK_DETAIL_BOTH"},    {27, "VK_NO_EID_PTR"},       {28, "VK_NO_RESOURCE_NAME"}, {29, "VK_NO_FILE_INFO"},
    {30, "VK_NO_DEFAULT_MSG"}, {31, "VK_NO_MSG_INFO"},      {32, "VK_COPY_FAILED"},      {33, "VK_BAD_EVENT_TYPE"},
    {34, "VK_NO_SYSLOG_MSG"},  {35, "VK_NO_DETAILS"},       {36, "VK_BAD_DETAIL_SIZE"},  {37, "VK_NO_UNIQUE_EID"},
    {38, "VK_SYSLOG_FAILED"},  {44, "VK_RECORD_TRUNCATED"},
};

void expect_names(const std::map<int, std::string> &names, const char *(*name)(int) noexcept) {
  for (int code = -300; code <= 300; ++code)
    EXPECT_EQ(name(code), names.count(code) != 0 ? names.at(code) : "(no name)") << code;
  EXPECT_STREQ(name(INT_MAX), "(no name)");
  EXPECT_STREQ(name(INT_MIN), "(no name)");
}

TEST(CodeNames, UtilityCodesHaveTheNamesOfTheTableAndNoOther) {
  expect_names(kUtilityCodes, vk::vosk_name);
}

TEST(CodeNames, ReportedCodesHaveTheNamesOfTheTableAndNoOther) {
  expect_names(kReportedCodes, vk::vk_name);
}

}  // namespace
