#include "identifier.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace vosk {

namespace {

constexpr std::array<signed char, 256> make_digits() {
  std::array<signed char, 256> digits{};
  digits.fill(-1);
  for (std::size_t i = 0; i < kDigitCharacters.size(); ++i)
    digits[static_cast<unsigned char>(kDigitCharacters[i])] = static_cast<signed char>(i);
  return digits;
}

constexpr std::array<signed char, 256> kDigits = make_digits();

// Where the fields of an identifier are.
constexpr std::size_t kLocationAt = 1, kSecondsAt = 7, kMicrosecondsAt = 13, kAddressAt = 17, kTypeAt = 41;
constexpr std::size_t kWordDigits = 6;
constexpr std::uint64_t kWordMax = 0xFFFFFFFF;

std::optional<node_address> decode_address(std::string_view field, char type) {
  node_address address;
  if (type != '.' && type != '/') return std::nullopt;
  address.ipv6 = type == '/';
  if (!address.ipv6 && field.find_first_not_of('.', kWordDigits) != std::string_view::npos) return std::nullopt;
  const std::size_t words = address.ipv6 ? 4 : 1;
  for (std::size_t i = 0; i < words; ++i) {
    const auto word = field_value(field.substr(i * kWordDigits, kWordDigits));
    if (!word || *word > kWordMax) return std::nullopt;
    const auto value = static_cast<std::uint32_t>(*word);  // in memory order already
    std::memcpy(address.bytes.data() + 4 * i, &value, sizeof value);
  }
  return address;
}

// The selector's two digits are one above facility number and priority, so that neither is '.'.
bool decode_selector(std::string_view field, identifier &id) {
  const int facility = digit_value(static_cast<unsigned char>(field[0])) - 1;
  const int priority = digit_value(static_cast<unsigned char>(field[1])) - 1;
  if (facility < 0 || facility > 23 || priority < 0 || priority > 7 || field.substr(2) != "....") return false;
  id.facility = static_cast<unsigned>(facility);
  id.priority = static_cast<unsigned>(priority);
  return true;
}

bool decode_location(std::string_view field, identifier &id) {
  if (id.where == location::system_log) return decode_selector(field, id);
  const auto value = field_value(field);
  if (!value) return false;
  if (id.where == location::stack) {
    id.inode = *value;
    return true;
  }
  id.template_id = static_cast<std::uint32_t>(*value);
  return id.template_id != 0;
}

}  // namespace

int digit_value(unsigned char c) noexcept {
  return kDigits[c];
}

std::optional<std::uint64_t> field_value(std::string_view field) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = field.size(); i-- > 0;) {
    const int digit = digit_value(static_cast<unsigned char>(field[i]));
    if (digit < 0) return std::nullopt;
    value = value << 6 | static_cast<std::uint64_t>(digit);
  }
  return value;
}

std::string node_address::text() const {
  char buffer[INET6_ADDRSTRLEN] = "";
  inet_ntop(ipv6 ? AF_INET6 : AF_INET, bytes.data(), buffer, sizeof buffer);
  return buffer;
}

bool node_address::loopback() const noexcept {
  if (!ipv6) return bytes[0] == 127;
  return bytes[15] == 1 && std::all_of(bytes.begin(), bytes.end() - 1, [](unsigned char b) { return b == 0; });
}

bool node_address::none() const noexcept {
  return std::all_of(bytes.begin(), bytes.end(), [](unsigned char b) { return b == 0; });
}

std::optional<identifier> decode_identifier(std::string_view text, std::string *why) {
  const auto refuse = [&](const char *reason) -> std::optional<identifier> {
    if (why != nullptr) *why = reason;
    return std::nullopt;
  };
  if (text.size() != kIdentifierLength) return refuse("it does not have 42 characters");

  identifier id;
  const int code = digit_value(static_cast<unsigned char>(text[0]));
  if (code < 0 || (code & 0x30) != 0 || (code & 7) > 2)
    return refuse("its first character names no version and location");
  id.version = (code & 8) != 0 ? 2 : 1;
  id.where = static_cast<location>(code & 7);
  if (!decode_location(text.substr(kLocationAt, 6), id))
    return refuse("its location field (characters 2 to 7) is not valid");

  const auto seconds = field_value(text.substr(kSecondsAt, 6));
  if (!seconds || *seconds == 0) return refuse("its seconds (characters 8 to 13) are not valid");
  id.seconds = static_cast<std::int64_t>(*seconds);
  const auto microseconds = field_value(text.substr(kMicrosecondsAt, 4));
  if (microseconds && *microseconds <= 999999) id.microseconds = static_cast<std::uint32_t>(*microseconds);
  id.address = decode_address(text.substr(kAddressAt, 24), text[kTypeAt]);
  return id;
}

bool is_whole_identifier(std::string_view text) {
  const auto id = decode_identifier(text);
  return id && id->microseconds && id->address;
}

}  // namespace vosk
