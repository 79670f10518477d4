#include "support/trace_file.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "support/files.h"

namespace trace_file {

namespace {

constexpr std::size_t kHeader = 36;
constexpr std::size_t kTime = 25;  // with its newline
constexpr std::string_view kEnd = "[END OF FINAL ENTRY]\n";
constexpr std::string_view kRecycle("[FILE RECYCLES HERE]\n\0", 22);
constexpr char kMark = '\x01';

std::string joined(const std::vector<std::string> &lines) {
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) out += (i == 0 ? "" : "\n") + lines[i];
  return out;
}

// A field of the header: the key at its place, then digits, blanks up to five characters.
bool header_field(std::string_view bytes, std::size_t at, std::string_view key, int &value) {
  if (bytes.substr(at, key.size()) != key) return false;
  std::string field(bytes.substr(at + key.size(), 5));
  std::size_t digits = field.find_first_not_of("0123456789");
  if (digits == 0 || field.find_first_not_of(' ', std::min(digits, field.size())) != std::string::npos) return false;
  value = std::atoi(field.c_str());
  return true;
}

// Takes the text up to `end` after `start` off the front of `rest`.
bool take(std::string_view &rest, std::string_view start, char end, std::string &out) {
  if (!rest.starts_with(start)) return false;
  std::size_t stop = rest.find(end, start.size());
  if (stop == std::string_view::npos) return false;
  out = rest.substr(start.size(), stop - start.size());
  rest.remove_prefix(stop + 1);
  return true;
}

// `text` is one entry from its mark up to the next mark or whatever ends it.
bool parse_entry(std::string_view text, Entry &entry) {
  entry.text = text;
  if (text.size() < 1 + kTime || text[kTime] != '\n') return false;
  entry.time = text.substr(1, kTime - 1);
  std::string_view rest = text.substr(1 + kTime);
  std::string pid, thread;
  if (!take(rest, "\tVOSK Routine: ", '\n', entry.routine)) return false;
  if (!take(rest, "\tCalled by PID ", ' ', pid) || !take(rest, "Thread ", '\n', thread)) return false;
  char *pid_end = nullptr;
  char *thread_end = nullptr;
  entry.pid = static_cast<int>(std::strtol(pid.c_str(), &pid_end, 10));
  entry.thread = static_cast<int>(std::strtol(thread.c_str(), &thread_end, 10));
  if (*pid_end != '\0' || *thread_end != '\0' || pid.empty() || thread.empty()) return false;
  while (!rest.empty()) {
    std::string line;
    if (!take(rest, "\t", '\n', line)) return false;
    entry.lines.push_back(line);
  }
  return true;
}

__attribute__((format(printf, 1, 0))) std::vector<std::string> fold(const char *format, va_list arguments) {
  char buffer[255];
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  std::string_view rest = buffer;
  std::vector<std::string> lines;
  while (!rest.empty()) {
    std::size_t width = std::min<std::size_t>(72, rest.size());
    std::size_t newline = rest.find('\n');
    if (newline != std::string_view::npos && newline <= width) {
      lines.emplace_back(rest.substr(0, newline));
      rest.remove_prefix(newline + 1);
    } else {
      lines.emplace_back(rest.substr(0, width));
      rest.remove_prefix(width);
    }
  }
  return lines;
}

}  // namespace

std::string Entry::message() const {
  return joined(lines);
}

std::vector<std::string> Trace::summaries() const {
  std::vector<std::string> out;
  for (const Entry &entry : entries) out.push_back(entry.routine + ": " + entry.message());
  return out;
}

std::vector<std::string> Trace::messages(std::string_view routine) const {
  std::vector<std::string> out;
  for (const Entry &entry : entries) {
    if (entry.routine == routine) out.push_back(entry.message());
  }
  return out;
}

Trace parse(std::string_view bytes) {
  Trace trace;
  auto problem = [&trace](const std::string &text) {
    if (trace.problem.empty()) trace.problem = text;
  };
  if (bytes.size() < kHeader || !header_field(bytes, 0, "VKTFO=", trace.next_offset) || bytes[11] != ' ' ||
      !header_field(bytes, 12, "VKTFW=", trace.wraps) || bytes[23] != ' ' ||
      !header_field(bytes, 24, "VKTFS=", trace.size) || bytes[35] != '\n') {
    problem("no header of 36 bytes");
    return trace;
  }
  if (static_cast<std::size_t>(trace.size) != bytes.size()) {
    problem("the header's size is " + std::to_string(trace.size) + ", the file has " + std::to_string(bytes.size()));
  }
  auto next = static_cast<std::size_t>(trace.next_offset);
  if (next < kHeader || next > bytes.size()) {
    problem("the next offset " + std::to_string(next) + " is outside of the file");
    return trace;
  }
  trace.end_marker = bytes.substr(next, kEnd.size()) == kEnd;
  bool fresh = next == kHeader && trace.wraps == 0;
  if (!trace.end_marker && !fresh) problem("no end marker at " + std::to_string(next));

  std::vector<Entry> newer;
  for (std::size_t at = kHeader; at < next;) {
    if (bytes[at] != kMark) {
      problem("no entry begins at " + std::to_string(at));
      break;
    }
    std::size_t end = std::min(bytes.find(kMark, at + 1), next);
    Entry entry;
    entry.offset = at;
    if (!parse_entry(bytes.substr(at, end - at), entry)) problem("a broken entry at " + std::to_string(at));
    newer.push_back(entry);
    at = end;
  }

  // Behind the end marker: nothing but zero bytes and older entries that are whole, ended by the recycle marker.
  std::size_t at = trace.end_marker ? next + kEnd.size() : next;
  while (at < bytes.size()) {
    std::string_view rest = bytes.substr(at);
    if (bytes[at] == '\0') {
      ++at;
    } else if (rest.starts_with(kRecycle)) {
      trace.recycle_marker = true;
      at += kRecycle.size();
    } else if (bytes[at] == kMark) {
      std::size_t end = rest.size();
      for (std::size_t stop : {rest.find(kMark, 1), rest.find(kRecycle), rest.find('\0')}) end = std::min(end, stop);
      Entry entry;
      entry.offset = at;
      if (!parse_entry(rest.substr(0, end), entry)) problem("a broken older entry at " + std::to_string(at));
      trace.entries.push_back(entry);
      at += end;
    } else {
      // The remains of an entry that no later mark follows stay where they are.
      at += std::min(rest.find('\0'), std::min(rest.find(kMark), rest.find(kRecycle)));
      if (at > bytes.size()) at = bytes.size();
    }
  }
  trace.older = trace.entries.size();
  if (trace.older != 0 && trace.wraps == 0) problem("older entries in a file that never wrapped");
  trace.entries.insert(trace.entries.end(), newer.begin(), newer.end());
  return trace;
}

Trace read(const std::string &path) {
  std::optional<std::string> bytes = files::read(path);
  if (bytes) return parse(*bytes);
  Trace trace;
  trace.problem = "cannot read " + path;
  return trace;
}

std::vector<std::string> folded(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vector<std::string> lines = fold(format, arguments);
  va_end(arguments);
  return lines;
}

std::string folded_text(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vector<std::string> lines = fold(format, arguments);
  va_end(arguments);
  return joined(lines);
}

}  // namespace trace_file
