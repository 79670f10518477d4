// The lines of a record's block, and values in them.
#ifndef TOOLS_VOSK_FIELD_TEXT_H
#define TOOLS_VOSK_FIELD_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vosk {

std::string or_dash(const std::string &text);

std::string number_text(const std::optional<std::uint32_t> &value);

std::string hex_text(std::uint64_t bits);

// "Label           value"; further lines of the value stand under its first.
void add_field(std::string &block, std::string_view label, std::string_view value);

}  // namespace vosk

#endif
