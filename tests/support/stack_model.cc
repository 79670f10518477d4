#include "support/stack_model.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/files.h"

namespace stack_model {

namespace {

constexpr std::size_t kRecordMax = 1024;
constexpr std::size_t kPrefix = 8;
constexpr std::size_t kIdentifier = 43;
constexpr std::size_t kStringArgument = 64;
constexpr std::int64_t kNear = 1 << 20;
constexpr int kStringType = 5;

template <class Integer>
Integer integer_at(const std::string &bytes, std::size_t at) {
  char raw[sizeof(Integer)] = {};
  if (at < bytes.size()) std::memcpy(raw, bytes.data() + at, std::min(sizeof raw, bytes.size() - at));
  Integer value;
  std::memcpy(&value, raw, sizeof value);
  return value;
}

template <class Integer>
std::string raw(Integer value) {
  char bytes[sizeof value];
  std::memcpy(bytes, &value, sizeof value);
  return std::string(bytes, sizeof bytes);
}

// A stretch of the file; bytes that are not there are zeros.
std::string stretch(const File &file, std::int64_t offset, std::size_t length) {
  std::string out;
  if (offset < static_cast<std::int64_t>(file.bytes.size())) {
    out = file.bytes.substr(static_cast<std::size_t>(offset), length);
  }
  out.resize(length, '\0');
  for (const Write &write : file.far) {
    std::int64_t begin = std::max(offset, write.offset);
    std::int64_t end = std::min(offset + static_cast<std::int64_t>(length),
                                write.offset + static_cast<std::int64_t>(write.bytes.size()));
    if (begin >= end) continue;
    auto count = static_cast<std::size_t>(end - begin);
    out.replace(static_cast<std::size_t>(begin - offset), count, write.bytes,
                static_cast<std::size_t>(begin - write.offset), count);
  }
  return out;
}

// The record under construction: fixed fields that do not fit are left out, the first text that does not fit is cut
// and ends the record.
struct Builder {
  std::string bytes = std::string(kPrefix, '\0');
  bool ended = false;

  std::size_t room() const { return kRecordMax - bytes.size(); }
  void fixed(const std::string &field) {
    if (!ended && field.size() <= room()) bytes += field;
  }
  void text(const std::string &field) {
    if (ended) return;
    if (field.size() > room()) {
      bytes += field.substr(0, room());
      ended = true;
      return;
    }
    bytes += field;
    if (room() > 0) bytes += '\0';
  }
};

std::string identifier_field(const std::string &text) {
  std::string field = text.substr(0, kIdentifier);
  field.resize(kIdentifier, '\0');
  return field;
}

std::string or_else(const std::string &text, const char *substitute) {
  return text.empty() ? substitute : text;
}

bool is_known_unsupported(std::uint32_t version) {
  return version >= 8 && version <= 56 && version % 8 == 0;
}

void zeroing(std::vector<Write> &writes, std::int64_t offset, std::int64_t length) {
  while (length > 0) {
    std::int64_t piece = std::min<std::int64_t>(length, 1024);
    writes.push_back({offset, std::string(static_cast<std::size_t>(piece), '\0')});
    offset += piece;
    length -= piece;
  }
}

// Where the record goes and what is zeroed first. False where the file is found corrupt; the zeroing done so far stays.
bool reclaim(File &file, Header &header, std::uint32_t body_length, Outcome &outcome) {
  std::int64_t need = std::int64_t{body_length} + 4;
  std::int64_t size = header.size;
  std::int64_t position = header.recording;
  std::int64_t scan = header.earliest;
  std::int64_t cleared = 0;
  if (need > size - position) {
    outcome.wrapped = true;
    position = header.init;
    scan = header.init;
    header.wrap = 1;
  } else if (header.earliest > header.recording) {
    cleared = std::int64_t{header.earliest} - header.recording;
  }
  if (header.wrap != 1) return true;
  // A version that is not checked may claim any size; nothing beyond the largest file's last record is cleared.
  std::int64_t limit = header.version == 0 ? size : std::min<std::int64_t>(size, 16388);
  std::int64_t earliest = scan;
  if (cleared <= need) {
    for (std::int64_t offset = scan;;) {
      if (offset < 0) return false;  // no such position
      std::int64_t length = integer_at<std::uint32_t>(stretch(file, offset, 4), 0);
      if (length == 0) {
        earliest = 24;
        break;
      }
      std::int64_t step = length + 4;
      if (offset + step > limit) return false;
      std::size_t before = outcome.writes.size();
      zeroing(outcome.writes, offset, step);
      for (std::size_t i = before; i < outcome.writes.size(); ++i) apply(file, outcome.writes[i]);
      cleared += step;
      offset += step;
      if (cleared > need) {
        earliest = offset;
        break;
      }
    }
  }
  header.earliest = static_cast<std::int32_t>(earliest);
  header.recording = static_cast<std::int32_t>(position);
  return true;
}

}  // namespace

std::string Header::control() const {
  return raw(init) + raw(recording) + raw(earliest) + raw(size) + static_cast<char>(wrap) + reserved;
}

std::string Header::text() const {
  char line[160];
  std::snprintf(line, sizeof line, "version %u init %d recording %d earliest %d size %d wrap %u", version, init,
                recording, earliest, size, wrap);
  return line;
}

Header File::header() const {
  Header header;
  header.version = integer_at<std::uint32_t>(bytes, 0);
  header.init = integer_at<std::int32_t>(bytes, 4);
  header.recording = integer_at<std::int32_t>(bytes, 8);
  header.earliest = integer_at<std::int32_t>(bytes, 12);
  header.size = integer_at<std::int32_t>(bytes, 16);
  header.wrap = integer_at<std::uint8_t>(bytes, 20);
  for (std::size_t i = 0; i < 3; ++i) header.reserved[i] = integer_at<char>(bytes, 21 + i);
  return header;
}

std::int64_t File::size() const {
  auto size = static_cast<std::int64_t>(bytes.size());
  for (const Write &write : far) size = std::max(size, write.offset + static_cast<std::int64_t>(write.bytes.size()));
  return size;
}

std::string difference(const File &model, const std::string &path) {
  struct stat status = {};
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0 || fstat(fd, &status) != 0) return path + ": " + std::strerror(errno);
  const std::int64_t size = status.st_size;
  auto compare = [&](std::int64_t offset, std::size_t length) {
    std::string found(length, '\0');
    if (pread(fd, found.data(), length, offset) < 0) found = "unreadable";
    return files::difference(stretch(model, offset, length), found);
  };
  if (size != model.size()) {
    close(fd);
    return "sizes " + std::to_string(model.size()) + " and " + std::to_string(size);
  }
  std::string found = compare(0, static_cast<std::size_t>(std::min(size, kNear)));
  for (const Write &write : model.far) {
    std::string more = compare(write.offset, write.bytes.size());
    if (!more.empty()) found += " behind " + std::to_string(write.offset) + ": " + more;
  }
  close(fd);
  return found;
}

