// Showing an identifier: the line, the stream, what is refused, and the traces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qx_vosk.h>

#include <climits>
#include <cstring>
#include <memory>

#include "support/cu_double.h"
#include "support/files.h"
#include "support/interpose.h"
#include "support/trace_file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

constexpr char kEid[] = "75Oh2...2zIZ/.7S..XO.8....................";
static_assert(sizeof kEid == 43);
constexpr char kLine[] = "2615-000 75Oh2...2zIZ/.7S..XO.8....................\n";

struct Shown {
  int result;
  std::string out, err;
};

class Display : public testing::Test {
 protected:
  Display() {
    for (const char *name : {"NLSPATH", "LANG", "LC_ALL", "LC_MESSAGES", "VOSKDEBUG"}) environment_.unset(name);
    cu_double::reset();
  }

  template <class Routine>
  static Shown show(Routine routine) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int result = routine();
    std::string out = testing::internal::GetCapturedStdout();
    return {result, out, testing::internal::GetCapturedStderr()};
  }

  std::string trace_path() {
    const std::string path = directory_ / "trace";
    environment_.set("VOSKDEBUG", path);
    return path;
  }

  platform::Environment environment_;
  files::TemporaryDirectory directory_;
};

TEST_F(Display, LineGoesToStandardErrorForOneAndToStandardOutputOtherwise) {
  for (int to_stderr : {1, 0, 2, -1, INT_MAX, INT_MIN}) {
    cu_double::reset();
    const Shown shown = show([&] { return vk_display_fid_main_1(kEid, to_stderr); });
    EXPECT_EQ(shown.result, 0);
    EXPECT_EQ(shown.out, to_stderr == 1 ? "" : kLine) << to_stderr;
    EXPECT_EQ(shown.err, to_stderr == 1 ? kLine : "") << to_stderr;
    EXPECT_THAT(cu_double::sequence(), ElementsAre("no error"));
  }
}

TEST_F(Display, ShortFormShowsOnStandardError) {
  const Shown shown = show([] { return vk_display_fid_1(kEid); });
  EXPECT_EQ(shown.result, 0);
  EXPECT_EQ(shown.out, "");
  EXPECT_EQ(shown.err, kLine);
  EXPECT_THAT(cu_double::sequence(), ElementsAre("no error"));
}

TEST_F(Display, ContentIsNeitherDecodedNorReadAsAFormat) {
  const std::string odd = "%n%s%1$s%99$n%%%m no identifier \t at all !";
  ASSERT_EQ(odd.size(), 42U);
  const Shown shown = show([&] { return vk_display_fid_main_1(odd.c_str(), 0); });
  EXPECT_EQ(shown.result, 0);
  EXPECT_EQ(shown.out, "2615-000 " + odd + "\n");
}

TEST_F(Display, AnyOtherLengthIsRefused) {
  for (std::size_t length : {0U, 1U, 41U, 43U, 44U, 1000U}) {
    cu_double::reset();
    const std::string eid(length, 'e');
    const Shown shown = show([&] { return vk_display_fid_main_1(eid.c_str(), 0); });
    EXPECT_EQ(shown.result, 27) << length;
    EXPECT_EQ(shown.out + shown.err, "") << length;
    EXPECT_THAT(cu_double::sequence(), ElementsAre("27: vosk.cat 1/13 (\"vk_display_fid\")"));
    const cu_double::Report report = cu_double::errors().at(0);
    EXPECT_EQ(report.zero, 0);
    EXPECT_EQ(report.text,
              "libqx_vosk.a Attention: An invalid VOSK Error Identifier was provided\n\t to the %1$s routine.\n");
  }
}

TEST_F(Display, NullIsRefused) {
  EXPECT_EQ(show([] { return vk_display_fid_main_1(nullptr, 0); }).result, 27);
  EXPECT_EQ(show([] { return vk_display_fid_1(nullptr); }).result, 27);
  EXPECT_THAT(cu_double::sequence(),
              ElementsAre("27: vosk.cat 1/13 (\"vk_display_fid\")", "27: vosk.cat 1/13 (\"vk_display_fid\")"));
}

// A sanitizer sees a read behind the 43 bytes.
TEST_F(Display, BufferWithoutAZeroByteIsReadNoFurther) {
  const std::unique_ptr<char[]> eid(new char[43]);
  std::memset(eid.get(), 'e', 43);
  const Shown shown = show([&] { return vk_display_fid_1(eid.get()); });
  EXPECT_EQ(shown.result, 27);
  EXPECT_EQ(shown.err, "");
}

TEST_F(Display, PlatformIsAskedForTheCatalogueInThisOrder) {
  platform::Calls calls;
  show([&] { return calls.during([] { return vk_display_fid_main_1(kEid, 0); }); });
  EXPECT_THAT(calls.log_of({"setlocale", "catopen", "catgets", "catclose"}),
              ElementsAre("setlocale(6, \"\") = \"C\"", "catopen(\"vosk.cat\", 1) = -1 ENOENT",
                          "catopen(\"vosk.cat\", 0) = -1 ENOENT",
                          "catgets(1, 19, \"2615-000 %1$s\\n\") = \"2615-000 %1$s\\n\""));
}

TEST_F(Display, RefusedIdentifierTouchesNeitherLocaleNorCatalogue) {
  platform::Calls calls;
  EXPECT_EQ(calls.during([] { return vk_display_fid_main_1("short", 0); }), 27);
  EXPECT_THAT(calls.log_of({"setlocale", "catopen", "catgets", "catclose"}), IsEmpty());
}

TEST_F(Display, TracesThePointerThenTheIdentifierUnderTheShortFormsName) {
  const std::string path = trace_path();
  show([] { return vk_display_fid_main_1(kEid, 0); });
  const std::string pointer =
      folded_text("Called with pointer value of 0x%x\n", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(kEid)));
  const std::string displayed =
      folded_text("Displaying VOSK ID \"75Oh2...2zIZ/.7S..XO.8....................\" to stdout");
  EXPECT_THAT(trace_file::read(path).summaries(),
              ElementsAre("vk_display_fid: " + pointer, "vk_display_fid_1: " + displayed));
  show([] { return vk_display_fid_1(kEid); });
  EXPECT_THAT(trace_file::read(path).summaries(),
              ElementsAre("vk_display_fid: " + pointer, "vk_display_fid_1: " + displayed, "vk_display_fid: " + pointer,
                          "vk_display_fid_1: " + displayed))
      << "it says stdout whatever the stream";
}

TEST_F(Display, RefusedIdentifierIsTracedByItsPointerOnly) {
  const std::string path = trace_path();
  vk_display_fid_main_1(nullptr, 0);
  vk_display_fid_main_1("", 0);
  const trace_file::Trace trace = trace_file::read(path);
  ASSERT_EQ(trace.entries.size(), 2U);
  EXPECT_EQ(trace.summaries().at(0), "vk_display_fid: Called with pointer value of 0x0");
}

}  // namespace
