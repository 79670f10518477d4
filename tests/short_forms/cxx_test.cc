// The C++ header: identifiers are values, results have their message, texts are data.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.hpp>

#include <chrono>
#include <sstream>

#include "recorded.h"

namespace {

using qx::vosk::decoded;
using qx::vosk::identifier;
using short_forms::logged;
using short_forms::stack;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Version 2, System Log, 14 November 2023, 22:13:20.123456 UTC, 192.0.2.10.
constexpr char kLogged[] = "822.....2zIZ/.7S..XO.8....................";

class Cxx : public testing::Test, short_forms::NoEnvironment {
 protected:
  static void establish() {
    const auto made = qx::vosk::establish();
    EXPECT_TRUE(made.clean()) << made.message;
  }
  static std::string printed(const identifier &id) {
    std::ostringstream stream;
    stream << id;
    return stream.str();
  }
};

TEST_F(Cxx, AnIdentifierIsOfFortyTwoCharactersOrNone) {
  for (const std::string &text : {std::string(), std::string(41, '.'), std::string(43, '.'), std::string(42, '\0')})
    EXPECT_FALSE(identifier::parse(text)) << text.size();
  EXPECT_FALSE(identifier());
  const auto id = identifier::parse(kLogged);
  ASSERT_TRUE(id && *id);
  EXPECT_EQ(printed(*id), kLogged);
}

TEST_F(Cxx, IdentifiersCompare) {
  const auto id = *identifier::parse(kLogged), later = *identifier::parse(std::string(kLogged).replace(41, 1, "/"));
  EXPECT_EQ(id, *identifier::parse(kLogged));
  EXPECT_NE(id, later);
  EXPECT_LT(id, later);
  EXPECT_LT(identifier(), id);
}

TEST_F(Cxx, AnIdentifierSaysWhereAndWhenItsRecordWasMade) {
  const auto says = identifier::parse(kLogged)->decode();
  ASSERT_TRUE(says);
  EXPECT_EQ(says->where, decoded::location::syslog);
  EXPECT_EQ(says->version, 2U);
  EXPECT_EQ(says->when.time_since_epoch(), std::chrono::microseconds(1700000000123456));
  EXPECT_EQ(says->priority, 3U);
  EXPECT_FALSE(says->ipv6);
  EXPECT_FALSE(says->stack);
}

TEST_F(Cxx, WhatIsNoIdentifierSaysNothing) {
  EXPECT_FALSE(identifier().decode());
  EXPECT_FALSE(identifier::parse(std::string(42, '*'))->decode());
}

TEST_F(Cxx, AnIncidentIsRecordedInThreeLines) {
  establish();
  const unsigned line = __LINE__ + 1;
  const auto made = qx::vosk::push({.message = "it failed", .details = "why", .product = "orders"});
  ASSERT_TRUE(made.recorded()) << made.message;
  EXPECT_EQ(made.id.decode()->where, decoded::location::stack);
  EXPECT_EQ(made.id.decode()->stack, files::list(sandbox::kStacks).at(0));
  const std::string record = stack();
  for (const std::string &text : {printed(made.id), std::string("cxx_test.cc"), std::string("orders"),
                                  std::string("why"), std::string("it failed"), files::u32(line)})
    EXPECT_THAT(record, HasSubstr(text));
}

TEST_F(Cxx, EveryMemberOfAnIncidentIsRecorded) {
  establish();
  const auto cause = qx::vosk::push({.message = "first"});
  const files::TemporaryDirectory directory;
  files::write(directory / "details", "the details\n");
  const auto made = qx::vosk::push({.message = "second",
                                    .detail_file = directory / "details",
                                    .cause = cause.id,
                                    .resource = "r",
                                    .product = "p",
                                    .source_version = "v7",
                                    .catalogue = "p.cat",
                                    .message_set = 1,
                                    .message_number = 4711});
  EXPECT_TRUE(made.clean()) << made.message;
  const auto copies = files::list(sandbox::kDumps);
  ASSERT_EQ(copies.size(), 1U);
  const std::string all = stack(), record = all.substr(all.find("second") > 500 ? all.find("second") - 500 : 0);
  for (const std::string &text : {copies[0], std::string("v7"), std::string("p.cat"), files::u32(4711)})
    EXPECT_THAT(record, HasSubstr(text));
  const std::size_t first = all.find(cause.id.text()), again = all.find(cause.id.text(), first + 1);
  EXPECT_NE(again, std::string::npos) << "the cause stands in its own record only";
}

TEST_F(Cxx, AnAttentionIsARecordingWithAMessage) {
  establish();
  const auto made = qx::vosk::push({.message = "it failed"});
  EXPECT_TRUE(made.recorded());
  EXPECT_FALSE(made.clean());
  EXPECT_THAT(made.message, Not(IsEmpty()));
}

TEST_F(Cxx, AnErrorIsNoRecordingAndHasItsMessage) {
  const auto made = qx::vosk::push({.message = "it failed"});  // no environment
  EXPECT_FALSE(made.recorded());
  EXPECT_EQ(made.code, VK_NO_VK_ENVIR);
  EXPECT_THAT(made.message, HasSubstr("An VOSK Environment does not exist"));
  EXPECT_FALSE(made.id);
  EXPECT_THAT(qx::vosk::establish(77).message, HasSubstr("2615-001"));
}

TEST_F(Cxx, AMessageIsDataWhateverIsInIt) {
  establish();
  const std::string message = "100% of %s and %n, %1$s, %";
  EXPECT_TRUE(qx::vosk::push({.message = message}).recorded());
  const std::string shown = logged([&] { EXPECT_TRUE(qx::vosk::log({.message = message}).recorded()); });
  EXPECT_THAT(shown, testing::EndsWith(":::" + message));
  EXPECT_THAT(stack(), HasSubstr("100%% of %%s and %%n, %%1$s, %%"));
}

TEST_F(Cxx, TheSystemLogHasTheCallersLineAndTheCause) {
  establish();
  const auto cause = *identifier::parse(kLogged);
  qx::vosk::recording made;
  unsigned line = 0;
  const std::string sent = logged([&] {
    line = __LINE__ + 1;
    made = qx::vosk::log({.message = "down", .details = "why", .cause = cause, .resource = "r", .product = "p"},
                         VOSK_STATE);
  });
  EXPECT_TRUE(made.recorded()) << made.message;
  EXPECT_EQ(made.id.decode()->where, decoded::location::syslog);
  EXPECT_THAT(sent, HasSubstr("Error ID: " + printed(made.id) + ":::Reference ID: " + kLogged));
  EXPECT_THAT(sent, testing::ContainsRegex("Location: p,cxx_test.cc,[^,]*," + std::to_string(line)));
}

}  // namespace
