// One incident for the System Log, recorded on a known node at a known time, and what came of it.
#ifndef TESTS_SYSLOG_LOG_ERROR_TEST_H
#define TESTS_SYSLOG_LOG_ERROR_TEST_H

#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <cstring>
#include <string>
#include <vector>

#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_file.h"

namespace log_error_test {

// 14 November 2023, 22:13:20.123456 UTC, ".2zIZ/.7S." in identifiers.
inline constexpr std::int64_t kSeconds = 1700000000, kMicroseconds = 123456;
inline constexpr char kVoskAddr[] = ".XO.8....................";
// Facility 3 and priority 3, the time and the node.
inline constexpr char kErrorEid[] = "822.....2zIZ/.7S..XO.8....................";
static_assert(sizeof kErrorEid == VK_EID_SIZE);
inline constexpr char kLocation[] = "product,source.c,1.7,321                      ";
static_assert(sizeof kLocation == 47);

// The arguments of one call; the message is printed through "%s" unless a format is given.
struct Incident {
  bool wants_eid = true;
  const char *assoc_fid = "";
  const char *resource = "resource";
  const char *lpp = "product";
  const char *source_file = "/usr/src/source.c";
  const char *sid = "1.7";
  int line = 321;
  std::uint64_t reserved = 0;
  int event_type = VOSK_ERROR;
  std::uint32_t template_id = 0;
  const void *detail_data = "data";
  std::int64_t detail_len = 4;
  const char *detail_file = nullptr;
  const char *format = "%s";
  std::string message = "the message";
};

class LogErrorTest : public testing::Test {
 protected:
  LogErrorTest() {
    for (const char *name : {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKDEBUG", "NLSPATH", "LANG"})
      environment_.unset(name);
    set("VOSKADDR", kVoskAddr);
    set("VOSKPNAME", "command");
    cu_double::reset();
  }

  void set(const std::string &name, const std::string &value) { environment_.set(name, value); }
  void unset(const std::string &name) { environment_.unset(name); }

  // Records the incident; the result, what libqx_cu was told, the identifier and the calls are kept.
  int record(const Incident &incident) {
    platform::Calls calls;
    return record(incident, calls);
  }
  int record(const Incident &incident, platform::Calls &calls) {
    calls.fixed_clock(kSeconds, kMicroseconds);
    cu_double::reset();
    std::memset(eid_, '?', sizeof eid_);
    result_ = calls.during([&] {
      return vk_log_error_1(incident.wants_eid ? &eid_ : nullptr, incident.assoc_fid, incident.resource, incident.lpp,
                            incident.source_file, incident.sid, incident.line, incident.reserved, incident.event_type,
                            incident.template_id, incident.detail_data, incident.detail_len, incident.detail_file,
                            incident.format, incident.message.c_str());
    });
    log_ = calls.log_of({"openlog", "syslog", "closelog"});
    records_.clear();
    for (const platform::Call &call : calls.calls())
      if (call.name == "syslog") records_.push_back(call.data);
    return result_;
  }

  // The one record that was sent, as syslog prints it.
  std::string sent() const {
    EXPECT_EQ(records_.size(), 1U);
    return records_.empty() ? "" : records_[0];
  }
  std::string eid() const { return std::string(eid_, sizeof eid_); }

  static std::string record_text(const std::string &eid, const std::string &reference, const std::string &templ,
                                 const std::string &file, const std::string &message) {
    return "(Recorded using libqx_vosk.a cv 2):::Error ID: " + eid + ":::Reference ID: " + reference +
           ":::Template ID: " + templ + ":::Details File: " + file + ":::Location: " + kLocation + ":::" + message;
  }

  platform::UtcZone utc_;
  platform::Environment environment_;
  vk_eid_t eid_ = {};
  int result_ = 0;
  std::vector<std::string> log_;
  std::vector<std::string> records_;
};

}  // namespace log_error_test

#endif
