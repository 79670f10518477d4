#include "tools/json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

namespace tool {

namespace {

template <class Value>
std::shared_ptr<const nlohmann::json> make(const Value &value) {
  return std::make_shared<const nlohmann::json>(value);
}

}  // namespace

json::json(std::nullptr_t none) : value_(make(none)) {}
json::json(bool value) : value_(make(value)) {}
json::json(int value) : value_(make(value)) {}
json::json(std::int64_t value) : value_(make(value)) {}
json::json(std::uint64_t value) : value_(make(value)) {}
json::json(const char *text) : value_(make(text)) {}
json::json(const std::string &text) : value_(make(text)) {}

json json::parse(const std::string &text) {
  return json(make(nlohmann::json::parse(text, nullptr, false)));
}

bool json::valid() const {
  return !value_->is_discarded();
}

bool json::is_null() const {
  return value_->is_null();
}

bool json::is_array() const {
  return value_->is_array();
}

bool json::is_number() const {
  return value_->is_number();
}

bool json::is_string() const {
  return value_->is_string();
}

std::string json::text() const {
  return value_->get<std::string>();
}

std::int64_t json::number() const {
  return value_->get<std::int64_t>();
}

std::size_t json::size() const {
  return value_->size();
}

bool json::contains(const std::string &name) const {
  return value_->contains(name);
}

json json::operator[](const std::string &name) const {
  return part(value_->at(name));
}

json json::operator[](int index) const {
  return part(value_->at(static_cast<std::size_t>(index)));
}

std::vector<json> json::elements() const {
  std::vector<json> all;
  for (const nlohmann::json &value : *value_) all.push_back(part(value));
  return all;
}

std::vector<std::pair<std::string, json>> json::members() const {
  std::vector<std::pair<std::string, json>> all;
  for (const auto &[name, value] : value_->items()) all.emplace_back(name, part(value));
  return all;
}

std::string json::dump() const {
  return value_->dump();
}

bool operator==(const json &a, const json &b) {
  return *a.value_ == *b.value_;
}

std::vector<json> json_lines(const std::string &text) {
  std::vector<json> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    lines.push_back(json::parse(line));
    EXPECT_TRUE(lines.back().valid()) << line;
  }
  return lines;
}

}  // namespace tool
