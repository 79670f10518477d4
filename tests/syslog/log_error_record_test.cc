// The record of an incident in the System Log: its text, its bounds, and the calls that send it.
#include <gmock/gmock.h>

#include <climits>

#include "log_error_test.h"

namespace {

using namespace log_error_test;
using testing::ElementsAre;
using testing::IsEmpty;

class LogErrorRecord : public LogErrorTest {};

// The text without message, reference, template digits and details file.
constexpr std::size_t kFixedLength = 201;

TEST_F(LogErrorRecord, RecordIsSentThroughOneConnectionOfItsOwn) {
  EXPECT_EQ(record({}), 0);
  const std::string text =
      "(Recorded using libqx_vosk.a cv 2):::Error ID: 822.....2zIZ/.7S..XO.8....................:::Reference ID: "
      ":::Template ID: 0:::Details File: :::Location: product,source.c,1.7,321                      :::the message";
  EXPECT_THAT(log_, ElementsAre("openlog(\"resource\", 0x9, 24) = 0",
                                "syslog(3, \"" + text + "\", \"" + text + "\") = 0", "closelog() = 0"));
  EXPECT_EQ(text.size(), kFixedLength + 1 + std::string("the message").size());
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error"));
}

TEST_F(LogErrorRecord, IdentifierIsReturnedWithItsZeroByte) {
  EXPECT_EQ(record({}), 0);
  EXPECT_EQ(eid(), std::string(kErrorEid) + '\0');
}

TEST_F(LogErrorRecord, EveryPieceStandsInItsPlace) {
  Incident incident;
  incident.assoc_fid = "75Oh2...2zIZ/.7S..XO.8....................";
  incident.template_id = 0xDEADBEEF;
  incident.reserved = 0xFFFFFFFFFFFFFFFF;
  EXPECT_EQ(record(incident), 0);
  EXPECT_EQ(sent(),
            record_text(kErrorEid, "75Oh2...2zIZ/.7S..XO.8....................", "deadbeef", "", "the message"));
}

TEST_F(LogErrorRecord, TemplateIsPlainHexadecimal) {
  for (const auto &[templ, digits] :
       std::map<std::uint32_t, std::string>{{0, "0"}, {10, "a"}, {0x1234, "1234"}, {0xFFFFFFFF, "ffffffff"}}) {
    Incident incident;
    incident.template_id = templ;
    record(incident);
    EXPECT_EQ(sent(), record_text(kErrorEid, "", digits, "", "the message"));
  }
}

TEST_F(LogErrorRecord, PriorityAndIdentifierFollowTheEventType) {
  const struct {
    int type, priority;
    const char *eid;
  } rows[] = {
      {0, 0, "82/.....2zIZ/.7S..XO.8...................."},  {1, 3, "822.....2zIZ/.7S..XO.8...................."},
      {2, 5, "824.....2zIZ/.7S..XO.8...................."},  {3, 4, "823.....2zIZ/.7S..XO.8...................."},
      {4, 6, "825.....2zIZ/.7S..XO.8...................."},  {5, 7, "826.....2zIZ/.7S..XO.8...................."},
      {6, 7, "826.....2zIZ/.7S..XO.8...................."},  {7, 7, "826.....2zIZ/.7S..XO.8...................."},
      {-1, 7, "826.....2zIZ/.7S..XO.8...................."},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.type);
    Incident incident;
    incident.event_type = row.type;
    EXPECT_EQ(record(incident), row.type < 0 || row.type > 6 ? 33 : 0);
    EXPECT_EQ(eid(), std::string(row.eid) + '\0');
    EXPECT_EQ(sent(), record_text(row.eid, "", "0", "", "the message"));
    EXPECT_THAT(log_.at(1), testing::StartsWith("syslog(" + std::to_string(row.priority) + ", "));
  }
}

TEST_F(LogErrorRecord, ResourceIsGivenToOpenlogAsItIs) {
  for (const auto &[resource, shown] :
       std::map<const char *, std::string>{{nullptr, "null"}, {"", "\"\""}, {"%n %s", "\"%n %s\""}}) {
    Incident incident;
    incident.resource = resource;
    record(incident);
    EXPECT_EQ(log_.at(0), "openlog(" + shown + ", 0x9, 24) = 0");
  }
}

TEST_F(LogErrorRecord, MissingPiecesOfTheLocationHaveTheirFixedTexts) {
  Incident incident;
  incident.lpp = nullptr;
  incident.source_file = "";
  incident.sid = nullptr;
  incident.line = 0;
  EXPECT_EQ(record(incident), 29);
  EXPECT_THAT(sent(), testing::HasSubstr(":::Location: qrn_product,unknown_file,no_version_num,0     :::the message"));
  incident.line = -1;
  record(incident);
  EXPECT_THAT(sent(), testing::HasSubstr("no_version_num,0     :::"));
}

TEST_F(LogErrorRecord, LongLocationIsCutWithItsMark) {
  Incident incident;
  incident.lpp = "a product with a name of more than 46 characters";
  EXPECT_EQ(record(incident), 0);
  EXPECT_THAT(sent(), testing::HasSubstr(":::Location: a product with a name of more than 46 charact>:::the message"));
}

