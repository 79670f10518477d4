#include "archive.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>

#include "archive_format.h"

namespace vosk {

namespace {

namespace format = archive_format;

constexpr std::int64_t kBlock = format::kBlock;
constexpr std::int64_t kMostExtended = 1 << 16;  // bytes of a long name, or of extended attributes
constexpr std::size_t kMostMembers = 1 << 20;

// False if not all can be read.
bool read_exactly(int fd, void *to, std::size_t size, std::int64_t at) {
  auto *bytes = static_cast<unsigned char *>(to);
  while (size > 0) {
    const ssize_t n = pread(fd, bytes, size, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    bytes += n;
    at += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Up to the first zero byte.
std::string_view text_of(const format::header &block, format::field where) {
  const std::string_view text(reinterpret_cast<const char *>(block.data()) + where.at, where.size);
  return text.substr(0, text.find('\0'));
}

// Octal digits, with blanks around them. An empty field is 0.
std::optional<std::int64_t> number_of(const format::header &block, format::field where) {
  std::string_view text = text_of(block, where);
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  std::int64_t number = 0;
  for (; !text.empty() && text[0] != ' '; text.remove_prefix(1)) {
    if (text[0] < '0' || text[0] > '7') return std::nullopt;
    number = number * 8 + (text[0] - '0');
  }
  return number;
}

bool is_header(const format::header &block) {
  const std::string_view magic(reinterpret_cast<const char *>(block.data()) + format::kMagic.at, 5);
  const auto sum = number_of(block, format::kSum);
  return magic == "ustar" && sum && *sum == format::sum_of(block);
}

// A name that stays where it is: relative, without "..", and one that a file can have.
bool is_plain_name(std::string_view name) {
  if (name.empty() || name[0] == '/' || name.back() == '/' || name.find('\0') != std::string_view::npos) return false;
  for (std::size_t begin = 0; begin <= name.size();) {
    const std::size_t end = std::min(name.find('/', begin), name.size());
    if (name.substr(begin, end - begin) == "..") return false;
    begin = end + 1;
  }
  return true;
}

// What a header before says of the next member.
struct extension {
  std::string name;
  std::optional<std::int64_t> size;
};

// Lines "LENGTH KEYWORD=VALUE\n", of which the length counts all.
bool take_attributes(std::string_view text, extension &next) {
  while (!text.empty()) {
    std::size_t length = 0;
    const auto digits = std::from_chars(text.data(), text.data() + text.size(), length);
    if (digits.ec != std::errc() || length > text.size() || length == 0 || text[length - 1] != '\n') return false;
    std::string_view line = text.substr(0, length - 1);
    text.remove_prefix(length);
    const auto used = static_cast<std::size_t>(digits.ptr - line.data());
    if (used >= line.size() || line[used] != ' ') return false;
    line.remove_prefix(used + 1);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    const std::string_view keyword = line.substr(0, equals), value = line.substr(equals + 1);
    if (keyword == "path") next.name = value;
    if (keyword != "size") continue;
    std::int64_t size = 0;
    const auto number = std::from_chars(value.data(), value.data() + value.size(), size);
    if (number.ec != std::errc() || number.ptr != value.data() + value.size() || size < 0) return false;
    next.size = size;
  }
  return true;
}

class lister {
 public:
  explicit lister(int fd) : fd_(fd) {
    struct stat st {};
    if (fstat(fd, &st) == 0) end_ = st.st_size;
  }

  archive_contents run() {
    while (next()) {
    }
    return std::move(contents_);
  }

 private:
  bool stop(const char *damage) {
    contents_.damage = damage;
    return false;
  }

  bool next() {
    format::header block;
    if (end_ - at_ < kBlock) return stop("it ends before its end mark");
    if (!read_exactly(fd_, block.data(), block.size(), at_)) return stop("it cannot be read");
    if (std::all_of(block.begin(), block.end(), [](unsigned char c) { return c == 0; })) return false;
    if (!is_header(block)) return stop("the header of a member is damaged");
    const auto size = ahead_.size ? ahead_.size : number_of(block, format::kSize);
    at_ += kBlock;
    if (!size) return stop("the size of a member is no number");
    if (*size > end_ - at_) return stop("a member ends behind the end of the archive");
    const char type = static_cast<char>(block[format::kType.at]);
    const bool taken = type == format::kExtended || type == format::kLongName ? take_extension(type, *size)
                                                                              : take_member(block, type, *size);
    at_ = std::min(at_ + format::padded(*size), end_);
    return taken;
  }

  bool take_extension(char type, std::int64_t size) {
    if (size > kMostExtended) return stop("the attributes of a member are too long");
    std::string text(static_cast<std::size_t>(size), '\0');
    if (!read_exactly(fd_, text.data(), text.size(), at_)) return stop("it cannot be read");
    if (type == format::kLongName)
      ahead_.name = text.substr(0, text.find('\0'));
    else if (!take_attributes(text, ahead_))
      return stop("the attributes of a member are damaged");
    return true;
  }

  bool take_member(const format::header &block, char type, std::int64_t size) {
    archive_member member{std::move(ahead_.name), at_, size, 0, {}};
    ahead_ = {};
    if (type != format::kRegular && type != '\0') return true;
    if (member.name.empty()) {
      const bool with_prefix = block[format::kMagic.at + 5] == '\0';  // others keep other things there
      const std::string_view prefix = with_prefix ? text_of(block, format::kPrefix) : std::string_view();
      if (!prefix.empty()) member.name = std::string(prefix) + "/";
      member.name += text_of(block, format::kName);
    }
    while (member.name.starts_with("./")) member.name.erase(0, 2);
    if (!is_plain_name(member.name)) return true;
    member.owner = static_cast<uid_t>(number_of(block, format::kUser).value_or(0));
    member.modified.seconds = number_of(block, format::kTime).value_or(0);
    if (contents_.members.size() == kMostMembers) return stop("it has too many members");
    contents_.members.push_back(std::move(member));
    return true;
  }

  int fd_;
  std::int64_t at_ = 0, end_ = 0;
  extension ahead_;
  archive_contents contents_;
};

}  // namespace

std::string_view archive_member::base_name() const noexcept {
  const std::string_view all = name;
  return all.substr(all.rfind('/') + 1);
}

bool archive_member::is_in(std::string_view directory) const noexcept {
  std::string_view parent = name;
  const std::size_t slash = parent.rfind('/');
  if (slash == std::string_view::npos) return false;
  parent = parent.substr(0, slash);
  return parent.substr(parent.rfind('/') + 1) == directory;
}

bool is_archive(int fd) {
  format::header block;
  return read_exactly(fd, block.data(), block.size(), 0) && is_header(block);
}

archive_contents list_archive(int fd) {
  return lister(fd).run();
}

bool read_member(int fd, const archive_member &member, std::vector<unsigned char> &bytes) {
  bytes.resize(static_cast<std::size_t>(member.size));
  return read_exactly(fd, bytes.data(), bytes.size(), member.offset);
}

}  // namespace vosk
