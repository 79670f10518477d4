// What a caller is told about an incident that was recorded: every combination of flags.
#include "lib/vk_push_stack/attentions.h"

#include <initializer_list>

#include "stack/push_test.h"

namespace {

using stack_test::Incident;
using testing::ElementsAreArray;

constexpr int kPushFlags = 15;  // the others belong to the System Log

// The reports for a set of flags, in order, spelled out one by one.
std::vector<std::string> expected(const std::vector<bool> &set) {
  const auto routine = [](const char *start) { return std::string(start) + " (\"vk_push_stack\")"; };
  const bool catalogue = set[VK_FLAG_NO_CATALOGUE] || set[VK_FLAG_BAD_SET] || set[VK_FLAG_BAD_MSG_NUMBER];
  std::vector<std::string> reports;
  if (set[VK_FLAG_NO_RESOURCE]) reports.push_back(routine("28: vosk.cat 1/2"));
  if (set[VK_FLAG_NO_DEFAULT_MSG]) reports.push_back(routine("30: vosk.cat 1/15"));
  if (catalogue && !set[VK_FLAG_NO_DEFAULT_MSG]) reports.push_back(routine("31: vosk.cat 1/14"));
  if (set[VK_FLAG_NO_FILE_NAME] || set[VK_FLAG_NO_VERSION] || set[VK_FLAG_NO_PRODUCT] || set[VK_FLAG_BAD_LINE])
    reports.push_back(routine("29: vosk.cat 1/3"));
  if (catalogue && set[VK_FLAG_NO_DEFAULT_MSG]) reports.push_back(routine("29: vosk.cat 1/16"));
  if (set[VK_FLAG_NO_DETAIL]) reports.push_back(routine("35: vosk.cat 1/6"));
  if (set[VK_FLAG_NO_EID_POINTER]) reports.push_back(routine("27: vosk.cat 1/9"));
  if (set[VK_FLAG_NO_EID]) reports.push_back(routine("37: vosk.cat 1/10"));
  if (set[VK_FLAG_OVER_LENGTH]) reports.push_back("44: vosk.cat 1/18 (1024)");
  if (set[VK_FLAG_BOTH_DETAILS]) reports.push_back(routine("26: vosk.cat 1/8"));
  if (set[VK_FLAG_COPY_FAILED])
    reports.push_back("32: vosk.cat 1/4 (\"vk_push_stack\", \"/tmp/details\", \"/var/adm/vosk/dumps\")");
  if (reports.empty()) reports.push_back("no error");
  return reports;
}

TEST(Attentions, AreRaisedInOneOrderAndTheLastOneIsTheResult) {
  vk::incident in = {};
  in.detail_file = "/tmp/details";
  for (unsigned int combination = 0; combination < 1u << kPushFlags; ++combination) {
    vk::incident_flags flags;
    std::vector<bool> set(VK_FLAG_COUNT);
    for (unsigned int flag = 0; flag < kPushFlags; ++flag) {
      set[flag] = (combination >> flag & 1) != 0;
      flags[flag] = set[flag] ? 1 : 0;
    }
    cu_double::reset();
    const int result = vk::raise_attentions(in, flags);
    const std::vector<std::string> reports = expected(set);
    ASSERT_EQ(cu_double::sequence(), reports) << combination;
    ASSERT_EQ(result, reports.back() == "no error" ? 0 : std::stoi(reports.back())) << combination;
  }
}

TEST(Attentions, CarryTheirMessageOfTheTableAsDefaultText) {
  vk::incident in = {};
  in.detail_file = "/tmp/details";
  vk::incident_flags flags;
  for (std::size_t flag = 0; flag < kPushFlags; ++flag) flags[flag] = 1;
  cu_double::reset();
  vk::raise_attentions(in, flags);
  flags[VK_FLAG_NO_DEFAULT_MSG] = 0;
  vk::raise_attentions(in, flags);
  ASSERT_EQ(cu_double::errors().size(), 19u);
  for (const cu_double::Report &report : cu_double::errors()) {
    EXPECT_EQ(report.text_pointer, vk_mesgtbl_vk_lib[report.number]);
    EXPECT_EQ(report.zero, 0);
  }
}

TEST(Attentions, OfTheSystemLogAreNoneOfAPush) {
  vk::incident_flags flags;
  for (std::size_t flag = kPushFlags; flag < VK_FLAG_COUNT; ++flag) flags[flag] = 1;
  cu_double::reset();
  EXPECT_EQ(vk::raise_attentions({}, flags), 0);
  EXPECT_EQ(cu_double::sequence(), std::vector<std::string>{"no error"});
}

// --- What a caller leaves out ---

class PushAttentions : public stack_test::PushTest {};

struct Row {
  const char *what;
  void (*change)(Incident &);
  std::vector<std::string> reports;
};

const std::string kRoutine = " (\"vk_push_stack\")";
const std::string kNoResource = "28: vosk.cat 1/2" + kRoutine, kNoMessage = "30: vosk.cat 1/15" + kRoutine,
                  kNoCatalogue = "31: vosk.cat 1/14" + kRoutine, kNoFileInfo = "29: vosk.cat 1/3" + kRoutine,
                  kNoDescription = "29: vosk.cat 1/16" + kRoutine, kNoDetails = "35: vosk.cat 1/6" + kRoutine,
                  kNoPointer = "27: vosk.cat 1/9" + kRoutine, kBoth = "26: vosk.cat 1/8" + kRoutine;

TEST_F(PushAttentions, ComeForEachFieldThatIsMissingOrNotPossible) {
  const Row rows[] = {
      {"nothing is missing", [](Incident &) {}, {"no error"}},
      {"no resource", [](Incident &in) { in.resource = nullptr; }, {kNoResource}},
      {"an empty resource", [](Incident &in) { in.resource = ""; }, {kNoResource}},
      {"no product", [](Incident &in) { in.product = nullptr; }, {kNoFileInfo}},
      {"an empty product", [](Incident &in) { in.product = ""; }, {kNoFileInfo}},
      {"no file", [](Incident &in) { in.file = nullptr; }, {kNoFileInfo}},
      {"an empty file", [](Incident &in) { in.file = ""; }, {kNoFileInfo}},
      {"no version", [](Incident &in) { in.version = nullptr; }, {kNoFileInfo}},
      {"an empty version", [](Incident &in) { in.version = ""; }, {kNoFileInfo}},
      {"line 1", [](Incident &in) { in.line = 1; }, {"no error"}},
      {"line 0", [](Incident &in) { in.line = 0; }, {kNoFileInfo}},
      {"line -1", [](Incident &in) { in.line = -1; }, {kNoFileInfo}},
      {"no catalogue", [](Incident &in) { in.catalogue = nullptr; }, {kNoCatalogue}},
      {"an empty catalogue", [](Incident &in) { in.catalogue = ""; }, {kNoCatalogue}},
      {"set 0", [](Incident &in) { in.set = 0; }, {"no error"}},
      {"set -1", [](Incident &in) { in.set = -1; }, {kNoCatalogue}},
      {"number 0", [](Incident &in) { in.number = 0; }, {"no error"}},
      {"number -1", [](Incident &in) { in.number = -1; }, {kNoCatalogue}},
      {"no message", [](Incident &in) { in.message = nullptr; }, {kNoMessage}},
      {"an empty message", [](Incident &in) { in.message = ""; }, {kNoMessage}},
      {"no description at all",
       [](Incident &in) {
         in.message = nullptr;
         in.catalogue = nullptr;
       },
       {kNoMessage, kNoDescription}},
      {"no details", [](Incident &in) { in.data = nullptr; }, {kNoDetails}},
      {"empty details",
       [](Incident &in) {
         in.data = "";
         in.detail_file = "";
       },
       {kNoDetails}},
      {"details and a file", [](Incident &in) { in.detail_file = "/nowhere"; }, {kBoth}},
      {"details and an empty file", [](Incident &in) { in.detail_file = ""; }, {"no error"}},
      {"no buffer", [](Incident &in) { in.fid = nullptr; }, {kNoPointer}},
      {"a file that does not exist",
       [](Incident &in) {
         in.data = nullptr;
         in.detail_file = "/nowhere";
       },
       {"32: vosk.cat 1/4 (\"vk_push_stack\", \"/nowhere\", \"/var/adm/vosk/dumps\")"}},
      {"nothing is there",
       [](Incident &in) {
         in = {};
         in.resource = in.product = in.file = in.version = in.data = in.catalogue = in.message = nullptr;
         in.line = in.set = in.number = -1;
       },
       {kNoResource, kNoMessage, kNoFileInfo, kNoDescription, kNoDetails, kNoPointer}},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    put_stack(empty_stack());
    Incident in = incident();
    row.change(in);
    std::vector<std::string> reports = {"no error"};  // of the test of the environment
    reports.insert(reports.end(), row.reports.begin(), row.reports.end());
    EXPECT_EQ(push_known(in), row.reports.back() == "no error" ? 0 : std::stoi(row.reports.back()));
    EXPECT_THAT(cu_double::reports(), ElementsAreArray(reports));
    EXPECT_NE(stack().substr(24, 4), files::u32(0)) << "no record was made";
  }
}

}  // namespace
