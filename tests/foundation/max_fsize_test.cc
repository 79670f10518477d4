// vk_determine_max_fsize: how large a file may be without eating into the last five percent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>
#include <string>

#include "foundation/traced.h"
#include "qx_vosk.h"
#include "support/files.h"
#include "support/interpose.h"

namespace {

using foundation::TraceFile;
using platform::Calls;
using testing::ElementsAre;
using testing::IsEmpty;
using trace_file::folded_text;

constexpr std::int64_t kUntouched = -777;

struct Answer {
  int result;
  std::int64_t granted;
  bool operator==(const Answer &) const = default;
};

Answer ask(platform::StatfsFigures figures, std::int64_t wanted, std::int64_t min) {
  Calls calls;
  calls.statfs_figures({figures});
  std::int64_t granted = kUntouched;
  const int result =
      calls.during([&] { return vk_determine_max_fsize(0, nullptr, "/some/file", wanted, min, &granted); });
  EXPECT_THAT(calls.log(), ElementsAre("statfs(\"/some\") = 0"));
  return {result, granted};
}

void PrintTo(const Answer &answer, std::ostream *out) {
  *out << answer.result << " granting " << answer.granted;
}

// 1000 blocks: 50 are reserved, so the limit is 950 used blocks.
TEST(MaxFsize, FindsTheLargestSizeBelowTheLimit) {
  struct Row {
    const char *what;
    std::uint64_t blocks, available;
    std::int64_t block_size, wanted, min;
    Answer answer;
  };
  const Answer none = {-18, kUntouched};
  const Row rows[] = {
      {"plenty", 1000, 1000, 4096, 16384, 8192, {0, 16384}},
      {"just fits: 944 + 4 + 1 < 950", 1000, 56, 4096, 16384, 8192, {0, 16384}},
      {"just not: 945 + 4 + 1 = 950, and 8192 is not above the minimum", 1000, 55, 4096, 16384, 8192, none},
      {"the next size is above a smaller minimum: 945 + 2 + 1 < 950", 1000, 55, 4096, 16384, 8191, {0, 8192}},
      {"946 + 2 + 1 < 950", 1000, 54, 4096, 16384, 4096, {0, 8192}},
      {"947 + 2 + 1 = 950, and 0 is not above the minimum", 1000, 53, 4096, 16384, 4096, none},
      {"947 + 0 + 1 < 950: even nothing is tried above a negative minimum", 1000, 53, 4096, 16384, -1, {0, 0}},
      {"used equal to the limit is not yet inside the five percent", 1000, 50, 4096, 16384, 8192, none},
      {"used above the limit", 1000, 49, 4096, 16384, 8192, none},
      {"used above the limit, where nothing is wanted", 1000, 49, 4096, 0, 0, none},
      {"a full file system", 1000, 0, 4096, 1, 0, none},
      {"the wanted size is tried though it is the minimum", 1000, 1000, 4096, 8192, 8192, {0, 8192}},
      {"the wanted size is tried though it is below the minimum", 1000, 1000, 4096, 4096, 8192, {0, 4096}},
      {"the wanted size alone is tried where it is the minimum", 1000, 53, 4096, 8192, 8192, none},
      {"blocks of 1024: 940 + 12 + 1 no, 940 + 10 + 1 no, 8192 not tried", 1000, 60, 1024, 16384, 8192, none},
      {"blocks of 1024: 938 + 10 + 1 < 950", 1000, 62, 1024, 16384, 8192, {0, 10240}},
      {"blocks of 1024: 938 + 12 + 1 no", 1000, 62, 1024, 14336, 8192, {0, 10240}},
      {"blocks of 1024: 936 + 12 + 1 < 950", 1000, 64, 1024, 16384, 8192, {0, 12288}},
      {"blocks of 65536: less than a block counts as none", 1000, 52, 65536, 16384, 8192, {0, 16384}},
      {"blocks of 65536: 949 + 0 + 1 = 950", 1000, 51, 65536, 16384, 8192, none},
      {"blocks of 1", 1000, 1000, 1, 949, 0, {0, 947}},
      {"blocks of 1: 0 + 948 + 1 < 950", 1000, 1000, 1, 948, 0, {0, 948}},
      {"the division truncates: 944 + 4 + 1", 1000, 56, 4096, 20479, 8192, {0, 20479}},
      {"the size keeps its odd rest on the way down", 1000, 55, 4096, 20479, 8192, {0, 12287}},
      {"the reserve truncates: 0.95 of a block is none, 13 + 4 + 1 < 19", 19, 6, 4096, 16384, 8192, {0, 16384}},
      {"14 + 4 + 1 = 19", 19, 5, 4096, 16384, 8192, none},
      {"exactly 1 block of 20 is reserved, 14 + 4 + 1 = 19", 20, 6, 4096, 16384, 8192, none},
      {"13 + 4 + 1 < 19", 20, 7, 4096, 16384, 8192, {0, 16384}},
      {"1019 blocks reserve 50, limit 969: 963 + 4 + 1 < 969", 1019, 56, 4096, 16384, 8192, {0, 16384}},
      {"no blocks at all", 0, 0, 4096, 16384, 8192, none},
      {"more available than there is wraps around", 1000, 1001, 4096, 16384, 8192, none},
      {"a minus of one block is one block more of room", 1000, 50, 4096, -4096, -8192, none},
      {"950 - 2 + 1 < 950", 1000, 50, 4096, -8192, -8192, {0, -8192}},
      {"a minus below one block counts as none", 1000, 50, 4096, -4095, -8192, none},
      {"2441 blocks go down in twos to 947", 1000, 1000, 4096, 10000000, 8192, {0, 3880576}},
      {"the largest wish", 1000, 1000, 4096, INT64_MAX, 0, {0, 3883007}},
      {"the largest wish above nothing", 1000, 50, 1, INT64_MAX, 0, none},
      {"the largest wish on the largest blocks", 1000, 1000, INT64_MAX, INT64_MAX, 0, {0, INT64_MAX}},
      {"a step that would pass the lowest number ends it", 1000, 50, INT64_MAX, INT64_MAX, INT64_MIN, none},
      {"no size fits, however far down: 0 - n + 1 wraps around", 0, 0, 1, 16384, INT64_MIN, none},
      {"almost two blocks below nothing", 1000, 50, INT64_MAX / 2, 2 - INT64_MAX, INT64_MIN, none},
      // 5 percent of 2^64 - 1 blocks, in double precision, are 922337203685477632.
      {"used equal to the limit in a huge file system", UINT64_MAX, 922337203685477632U, 4096, 16384, 0, none},
      {"one below is room for one", UINT64_MAX, 922337203685477634U, 4096, 4095, 0, {0, 4095}},
      {"two blocks more are room for two", UINT64_MAX, 922337203685477635U, 4096, 4096, 0, {0, 4096}},
      {"inside the five percent of a huge file system", UINT64_MAX, 922337203685477631U, 4096, 1, 0, none},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.what);
    EXPECT_EQ(ask({row.blocks, row.available, row.block_size}, row.wanted, row.min), row.answer);
  }
}

