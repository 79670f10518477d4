#include "moment.h"

#include <sys/time.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace vosk {

namespace {

constexpr std::int64_t kSecond = 1000000, kMinute = 60 * kSecond, kHour = 60 * kMinute, kDay = 24 * kHour,
                       kWeek = 7 * kDay;
// Some 30,000 years: spans stay clear of overflow, and no identifier's time lies further away.
constexpr std::int64_t kLongest = 1000000000000000000;

bool broken_down(std::int64_t seconds, zone where, std::tm &out) {
  const std::time_t value = seconds;
  return (where == zone::utc ? gmtime_r(&value, &out) : localtime_r(&value, &out)) != nullptr;
}

std::string date_and_time(const std::tm &tm, char between, std::optional<std::uint32_t> microseconds) {
  char text[96];
  int length = std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                             tm.tm_mday, between, tm.tm_hour, tm.tm_min, tm.tm_sec);
  std::string out(text, static_cast<std::size_t>(length));
  if (microseconds) {
    length = std::snprintf(text, sizeof text, ".%06u", *microseconds);
    out.append(text, static_cast<std::size_t>(length));
  }
  return out;
}

// Takes characters from the front of a text as a grammar wants them.
class reader {
 public:
  explicit reader(std::string_view text) : rest_(text) {}

  bool done() const { return rest_.empty(); }
  std::size_t left() const { return rest_.size(); }
  char peek() const { return rest_.empty() ? '\0' : rest_[0]; }
  bool take(std::string_view word) {
    if (!rest_.starts_with(word)) return false;
    rest_.remove_prefix(word.size());
    return true;
  }
  void skip_blanks() {
    while (peek() == ' ') rest_.remove_prefix(1);
  }

  // A number of `least` to `most` digits.
  std::optional<std::int64_t> number(std::size_t least, std::size_t most) {
    std::size_t digits = 0;
    while (digits < rest_.size() && digits < most && rest_[digits] >= '0' && rest_[digits] <= '9') ++digits;
    if (digits < least) return std::nullopt;
    std::int64_t value = 0;
    std::from_chars(rest_.data(), rest_.data() + digits, value);
    rest_.remove_prefix(digits);
    return value;
  }

  // Up to six digits behind a point, in microseconds; further ones are dropped.
  std::optional<std::int32_t> fraction() {
    if (!take(".")) return 0;
    std::int32_t value = 0, scale = 100000;
    std::size_t digits = 0;
    for (; peek() >= '0' && peek() <= '9'; ++digits, scale /= 10) {
      value += (peek() - '0') * scale;
      rest_.remove_prefix(1);
    }
    if (digits == 0) return std::nullopt;
    return value;
  }

 private:
  std::string_view rest_;
};

struct clock_time {
  int hour = 0, minute = 0, second = 0;
  std::int32_t microseconds = 0;
};

std::optional<clock_time> take_clock_time(reader &text) {
  clock_time at;
  const auto hour = text.number(1, 2);
  if (!hour || *hour > 23 || !text.take(":")) return std::nullopt;
  const auto minute = text.number(2, 2);
  if (!minute || *minute > 59) return std::nullopt;
  at.hour = static_cast<int>(*hour);
  at.minute = static_cast<int>(*minute);
  if (!text.take(":")) return at;
  const auto second = text.number(2, 2);
  const auto fraction = text.fraction();
  if (!second || *second > 60 || !fraction) return std::nullopt;
  at.second = static_cast<int>(*second);
  at.microseconds = *fraction;
  return at;
}

// The seconds that a zone is ahead of UTC.
std::optional<std::int64_t> take_zone(reader &text) {
  if (text.take("Z")) return 0;
  const int sign = text.take("+") ? 1 : text.take("-") ? -1 : 0;
  const auto hours = text.number(2, 2);
  (void)text.take(":");
  const auto minutes = text.number(2, 2);
  if (sign == 0 || !hours || !minutes || *hours > 23 || *minutes > 59) return std::nullopt;
  return sign * (*hours * 3600 + *minutes * 60);
}

std::optional<moment> moment_of(std::tm date, const clock_time &at, zone where) {
  date.tm_hour = at.hour;
  date.tm_min = at.minute;
  date.tm_sec = at.second;
  date.tm_isdst = -1;
  const int day = date.tm_mday;
  const std::time_t seconds = where == zone::utc ? timegm(&date) : mktime(&date);
  if (date.tm_mday != day && at.second < 60) return std::nullopt;  // a day that the month does not have
  return moment{seconds, at.microseconds};
}

std::optional<std::tm> take_date(reader &text) {
  const auto year = text.number(4, 4);
  if (!year) return std::nullopt;
  (void)text.take("-");  // it made this a date
  const auto month = text.number(2, 2);
  if (!month || *month < 1 || *month > 12 || !text.take("-")) return std::nullopt;
  const auto day = text.number(2, 2);
  if (!day || *day < 1 || *day > 31) return std::nullopt;
  std::tm date{};
  date.tm_year = static_cast<int>(*year) - 1900;
  date.tm_mon = static_cast<int>(*month) - 1;
  date.tm_mday = static_cast<int>(*day);
  return date;
}