TEST_F(LogErrorRecord, MissingMessageEndsTheRecordBehindTheLocation) {
  Incident incident;
  for (const char *format : {static_cast<const char *>(nullptr), ""}) {
    incident.format = format;
    EXPECT_EQ(record(incident), 34);
    EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", ""));
  }
}

TEST_F(LogErrorRecord, MessageThatComesOutEmptyIsNotMissing) {
  Incident incident;
  incident.message = "";
  EXPECT_EQ(record(incident), 0);
  EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", ""));
}

TEST_F(LogErrorRecord, EverythingMissingIsStillSent) {
  Incident incident;
  incident.assoc_fid = incident.resource = incident.lpp = incident.source_file = incident.sid = nullptr;
  incident.line = 0;
  incident.detail_data = nullptr;
  incident.format = nullptr;
  EXPECT_EQ(record(incident), 35);
  EXPECT_EQ(eid(), std::string(kErrorEid) + '\0');
  const std::string text = std::string("(Recorded using libqx_vosk.a cv 2):::Error ID: ") + kErrorEid +
                           ":::Reference ID: :::Template ID: 0:::Details File: :::Location: "
                           "qrn_product,unknown_file,no_version_num,0     :::";
  EXPECT_THAT(log_, ElementsAre("openlog(null, 0x9, 24) = 0", "syslog(3, \"" + text + "\", \"" + text + "\") = 0",
                                "closelog() = 0"));
}

TEST_F(LogErrorRecord, NullBufferStillHasAnIdentifierInTheRecord) {
  Incident incident;
  incident.wants_eid = false;
  EXPECT_EQ(record(incident), 27);
  EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", "the message"));
}

TEST_F(LogErrorRecord, WithoutAnAddressThereIsNoIdentifierAndTheBufferStays) {
  const char *const addresses[] = {nullptr, "", "short", ".XO.8...................", ".XO.8....................."};
  for (const char *address : addresses) {
    if (address != nullptr)
      set("VOSKADDR", address);
    else
      unset("VOSKADDR");
    EXPECT_EQ(record({}), 37) << (address != nullptr ? address : "unset");
    EXPECT_EQ(eid(), std::string(43, '?'));
    EXPECT_EQ(sent(), record_text("", "", "0", "", "the message"));
  }
}

TEST_F(LogErrorRecord, ClockThatFailsLeavesNoIdentifierEither) {
  platform::Calls calls;
  calls.fail_nth("gettimeofday", 1, EFAULT);
  EXPECT_EQ(record({}, calls), 37);
  EXPECT_EQ(sent(), record_text("", "", "0", "", "the message"));
}

// --- 992 characters and no more ---

TEST_F(LogErrorRecord, WholeRecordStopsAt992Characters) {
  const std::size_t room = 992 - (kFixedLength + 1);
  for (std::size_t length : {room - 1, room, room + 1, room + 2, std::size_t{944}, std::size_t{945}, std::size_t{946},
                             std::size_t{947}, std::size_t{100000}}) {
    Incident incident;
    incident.message = std::string(length, 'm');
    EXPECT_EQ(record(incident), 0);
    EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", std::string(std::min(length, room), 'm'))) << length;
    EXPECT_EQ(sent().size(), std::min<std::size_t>(992, kFixedLength + 1 + length));
  }
}

TEST_F(LogErrorRecord, LongReferenceTakesTheRoomOfWhatFollowsIt) {
  // 106 characters stand before the reference, 96 between it and the message.
  for (std::size_t length : {0U, 42U, 782U, 783U, 784U, 789U, 790U, 791U, 840U, 885U, 886U, 887U, 100000U}) {
    Incident incident;
    const std::string reference(length, 'r');
    incident.assoc_fid = reference.c_str();
    incident.message = "message";
    EXPECT_EQ(record(incident), 0);
    EXPECT_EQ(sent(), record_text(kErrorEid, reference, "0", "", "message").substr(0, 992)) << length;
  }
}

// --- The message is the caller's format ---

TEST_F(LogErrorRecord, MessageIsFormattedWithItsArguments) {
  vk_eid_t made;
  platform::Calls calls;
  calls.during([&] {
    vk_log_error_1(&made, "", "r", "p", "f", "v", 1, 0, 1, 0, "d", 1, nullptr, "%2$s of %1$d, %3$c%4$s%5$.2f%6$ld", 12,
                   "ten", 'x', "", 2.5, LONG_MIN);
  });
  EXPECT_THAT(calls.calls().at(calls.calls().size() - 2).data,
              testing::EndsWith(":::ten of 12, x2.50-9223372036854775808"));
}

TEST_F(LogErrorRecord, NoOtherCallsAreMadeThanTheClocks) {
  platform::Calls calls;
  record({}, calls);
  EXPECT_THAT(calls.names(), ElementsAre("getenv", "gettimeofday", "getenv", "openlog", "syslog", "closelog"));
}

}  // namespace
