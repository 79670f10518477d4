// A record is its own format: "%%" and "%m" keep what they mean to syslog, and no other percent sign is a conversion.
#include <gmock/gmock.h>

#include <cerrno>
#include <memory>

#include "log_error_test.h"
#include "vk_log_error/record_text.h"

namespace {

using namespace log_error_test;

class PercentSign : public LogErrorTest {
 protected:
  // The format that was handed to syslog.
  std::string format() const {
    const std::string &call = log_.at(1);
    const std::size_t from = call.find('"') + 1;
    return call.substr(from, call.find("\", \"", from) - from);
  }
};

std::string as_format(const std::string &record) {
  // On the heap, so that a sanitizer sees both ends of the buffer.
  const auto buffer = std::make_unique<char[][vk::kLogFormat]>(1);
  return vk::as_format(record.c_str(), buffer[0]);
}

TEST_F(PercentSign, PairsAndErrnoStayAndEverythingElseIsDoubled) {
  const std::pair<const char *, const char *> rows[] = {
      {"", ""},         {"plain", "plain"},  {"%", "%%"},         {"%%", "%%"},
      {"%%%", "%%%%"},  {"%%%%", "%%%%"},    {"%%%%%", "%%%%%%"}, {"%m", "%m"},
      {"%%m", "%%m"},   {"%%%m", "%%%m"},    {"%M", "%%M"},       {"%s", "%%s"},
      {"%n", "%%n"},    {"%d%n", "%%d%%n"},  {"%1$s", "%%1$s"},   {"%5m", "%%5m"},
      {"%-m", "%%-m"},  {"%*d", "%%*d"},     {"%%s", "%%s"},      {"%%%s", "%%%%s"},
      {"% %", "%% %%"}, {"%m%m%", "%m%m%%"}, {"m%", "m%%"},       {"a%%b%c%md%", "a%%b%%c%md%%"},
  };
  for (const auto &[record, format] : rows) EXPECT_EQ(as_format(record), format) << record;
}

TEST_F(PercentSign, RecordWithoutOneIsHandedOverItself) {
  const auto buffer = std::make_unique<char[][vk::kLogFormat]>(1);
  const char record[] = "no percent sign";
  EXPECT_EQ(vk::as_format(record, buffer[0]), record);
  EXPECT_NE(vk::as_format("%", buffer[0]), record);
}

TEST_F(PercentSign, LongestRecordHasRoomWhenEverySignIsDoubled) {
  std::string record, format;
  for (int i = 0; i < 496; ++i) {
    record += "%s";
    format += "%%s";
  }
  EXPECT_EQ(as_format(record), format);
  EXPECT_EQ(as_format(std::string(992, '%')), std::string(992, '%'));
  EXPECT_EQ(as_format("x" + std::string(991, '%')), "x" + std::string(992, '%'));
  EXPECT_EQ(as_format(std::string(991, 'x') + "%"), std::string(991, 'x') + "%%");
}

// --- Through the entry point ---

TEST_F(PercentSign, MessageIsPrintedAsItIs) {
  Incident incident;
  incident.message = "100% of %n, %s, %1$s and %";
  EXPECT_EQ(record(incident), 0);
  EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", incident.message));
  EXPECT_THAT(format(), testing::EndsWith(":::100%% of %%n, %%s, %%1$s and %%"));
}

// Two signs that came out of the formatting are a unit; so one of them is printed.
TEST_F(PercentSign, PairInTheFormattedMessageIsPrintedAsOne) {
  Incident incident;
  incident.message = "100%% sure";
  EXPECT_EQ(record(incident), 0);
  EXPECT_THAT(format(), testing::EndsWith(":::100%% sure"));
  EXPECT_THAT(sent(), testing::EndsWith(":::100% sure"));
  incident.format = "100%% sure";
  EXPECT_EQ(record(incident), 0);
  EXPECT_THAT(format(), testing::EndsWith(":::100%% sure"));
  EXPECT_THAT(sent(), testing::EndsWith(":::100% sure"));
}

TEST_F(PercentSign, EveryOtherPieceIsGuardedAlike) {
  set("VOSKADDR", "%n%s%1$s%99$n%%%5$*d.%n%s");
  Incident incident;
  incident.assoc_fid = "%n%s%m%";
  incident.lpp = "%lpp";
  incident.source_file = "/src/%s.c";
  incident.sid = "%I%";
  errno = EACCES;
  EXPECT_EQ(record(incident), 0);
  EXPECT_THAT(format(), testing::HasSubstr("2zIZ/.7S.%%n%%s%%1$s%%99$n%%%%5$*d.%%n%%s:::Reference ID: %%n%%s%m%%:::"));
  EXPECT_THAT(format(), testing::HasSubstr(":::Location: %%lpp,%%s.c,%%I%%,321 "));
  EXPECT_THAT(sent(), testing::HasSubstr(":::Reference ID: %n%sPermission denied%:::"));
}

// The cap counts before the doubling: a sign that is the last of the 992 characters is doubled behind them.
TEST_F(PercentSign, CapCountsBeforeTheDoubling) {
  const std::size_t room = 992 - 202;
  for (const auto &[message, kept] : std::map<std::string, std::string>{
           {std::string(room - 1, 'x') + "%s", std::string(room - 1, 'x') + "%%"},
           {std::string(room - 1, 'x') + "%%", std::string(room - 1, 'x') + "%%"},
           {std::string(room - 1, 'x') + "%m", std::string(room - 1, 'x') + "%%"},
           {std::string(room - 2, 'x') + "%m", std::string(room - 2, 'x') + "%m"},
           {std::string(room - 2, 'x') + "%%", std::string(room - 2, 'x') + "%%"},
       }) {
    Incident incident;
    incident.message = message;
    EXPECT_EQ(record(incident), 0);
    EXPECT_EQ(format(), record_text(kErrorEid, "", "0", "", kept));
  }
}

// --- errno ---

TEST_F(PercentSign, ErrnoOfTheEntryIsPrintedByTheMessageAndByTheRecord) {
  Incident incident;
  incident.format = "%s, %m";
  incident.message = "later %m";
  for (int error : {EACCES, ENOSPC}) {
    errno = error;
    EXPECT_EQ(record(incident), 0);
    EXPECT_THAT(format(), testing::EndsWith(std::string(":::later %m, ") + std::strerror(error)));
    EXPECT_THAT(sent(),
                testing::EndsWith(std::string(":::later ") + std::strerror(error) + ", " + std::strerror(error)));
  }
}

// The identifier and the copy fail, a trace file is made: all of that sets errno on the way.
TEST_F(PercentSign, ErrnoOfTheEntrySurvivesWhatFailsOnTheWay) {
  unset("VOSKADDR");
  set("VOSKDEBUG", "/no/such/directory/trace");
  Incident incident;
  incident.detail_data = nullptr;
  incident.detail_file = "/no/such/file";
  incident.format = "%s, %m";
  incident.message = "later %m";
  errno = EDOM;
  EXPECT_EQ(record(incident), 32);
  const std::string text = std::strerror(EDOM);
  EXPECT_THAT(sent(), testing::EndsWith(":::later " + text + ", " + text));
}

TEST_F(PercentSign, ErrnoOfTheEntryIsPrintedWithoutAMessageToo) {
  Incident incident;
  incident.assoc_fid = "%m";
  incident.detail_data = nullptr;
  incident.detail_file = "/no/such/file";
  incident.format = nullptr;
  errno = EDOM;
  EXPECT_EQ(record(incident), 32);
  EXPECT_THAT(sent(), testing::HasSubstr(std::string(":::Reference ID: ") + std::strerror(EDOM) + ":::"));
}

// A conversion that fails leaves its own error; the message is then left out.
TEST_F(PercentSign, MessageThatCannotBeFormattedIsLeftOutAndItsErrorIsNotPrinted) {
  static const wchar_t kNoText[] = {0x7FFFFFFF, 0};
  platform::Calls calls;
  errno = EDOM;
  EXPECT_EQ(calls.during([&] {
    return vk_log_error_1(&eid_, "%m", "r", "p", "f", "v", 1, 0, VOSK_ERROR, 0, "d", 1, nullptr, "text %ls", kNoText);
  }),
            0);
  const std::string text = calls.calls().at(calls.calls().size() - 2).data;
  EXPECT_THAT(text, testing::HasSubstr(std::string(":::Reference ID: ") + std::strerror(EDOM) + ":::"));
  EXPECT_THAT(text, testing::EndsWith(":::"));
}

}  // namespace
