// The trace of a push under whole records: the texts are those of the standard rule, where they apply.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "support/trace_file.h"
#include "whole/whole_test.h"

namespace whole_test {
namespace {

using testing::ElementsAre;
using trace_file::folded_text;

class WholeTrace : public WholeTest {
 protected:
  void SetUp() override {
    reclaim("whole");
    put(fresh_file(8192));
  }
  // What the push says about making room.
  std::vector<std::string> traced(const Incident &incident) {
    const std::string trace = stack() + ".trace";
    unlink(trace.c_str());
    environment_.set("VOSKDEBUG", trace);
    EXPECT_TRUE(recorded(push(incident).code));
    environment_.unset("VOSKDEBUG");
    return trace_file::read(trace).messages("vk_clear_records");
  }
};

TEST_F(WholeTrace, SaysWhatIsClearedAndWhereTheRecordGoes) {
  const std::string room = "Enough room at end of stack to write record";
  EXPECT_THAT(traced(incident_of(1000)), ElementsAre(room, "File not wrapped - no records to clear"));
  for (const int body : {200, 1016, 1016, 1016, 1016, 1016, 1016}) push(incident_of(static_cast<std::size_t>(body)));
  // 1008 + 208 + 6 * 1024 bytes are taken, and 808 are left.
  EXPECT_THAT(traced(incident_of(801)),
              ElementsAre("Not enough room at end of stack, wrap to start",
                          "Clearing record of size 1000 at offset 24 in file", "1008 bytes now cleared for new record",
                          folded_text("Space cleared\nwrite offset 24, earliest rec offset 1032\n"
                                      "Returning VOSK_SUCCESS(0)\n")));
  EXPECT_THAT(traced(incident_of(191)), ElementsAre(room, folded_text("Space cleared\nwrite offset 833, earliest rec "
                                                                      "offset 1032\nReturning VOSK_SUCCESS(0)\n")));
  EXPECT_THAT(
      traced(incident_of(201)),
      ElementsAre(room, "Clearing record of size 200 at offset 1032 in file", "208 bytes now cleared for new record",
                  "Clearing record of size 1016 at offset 1240 in file", "1232 bytes now cleared for new record",
                  folded_text("Space cleared\nwrite offset 1032, earliest rec offset 2264\n"
                              "Returning VOSK_SUCCESS(0)\n")));
  EXPECT_EQ(places(read_chain(file()).records),
            "2264+1024 3288+1024 4312+1024 5336+1024 6360+1024 24+809 833+199 1032+209 ");
}

// The first of the writes leads away from what is cleared, the second one clears. What an earlier call left in errno is
// no error of theirs.
TEST_F(WholeTrace, SaysThatAWriteWasTooShortWithoutAnError) {
  const struct {
    int write;
    long long bytes;
    const char *text;
  } rows[] = {{1, 19, "Failure in fclear at offset 4 in file - error code 0\n"},
              {2, 1, "Failure in fclear at offset 24 in file - error code 0\n"}};
  for (const int body : {1000, 200, 1016, 1016, 1016, 1016, 1016, 1016})
    push(incident_of(static_cast<std::size_t>(body)));
  const std::string full = file();
  const std::string trace = stack() + ".trace";
  for (const auto &row : rows) {
    SCOPED_TRACE(row.write);
    put(full);
    unlink(trace.c_str());
    environment_.set("VOSKDEBUG", trace);
    platform::Calls calls;
    calls.ignore_path(trace);
    calls.short_nth("write", row.write, row.bytes);
    calls.after("read", 2, [](const platform::Call &) { errno = EXDEV; });
    EXPECT_EQ(calls.during([&] { return push(incident_of(801)).code; }), 24);
    environment_.unset("VOSKDEBUG");
    EXPECT_EQ(trace_file::read(trace).messages("vk_clear_records").back(),
              folded_text("%sReturning VOSK_FILE_CORRUPT(-26)\n", row.text));
  }
}

}  // namespace
}  // namespace whole_test