// The rule's loop as it is told: down by two blocks while above the minimum.
Answer by_the_rule(platform::StatfsFigures figures, std::int64_t wanted, std::int64_t min) {
  const std::uint64_t used = figures.blocks - figures.available;
  const std::uint64_t limit = figures.blocks - static_cast<std::uint64_t>(static_cast<double>(figures.blocks) * 0.05);
  if (used > limit) return {-18, kUntouched};
  std::int64_t size = wanted;
  do {
    if (used + static_cast<std::uint64_t>(size / figures.block_size) + 1 < limit) return {0, size};
    size -= 2 * figures.block_size;
  } while (min < size);
  return {-18, kUntouched};
}

TEST(MaxFsize, AgreesWithTheRuleForRandomFigures) {
  std::mt19937 random(20240131);
  const auto up_to = [&](std::int64_t most) { return std::uniform_int_distribution<std::int64_t>(0, most)(random); };
  int fitting = 0;
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t block_size = std::int64_t{1} << up_to(16);
    const auto blocks = static_cast<std::uint64_t>(up_to(i % 2 == 0 ? 60 : 4000));
    const platform::StatfsFigures figures = {blocks, static_cast<std::uint64_t>(up_to(static_cast<int>(blocks))),
                                             block_size};
    const std::int64_t wanted = up_to(8000 * block_size) - 20 * block_size;
    const std::int64_t min = up_to(100 * block_size) - 50 * block_size;
    const Answer expected = by_the_rule(figures, wanted, min);
    ASSERT_EQ(ask(figures, wanted, min), expected) << blocks << " blocks, " << figures.available << " available, of "
                                                   << block_size << ", wanted " << wanted << ", minimum " << min;
    if (expected.result == 0) ++fitting;
  }
  EXPECT_GT(fitting, 2000);
  EXPECT_LT(fitting, 19000);
}

