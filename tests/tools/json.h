// JSON that a tool printed, as the tests look at it:
//
//   EXPECT_EQ(lines[0]["type"], "record");
//   const std::string detail = lines[0]["detail"];
//
// The library that reads it takes seconds in each file that includes it; json.cc alone does.
#ifndef TESTS_TOOLS_JSON_H
#define TESTS_TOOLS_JSON_H

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tool {

// A value; a copy shares it, and it does not change. What a value does not have, or is not, is an exception.
class json {
 public:
  json(std::nullptr_t = nullptr);
  json(bool value);
  json(int value);
  json(std::int64_t value);
  json(std::uint64_t value);
  json(const char *text);
  json(const std::string &text);

  // The value that `text` is; not valid where it is none.
  static json parse(const std::string &text);
  bool valid() const;

  bool is_null() const;
  bool is_array() const;
  bool is_number() const;
  bool is_string() const;

  std::string text() const;
  operator std::string() const { return text(); }
  std::int64_t number() const;

  // Of arrays and objects.
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  bool contains(const std::string &name) const;
  json operator[](const std::string &name) const;
  json operator[](int index) const;
  std::vector<json> elements() const;
  std::vector<std::pair<std::string, json>> members() const;

  std::string dump() const;

  friend bool operator==(const json &a, const json &b);
  friend std::ostream &operator<<(std::ostream &out, const json &value) { return out << value.dump(); }

 private:
  explicit json(std::shared_ptr<const nlohmann::json> value) : value_(std::move(value)) {}
  json part(const nlohmann::json &value) const { return json({value_, &value}); }
  std::shared_ptr<const nlohmann::json> value_;
};

// The lines of `text`; a line that is no JSON is a failure of the test.
std::vector<json> json_lines(const std::string &text);

}  // namespace tool

#endif
