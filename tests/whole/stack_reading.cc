#include "whole/stack_reading.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace whole_test {

namespace {

constexpr std::string_view kDigits = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
// All fields, with nothing in the texts that may be empty and one character in the three that never are.
constexpr std::size_t kShortestBody = 132;
constexpr std::size_t kLongestBody = 1016, kPastTheEnd = 4;

std::size_t at_most(const std::string &file, std::size_t end) {
  return std::min(file.size(), end);
}

bool zero(const std::string &file, std::size_t from, std::size_t to) {
  to = at_most(file, to);
  return from >= to || file.find_first_not_of('\0', from) >= to;
}

// Takes records from `at` on while they follow each other, as long as they end at `end` or before.
std::size_t follow(const std::string &file, std::size_t at, std::size_t end, Chain &chain) {
  while (at < end) {
    const std::size_t size = verified_size(file, at);
    if (size == 0 || at + size > end) break;
    chain.records.push_back({at, file.substr(at, size)});
    at += size;
  }
  return at;
}

Chain broken(Chain chain, const char *where, std::size_t at) {
  chain.problem = where + std::to_string(at);
  return chain;
}

}  // namespace

std::uint32_t number_at(const std::string &file, std::size_t at) {
  std::uint32_t value = 0;
  if (at < file.size()) std::memcpy(&value, file.data() + at, std::min(sizeof value, file.size() - at));
  return value;
}

void put_number(std::string &file, std::size_t at, std::uint32_t value) {
  std::memcpy(file.data() + at, &value, sizeof value);
}

std::string Header::bytes() const {
  std::string out(kHeader, '\0');
  put_number(out, 0, version);
  put_number(out, 4, static_cast<std::uint32_t>(init));
  put_number(out, 8, static_cast<std::uint32_t>(position));
  put_number(out, 12, static_cast<std::uint32_t>(earliest));
  put_number(out, 16, static_cast<std::uint32_t>(size));
  out[20] = static_cast<char>(wrapped);
  return out.replace(21, 3, reserved);
}

Header header_of(const std::string &file) {
  const auto field = [&](std::size_t at) { return static_cast<std::int32_t>(number_at(file, at)); };
  return {number_at(file, 0), field(4), field(8), field(12), field(16), static_cast<std::uint8_t>(file.at(20)),
          file.substr(21, 3)};
}

std::string header_problem(const std::string &file) {
  const Header header = header_of(file);
  if (header.version != 0) return "version";
  if (header.init != 24) return "init offset";
  if (header.size < 8192 || header.size > 16384) return "file size";
  if (header.position < 24 || header.position > header.size) return "position " + std::to_string(header.position);
  if (header.earliest < 24 || header.earliest > header.size) return "earliest " + std::to_string(header.earliest);
  if (header.wrapped > 1) return "wrap byte";
  return "";
}

std::size_t verified_size(const std::string &file, std::size_t at) {
  constexpr std::size_t kTimeAt = 4 + 2 * kIdentifier;
  const std::size_t length = number_at(file, at);
  if (length < kShortestBody || length > kLongestBody || number_at(file, at + 4) != 0) return 0;
  if (at + kPrefix + length > file.size()) return 0;
  const std::string body = file.substr(at + kPrefix, length);
  if (number_at(body, 0) != 0) return 0;
  const std::uint32_t time = number_at(body, kTimeAt);
  const std::string identifier = body.substr(4, kIdentifier);
  if (identifier == std::string(kIdentifier, '\0')) {
    // Zeros behind a length are no record: one names its source file at least.
    const bool named = body.find_first_not_of('\0', kTimeAt + 4) != std::string::npos;
    return time == 0 && named ? kPrefix + length : 0;
  }
  if (identifier[0] != '7' || identifier.find('\0') != kIdentifier - 1) return 0;
  std::uint64_t seconds = 0;
  for (std::size_t i = 6; i-- > 0;) {
    const std::size_t digit = kDigits.find(identifier[7 + i]);
    if (digit == std::string_view::npos) return 0;
    seconds = seconds * 64 + digit;
  }
  return static_cast<std::uint32_t>(seconds) == time ? kPrefix + length : 0;
}

Chain read_linked(const std::string &file) {
  Chain chain;
  const Header header = header_of(file);
  if (chain.problem = header_problem(file); !chain.problem.empty()) return chain;
  const auto size = static_cast<std::size_t>(header.size), position = static_cast<std::size_t>(header.position),
             earliest = static_cast<std::size_t>(header.earliest);
  // Only the oldest records, and of those only what the standard rule wrote, may end behind the file size.
  const std::size_t last = at_most(file, size + kPastTheEnd);
  std::size_t newer = earliest;
  if (earliest > position || (earliest == position && header.wrapped == 1)) {
    const std::size_t end = follow(file, earliest, last, chain);
    if (end == earliest) return broken(chain, "no record at the earliest offset ", earliest);
    if (end < size && number_at(file, end) != 0) return broken(chain, "no record and no free space at ", end);
    newer = kHeader;
  }
  const std::size_t end = follow(file, newer, position == size ? last : position, chain);
  return end >= position ? chain : broken(chain, "no record at ", end);
}

Chain read_chain(const std::string &file) {
  Chain chain = read_linked(file);
  if (!chain.problem.empty()) return chain;
  std::vector<Record> by_offset = chain.records;
  std::sort(by_offset.begin(), by_offset.end(), [](const Record &a, const Record &b) { return a.offset < b.offset; });
  std::size_t free = kHeader;
  for (const Record &record : by_offset) {
    if (!zero(file, free, record.offset)) return broken(chain, "leftovers in front of ", record.offset);
    free = record.end();
  }
  return zero(file, free, file.size()) ? chain : broken(chain, "leftovers behind ", free);
}

std::vector<Record> search(const std::string &file) {
  std::vector<Record> found;
  const std::size_t end = at_most(file, static_cast<std::size_t>(header_of(file).size) + kPastTheEnd);
  const std::string within = file.substr(0, end);
  for (std::size_t at = kHeader; at < end;) {
    const std::size_t size = verified_size(within, at);
    if (size != 0) found.push_back({at, file.substr(at, size)});
    at += size != 0 ? size : 1;
  }
  return found;
}

}  // namespace whole_test
