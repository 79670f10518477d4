// What recording an incident in the System Log traces.
#include <gmock/gmock.h>

#include <climits>

#include "log_error_test.h"
#include "support/sandbox.h"

namespace {

using namespace log_error_test;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

class LogErrorTrace : public LogErrorTest {
 protected:
  // Records the incident with a fresh trace file; what it holds then.
  trace_file::Trace traced(const Incident &incident) {
    const std::string path = directory_ / "trace";
    std::remove(path.c_str());
    set("VOSKDEBUG", path);
    record(incident);
    trace_file::Trace trace = trace_file::read(path);
    EXPECT_EQ(trace.problem, "");
    EXPECT_EQ(trace.wraps, 0);
    return trace;
  }
  static std::vector<std::string> routines(const trace_file::Trace &trace) {
    std::vector<std::string> names;
    for (const trace_file::Entry &entry : trace.entries) names.push_back(entry.routine);
    return names;
  }

  files::TemporaryDirectory directory_;
};

unsigned low32(const void *pointer) {
  return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

TEST_F(LogErrorTrace, ParametersAreShown) {
  Incident incident;
  incident.assoc_fid = "assoc";
  incident.template_id = 0xABCD1234;
  incident.detail_file = "/f";
  EXPECT_EQ(traced(incident).messages("vk_log_error").at(0),
            folded_text("Called with these params:\nEvent Type 1, Template 0xabcd1234, Resource resource\n"
                        "Detail Data Ptr 0x%x, Detail Data Len 4, Detail Data File /f\n"
                        "Source File /usr/src/source.c, SID 1.7, Line 321, LPP product\nAssoc FID assoc\n",
                        low32(incident.detail_data)));
}

TEST_F(LogErrorTrace, NoneStandsForNullAndNotForEmpty) {
  Incident incident;
  incident.assoc_fid = incident.resource = incident.lpp = incident.source_file = incident.sid = nullptr;
  incident.detail_data = nullptr;
  incident.event_type = -3;
  incident.line = INT_MIN;
  incident.detail_len = -1;
  EXPECT_EQ(traced(incident).messages("vk_log_error").at(0),
            folded_text("Called with these params:\nEvent Type -3, Template 0x0, Resource (none)\n"
                        "Detail Data Ptr 0x0, Detail Data Len -1, Detail Data File (none)\n"
                        "Source File (none), SID (none), Line -2147483648, LPP (none)\nAssoc FID (none)\n"));
  incident.assoc_fid = incident.resource = incident.lpp = incident.source_file = incident.sid = "";
  incident.detail_file = "";
  EXPECT_EQ(traced(incident).messages("vk_log_error").at(0),
            folded_text("Called with these params:\nEvent Type -3, Template 0x0, Resource \n"
                        "Detail Data Ptr 0x0, Detail Data Len -1, Detail Data File \n"
                        "Source File , SID , Line -2147483648, LPP \nAssoc FID \n"));
}

TEST_F(LogErrorTrace, LengthIsShownByItsLow32Bits) {
  for (const auto &[length, shown] : std::map<std::int64_t, std::string>{
           {0x100000002, "2"}, {0x80000000, "-2147483648"}, {INT64_MAX, "-1"}, {INT64_MIN, "0"}}) {
    Incident incident;
    incident.detail_len = length;
    EXPECT_THAT(traced(incident).messages("vk_log_error").at(0), testing::HasSubstr("Detail Data Len " + shown + ", "));
  }
}

TEST_F(LogErrorTrace, EachRoutineTracesUnderItsOwnName) {
  const trace_file::Trace trace = traced({});
  EXPECT_THAT(trace.summaries(),
              ElementsAre(testing::StartsWith("vk_log_error: Called with these params:\n"),
                          "vk_determine_bsd_priority: Assigning SysLog priority of 3 to event type 1",
                          testing::StartsWith("vk_get_base_64_time: "), testing::StartsWith("vk_get_base_64_hdr: "),
                          testing::StartsWith("vk_get_base_64_selector: Facility 3 and priority 3 "),
                          testing::StartsWith("vk_generate_eid: Created VOSK Error ID " + std::string(kErrorEid))));
}

TEST_F(LogErrorTrace, FailuresTraceUnderTheirRoutines) {
  unset("VOSKADDR");
  Incident incident;
  incident.event_type = 8;
  incident.detail_data = nullptr;
  incident.detail_file = "/no/such/file";
  incident.lpp = "a product with a name of more than 46 characters";
  EXPECT_THAT(
      traced(incident).summaries(),
      ElementsAre(testing::StartsWith("vk_log_error: Called with these params:\n"),
                  "vk_determine_bsd_priority: Invalid VOSK Event Type 8 - mapping to type VOSK_DEBUG(6)",
                  "vk_determine_bsd_priority: Assigning SysLog priority of 7 to event type 8",
                  testing::StartsWith("vk_get_base_64_time: "), testing::StartsWith("vk_generate_eid: Cannot find "),
                  testing::StartsWith("vk_copy_dump_file: Existence of file \"/no/such/file\" cannot be verified\n"),
                  testing::StartsWith("vk_make_file_info_msg: File Identification information \"")));
}

TEST_F(LogErrorTrace, TracingIsDecidedOnceAndMakesTheFile) {
  const std::string path = directory_ / "made";
  set("VOSKDEBUG", path);
  platform::Calls calls;
  record({}, calls);
  int asked = 0;
  for (const std::string &text : calls.log_of({"getenv"})) asked += text.find("VOSKDEBUG") != std::string::npos;
  EXPECT_EQ(asked, 1);
  EXPECT_FALSE(trace_file::read(path).entries.empty());
}

TEST_F(LogErrorTrace, UnusableTraceFileChangesNothing) {
  for (const std::string &path : {std::string(), directory_.path(), directory_ / "no/where"}) {
    set("VOSKDEBUG", path);
    EXPECT_EQ(record({}), 0) << path;
    EXPECT_EQ(sent(), record_text(kErrorEid, "", "0", "", "the message"));
  }
}

}  // namespace
