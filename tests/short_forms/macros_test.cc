// Each macro records with file, line, product and version filled in, and takes every argument to its place.
#define VK_PRODUCT "orders"
#define VK_SOURCE_VERSION "1.4"
#define VK_RESOURCE "orderd"
#define VK_CATALOGUE "orders.cat"
#define VK_CHECK_FORMAT
#include <qx_vosk_macros.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "recorded.h"

namespace {

using short_forms::logged;
using short_forms::stack;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kCause[VK_EID_SIZE] = "822.....2zIZ/.7S..XO.8....................";

class Macros : public testing::Test, short_forms::NoEnvironment {
 protected:
  Macros() { EXPECT_EQ(vk_init_1(VK_STACK_CREAT), VK_SUCCESS); }
  std::string details_file() const {
    files::write(directory_ / "details", "the details\n");
    return directory_ / "details";
  }
  vk_eid_t eid_ = "";
  files::TemporaryDirectory directory_;
};

TEST_F(Macros, PushRecordsWhoWhereAndWhy) {
  EXPECT_EQ(VK_PUSH(&eid_, kCause, "no such file", "cannot open %s", "/etc/orders.conf"), VK_NO_MSG_INFO);
  const std::string record = stack();
  for (const char *text : {"macros_test.cc", "orders", "1.4", "no such file", "cannot open %s", "/etc/orders.conf"})
    EXPECT_THAT(record, HasSubstr(text));
  EXPECT_THAT(record, HasSubstr(kCause));
  EXPECT_THAT(record, HasSubstr(std::string(eid_)));
  EXPECT_EQ(std::strlen(eid_), VK_EID_SIZE - 1U);
}

TEST_F(Macros, PushOfAFileCopiesTheDetails) {
  EXPECT_EQ(VK_PUSH_FILE(&eid_, NULL, details_file().c_str(), "it failed"), VK_NO_MSG_INFO);
  const auto copies = files::list(sandbox::kDumps);
  ASSERT_EQ(copies.size(), 1U);
  EXPECT_THAT(stack(), HasSubstr(copies[0]));
}

TEST_F(Macros, PushOfAMessageNamesItInTheCatalogue) {
  EXPECT_EQ(VK_PUSH_MESSAGE(&eid_, NULL, "why", 3, 4711, "it failed: %d", 7), VK_SUCCESS);
  EXPECT_THAT(stack(), HasSubstr("orders.cat"));
  EXPECT_THAT(stack(), HasSubstr(files::u32(4711)));
}

TEST_F(Macros, LogRecordsInTheSystemLog) {
  int line = 0, result = -1;
  const std::string sent = logged(
      [&] { result = VK_LOG_ERROR(&eid_, kCause, VOSK_STATE, "why", "order %d of %s", 7, "batch"), line = __LINE__; });
  EXPECT_EQ(result, VK_SUCCESS);
  EXPECT_THAT(sent, HasSubstr(std::string("Error ID: ") + eid_ + ":::Reference ID: " + kCause));
  EXPECT_THAT(sent, HasSubstr("Location: orders,macros_test.cc,1.4," + std::to_string(line)));
  EXPECT_THAT(sent, testing::EndsWith(":::order 7 of batch"));
  EXPECT_THAT(stack(), IsEmpty());
}

TEST_F(Macros, LogWithoutDetailsSaysSo) {
  int result = -1;
  EXPECT_THAT(logged([&] { result = VK_LOG_ERROR(&eid_, NULL, VOSK_ERROR, NULL, "it failed"); }), Not(IsEmpty()));
  EXPECT_EQ(result, VK_NO_DETAILS);
}

TEST_F(Macros, LogOfAFileCopiesTheDetails) {
  int result = -1;
  const std::string sent =
      logged([&] { result = VK_LOG_FILE(&eid_, NULL, VOSK_ERROR, details_file().c_str(), "it failed"); });
  EXPECT_EQ(result, VK_SUCCESS);
  EXPECT_THAT(sent, ContainsRegex(":::Details File: /var/adm/vosk/dumps/[^:]+:::"));
}

}  // namespace
