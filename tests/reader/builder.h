// Stack files written field by field, sharing no code with the reader or the library.
#ifndef TESTS_READER_BUILDER_H
#define TESTS_READER_BUILDER_H

#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace builder {

using bytes = std::vector<unsigned char>;

inline constexpr std::uint64_t kInode = 1234567;
inline constexpr char kAddress[] = ".XO.8....................";  // 192.168.1.10, IPv4

// "./0-9A-Za-z", least significant digit first, filled with '.'.
std::string digits(std::uint64_t value, std::size_t width);

// An identifier of a push; `address` has 25 characters.
std::string stack_eid(std::uint64_t inode, std::uint64_t seconds, std::uint32_t microseconds,
                      const std::string &address = kAddress);

struct argument {
  std::uint32_t type;
  std::string text;        // type 5
  std::uint64_t bits = 0;  // any other
};

struct record {
  std::string eid = stack_eid(kInode, 1700000000, 123456);  // empty: none was made
  std::string associated;                                   // up to 43 bytes
  std::optional<std::uint32_t> time;                        // unset: that of `seconds`
  std::uint64_t seconds = 1700000000;
  std::string process = "mydaemon";
  std::uint32_t pid = 4711, parent = 1, thread = 77;
  std::string source = "worker.c", version = "1.4", product = "myproduct";
  std::uint32_t line = 12;
  std::string catalogue = "my.cat";
  std::uint32_t set = 1, number = 7;
  std::string default_text = "cannot open %1$s";
  std::vector<argument> arguments{{5, "/etc/thing"}};
  std::string detail = "errno 13";

  // Sets identifier and time.
  record &at(std::uint64_t when, std::uint32_t microseconds, std::uint64_t inode = kInode);
};

// Prefix and body; what passes 1024 bytes is cut or skipped as the format says.
bytes record_bytes(const record &r);

struct header {
  std::uint32_t version = 0;
  std::int32_t init = 24, recording = 24, earliest = 24, size = 8192;
  unsigned char wrapped = 0;
};

void put_header(bytes &file, const header &h);

// A stack file and the standard rule for recording into it, as a model of its own.
class model {
 public:
  explicit model(std::int32_t size = 8192);
  bool push(const bytes &record);  // false: refused
  const bytes &file() const { return file_; }
  const header &control() const { return header_; }
  std::size_t last_offset() const { return last_offset_; }  // of the record pushed last

 private:
  bool make_room(std::int64_t length, header &h);

  bytes file_;
  header header_;
  std::size_t last_offset_ = 0;
};

// A file that never wrapped, one that did, and one with a cut record; several records each, all of different sizes.
bytes never_wrapped_file();
bytes wrapped_file();
bytes file_with_cut_record();

// Records of any content that the format allows: empty and long texts, odd bytes, every argument type, no identifier.
record random_record(std::mt19937 &random, std::uint64_t seconds);

}  // namespace builder

#endif
