#include "builder.h"

#include <algorithm>

namespace builder {

namespace {

// Texts and numbers behind each other in a record of at most 1024 bytes.
class writer {
 public:
  void u32(std::uint32_t value) { fixed(&value, 4); }
  void u64(std::uint64_t value) { fixed(&value, 8); }
  void raw(const std::string &text, std::size_t width) {
    std::string padded = text;
    padded.resize(width, '\0');
    fixed(padded.data(), width);
  }
  void text(const std::string &value) {
    if (cut_) return;
    const std::size_t room = 1024 - out_.size();
    const std::size_t n = std::min(value.size(), room);
    out_.insert(out_.end(), value.begin(), value.begin() + static_cast<std::ptrdiff_t>(n));
    if (n < value.size())
      cut_ = true;
    else if (n < room)
      out_.push_back(0);
  }
  bytes take() { return std::move(out_); }

 private:
  void fixed(const void *data, std::size_t n) {
    if (cut_ || out_.size() + n > 1024) return;
    const auto *from = static_cast<const unsigned char *>(data);
    out_.insert(out_.end(), from, from + n);
  }

  bytes out_;
  bool cut_ = false;
};

std::uint32_t load(const bytes &file, std::int64_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const auto where = static_cast<std::size_t>(at) + i;
    const std::uint32_t byte = where < file.size() ? file[where] : 0;
    value |= byte << (8 * i);
  }
  return value;
}

std::uint32_t draw(std::mt19937 &random) {
  return static_cast<std::uint32_t>(random());
}

std::string random_text(std::mt19937 &random, std::size_t longest, bool any_byte) {
  std::string text(draw(random) % (longest + 1), '\0');
  for (char &c : text) c = static_cast<char>(any_byte ? 1 + draw(random) % 255 : 0x20 + draw(random) % 95);
  return text;
}

}  // namespace

std::string digits(std::uint64_t value, std::size_t width) {
  static const std::string alphabet = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string out;
  for (std::size_t i = 0; i < width; ++i, value /= 64) out += alphabet[value % 64];
  return out;
}

std::string stack_eid(std::uint64_t inode, std::uint64_t seconds, std::uint32_t microseconds,
                      const std::string &address) {
  return "7" + digits(inode, 6) + digits(seconds, 6) + digits(microseconds, 4) + address;
}

record &record::at(std::uint64_t when, std::uint32_t microseconds, std::uint64_t inode) {
  seconds = when;
  eid = stack_eid(inode, when, microseconds);
  return *this;
}

bytes record_bytes(const record &r) {
  writer w;
  w.u32(0);  // length, below
  w.u32(0);
  w.u32(0);
  w.raw(r.eid, 43);
  w.raw(r.associated, 43);
  w.u32(r.time.value_or(r.eid.empty() ? 0 : static_cast<std::uint32_t>(r.seconds)));
  w.text(r.process);
  w.u32(r.pid);
  w.u32(r.parent);
  w.u32(r.thread);
  w.text(r.source);
  w.text(r.version);
  w.text(r.product);
  w.u32(r.line);
  w.text(r.catalogue);
  w.u32(r.set);
  w.u32(r.number);
  w.text(r.default_text);
  w.u32(static_cast<std::uint32_t>(r.arguments.size()));
  for (const argument &a : r.arguments) {
    w.u32(a.type);
    if (a.type == 5)
      w.text(a.text.substr(0, 64));
    else
      w.u64(a.bits);
  }
  w.text(r.detail);
  bytes out = w.take();
  const auto length = static_cast<std::uint32_t>(out.size() - 8);
  std::memcpy(out.data(), &length, 4);
  return out;
}

void put_header(bytes &file, const header &h) {
  std::memcpy(file.data(), &h.version, 4);
  std::memcpy(file.data() + 4, &h.init, 4);
  std::memcpy(file.data() + 8, &h.recording, 4);
  std::memcpy(file.data() + 12, &h.earliest, 4);
  std::memcpy(file.data() + 16, &h.size, 4);
  file[20] = h.wrapped;
}

model::model(std::int32_t size) : file_(static_cast<std::size_t>(size)) {
  header_.size = size;
  put_header(file_, header_);
}

