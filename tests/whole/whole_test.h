// A stack file of this process in a directory of its own, pushes of chosen sizes into it, and what ought to be left of
// them under whole records.
#ifndef TESTS_WHOLE_WHOLE_TEST_H
#define TESTS_WHOLE_WHOLE_TEST_H

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/interpose.h"
#include "whole/stack_reading.h"

namespace whole_test {

using Random = std::mt19937;
int between(Random &random, int lowest, int highest);

// What is recorded. Everything else is one character long, so that the sizes are known.
struct Incident {
  std::string message{};
  std::string detail{};
  bool with_argument = false;  // "%s" behind the message, with a text of 64 characters

  std::size_t body() const;  // its record's body, by the layout
  std::size_t size() const { return body() + kPrefix; }
};

constexpr std::size_t kSmallestBody = 134, kLargestBody = 1016;
Incident incident_of(std::size_t body);             // exactly this size
Incident random_incident(Random &random);           // any size; with and without details, arguments, or cut
Incident ordinary_incident(Random &random, int i);  // texts and sizes such as services produce

bool recorded(int code);  // 0 or an attention

struct Pushed {
  int code;
  std::string identifier;
};
Pushed push(const Incident &incident);

// A fresh file of this size as a first push would create it.
std::string fresh_file(int size);

// What ought to be in a file: records follow each other, start again at the front where one does not fit at the end,
// and the oldest give way, none without need.
class Expected {
 public:
  explicit Expected(int size) : size_(static_cast<std::size_t>(size)) {}
  // Goes on with the records that are in a file, and the end of the newest.
  Expected(int size, std::vector<Record> records, std::size_t position)
      : size_(static_cast<std::size_t>(size)), position_(position), records_(std::move(records)) {}

  // Makes room for a record of `size` bytes and takes it in, of zeros until the caller knows better.
  void add(std::size_t size);

  const std::vector<Record> &records() const { return records_; }
  Record &newest() { return records_.back(); }
  std::size_t position() const { return position_; }
  std::size_t cleared() const { return cleared_; }  // by the last push
  bool wrapped() const { return wrapped_; }         // the last push did

 private:
  std::size_t size_, position_ = kHeader, cleared_ = 0;
  bool wrapped_ = false;
  std::vector<Record> records_;
};

// "24+142 166+200": where records lie.
std::string places(const std::vector<Record> &records);

class WholeTest : public testing::Test {
 protected:
  WholeTest();

  std::string stack() const { return directory_ / "stack"; }
  std::string file() const;
  void put(const std::string &bytes);  // in place: the file keeps its i-node, and so the identifiers' location
  void reclaim(const char *rule);      // the value of VOSKRECLAIM, null for none
  void set_identified(bool on);        // off: no identifier can be made, and the time is 0
  // In a child: takes the environment over.
  static void own_environment();

  // Fills a fresh file under whole records until it has wrapped `wraps` times, and somewhat further.
  std::string filled(int size, int wraps, Random &random);
  // Pushes ordinary incidents under the standard rule until one is refused; empty where none is.
  std::string stopped(int size, Random &random);

  platform::Environment environment_;

 private:
  files::TemporaryDirectory directory_;
};

}  // namespace whole_test

#endif
