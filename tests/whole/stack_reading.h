// Readers of stack files for these tests, written from the layout alone.
#ifndef TESTS_WHOLE_STACK_READING_H
#define TESTS_WHOLE_STACK_READING_H

#include <cstdint>
#include <string>
#include <vector>

namespace whole_test {

constexpr std::size_t kHeader = 24, kPrefix = 8, kIdentifier = 43;

struct Header {
  std::uint32_t version;
  std::int32_t init, position, earliest, size;
  std::uint8_t wrapped;
  std::string reserved;

  std::string bytes() const;
};

Header header_of(const std::string &file);
// What is wrong with a header that a push under whole records may leave behind; empty where nothing is.
std::string header_problem(const std::string &file);

std::uint32_t number_at(const std::string &file, std::size_t at);
void put_number(std::string &file, std::size_t at, std::uint32_t value);

// A record as it lies in a file.
struct Record {
  std::size_t offset = 0;
  std::string bytes;  // with its prefix

  std::size_t end() const { return offset + bytes.size(); }
  std::string identifier() const { return bytes.substr(kPrefix + 4, kIdentifier); }
  bool operator==(const Record &) const = default;
};

// The bytes of the whole record that starts at `at`, 0 where none does: length, zero words, identifier and time agree.
std::size_t verified_size(const std::string &file, std::size_t at);

struct Chain {
  std::string problem;          // why the records do not lead to each other; the list is as far as they do
  std::vector<Record> records;  // oldest first
};

// Goes from the earliest offset from record to record to the recording position, as a reader does that knows nothing of
// damage. Whatever is no record must be zero.
Chain read_chain(const std::string &file);
// The same for the bytes that the header leads to, whatever lies elsewhere.
Chain read_linked(const std::string &file);

// Every whole record in the file, by its offset; of overlapping ones the first.
std::vector<Record> search(const std::string &file);

}  // namespace whole_test

#endif
