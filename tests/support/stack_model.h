// A small model of the stack file, independent of the library: the header, the record builder, reclamation and the
// writes of one push, in their order. Differential, fault and kill tests compare the library with it.
//
//   stack_model::File model = stack_model::created(16384);
//   stack_model::Push push;
//   push.identifier = fid; push.seconds = ...; push.process_name = "service"; ...
//   stack_model::Outcome expected = stack_model::push(model, stack_model::build(push));  // changes the model
//   EXPECT_EQ(code, expected.code == 0 ? last_attention : expected.code);
//   EXPECT_EQ(stack_model::difference(model, path), "");
#ifndef QX_TESTS_SUPPORT_STACK_MODEL_H
#define QX_TESTS_SUPPORT_STACK_MODEL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stack_model {

struct Header {
  std::uint32_t version = 0;
  std::int32_t init = 24;
  std::int32_t recording = 24;
  std::int32_t earliest = 24;
  std::int32_t size = 16384;
  std::uint8_t wrap = 0;
  std::string reserved = std::string(3, '\0');

  std::string control() const;  // the 20 bytes behind the version
  std::string text() const;     // all fields, for messages of failed tests
};

struct Write {
  std::int64_t offset;
  std::string bytes;
};

// A file's bytes; what is written beyond a mebibyte is kept apart, since a hostile header can place a record anywhere.
struct File {
  std::string bytes;
  std::vector<Write> far = {};  // later ones over earlier ones

  Header header() const;  // short files are filled up with zeros
  std::int64_t size() const;
};

// Where the file at `path` differs from the model, empty where it does not.
std::string difference(const File &model, const std::string &path);

struct Argument {
  int type = 1;
  std::string text;         // of type 5
  std::uint64_t value = 0;  // of every other type
};

// The inputs of a push that reach the record, after the entry point's own decisions.
struct Push {
  std::string identifier;  // up to 43 bytes, zeros behind; empty: none was produced
  std::string associated;  // 43 bytes as they lie; empty: none was given
  std::uint32_t seconds = 0;
  std::string process_name;
  std::int32_t pid = 0;
  std::int32_t parent = 0;
  std::int32_t thread = 0;
  std::string file;     // empty: missing
  std::string version;  // empty: missing
  std::string product;  // empty: missing
  std::int32_t line = 0;
  std::string catalogue;
  std::int32_t set = 0;
  std::int32_t number = 0;
  std::string message;
  std::vector<Argument> arguments;
  std::string detail;  // the data, or the path of the copy
};

struct Record {
  std::string bytes;  // prefix and body, at most 1024
  bool over_length = false;

  std::uint32_t body_length() const { return static_cast<std::uint32_t>(bytes.size()) - 8; }
};

Record build(const Push &push);

struct Outcome {
  int code = 0;               // 0, or what the push returns: 24 or 41
  int message = 0;            // its index in the message table
  std::string routine;        // the insert of message 41
  std::int32_t position = 0;  // the insert of message 43
  bool wrapped = false;       // this push went back to the start
  std::int64_t offset = -1;   // where the record went
  std::vector<Write> writes;  // every write, zeroing included (in pieces of 1024), in order
};

// What the header validation says: 0, -26 (corrupt) or -99 (not supported, used all the same).
int validate(const Header &header);

// Pushes one record into the file, the steps from the header's validation to its rewriting.
Outcome push(File &file, const Record &record);

// What the reservation of a file of this size leaves, and the writes that make it, zeroing first.
File reserved(std::int64_t size);
std::vector<Write> reservation_writes(std::int64_t size);
// What a first push makes of a reservation, and its two writes.
File created(std::int32_t size);
std::vector<Write> creation_writes(std::int32_t size);

// Makes a write, or only its first bytes.
void apply(File &file, const Write &write);
void apply(File &file, const Write &write, std::size_t bytes);

// A record read back, for tests that look for one.
struct Decoded {
  Push push;
  std::int32_t count = 0;  // of the arguments, as stored
};

// None where the fields do not fill the body exactly (a cut record, a torn one).
std::optional<Decoded> decode(const std::string &record);
// The records of a file that never wrapped, in order; none where they do not fill it up to the recording position.
std::optional<std::vector<std::string>> records(const std::string &file);

}  // namespace stack_model

#endif