bool model::make_room(std::int64_t length, header &h) {
  const std::int64_t need = length + 4;
  std::int64_t cleared = 0, at = h.earliest, write_at = h.recording;
  if (need > h.size - h.recording) {
    write_at = at = h.init;
    h.wrapped = 1;
  } else if (h.earliest > h.recording) {
    cleared = h.earliest - h.recording;
  }
  if (h.wrapped != 1) return true;
  while (cleared <= need) {
    const std::int64_t n = load(file_, at);
    if (n == 0) {
      at = 24;
      break;
    }
    if (at + n + 4 > h.size) return false;
    std::fill_n(file_.begin() + at, n + 4, 0);
    cleared += n + 4;
    at += n + 4;
  }
  h.earliest = static_cast<std::int32_t>(at);
  h.recording = static_cast<std::int32_t>(write_at);
  return true;
}

bool model::push(const bytes &record) {
  if (header_.recording > 16384 || header_.earliest > 16384) return false;
  header next = header_;
  if (!make_room(static_cast<std::int64_t>(record.size()) - 8, next)) return false;
  const auto at = static_cast<std::size_t>(next.recording);
  if (file_.size() < at + record.size()) file_.resize(at + record.size());
  std::copy(record.begin(), record.end(), file_.begin() + next.recording);
  last_offset_ = at;
  next.recording += static_cast<std::int32_t>(record.size());
  header_ = next;
  put_header(file_, header_);
  return true;
}

bytes never_wrapped_file() {
  model m;
  for (unsigned i = 0; i < 6; ++i) {
    record r;
    r.at(1700000000 + 61 * i, 1000 * i);
    r.detail = "step " + std::to_string(i) + std::string(7 * i, '*');
    (void)m.push(record_bytes(r));
  }
  return m.file();
}

bytes wrapped_file() {
  model m;
  for (unsigned i = 0; m.control().wrapped == 0 || i % 2 == 0; ++i) {
    record r;
    r.at(1700000000 + 61 * i, 1000 * i);
    r.pid = 4711 + i;
    // The first ones are larger, so that clearing one of them makes room for a later one.
    r.detail = "step " + std::to_string(i) + std::string(i < 4 ? 400 : 13 * (i % 5), '*');
    (void)m.push(record_bytes(r));
  }
  return m.file();
}

bytes file_with_cut_record() {
  model m;
  for (unsigned i = 0; i < 4; ++i) {
    record r;
    r.at(1700000000 + 61 * i, 1000 * i);
    if (i == 2) r.default_text = std::string(2000, 'x');
    if (i == 3) r.arguments = {{1, "", 13}, {6, "", 0x3ff8000000000000}, {8, "", 'c'}};
    (void)m.push(record_bytes(r));
  }
  return m.file();
}

record random_record(std::mt19937 &random, std::uint64_t seconds) {
  record r;
  r.at(seconds, draw(random) % 1000000);
  if (draw(random) % 16 == 0) r.eid.clear();
  const bool any_byte = draw(random) % 4 == 0;
  if (draw(random) % 3 == 0) r.associated = stack_eid(draw(random), 1600000000, 5);
  if (draw(random) % 16 == 0) {
    r.associated.assign(43, '\0');
    for (char &c : r.associated) c = static_cast<char>(draw(random));
  }
  r.process = random_text(random, 16, any_byte);
  r.pid = draw(random);
  r.parent = draw(random) % 2 != 0 ? draw(random) : 0;
  r.thread = draw(random);
  r.source = "s" + random_text(random, 30, any_byte);
  r.version = "v" + random_text(random, 8, any_byte);
  r.product = "p" + random_text(random, 20, any_byte);
  r.line = draw(random) % 100000;
  r.catalogue = random_text(random, 12, any_byte);
  r.set = draw(random) % 8;
  r.number = draw(random) % 500;
  r.default_text = random_text(random, draw(random) % 8 == 0 ? 1100 : 90, any_byte);
  r.arguments.clear();
  for (unsigned n = draw(random) % 4; n > 0; --n) {
    const std::uint32_t type = 1 + draw(random) % 8;
    const std::uint64_t bits = (std::uint64_t{draw(random)} << 32) | draw(random);
    r.arguments.push_back({type, type == 5 ? random_text(random, 80, any_byte) : std::string(), bits});
  }
  r.detail = draw(random) % 3 == 0 ? std::string() : random_text(random, draw(random) % 8 == 0 ? 900 : 120, any_byte);
  return r;
}

}  // namespace builder
