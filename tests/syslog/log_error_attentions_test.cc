// What vk_log_error_1 warns of: which flag, which code and message, and in which order.
#include <gmock/gmock.h>

#include <climits>
#include <functional>

#include "log_error_test.h"

namespace {

using namespace log_error_test;
using testing::ElementsAre;

constexpr char kNoFile[] = "/no/such/file";

class LogErrorAttentions : public LogErrorTest {
 protected:
  std::vector<std::string> reported(const Incident &incident) {
    const int result = record(incident);
    const std::vector<std::string> reports = cu_double::sequence();
    EXPECT_FALSE(reports.empty());
    if (!reports.empty()) {
      EXPECT_EQ(result, reports.back() == "no error" ? 0 : std::stoi(reports.back())) << "the last one decides";
    }
    EXPECT_EQ(records_.size(), 1U) << "the record is made in every case";
    for (const cu_double::Report &report : cu_double::errors()) {
      EXPECT_EQ(report.zero, 0);
      EXPECT_EQ(report.text_pointer, vk_mesgtbl_vk_lib[report.number]);
    }
    return reports;
  }
};

std::string attention(int code, int message) {
  return std::to_string(code) + ": vosk.cat 1/" + std::to_string(message) + " (\"vk_log_error\")";
}

TEST_F(LogErrorAttentions, EachOmissionHasItsOwn) {
  const struct {
    const char *what;
    std::function<void(Incident &)> omit;
    std::string report;
  } rows[] = {
      {"nothing", [](Incident &) {}, "no error"},
      {"null resource", [](Incident &i) { i.resource = nullptr; }, attention(28, 2)},
      {"empty resource", [](Incident &i) { i.resource = ""; }, attention(28, 2)},
      {"null file", [](Incident &i) { i.source_file = nullptr; }, attention(29, 3)},
      {"empty file", [](Incident &i) { i.source_file = ""; }, attention(29, 3)},
      {"null version", [](Incident &i) { i.sid = nullptr; }, attention(29, 3)},
      {"empty version", [](Incident &i) { i.sid = ""; }, attention(29, 3)},
      {"null product", [](Incident &i) { i.lpp = nullptr; }, attention(29, 3)},
      {"empty product", [](Incident &i) { i.lpp = ""; }, attention(29, 3)},
      {"line 0", [](Incident &i) { i.line = 0; }, attention(29, 3)},
      {"line -1", [](Incident &i) { i.line = -1; }, attention(29, 3)},
      {"line 1", [](Incident &i) { i.line = 1; }, "no error"},
      {"null message", [](Incident &i) { i.format = nullptr; }, attention(34, 5)},
      {"empty message", [](Incident &i) { i.format = ""; }, attention(34, 5)},
      {"event type 7", [](Incident &i) { i.event_type = 7; }, attention(33, 12)},
      {"event type -1", [](Incident &i) { i.event_type = -1; }, attention(33, 12)},
      {"event type INT_MIN", [](Incident &i) { i.event_type = INT_MIN; }, attention(33, 12)},
      {"no buffer", [](Incident &i) { i.wants_eid = false; }, attention(27, 9)},
      {"null reference", [](Incident &i) { i.assoc_fid = nullptr; }, "no error"},
  };
  for (const auto &row : rows) {
    Incident incident;
    row.omit(incident);
    EXPECT_THAT(reported(incident), ElementsAre(row.report)) << row.what;
  }
}

TEST_F(LogErrorAttentions, AllPiecesOfTheLocationShareOne) {
  Incident incident;
  incident.source_file = incident.sid = incident.lpp = nullptr;
  incident.line = INT_MIN;
  EXPECT_THAT(reported(incident), ElementsAre(attention(29, 3)));
}

TEST_F(LogErrorAttentions, DetailsInEveryCombination) {
  const struct {
    const char *data;
    std::int64_t length;
    const char *file;
    std::string report;
  } rows[] = {
      {nullptr, 0, nullptr, attention(35, 6)},
      {nullptr, 0, "", attention(35, 6)},
      {nullptr, 10, nullptr, attention(35, 6)},
      {"d", 1, nullptr, "no error"},
      {"d", 1, "", "no error"},
      {"", 1, nullptr, "no error"},  // present is what is not null
      {"d", 0, nullptr, attention(36, 7)},
      {"d", 0, "", attention(36, 7)},
      {"d", -1, nullptr, "no error"},  // a negative length is not 0
      {"d", INT64_MIN, nullptr, "no error"},
      {"d", INT64_MAX, nullptr, "no error"},
      {"d", 1, kNoFile, attention(26, 8)},
      {"d", 0, kNoFile, attention(26, 8)},
  };
  for (const auto &row : rows) {
    Incident incident;
    incident.detail_data = row.data;
    incident.detail_len = row.length;
    incident.detail_file = row.file;
    EXPECT_THAT(reported(incident), ElementsAre(row.report))
        << (row.data != nullptr ? row.data : "null") << " " << row.length << " " << (row.file ? row.file : "null");
  }
}

TEST_F(LogErrorAttentions, MissingAddressIsReported) {
  unset("VOSKADDR");
  EXPECT_THAT(reported({}), ElementsAre(attention(37, 10)));
}

TEST_F(LogErrorAttentions, FailedCopyCarriesTheFileAndTheDirectory) {
  Incident incident;
  incident.detail_data = nullptr;
  incident.detail_file = kNoFile;
  EXPECT_THAT(reported(incident),
              ElementsAre("32: vosk.cat 1/4 (\"vk_log_error\", \"/no/such/file\", \"/var/adm/vosk/dumps\")"));
}

// --- Their order ---

TEST_F(LogErrorAttentions, EverythingMissingRaisesFourInTheirOrder) {
  Incident incident;
  incident.assoc_fid = incident.resource = incident.lpp = incident.source_file = incident.sid = nullptr;
  incident.line = 0;
  incident.detail_data = nullptr;
  incident.format = nullptr;
  EXPECT_THAT(reported(incident), ElementsAre(attention(28, 2), attention(29, 3), attention(34, 5), attention(35, 6)));
}

Incident everything_wrong() {
  Incident incident;
  incident.wants_eid = false;
  incident.assoc_fid = incident.resource = incident.lpp = incident.source_file = incident.sid = nullptr;
  incident.line = 0;
  incident.event_type = 99;
  incident.format = nullptr;
  return incident;
}

TEST_F(LogErrorAttentions, OrderWithNoDetails) {
  unset("VOSKADDR");
  Incident incident = everything_wrong();
  incident.detail_data = nullptr;
  EXPECT_THAT(reported(incident), ElementsAre(attention(28, 2), attention(29, 3), attention(34, 5), attention(33, 12),
                                              attention(35, 6), attention(27, 9), attention(37, 10)));
}

TEST_F(LogErrorAttentions, OrderWithABadSize) {
  unset("VOSKADDR");
  Incident incident = everything_wrong();
  incident.detail_len = 0;
  EXPECT_THAT(reported(incident), ElementsAre(attention(28, 2), attention(29, 3), attention(34, 5), attention(33, 12),
                                              attention(36, 7), attention(27, 9), attention(37, 10)));
}

TEST_F(LogErrorAttentions, OrderWithDataAndFile) {
  unset("VOSKADDR");
  Incident incident = everything_wrong();
  incident.detail_file = kNoFile;
  EXPECT_THAT(reported(incident), ElementsAre(attention(28, 2), attention(29, 3), attention(34, 5), attention(33, 12),
                                              attention(27, 9), attention(37, 10), attention(26, 8)));
}

TEST_F(LogErrorAttentions, OrderWithAFailedCopy) {
  unset("VOSKADDR");
  Incident incident = everything_wrong();
  incident.detail_data = nullptr;
  incident.detail_file = kNoFile;
  EXPECT_THAT(reported(incident),
              ElementsAre(attention(28, 2), attention(29, 3), attention(34, 5), attention(33, 12), attention(27, 9),
                          attention(37, 10),
                          "32: vosk.cat 1/4 (\"vk_log_error\", \"/no/such/file\", \"/var/adm/vosk/dumps\")"));
}

}  // namespace