TEST(MaxFsize, RefusesNullPointersInOrder) {
  std::int64_t granted = kUntouched;
  Calls calls;
  EXPECT_EQ(calls.during([&] { return vk_determine_max_fsize(1, "/x", nullptr, 1, 1, nullptr); }), -4);
  EXPECT_EQ(calls.during([&] { return vk_determine_max_fsize(1, "/x", nullptr, 1, 1, &granted); }), -4);
  EXPECT_EQ(calls.during([&] { return vk_determine_max_fsize(1, "/x", "/y", 1, 1, nullptr); }), -5);
  EXPECT_THAT(calls.log(), IsEmpty());
  EXPECT_EQ(granted, kUntouched);
}

class TracedMaxFsize : public testing::Test {
 protected:
  // The result, with exactly one statfs made beside what the trace costs.
  int ask(Calls &calls, const char *path, std::int64_t wanted, std::int64_t min) {
    trace_.hide(calls);
    calls.ignore("gettimeofday");
    calls.ignore("getpid");
    return calls.during([&] { return vk_determine_max_fsize(1, trace_.c_str(), path, wanted, min, &granted_); });
  }
  files::TemporaryDirectory directory_;
  TraceFile trace_{directory_ / "trace"};
  std::int64_t granted_ = kUntouched;
};

TEST_F(TracedMaxFsize, ClassifiesTheErrorOfTheQueryAndTracesIt) {
  struct Row {
    int error, result;
  };
  std::vector<std::string> traced;
  for (const Row &row : {Row{ENOENT, -14}, Row{EACCES, -13}, Row{ESTALE, -15}, Row{ENOTDIR, -1}, Row{ELOOP, -1},
                         Row{ENAMETOOLONG, -1}, Row{EIO, -1}, Row{EINTR, -1}, Row{EOVERFLOW, -1}, Row{ENOSYS, -1}}) {
    SCOPED_TRACE(platform::error_name(row.error));
    Calls calls;
    calls.fail_nth("statfs", 1, row.error);
    EXPECT_EQ(ask(calls, "/a dir/file", 16384, 8192), row.result);
    EXPECT_THAT(calls.log(), ElementsAre("statfs(\"/a dir\") = -1 " + platform::error_name(row.error)));
    traced.push_back("vk_determine_max_fsize: statfs(/a dir) failed, error code " + std::to_string(row.error));
    EXPECT_EQ(trace_.entries(), traced);
  }
  EXPECT_EQ(granted_, kUntouched);
}

TEST_F(TracedMaxFsize, CountsABlockSizeBelowOneAsAFailedQuery) {
  for (std::int64_t block_size : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
    Calls calls;
    calls.statfs_figures({{1000, 1000, block_size}});
    EXPECT_EQ(ask(calls, "/dir/file", 16384, 8192), -1);
  }
  EXPECT_EQ(granted_, kUntouched);
  ASSERT_EQ(trace_.entries().size(), 3U);
  EXPECT_THAT(trace_.entries()[0], testing::StartsWith("vk_determine_max_fsize: statfs(/dir) failed, error code "));
}

