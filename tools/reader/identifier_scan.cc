#include "identifier_scan.h"

#include <array>
#include <cstddef>

#include "identifier.h"

namespace vosk {

namespace {

constexpr std::int64_t kEarliest = 631152000;  // 1990
constexpr std::int64_t kDay = 86400;
constexpr std::ptrdiff_t kLength = kIdentifierLength;

constexpr std::array<bool, 256> make_is_digit() {
  std::array<bool, 256> table{};
  for (const char c : kDigitCharacters) table[static_cast<unsigned char>(c)] = true;
  return table;
}
constexpr std::array<bool, 256> kIsDigit = make_is_digit();

// How sure a header character is; 0 for what is none. The library records under version 2 in stacks and the System Log.
constexpr std::array<unsigned char, 256> make_header_rank() {
  std::array<unsigned char, 256> table{};
  table['7'] = table['8'] = 4;
  table['6'] = table['/'] = table['0'] = 2;
  table['.'] = 1;
  return table;
}
constexpr std::array<unsigned char, 256> kHeaderRank = make_header_rank();

bool is_digit(char c) noexcept {
  return kIsDigit[static_cast<unsigned char>(c)];
}
unsigned header_rank(char c) noexcept {
  return kHeaderRank[static_cast<unsigned char>(c)];
}

// Cheap tests that nearly every window fails.
bool may_be_identifier(const char *window) noexcept {
  const char type = window[kIdentifierLength - 1];
  if (type != '.' && type != '/') return false;
  if (header_rank(window[0]) == 0) return false;
  // Each address word has 32 bits in six digits, so the sixth is one of the first four.
  return digit_value(static_cast<unsigned char>(window[22])) < 4 &&
         digit_value(static_cast<unsigned char>(window[40])) < 4;
}

// The first run of 42 digits at or behind `from`, null if there is none before `end`.
const char *next_run(const char *from, const char *end) noexcept {
  while (end - from >= kLength) {
    // From the end backwards: what is no digit there moves the search by as much as there is before it.
    const char *at = from + kLength;
    while (at > from && is_digit(at[-1])) --at;
    if (at == from) return from;
    from = at;
  }
  return nullptr;
}

// The first window at or behind `window` that may be an identifier, in the run of digits around it; null at its end.
const char *next_window(const char *window, const char *end) noexcept {
  for (; end - window >= kLength && is_digit(window[kLength - 1]); ++window)
    if (may_be_identifier(window)) return window;
  return nullptr;
}

}  // namespace

identifier_scanner::identifier_scanner(std::int64_t now) : latest_(now + kDay) {}

bool identifier_scanner::verifies(std::string_view window) const {
  const auto id = decode_identifier(window);
  return id && id->microseconds && id->address && id->seconds >= kEarliest && id->seconds <= latest_;
}

void identifier_scanner::scan(std::string_view text, std::vector<std::size_t> &found) const {
  const char *const end = text.data() + text.size();
  const char *from = text.data();
  while (const char *run = next_run(from, end)) {
    const char *best = nullptr, *last = end;  // windows from `last` on do not overlap the first one that verifies
    for (const char *window = next_window(run, end); window != nullptr && window < last;
         window = next_window(window + 1, end)) {
      const bool better = best == nullptr || header_rank(*window) > header_rank(*best);
      if (!better || !verifies({window, kIdentifierLength})) continue;
      if (best == nullptr) last = window + kLength;
      best = window;
    }
    if (best != nullptr) {
      found.push_back(static_cast<std::size_t>(best - text.data()));
      from = best + kLength;
    } else {
      from = run + kLength;
      while (from < end && is_digit(*from)) ++from;
    }
  }
}

std::size_t identifier_scanner::complete_part(std::string_view text) noexcept {
  constexpr std::size_t kOverlap = 2 * (kIdentifierLength - 1);
  const std::size_t least = text.size() > kOverlap ? text.size() - kOverlap : 0;
  std::size_t end = text.size();
  while (end > least && is_digit(text[end - 1])) --end;
  return end;
}

}  // namespace vosk
