// The environment test: its outcomes, its reports and its traces.
#include <gmock/gmock.h>
#include <unistd.h>

#include <climits>

#include "environment_test.h"

namespace {

using namespace environment_test;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

constexpr char kCorrupt[] = "17: vosk.cat 1/25 ()", kNone[] = "15: vosk.cat 1/1 ()", kOwn[] = "no error";
constexpr const char *kNames[] = {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
constexpr const char *kValues[] = {"/stack", "1", "4711", "address", "name"};

class TestStack : public EnvironmentTest {
 protected:
  // Sets the variables whose letters are in `letters` (of "SOPAN"); the others are empty or absent.
  void variables(const std::string &letters, bool empty = false) {
    for (std::size_t i = 0; i < 5; ++i) {
      if (letters.find("SOPAN"[i]) != std::string::npos)
        set({{kNames[i], kValues[i]}});
      else if (empty)
        set({{kNames[i], ""}});
      else
        unset(kNames[i]);
    }
  }
  std::string outcome(int pid = 4711) {
    fresh_double();
    const int result = vk_test_stack_main_1(pid);
    const std::vector<std::string> sequence = cu_double::sequence();
    EXPECT_EQ(sequence.size(), 1U);
    const std::string summary = sequence.at(0);
    EXPECT_EQ(result, summary == kOwn ? 0 : std::stoi(summary));
    return summary;
  }
};

TEST_F(TestStack, EveryCombinationOfTheFiveVariables) {
  static const std::map<std::string, const char *> kRows = {
      {"", kNone},        {"S", kCorrupt},    {"O", kCorrupt},    {"P", kCorrupt},    {"A", kNone},
      {"N", kNone},       {"SO", kCorrupt},   {"SP", kCorrupt},   {"SA", kCorrupt},   {"SN", kCorrupt},
      {"OP", kCorrupt},   {"OA", kCorrupt},   {"ON", kCorrupt},   {"PA", kCorrupt},   {"PN", kCorrupt},
      {"AN", kNone},      {"SOP", kCorrupt},  {"SOA", kCorrupt},  {"SON", kCorrupt},  {"SPA", kCorrupt},
      {"SPN", kCorrupt},  {"SAN", kCorrupt},  {"OPA", kCorrupt},  {"OPN", kCorrupt},  {"OAN", kCorrupt},
      {"PAN", kCorrupt},  {"SOPA", kCorrupt}, {"SOPN", kCorrupt}, {"SOAN", kCorrupt}, {"SPAN", kCorrupt},
      {"OPAN", kCorrupt}, {"SOPAN", kOwn},
  };
  ASSERT_EQ(kRows.size(), 32U);
  for (const auto &[letters, expected] : kRows) {
    for (bool empty : {false, true}) {
      SCOPED_TRACE(letters + (empty ? ", others empty" : ""));
      variables(letters, empty);
      EXPECT_EQ(outcome(), expected);
    }
  }
}

TEST_F(TestStack, OwnerIsReadAsADecimal) {
  variables("SOPAN");
  static constexpr struct {
    const char *value;
    int pid;
    bool owns;
  } kRows[] = {
      {"4711", 4711, true},
      {"4711", 4712, false},
      {"4712", 4711, false},
      {" +4711 more", 4711, true},
      {"nonsense", 0, true},
      {"nonsense", 1, false},
      {"-5", -5, true},
      {"99999999999", INT_MAX, true},
      {"-99999999999", INT_MIN, true},
      {"0x10", 16, false},
  };
  for (const auto &row : kRows) {
    set({{"VOSKPID", row.value}});
    EXPECT_EQ(outcome(row.pid), row.owns ? kOwn : kNone) << row.value;
  }
}

TEST_F(TestStack, ReportsCarryTheTableTexts) {
  variables("S");
  EXPECT_EQ(outcome(), kCorrupt);
  EXPECT_EQ(cu_double::errors().at(0).zero, 0);
  EXPECT_EQ(cu_double::errors().at(0).text,
            "2615-006 libqx_vosk.a Error: The VOSK Environment for this process\n\t appears to be corrupted.  The VOSK "
            "Environment is not usable.\n\t This process cannot make recordings to the VOSK Error Stack.\n");
  variables("");
  EXPECT_EQ(outcome(), kNone);
  EXPECT_EQ(cu_double::errors().at(0).zero, 0);
  EXPECT_EQ(cu_double::errors().at(0).text,
            "libqx_vosk.a Status: An VOSK Environment does not exist for\n\t this process.  This process cannot record "
            "failure information to the\n\t VOSK Error Stack.\n");
}

TEST_F(TestStack, ShortFormTestsTheCallingProcess) {
  variables("SOPAN");
  EXPECT_EQ(vk_test_stack_1(), 15);
  set({{"VOSKPID", std::to_string(getpid())}});
  EXPECT_EQ(vk_test_stack_1(), 0);
  set({{"VOSKPID", std::to_string(getppid())}});
  EXPECT_EQ(vk_test_stack_1(), 15);
}

TEST_F(TestStack, NothingIsChanged) {
  variables("SO", true);
  const Variables before = vosk_variables();
  platform::Calls calls;
  calls.during([] { return vk_test_stack_main_1(1); });
  EXPECT_EQ(vosk_variables(), before);
  EXPECT_EQ(calls.count("putenv"), 0);
}

// --- Traces: the settings read so far, then the outcome ---

TEST_F(TestStack, EachOutcomeIsPrecededByWhatWasReadForIt) {
  trace_by_variable();
  const std::string start = "Environment value settings:\nChecking for env established by PID 4711\n";
  const std::string s = "VOSKSTACK is set to \"/stack\"\n", o = "VOSKORIG is set to \"1\"\n",
                    p = "VOSKPID is set to \"4711\"\n", a = "VOSKADDR is set to \"address\"\n",
                    n = "VOSKADDR is set to \"name\"\n";  // so it is called
  const std::string no_s = "VOSKSTACK is set to \"NULL\"\n", no_o = "VOSKORIG is set to \"NULL\"\n",
                    no_p = "VOSKPID is set to \"NULL\"\n", no_a = "VOSKADDR is set to \"NULL\"\n";
  const std::string log_only =
      "Environment set for Nelos Error Log use only\nIndicating that not VOSK Error Stack Env exists\n"
      "Returning VK_NO_VK_ENVIR(15) to the caller\n";
  const struct {
    const char *letters;
    std::string settings;
    std::string text;
  } kRows[] = {
      {"OPAN", no_s + o,
       "Found corrupted VOSK Env: VOSKSTACK not set but VOSKORIG is\nReturning VK_ENV_CORRUPT(17) to caller\n"},
      {"SPAN", s + no_o,
       "Found corrupted VOSK Env: VOSKSTACK set but VOSKORIG is not\nReturning VK_ENV_CORRUPT(17) to caller\n"},
      {"PAN", no_s + no_o + p,
       "Found corrupted VOSK Env: VOSKPID not set, but either VOSKSTACK or VOSKORIG is\n"
       "Returning VK_ENV_CORRUPT(17) to caller\n"},
      {"SOAN", s + o + no_p,
       "Found corrupted VOSK Env: VOSKPID set, but VOSKSTACK and VOSKORIG are not\n"
       "Returning VK_ENV_CORRUPT(17) to caller\n"},
      {"AN", no_s + no_o + no_p + a, log_only},
      {"A", no_s + no_o + no_p + a, log_only},
      {"SOPN", s + o + p + no_a,
       "Found corrupted VOSK Env: VOSKADDR not set, but either VOSKSTACK, VOSKORIG, or VOSKPID is\n"
       "Returning VK_ENV_CORRUPT(17) to caller\n"},
      {"N", no_s + no_o + no_p + no_a + n, log_only},
      {"SOPA", s + o + p + a + no_a,
       "Found corrupted VOSK Env: VOSKPNAME not set, but either VOSKSTACK, VOSKORIG, or VOSKPID is\n"
       "Returning VK_ENV_CORRUPT(17) to caller\n"},
      {"SOPAN", s + o + p + a + n, "VOSK Environment exists for process 4711\nReturning VK_SUCCESS(0) to the caller\n"},
      {"", no_s + no_o + no_p + no_a + no_a,
       "No VOSK Environment detected\nReturning VK_NO_VK_ENVIR(15) to the caller\n"},
  };
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.letters);
    forget_traces();
    trace_by_variable();
    variables(row.letters);
    outcome();
    EXPECT_THAT(traced(), ElementsAre("vk_test_stack: " + folded_text("%s%s", start.c_str(), row.settings.c_str()),
                                      "vk_test_stack: " + folded_text("%s", row.text.c_str())));
  }
}

