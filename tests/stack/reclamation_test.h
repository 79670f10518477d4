// A stack file full of marks, so that every byte cleared shows, for the tests of reclamation.
#ifndef TESTS_STACK_RECLAMATION_TEST_H
#define TESTS_STACK_RECLAMATION_TEST_H

#include <fcntl.h>

#include "lib/vk_push_stack/reclamation.h"
#include "stack/stack_test.h"

namespace stack_test {

class ReclamationTest : public testing::Test {
 protected:
  struct Length {
    std::size_t at;
    std::uint32_t value;
  };
  struct Range {
    std::size_t begin, end;
  };

  ~ReclamationTest() override {
    if (fd_ != -1) close(fd_);
  }
  // A file of this size with the lengths given; all other bytes, which would be a length beyond any file, are 'x'.
  void make_file(std::size_t size, const std::vector<Length> &lengths) {
    before_.assign(size, 'x');
    for (const Length &length : lengths) before_.replace(length.at, 4, files::u32(length.value));
    use(before_);
  }
  void use(const std::string &bytes) {
    before_ = bytes;
    if (fd_ != -1) close(fd_);
    ASSERT_TRUE(files::write(path_, bytes));
    fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd_, 0);
    ASSERT_EQ(lseek(fd_, 3, SEEK_SET), 3);
  }
  static vk::stack_header header_of(std::int32_t init, std::int32_t recording, std::int32_t earliest, std::int32_t size,
                                    std::uint8_t wrapped, std::uint32_t version = 0) {
    return {version, {init, recording, earliest, size, wrapped, {'a', 'b', 'c'}}};
  }
  int clear(std::uint32_t length, int trace_on = 1) {
    return vk::vk_clear_records(trace_on, trace_on == 1 ? trace_.path() : nullptr, fd_, &header_, length);
  }
  // The header as the bytes of a file.
  static std::string text(const vk::stack_header &header) {
    return files::u32(header.version) + std::string(reinterpret_cast<const char *>(&header.control), 20);
  }
  void expect_cleared(const std::vector<Range> &ranges) {
    std::string expected = before_;
    for (const Range &range : ranges)
      expected.replace(range.begin, range.end - range.begin, range.end - range.begin, 0);
    EXPECT_EQ(files::difference(expected, *files::read(path_)), "");
  }
  static std::vector<std::string> entries(const std::vector<std::string> &texts) {
    return trace_entries("vk_clear_records", texts);
  }

  struct Row {
    const char *what;
    vk::stack_header header;
    std::uint32_t length;  // of the new record's body; room is made for 4 bytes more
    std::vector<Length> lengths;
    int result;
    vk::stack_header after;
    std::vector<Range> cleared;
    std::vector<std::string> trace;
  };
  void expect(const Row &row, std::size_t file_size = 8192) {
    SCOPED_TRACE(row.what);
    make_file(file_size, row.lengths);
    header_ = row.header;
    EXPECT_EQ(clear(row.length), row.result);
    EXPECT_EQ(files::difference(text(row.after), text(header_)), "");
    expect_cleared(row.cleared);
    EXPECT_THAT(trace_.take(), testing::ElementsAreArray(entries(row.trace)));
  }

  files::TemporaryDirectory directory_;
  std::string path_ = directory_ / "stack";
  vk::stack_header header_ = {};
  Trace trace_;
  int fd_ = -1;

 private:
  std::string before_;
};

inline const std::string kEnoughRoom = "Enough room at end of stack to write record\n";
inline const std::string kWraps = "Not enough room at end of stack, wrap to start\n";
inline const std::string kNotWrapped = "File not wrapped - no records to clear\n";
inline std::string no_more(const std::string &offset) {
  return "No more records after offset " + offset + "\nReset earliest pointer to 24 offset\n";
}
inline std::string clearing(const std::string &size, const std::string &offset) {
  return "Clearing record of size " + size + " at offset " + offset + " in file\n";
}
inline std::string now_cleared(const std::string &bytes) {
  return bytes + " bytes now cleared for new record\n";
}
inline std::string space_cleared(const std::string &write_offset, const std::string &earliest) {
  return "Space cleared\nwrite offset " + write_offset + ", earliest rec offset " + earliest +
         "\nReturning VOSK_SUCCESS(0)\n";
}
inline std::string past_the_end(const std::string &position) {
  return "fclear to position " + position + " in file would corrupt the file - \nReturning VOSK_FILE_CORRUPT(-26)\n";
}

}  // namespace stack_test

#endif
