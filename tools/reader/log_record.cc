#include "log_record.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "identifier.h"
#include "journal_entry.h"

namespace vosk {

namespace {

constexpr std::string_view kSeparator = ":::";
constexpr std::size_t kLocationWidth = 46;

template <class Number>
std::optional<Number> number_in(std::string_view text, int base = 10) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::string_view without_blanks(std::string_view text) {
  const std::size_t last = text.find_last_not_of(' ');
  return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

// Takes the word at the front of `text`, and the blanks behind it.
std::string_view take_word(std::string_view &text) {
  const std::string_view word = text.substr(0, text.find(' '));
  text.remove_prefix(word.size());
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return word;
}

// Takes everything up to `end`, which goes too. False, and everything, where there is none.
bool take_up_to(std::string_view &text, std::string_view end, std::string_view &out) {
  const std::size_t at = text.find(end);
  out = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + end.size());
  return at != std::string_view::npos;
}

// "product,file,version,line"; a part may hold a comma, too, and then the parts cannot be told.
void split_location(log_record &r) {
  std::array<std::string_view, 4> parts;
  std::string_view rest = r.location;
  if (std::count(rest.begin(), rest.end(), ',') != 3) return;
  for (std::string_view &part : parts) (void)take_up_to(rest, ",", part);
  r.file_line = number_in<std::uint32_t>(parts[3]);
  if (!r.file_line) return;  // cut
  r.product = parts[0];
  r.file = parts[1];
  r.version = parts[2];
}

// Everything behind the version of the record's format.
void read_fields(std::string_view text, log_record &r) {
  std::string_view field;
  const auto take = [&](std::string_view end) { return take_up_to(text, end, field); };
  const bool with_eid = take(":::Reference ID: ");
  if (field.size() >= kIdentifierLength && decode_identifier(field.substr(0, kIdentifierLength)))
    r.eid = field.substr(0, kIdentifierLength);
  if (!with_eid) return;
  const bool with_reference = take(":::Template ID: ");
  r.reference = field;
  if (!with_reference || !take(":::Details File: ")) return;
  r.template_id = number_in<std::uint32_t>(field, 16);
  const bool with_file = take(":::Location: ");
  r.detail_file = field;
  if (!with_file) return;
  // The location may hold the separator, but has its width; unless somebody took blanks away on the line's way here.
  const bool whole = text.size() >= kLocationWidth && text.substr(kLocationWidth).starts_with(kSeparator);
  const std::size_t end = whole ? kLocationWidth : text.find(kSeparator);
  r.location = without_blanks(text.substr(0, end));
  split_location(r);
  if (end == std::string_view::npos) return;
  r.message = text.substr(end + kSeparator.size());
  r.complete = true;
}

// "service[4711]"
void read_tag(std::string_view tag, log_record &r) {
  const std::size_t bracket = tag.rfind('[');
  if (tag.ends_with(']') && bracket != std::string_view::npos) {
    r.pid = number_in<std::uint32_t>(tag.substr(bracket + 1, tag.size() - bracket - 2));
    if (r.pid) tag = tag.substr(0, bracket);
  }
  r.process = tag;
}

bool is_month(std::string_view word) {
  constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const std::size_t at = word.size() == 3 ? kMonths.find(word) : std::string_view::npos;
  return at != std::string_view::npos && at % 3 == 0;
}

bool is_iso_time(std::string_view word) {
  return word.size() > 18 && word[4] == '-' && word[7] == '-' && word[10] == 'T';
}

// What the daemon puts in front: "Nov 21 14:21:42 host service[4711]: ", the same with the time in one word, or
// "<27>1 2026-11-21T14:21:42Z host service 4711 - - ".
void read_prefix(std::string_view text, log_record &r) {
  text = without_blanks(text);
  if (text.starts_with('<')) text.remove_prefix(std::min(text.find('>'), text.size() - 1) + 1);
  std::string_view first = take_word(text);
  if (first == "1") {
    if (!is_iso_time(take_word(text))) return;
    r.host = take_word(text);
    r.process = take_word(text);
    r.pid = number_in<std::uint32_t>(take_word(text));
    return;
  }
  if (is_month(first)) {
    (void)take_word(text);  // day
    (void)take_word(text);  // time
    r.host = take_word(text);
    if (text.starts_with("daemon.")) (void)take_word(text);  // small daemons write facility and priority
  } else if (is_iso_time(first)) {
    r.host = take_word(text);
  } else {
    const std::size_t blank = text.rfind(' ');
    if (!text.empty()) first = text.substr(blank == std::string_view::npos ? 0 : blank + 1);
    text = first;
  }
  if (text.ends_with(':')) read_tag(text.substr(0, text.size() - 1), r);
}

// Fills in what follows the start of a record. False if it is none.
bool read_record(std::string_view text, log_record &r) {
  std::string_view version;
  text.remove_prefix(kLogRecordStart.size());
  if (!take_up_to(text, "):::Error ID: ", version) || !number_in<unsigned>(version)) return false;
  read_fields(text, r);
  return true;
}

}  // namespace

std::optional<log_record> parse_log_record(const log_line &line) {
  log_record r;
  r.source = line.source;
  r.line = line.number;
  if (const auto entry = parse_journal_entry(line.text, kLogRecordStart)) {
    const std::string_view message = entry->message;
    const std::size_t at = message.find(kLogRecordStart);
    if (at == std::string_view::npos || !read_record(message.substr(at), r)) return std::nullopt;
    // A name with blanks in it stays in the message.
    const std::string_view tag = without_blanks(message.substr(0, at));
    if (tag.ends_with(':')) read_tag(tag.substr(0, tag.size() - 1), r);
    if (!entry->process.empty()) r.process = entry->process;
    if (const auto pid = number_in<std::uint32_t>(entry->pid)) r.pid = pid;
    r.host = entry->host;
    return r;
  }
  const std::size_t at = line.text.find(kLogRecordStart);
  if (at == std::string_view::npos || !read_record(line.text.substr(at), r)) return std::nullopt;
  read_prefix(line.text.substr(0, at), r);
  return r;
}

bool same_recording(const log_record &a, const log_record &b) noexcept {
  return a.eid == b.eid && a.reference == b.reference && a.detail_file == b.detail_file && a.location == b.location &&
         a.message == b.message;
}

}  // namespace vosk
