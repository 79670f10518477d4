// Error Identifiers taken apart without the library: also those of other nodes, of copied files and of broken records.
#ifndef TOOLS_READER_IDENTIFIER_H
#define TOOLS_READER_IDENTIFIER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vosk {

inline constexpr std::size_t kIdentifierLength = 42;

// The digits of identifiers, by value.
inline constexpr std::string_view kDigitCharacters = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

// The value of a base-64 digit, -1 for any other character.
int digit_value(unsigned char c) noexcept;

// The number in a field of digits, the least significant first; nothing if one of them is no digit.
std::optional<std::uint64_t> field_value(std::string_view field) noexcept;

// Identifiers hold the low 36 bits of an i-node number.
inline constexpr std::uint64_t kInodeMask = 0xFFFFFFFFF;

enum class location : unsigned char { error_template, stack, system_log };

struct node_address {
  bool ipv6 = false;
  std::array<unsigned char, 16> bytes{};  // network order, 4 used for IPv4

  std::string text() const;
  bool loopback() const noexcept;
  bool none() const noexcept;  // all zero: the node had no address
  bool operator==(const node_address &) const = default;
};

struct identifier {
  int version = 0;
  location where = location::stack;
  std::uint64_t inode = 0;                    // of the stack file
  std::uint32_t template_id = 0;              // of an error template
  unsigned facility = 0, priority = 0;        // of a System Log record: facility number, priority
  std::int64_t seconds = 0;                   // since the epoch
  std::optional<std::uint32_t> microseconds;  // nothing where they are out of range
  std::optional<node_address> address;        // nothing where the address field holds something else
};

// Takes 42 characters apart. Header, location field and seconds must be valid; microseconds and address need not be, as
// they do not decide what an identifier belongs to. `why`, if given, receives what is wrong.
std::optional<identifier> decode_identifier(std::string_view text, std::string *why = nullptr);

// True if every field of `text` is what the library writes.
bool is_whole_identifier(std::string_view text);

}  // namespace vosk

#endif