Record build(const Push &push) {
  Builder builder;
  builder.fixed(raw(std::uint32_t{0}));
  builder.fixed(identifier_field(push.identifier));
  builder.fixed(identifier_field(push.associated));
  builder.fixed(raw(push.seconds));
  builder.text(push.process_name);
  builder.fixed(raw(push.pid));
  builder.fixed(raw(push.parent));
  builder.fixed(raw(push.thread));
  builder.text(or_else(push.file, "unknown_file"));
  builder.text(or_else(push.version, "no_version_num"));
  builder.text(or_else(push.product, "qrn_product"));
  builder.fixed(raw(std::max(push.line, 0)));
  builder.text(push.catalogue);
  builder.fixed(raw(std::max(push.set, 0)));
  builder.fixed(raw(std::max(push.number, 0)));
  builder.text(push.message);
  builder.fixed(raw(static_cast<std::int32_t>(push.arguments.size())));
  for (const Argument &argument : push.arguments) {
    builder.fixed(raw(std::int32_t{argument.type}));
    if (argument.type == kStringType) {
      builder.text(argument.text.substr(0, kStringArgument));
    } else {
      builder.fixed(raw(argument.value));
    }
  }
  builder.text(push.detail);
  Record record{std::move(builder.bytes), builder.ended};
  std::string length = raw(record.body_length());
  std::copy(length.begin(), length.end(), record.bytes.begin());
  return record;
}

int validate(const Header &header) {
  if (is_known_unsupported(header.version)) return -99;
  auto outside = [](std::int32_t value, std::int32_t low) { return value < low || value > 16384; };
  bool corrupt = header.version != 0 || outside(header.size, 8192) || outside(header.recording, 24) ||
                 outside(header.earliest, 24) || outside(header.init, 24) || header.wrap > 1;
  return corrupt ? -26 : 0;
}

Outcome push(File &file, const Record &record) {
  Outcome outcome;
  Header header = file.header();
  auto refused = [&outcome](int code, int message, const char *routine) {
    outcome.code = code;
    outcome.message = message;
    outcome.routine = routine;
    return outcome;
  };
  if (validate(header) == -26) return refused(24, 41, "vk_get_stack_ctrl_info");
  if (!reclaim(file, header, record.body_length(), outcome)) return refused(24, 41, "vk_clear_records");
  outcome.position = header.recording;
  if (header.recording < 0) return refused(41, 43, "");  // no such position to seek to
  outcome.offset = header.recording;
  outcome.writes.push_back({outcome.offset, record.bytes});
  apply(file, outcome.writes.back());
  header.recording = static_cast<std::int32_t>(outcome.offset + static_cast<std::int64_t>(record.bytes.size()));
  outcome.writes.push_back({4, header.control()});
  apply(file, outcome.writes.back());
  return outcome;
}

