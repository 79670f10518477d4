// Making identifiers: every refusal and failure, which leave the caller's memory as it was.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "identifiers/making.h"
#include "qx_vosk.h"
#include "support/scratch_trace.h"

namespace {

using making::kNone;
using making::kStackFile;
using making::Made;
using making::Request;
using platform::Calls;

constexpr const char *kRoutine = "vk_generate_eid";

class GenerationFailure : public testing::Test {
 protected:
  GenerationFailure() { environment_.set("VOSKADDR", making::kAddress); }

  // The call fails with `code`, traces these entries and leaves its outputs alone.
  void expect_failure(
      const Request &request, int code, const std::vector<std::string> &entries,
      const std::function<void(Calls &)> &plan = [](Calls &) {}) {
    Made made;
    expect_result_and_trace(
        [&](int on, const char *path) {
          Calls calls;
          making::know_everything(calls);
          plan(calls);
          return calls.during([&] { return making::make(request, on, path, &made.seconds, made.eid.chars()); });
        },
        code, entries);
    EXPECT_TRUE(made.untouched());
  }

  platform::Environment environment_;
};

const std::string kTimeEntry =
    trace_entry("vk_get_base_64_time",
                "Time of day value 1700000000 secs 123456 usecs converted to base-64 rep of .2zIZ/.7S.\n"
                "Returning VOSK_SUCCESS(0) to caller\n");
const std::string kStackHeaderEntry[] = {
    "",
    trace_entry("vk_get_base_64_hdr",
                "Combined version code 0x0 and location 0x1 into header code 0x1\nBase-64 equiv: /\n"
                "Returning VOSK_SUCCESS(0) to the caller\n"),
    trace_entry("vk_get_base_64_hdr",
                "Combined version code 0x0 and location 0x1 into header code 0x9\nBase-64 equiv: 7\n"
                "Returning VOSK_SUCCESS(0) to the caller\n")};
const std::string kSyslogHeaderEntry =
    trace_entry("vk_get_base_64_hdr",
                "Combined version code 0x0 and location 0x2 into header code 0xa\nBase-64 equiv: 8\n"
                "Returning VOSK_SUCCESS(0) to the caller\n");

TEST_F(GenerationFailure, OfVersion1ForAStackTogetherWithATemplate) {
  const struct {
    const char *file;
    std::uint32_t templ_id;
    const char *text;
  } rows[] = {
      {"/a/stack", 7,
       "Caller requested a vk_eid_t be generated for both a stack and a error template\nStack file is /a/stack\n"
       "template is 7\nReturning VOSK_INV_PARAMCOMBO(-11) to caller\n"},
      {"", 0xFFFFFFFF,
       "Caller requested a vk_eid_t be generated for both a stack and a error template\nStack file is \n"
       "template is -1\nReturning VOSK_INV_PARAMCOMBO(-11) to caller\n"},
  };
  for (const auto &row : rows) expect_failure({1, row.file, row.templ_id}, -11, {trace_entry(kRoutine, row.text)});
}

TEST_F(GenerationFailure, OfVersion2ForAStackTogetherWithATemplateOrALowFacility) {
  const struct {
    Request request;
    const char *template_id, *facility_number;
  } rows[] = {
      {{2, "/a/stack", 7}, "7", "127"},
      {{2, "/a/stack", 7, 24, 3}, "7", "3"},
      {{2, "/a/stack", 0xFFFFFFFF, 185, 0}, "-1", "23"},
      // 23 is compared with the shifted value: only the facilities of the numbers 0 to 2 are seen.
      {{2, "/a/stack", 0, 0, 3}, "0", "0"},
      {{2, "/a/stack", 0, 8, 99}, "0", "1"},
      {{2, "/a/stack", 0, 16, 3}, "0", "2"},
      {{2, "/a/stack", 0, 23, 3}, "0", "2"},
      {{2, "/a/stack", 1, 16, 3}, "1", "2"},
  };
  for (const auto &row : rows) {
    expect_failure(row.request, -11,
                   {trace_entry(kRoutine, std::string("Caller requested a vk_eid_t be generated for both a stack and "
                                                      "either an error template or  Syslog messges\n"
                                                      "Stack file is /a/stack\ntemplate is ") +
                                              row.template_id + "\nSyslog facility is " + row.facility_number +
                                              "\nReturning VOSK_INV_PARAMCOMBO(-11) to caller\n")});
  }
}

TEST_F(GenerationFailure, WithoutATime) {
  for (const Request &request : {Request{1, kStackFile, 0}, Request{2, nullptr, 0, 24, 3}}) {
    expect_failure(request, -1,
                   {trace_entry("vk_get_base_64_time",
                                "Cannot obtain current time of day - returning VOSK_FAILURE(-1) to caller\n")},
                   [](Calls &calls) {
                     calls.fail_nth("gettimeofday", 1, EINVAL);
                     calls.before("getenv", 0, [](const platform::Call &) { ADD_FAILURE() << "the address was read"; });
                   });
  }
}

TEST_F(GenerationFailure, WithoutAnAddress) {
  const std::vector<std::string> entries = {
      kTimeEntry,
      trace_entry(kRoutine, "Cannot find VOSKADDR data in environment\nReturning VOSK_FAILURE(-1) to the caller")};
  for (const Request &request : {Request{1, kStackFile, 0}, Request{1, nullptr, 7}, Request{2, kStackFile, 0},
                                 Request{2, nullptr, 7}, Request{2, nullptr, 0, 24, 3}}) {
    environment_.unset("VOSKADDR");
    expect_failure(request, -1, entries);
    environment_.set("VOSKADDR", "");
    expect_failure(request, -1, entries);
  }
}

TEST_F(GenerationFailure, WithAnAddressThatHasNotTwentyFiveCharacters) {
  for (std::size_t length : {1u, 2u, 24u, 26u, 27u, 255u, 4096u, 5000000u}) {
    const std::string value(length, 'x');
    environment_.set("VOSKADDR", value);
    for (const Request &request : {Request{1, kStackFile, 0}, Request{2, nullptr, 0, 24, 3}}) {
      SCOPED_TRACE(length);
      expect_failure(
          request, -1,
          {kTimeEntry, trace_entry(kRoutine, "Value stored in environment for VOSKADDR does not appear to be valie: " +
                                                 value + "\nReturning VOSK_FAILURE(-1) to the caller")});
    }
  }
}

TEST_F(GenerationFailure, NeverTakesTheAddressForAFormat) {
  environment_.set("VOSKADDR", "%s%n%s%n%s%n%s%n%s%n%s%n");
  expect_failure({1, nullptr, 7}, -1,
                 {kTimeEntry, trace_entry(kRoutine,
                                          "Value stored in environment for VOSKADDR does not appear to be valie: "
                                          "%s%n%s%n%s%n%s%n%s%n%s%n\nReturning VOSK_FAILURE(-1) to the caller")});
}

TEST_F(GenerationFailure, WithAnEmptyStackFileName) {
  const std::string does_not_exist = trace_entry(kRoutine,
                                                 "VOSK Error Stack File  does not exist - caller must be repaired\n"
                                                 "Returning VOSK_INV_PARAM3(-4) to the caller\n");
  const std::string no_name = trace_entry(
      "vk_get_base_64_inode", "Called with a NULL string for a file name\nReturning VOSK_INV_PARAM3(-4) to caller\n");
  for (const Request &request : {Request{1, "", 0}, Request{2, "", 0}, Request{2, "", 0, 24, 3}}) {
    expect_failure(request, -4, {kTimeEntry, kStackHeaderEntry[request.version], no_name, does_not_exist});
  }
}

TEST_F(GenerationFailure, WithAStackFileThatCannotBeExamined) {
  for (int error : {ENOENT, EACCES, ENOTDIR, EIO}) {
    for (const Request &request :
         {Request{1, kStackFile, 0}, Request{2, kStackFile, 0}, Request{2, kStackFile, 0, 24, 3}}) {
      expect_failure(request, -1,
                     {kTimeEntry, kStackHeaderEntry[request.version],
                      trace_entry("vk_get_base_64_inode",
                                  "Error trying to get status of file /var/adm/vosk/stacks/s.1\nErrno is " +
                                      std::to_string(error) + "\n")},
                     [&](Calls &calls) { calls.fail_nth("stat", 1, error, kStackFile); });
    }
  }
}

TEST_F(GenerationFailure, WithARealFileThatIsMissing) {
  files::TemporaryDirectory directory;
  for (int version : {1, 2}) {
    Made made;
    EXPECT_EQ(making::make({version, (directory / "missing").c_str(), 0}, 0, nullptr, &made.seconds, made.eid.chars()),
              -1);
    EXPECT_TRUE(made.untouched());
  }
}

TEST_F(GenerationFailure, WithAPriorityAboveSeven) {
  const struct {
    std::uint32_t facility, priority;
    const char *text;
  } rows[] = {{24, 8, "priority value 8 invalid - returning VOSK_INV_PARAM4(-5)\n"},
              {24, 9, "priority value 9 invalid - returning VOSK_INV_PARAM4(-5)\n"},
              {0, kNone, "priority value -1 invalid - returning VOSK_INV_PARAM4(-5)\n"},
              {184, 8, "priority value 8 invalid - returning VOSK_INV_PARAM4(-5)\n"}};
  for (const auto &row : rows) {
    expect_failure({2, nullptr, 0, row.facility, row.priority}, -1,
                   {kTimeEntry, kSyslogHeaderEntry, trace_entry("vk_get_base_64_selector", row.text)});
  }
}

// The address is the caller's business: exactly 25 bytes of any kind are copied as they are.
TEST_F(GenerationFailure, IsNotInAnAddressOfAnyTwentyFiveBytes) {
  std::vector<std::string> values = {std::string(25, 'x'), std::string(25, '%'), "                         ",
                                     "%s%n%s%n%s%n%s%n%s%n%s%nz"};
  for (unsigned first = 1; first < 256; first += 25) {
    std::string value;
    for (unsigned byte = first; byte < first + 25; ++byte) value += static_cast<char>(byte < 256 ? byte : 255);
    values.push_back(value);
  }
  for (const std::string &value : values) {
    SCOPED_TRACE(testing::PrintToString(value));
    environment_.set("VOSKADDR", value);
    for (int version : {1, 2}) {
      Made made;
      Calls calls;
      making::know_everything(calls);
      EXPECT_EQ(calls.during([&] {
        return making::make({version, kStackFile, 0}, 0, nullptr, &made.seconds, made.eid.chars());
      }),
                0);
      EXPECT_EQ(made.eid.bytes(), (version == 1 ? "/5Oh2...2zIZ/.7S." : "75Oh2...2zIZ/.7S.") + value + '\0');
    }
  }
}

}  // namespace