TEST_F(TracedMaxFsize, TracesWhatItFound) {
  struct Row {
    std::uint64_t available;
    std::int64_t wanted, min;
    int result;
    std::string text;
  };
  const Row rows[] = {
      {49, 16384, 8192, -18, "5% space in /dir not available, returning VOSK_NO_SPACE(-18)"},
      {1000, 16384, 8192, 0, "Requested 16384 bytes, able to get 16384 bytes"},
      {55, 16384, 100, 0, "Requested 16384 bytes, able to get 8192 bytes"},
      {55, 16384, 8192, -18, "Cannot reserve 8192 bytes, returning VOSK_NO_SPACE(-18)"},
      // Sizes are printed by their low 32 bits, signed.
      {1000, 0x100000005, 0, 0, "Requested 5 bytes, able to get 3883013 bytes"},
      {1000, -4096, 0, 0, "Requested -4096 bytes, able to get -4096 bytes"},
      {55, 16384, 0x180000000, -18, "Cannot reserve -2147483648 bytes, returning VOSK_NO_SPACE(-18)"},
  };
  std::vector<std::string> traced;
  for (const Row &row : rows) {
    SCOPED_TRACE(row.text);
    Calls calls;
    calls.statfs_figures({{1000, row.available, 4096}});
    EXPECT_EQ(ask(calls, "/dir/file", row.wanted, row.min), row.result);
    traced.push_back("vk_determine_max_fsize: " + row.text);
    EXPECT_EQ(trace_.entries(), traced);
  }
}

TEST_F(TracedMaxFsize, AsksForTheDirectoryOfThePath) {
  struct Row {
    const char *path, *directory;
  };
  for (const Row &row : {Row{"/a/b/c", "/a/b"}, Row{"/c", "/"}, Row{"c", "."}, Row{"", "."}, Row{"a/c", "a"},
                         Row{"/a/b/", "/a"}, Row{"/", "/"}, Row{"..", "."}}) {
    Calls calls;
    calls.statfs_figures({{1000, 1000, 4096}});
    EXPECT_EQ(ask(calls, row.path, 1, 1), 0);
    EXPECT_THAT(calls.log(), ElementsAre(std::string("statfs(\"") + row.directory + "\") = 0"));
  }
}

TEST_F(TracedMaxFsize, AnswersAPathOf4096BytesAsTheKernelWould) {
  const std::string fits = "/dir/" + std::string(4090, 'p'), too_long = fits + "p";
  Calls calls;
  calls.statfs_figures({{1000, 1000, 4096}});
  EXPECT_EQ(ask(calls, fits.c_str(), 1, 1), 0);
  EXPECT_EQ(ask(calls, too_long.c_str(), 1, 1), -1);
  EXPECT_EQ(calls.count("statfs"), 1);
  EXPECT_THAT(trace_.entries(), ElementsAre("vk_determine_max_fsize: Requested 1 bytes, able to get 1 bytes",
                                            "vk_determine_max_fsize: " + folded_text("statfs(%s", too_long.c_str())));
}

TEST_F(TracedMaxFsize, TracesWhenTracingIsExactlyOne) {
  for (int trace_on : {0, 2, -1, 0x101}) {
    for (std::uint64_t available : {1000U, 49U, 51U}) {
      Calls calls;
      calls.statfs_figures({{1000, available, 4096}});
      calls.during([&] { return vk_determine_max_fsize(trace_on, trace_.c_str(), "/d/f", 16384, 8192, &granted_); });
      EXPECT_THAT(calls.names(), ElementsAre("statfs"));
    }
  }
  EXPECT_THAT(trace_.entries(), IsEmpty());
}

}  // namespace