std::vector<Write> reservation_writes(std::int64_t size) {
  std::vector<Write> writes;
  zeroing(writes, 0, size);
  char line[64];
  std::snprintf(line, sizeof line, "VKTFO=36    VKTFW=0     VKTFS=%-5lld\n", static_cast<long long>(size));
  writes.push_back({0, std::string(line, 36)});
  return writes;
}

File reserved(std::int64_t size) {
  File file;
  for (const Write &write : reservation_writes(size)) apply(file, write);
  return file;
}

std::vector<Write> creation_writes(std::int32_t size) {
  Header header;
  header.size = size;
  return {{0, raw(header.version)}, {4, header.control()}};
}

File created(std::int32_t size) {
  File file = reserved(size);
  for (const Write &write : creation_writes(size)) apply(file, write);
  return file;
}

void apply(File &file, const Write &write, std::size_t bytes) {
  std::string part = write.bytes.substr(0, bytes);
  if (part.empty()) return;
  if (write.offset + static_cast<std::int64_t>(part.size()) > kNear) {
    file.far.push_back({write.offset, part});
    return;
  }
  auto at = static_cast<std::size_t>(write.offset);
  if (file.bytes.size() < at + part.size()) file.bytes.resize(at + part.size(), '\0');
  file.bytes.replace(at, part.size(), part);
}

void apply(File &file, const Write &write) {
  apply(file, write, write.bytes.size());
}

namespace {

// Takes fields off a record's body; `good` turns false where one is missing.
struct Reader {
  const std::string &bytes;
  std::size_t at = kPrefix;
  bool good = true;

  std::string fixed(std::size_t size) {
    if (!good || bytes.size() - at < size) {
      good = false;
      return std::string(size, '\0');
    }
    at += size;
    return bytes.substr(at - size, size);
  }
  std::int32_t number() { return integer_at<std::int32_t>(fixed(4), 0); }
  std::string text() {
    std::size_t end = good ? bytes.find('\0', at) : std::string::npos;
    if (end == std::string::npos) {
      good = false;
      return "";
    }
    std::string found = bytes.substr(at, end - at);
    at = end + 1;
    return found;
  }
};

}  // namespace

std::optional<Decoded> decode(const std::string &record) {
  if (record.size() < kPrefix || record.size() > kRecordMax ||
      integer_at<std::uint32_t>(record, 0) != record.size() - kPrefix || integer_at<std::uint32_t>(record, 4) != 0) {
    return std::nullopt;
  }
  Reader reader{record};
  Decoded out;
  if (reader.number() != 0) reader.good = false;
  out.push.identifier = reader.fixed(kIdentifier);
  out.push.associated = reader.fixed(kIdentifier);
  out.push.seconds = static_cast<std::uint32_t>(reader.number());
  out.push.process_name = reader.text();
  out.push.pid = reader.number();
  out.push.parent = reader.number();
  out.push.thread = reader.number();
  out.push.file = reader.text();
  out.push.version = reader.text();
  out.push.product = reader.text();
  out.push.line = reader.number();
  out.push.catalogue = reader.text();
  out.push.set = reader.number();
  out.push.number = reader.number();
  out.push.message = reader.text();
  out.count = reader.number();
  for (std::int32_t i = 0; reader.good && i < out.count; ++i) {
    Argument argument;
    argument.type = reader.number();
    if (argument.type == kStringType) {
      argument.text = reader.text();
    } else {
      argument.value = integer_at<std::uint64_t>(reader.fixed(8), 0);
    }
    out.push.arguments.push_back(argument);
  }
  out.push.detail = reader.text();
  if (!reader.good || reader.at != record.size()) return std::nullopt;
  return out;
}

std::optional<std::vector<std::string>> records(const std::string &file) {
  Header header = File{file, {}}.header();
  if (validate(header) != 0 || header.wrap != 0) return std::nullopt;
  std::vector<std::string> found;
  auto end = static_cast<std::size_t>(header.recording);
  std::size_t at = 24;
  while (at < end) {
    std::size_t size = std::size_t{integer_at<std::uint32_t>(file, at)} + kPrefix;
    if (size == kPrefix || size > kRecordMax || at + size > end || at + size > file.size()) return std::nullopt;
    found.push_back(file.substr(at, size));
    at += size;
  }
  return found;
}

}  // namespace stack_model
