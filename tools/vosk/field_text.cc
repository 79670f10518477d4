#include "field_text.h"

#include <array>
#include <charconv>

namespace vosk {

namespace {

constexpr std::size_t kLabelWidth = 16;

}  // namespace

std::string or_dash(const std::string &text) {
  return text.empty() ? "-" : text;
}

std::string number_text(const std::optional<std::uint32_t> &value) {
  return value ? std::to_string(*value) : "-";
}

std::string hex_text(std::uint64_t bits) {
  std::array<char, 20> text{};
  return "0x" + std::string(text.data(), std::to_chars(text.data(), text.data() + text.size(), bits, 16).ptr);
}

void add_field(std::string &block, std::string_view label, std::string_view value) {
  const std::string margin(kLabelWidth + 2, ' ');
  std::string lead = "  " + std::string(label);
  lead.resize(margin.size(), ' ');
  do {
    const std::size_t end = value.find('\n');
    block += lead + std::string(value.substr(0, end)) + "\n";
    value.remove_prefix(end == std::string_view::npos ? value.size() : end + 1);
    lead = margin;
  } while (!value.empty());
}

}  // namespace vosk