std::optional<moment> parse_absolute(std::string_view input, zone where, moment now) {
  reader text(input);
  std::tm date{};
  clock_time at;
  if (input.size() > 4 && input[4] == '-') {
    const auto given = take_date(text);
    if (!given) return std::nullopt;
    date = *given;
    if (text.take("T") || text.take(" ")) {
      const auto time = take_clock_time(text);
      if (!time) return std::nullopt;
      at = *time;
    }
  } else {
    const auto time = take_clock_time(text);
    if (!time || !broken_down(now.seconds, where, date)) return std::nullopt;
    at = *time;
  }
  text.skip_blanks();
  if (text.done()) return moment_of(date, at, where);
  const auto ahead = take_zone(text);
  if (!ahead || !text.done()) return std::nullopt;
  auto result = moment_of(date, at, zone::utc);
  if (result) result->seconds -= *ahead;
  return result;
}

std::optional<moment> start_of_day(zone where, moment now, int days) {
  std::tm date{};
  if (!broken_down(now.seconds, where, date)) return std::nullopt;
  date.tm_mday += days;
  date.tm_hour = date.tm_min = date.tm_sec = 0;
  date.tm_isdst = -1;
  return moment{where == zone::utc ? timegm(&date) : mktime(&date), 0};
}

}  // namespace

moment now() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  return {tv.tv_sec, static_cast<std::int32_t>(tv.tv_usec)};
}

moment shifted(moment at, std::int64_t microseconds) noexcept {
  at.seconds += microseconds / kSecond;
  at.microseconds += static_cast<std::int32_t>(microseconds % kSecond);
  if (at.microseconds < 0) {
    at.microseconds += kSecond;
    --at.seconds;
  } else if (at.microseconds >= kSecond) {
    at.microseconds -= static_cast<std::int32_t>(kSecond);
    ++at.seconds;
  }
  return at;
}

std::int64_t microseconds_between(moment a, moment b) noexcept {
  return (b.seconds - a.seconds) * kSecond + (b.microseconds - a.microseconds);
}

std::string time_text(std::int64_t seconds, std::optional<std::uint32_t> microseconds, zone where) {
  std::tm tm{};
  if (!broken_down(seconds, where, tm)) return "@" + std::to_string(seconds);
  const long ahead = where == zone::utc ? 0 : tm.tm_gmtoff;
  const long minutes = (ahead < 0 ? -ahead : ahead) / 60;
  char zone_text[32];
  std::snprintf(zone_text, sizeof zone_text, " %c%02ld%02ld", ahead < 0 ? '-' : '+', minutes / 60, minutes % 60);
  return date_and_time(tm, ' ', microseconds) + zone_text;
}

std::string utc_time_text(std::int64_t seconds, std::optional<std::uint32_t> microseconds) {
  std::tm tm{};
  if (!broken_down(seconds, zone::utc, tm)) return "@" + std::to_string(seconds);
  return date_and_time(tm, 'T', microseconds) + "Z";
}

std::string duration_text(std::int64_t microseconds) {
  const std::string sign = microseconds < 0 ? "-" : "";
  const auto value = static_cast<std::uint64_t>(microseconds < 0 ? -microseconds : microseconds);
  const auto in = [&](std::int64_t unit) { return std::to_string(value / static_cast<std::uint64_t>(unit)); };
  const auto rest = [&](std::int64_t unit, std::int64_t part) {
    return std::to_string(value % static_cast<std::uint64_t>(unit) / static_cast<std::uint64_t>(part));
  };
  if (value >= kDay) return sign + in(kDay) + " d " + rest(kDay, kHour) + " h";
  if (value >= kHour) return sign + in(kHour) + " h " + rest(kHour, kMinute) + " min";
  if (value >= kMinute) return sign + in(kMinute) + " min " + rest(kMinute, kSecond) + " s";
  char text[48];
  std::snprintf(text, sizeof text, "%s%u.%06u s", sign.c_str(), static_cast<unsigned>(value / kSecond),
                static_cast<unsigned>(value % kSecond));
  return text;
}

std::optional<std::int64_t> parse_duration(std::string_view text) {
  struct unit {
    std::string_view name;
    std::int64_t length;
  };
  static constexpr std::array<unit, 7> kUnits = {
      {{"ms", 1000}, {"us", 1}, {"s", kSecond}, {"m", kMinute}, {"h", kHour}, {"d", kDay}, {"w", kWeek}}};
  reader rest(text);
  if (rest.done()) return std::nullopt;
  std::int64_t total = 0;
  while (!rest.done()) {
    const auto number = rest.number(1, 12);
    if (!number) return std::nullopt;
    std::int64_t length = rest.done() && total == 0 ? kSecond : 0;
    for (const unit &u : kUnits) {
      if (length == 0 && rest.take(u.name)) length = u.length;
    }
    if (length == 0 || *number > (kLongest - total) / length) return std::nullopt;
    total += *number * length;
    rest.skip_blanks();
  }
  return total;
}

std::optional<moment> parse_moment(std::string_view text, zone where, moment now) {
  if (text == "now") return now;
  if (text == "today") return start_of_day(where, now, 0);
  if (text == "yesterday") return start_of_day(where, now, -1);
  if (text.starts_with("@")) {
    reader rest(text.substr(1));
    const auto seconds = rest.number(1, 12);
    const auto fraction = rest.fraction();
    if (!seconds || !fraction || !rest.done()) return std::nullopt;
    return moment{*seconds, *fraction};
  }
  constexpr std::string_view kAgo = " ago";
  const bool minus = text.starts_with("-"), ago = text.ends_with(kAgo);
  if (minus || ago) {
    const auto span = parse_duration(minus ? text.substr(1) : text.substr(0, text.size() - kAgo.size()));
    if (!span) return std::nullopt;
    return shifted(now, -*span);
  }
  return parse_absolute(text, where, now);
}

}  // namespace vosk