TEST_F(TestStack, EnvironmentOfAnotherProcessIsTracedWithTheAskingOne) {
  trace_by_variable();
  variables("SOPAN");
  EXPECT_EQ(outcome(-17), kNone);
  EXPECT_THAT(traced(),
              ElementsAre("vk_test_stack: " +
                              folded_text("Environment value settings:\nChecking for env established by PID -17\n"
                                          "VOSKSTACK is set to \"/stack\"\nVOSKORIG is set to \"1\"\n"
                                          "VOSKPID is set to \"4711\"\nVOSKADDR is set to \"address\"\n"
                                          "VOSKADDR is set to \"name\"\n"),
                          "vk_test_stack: " + folded_text("VOSK Environment variables exist, but process -17 hasn't "
                                                          "inherited the VOSK Environment\n"
                                                          "Returning VK_NO_VK_ENVIR(15) to the caller\n")));
}

TEST_F(TestStack, EmptyValueIsTracedAsEmptyAndAbsentAsNull) {
  trace_by_variable();
  set({{"VOSKSTACK", ""}});
  outcome();
  EXPECT_EQ(traced().at(0),
            "vk_test_stack: " +
                folded_text("Environment value settings:\nChecking for env established by PID 4711\n"
                            "VOSKSTACK is set to \"\"\nVOSKORIG is set to \"NULL\"\nVOSKPID is set to \"NULL\"\n"
                            "VOSKADDR is set to \"NULL\"\nVOSKADDR is set to \"NULL\"\n"));
}

// The text holds 255 characters, the entry 254 of them and of "Environment value settings:\n".
TEST_F(TestStack, LongValuesAreCutWithTheSettingsText) {
  trace_by_variable();
  for (std::size_t length : {100U, 170U, 200U, 1000U, 100000U}) {
    forget_traces();
    trace_by_variable();
    const std::string value(length, 'v');
    set({{"VOSKSTACK", value}, {"VOSKORIG", "1"}, {"VOSKPID", "2"}, {"VOSKADDR", value}, {"VOSKPNAME", "%s%n"}});
    EXPECT_EQ(outcome(), kNone);
    const std::string whole = "Checking for env established by PID 4711\nVOSKSTACK is set to \"" + value +
                              "\"\nVOSKORIG is set to \"1\"\nVOSKPID is set to \"2\"\nVOSKADDR is set to \"" + value +
                              "\"\nVOSKADDR is set to \"%s%n\"\n";
    EXPECT_EQ(traced().at(0), "vk_test_stack: " + folded_text("Environment value settings:\n%.255s", whole.c_str()));
  }
}

TEST_F(TestStack, NothingIsTracedWithoutATraceFile) {
  trace_path();
  variables("SOPAN");
  outcome();
  EXPECT_THAT(traced(), IsEmpty());
}

}  // namespace
