// Points in time: written with microseconds and zone, read from what a user types.
#ifndef TOOLS_READER_MOMENT_H
#define TOOLS_READER_MOMENT_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vosk {

struct moment {
  std::int64_t seconds = 0;  // since the epoch
  std::int32_t microseconds = 0;
  // The checker misreads the comparison with 0 in what the compiler makes of this.
  auto operator<=>(const moment &) const = default;  // NOLINT(modernize-use-nullptr)
};

enum class zone { local, utc };

moment now();

// `at` moved by a span of microseconds, backwards too.
moment shifted(moment at, std::int64_t microseconds) noexcept;

// From `a` to `b` in microseconds.
std::int64_t microseconds_between(moment a, moment b) noexcept;

// "2026-11-16 07:11:27.123456 +0100"; without the fraction when the microseconds are not known.
std::string time_text(std::int64_t seconds, std::optional<std::uint32_t> microseconds, zone where);

// "2026-11-16T06:11:27.123456Z"
std::string utc_time_text(std::int64_t seconds, std::optional<std::uint32_t> microseconds);

// "0.000123 s", "59.500 s", "5 min 3 s", "2 h 5 min", "3 d 4 h"
std::string duration_text(std::int64_t microseconds);

// "90", "90s", "5m", "1h30m", "2d", "1w", "500ms", "20us" as microseconds; a number alone means seconds.
std::optional<std::int64_t> parse_duration(std::string_view text);

// "2026-11-16 07:11:27.5", with T for the blank, with a zone (Z, +0100, +01:00), without seconds or time of day; a time
// of day alone, which means today's; "today", "yesterday", "now"; "@" and seconds since the epoch; "-5m" or "5m ago".
std::optional<moment> parse_moment(std::string_view text, zone where, moment now);

}  // namespace vosk

#endif
