// The i-node field of an identifier: the encoder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "qx_vosk.h"
#include "support/edge_buffer.h"
#include "support/interpose.h"
#include "support/scratch_trace.h"
#include "utils/vk_eid/fields.h"

namespace {

using testing::ElementsAre;

constexpr const char *kEncoder = "vk_get_base_64_inode";

TEST(InodeEncoder, WritesTheNumberInSixCharacters) {
  const struct {
    std::uint64_t inode;
    const char *field, *decimal;  // the trace has the low 32 bits, signed
  } rows[] = {
      {0, "......", "0"},
      {1, "/.....", "1"},
      {63, "z.....", "63"},
      {64, "./....", "64"},
      {1234567, "5Oh2..", "1234567"},
      {0x12345678, "sN3BG.", "305419896"},
      {0xFFFFFFFF, "zzzzz1", "-1"},
      {(std::uint64_t{1} << 36) - 1, "zzzzzz", "-1"},
      {std::uint64_t{1} << 36, "......", "0"},
      {(std::uint64_t{1} << 40) + 1234567, "5Oh2..", "1234567"},
      {UINT64_MAX, "zzzzzz", "-1"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.inode);
    platform::FakeStat status;
    status.inode = row.inode;
    EdgeBuffer exact(6);
    platform::Calls calls;
    calls.fake_stat("stat", "", status);
    EXPECT_EQ(calls.during([&] { return vk::vk_get_base_64_inode(0, nullptr, "some/file", exact.chars()); }), 0);
    EXPECT_EQ(exact.bytes(), row.field);
    EXPECT_THAT(calls.log(), ElementsAre("stat(\"some/file\") = 0"));
    expect_result_and_trace(
        [&](int on, const char *path) {
          char field[7] = {};
          platform::Calls traced;
          traced.fake_stat("stat", "some/file", status);
          return traced.during([&] { return vk::vk_get_base_64_inode(on, path, "some/file", field); });
        },
        0,
        {trace_entry(kEncoder, std::string("File some/file i-node is ") + row.decimal + "\nBase-64 representation is " +
                                   row.field + "\nReturning VOSK_SUCCESS(0) to the caller\n")});
  }
}

TEST(InodeEncoder, FollowsALinkToTheFileItself) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "file", ""));
  ASSERT_EQ(symlink("file", (directory / "link").c_str()), 0);
  struct stat status;
  ASSERT_EQ(stat((directory / "file").c_str(), &status), 0);
  for (const char *name : {"file", "link"}) {
    char field[7] = {};
    EXPECT_EQ(vk::vk_get_base_64_inode(0, nullptr, (directory / name).c_str(), field), 0);
    EXPECT_EQ(vk_a64l(field), status.st_ino & 0xFFFFFFFFF);
  }
}

TEST(InodeEncoder, AnswersAFailedStatusByItsErrno) {
  const struct {
    int error, code;
  } rows[] = {{EACCES, -25}, {ENOENT, -24}, {ENOTDIR, -14},  {ELOOP, -1},  {ENAMETOOLONG, -1},
              {ENOMEM, -1},  {EIO, -1},     {EOVERFLOW, -1}, {ESTALE, -1}, {EINTR, -1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.error);
    EdgeBuffer field(6);
    expect_result_and_trace(
        [&](int on, const char *path) {
          platform::Calls calls;
          calls.fail_nth("stat", 1, row.error);
          return calls.during([&] { return vk::vk_get_base_64_inode(on, path, "some/file", field.chars()); });
        },
        row.code,
        {trace_entry(kEncoder,
                     "Error trying to get status of file some/file\nErrno is " + std::to_string(row.error) + "\n")});
    EXPECT_TRUE(field.untouched());
  }
}

TEST(InodeEncoder, MeetsTheRealFailures) {
  files::TemporaryDirectory directory;
  ASSERT_TRUE(files::write(directory / "file", ""));
  EdgeBuffer field(6);
  EXPECT_EQ(vk::vk_get_base_64_inode(0, nullptr, (directory / "missing").c_str(), field.chars()), -24);
  EXPECT_EQ(vk::vk_get_base_64_inode(0, nullptr, (directory / "file/below").c_str(), field.chars()), -14);
  EXPECT_EQ(vk::vk_get_base_64_inode(0, nullptr, std::string(5000, 'x').c_str(), field.chars()), -1);
  EXPECT_TRUE(field.untouched());
}

TEST(InodeEncoder, RefusesInTheOrderFileField) {
  EdgeBuffer field(6);
  const struct {
    const char *file;
    char *field;
    int code;
    const char *text;
  } rows[] = {
      {nullptr, nullptr, -4, "Called with a NULL string for a file name\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {"", field.chars(), -4, "Called with a NULL string for a file name\nReturning VOSK_INV_PARAM3(-4) to caller\n"},
      {"some/file", nullptr, -5,
       "Called with a NULL pointer for inode64rep\nReturning VOSK_INV_PARAM4(-5) to caller\n"},
  };
  for (const auto &row : rows) {
    const auto call = [&](int on, const char *path) { return vk::vk_get_base_64_inode(on, path, row.file, row.field); };
    expect_result_and_trace(call, row.code, {trace_entry(kEncoder, row.text)});
    platform::Calls calls;
    calls.during([&] { return call(0, nullptr); });
    EXPECT_EQ(calls.count_all(), 0);
  }
  EXPECT_TRUE(field.untouched());
}

}  // namespace
