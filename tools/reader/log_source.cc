#include "log_source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "archive.h"
#include "child.h"
#include "collection.h"
#include "line_reader.h"

namespace vosk {

namespace {

constexpr char kLogDirectory[] = "/var/log", kKeptJournal[] = "/var/log/journal";
constexpr int kPatience = 60000;  // milliseconds that a program may stay silent

// The files that syslog daemons write records of the facility daemon to, as their usual settings have it.
constexpr std::string_view kLogNames[] = {"syslog", "messages", "daemon.log", "user.log", "debug", "everything.log"};

struct file_format {
  std::string_view magic;
  const char *program;
};
constexpr std::string_view kJournalMagic = "LPKSHHRH";
constexpr file_format kCompressed[] = {
    {"\x1f\x8b", "gzip"}, {"\xfd\x37\x7a\x58\x5a", "xz"}, {"\x28\xb5\x2f\xfd", "zstd"},
    {"BZh", "bzip2"},     {"\x04\x22\x4d\x18", "lz4"},
};

// "syslog.1", "syslog.2.gz", "messages-20261121.xz": what rotation makes of a name.
bool is_rotation_of(std::string_view name, std::string_view log) {
  if (!name.starts_with(log)) return false;
  name.remove_prefix(log.size());
  for (const std::string_view ending : {".gz", ".xz", ".zst", ".bz2", ".lz4"})
    if (name.ends_with(ending)) name.remove_suffix(ending.size());
  if (name.empty()) return true;
  return (name[0] == '.' || name[0] == '-') && name.size() > 1 &&
         name.find_first_not_of("0123456789-", 1) == std::string_view::npos;
}

bool is_log_name(std::string_view name) {
  return std::any_of(std::begin(kLogNames), std::end(kLogNames),
                     [&](std::string_view log) { return is_rotation_of(name, log); });
}

// The first bytes of a regular file; the position stays.
std::string first_bytes(int fd) {
  std::array<char, 8> bytes;
  const off_t at = lseek(fd, 0, SEEK_CUR);
  const ssize_t n = at < 0 ? -1 : pread(fd, bytes.data(), bytes.size(), at);
  return {bytes.data(), n > 0 ? static_cast<std::size_t>(n) : 0};
}

// A log can grow faster than it is read: what it holds now is enough.
std::uint64_t size_now(int fd) {
  struct stat st {};
  const off_t at = lseek(fd, 0, SEEK_CUR);
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || at < 0 || st.st_size <= at) return UINT64_MAX;
  return static_cast<std::uint64_t>(st.st_size - at);
}

std::vector<std::string> journal_command(const std::string &program) {
  return {program, "--output=json", "--no-pager",
          "--output-fields=MESSAGE,SYSLOG_IDENTIFIER,SYSLOG_PID,_PID,_HOSTNAME,__REALTIME_TIMESTAMP",
          // Fields of one name are alternatives.
          "_TRANSPORT=syslog", "_TRANSPORT=journal", "SYSLOG_FACILITY=3"};
}

class source_reader {
 public:
  explicit source_reader(const take_log_line &take) : take_(take) {}

  void read(const std::string &name) {
    if (name == "auto")
      read_usual();
    else if (name == "journal")
      (void)read_journal();
    else if (name == "-")
      read_open("standard input", unique_fd(fcntl(0, F_DUPFD_CLOEXEC, 3)));
    else if (name != "none")
      read_named(name);
  }

  bool stopped() const noexcept { return stopped_; }
  std::vector<log_outcome> take_outcomes() { return std::move(outcomes_); }

 private:
  // A journal in memory begins with the last start of the node, and the files may reach further back.
  void read_usual() {
    const bool installed = !program_path("journalctl").empty();
    const bool complete = installed && read_journal() && access(kKeptJournal, F_OK) == 0;
    if (!complete && !stopped_) read_directory(kLogDirectory, true);
  }

  // True if it gave anything.
  bool read_journal() {
    log_outcome &what = outcomes_.emplace_back();
    what.source = "journal";
    const std::string program = program_path("journalctl");
    if (program.empty()) {
      what.result = outcome::missing;
      what.reason = "journalctl is not installed";
      return false;
    }
    const unique_fd nothing(open("/dev/null", O_RDONLY | O_CLOEXEC));
    return read_program(journal_command(program), nothing.get(), what);
  }

  void read_directory(const std::string &directory, bool may_be_missing) {
    const unique_fd fd = open_directory(AT_FDCWD, directory.c_str(), true);
    std::vector<directory_entry> entries;
    if (!fd.valid() || !list_directory(fd.get(), entries)) {
      if (!may_be_missing || errno != ENOENT) refuse(directory, errno);
      return;
    }
    std::erase_if(entries, [](const directory_entry &entry) { return !is_log_name(entry.name); });
    for (const directory_entry &entry : entries) {
      opened_file file = open_regular(fd.get(), entry.name.c_str());
      const std::string path = directory + (directory.ends_with('/') ? "" : "/") + entry.name;
      if (file.result == outcome::read)
        read_open(path, std::move(file.fd));
      else if (file.result != outcome::missing)  // rotated away meanwhile
        outcomes_.push_back({path, file.result, file.reason});
      if (stopped_) return;
    }
  }

  // What the user names may be a link or a FIFO.
  void read_named(const std::string &name) {
    unique_fd fd(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.valid()) {
      refuse(name, errno);
      return;
    }
    struct stat st {};
    (void)fstat(fd.get(), &st);
    if (S_ISDIR(st.st_mode)) {
      read_directory(name, false);
    } else if (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode)) {
      (void)fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
      read_open(name, std::move(fd));
    } else {
      outcomes_.push_back({name, outcome::skipped, "neither a file nor a directory"});
    }
  }

  void read_open(const std::string &name, unique_fd fd) {
    log_outcome &what = outcomes_.emplace_back();
    what.source = name;
    if (!fd.valid()) {
      what.reason = error_text(errno);
      return;
    }
    if (is_archive(fd.get())) {
      read_archive(name, fd.get());
      return;
    }
    const std::string start = first_bytes(fd.get());
    if (start == kJournalMagic) {
      std::vector<std::string> command = journal_command(program_path("journalctl"));
      command.insert(command.begin() + 1, "--file=/proc/self/fd/0");
      (void)read_through("journalctl", std::move(command), fd.get(), what);
      return;
    }
    for (const file_format &format : kCompressed) {
      if (!start.starts_with(format.magic)) continue;
      (void)read_through(format.program, {program_path(format.program), "-dc"}, fd.get(), what);
      return;
    }
    note_end(read_lines_of(fd.get(), -1, what, size_now(fd.get())), what);
  }

  // The logs of a collection: the lines that it holds are few.
  void read_archive(const std::string &name, int fd) {
    constexpr std::int64_t kMost = std::int64_t{64} << 20;
    outcomes_.back().result = outcome::read;
    const archive_contents contents = list_archive(fd);
    for (const archive_member &member : contents.members) {
      if (stopped_ || !member.is_in("logs")) continue;
      log_outcome &what = outcomes_.emplace_back();
      what.source = name + "/" + member.name;
      std::vector<unsigned char> bytes;
      const unique_fd lines(memfd_create("lines", MFD_CLOEXEC));
      if (member.size > kMost || !lines.valid() || !read_member(fd, member, bytes) ||
          write(lines.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()) ||
          lseek(lines.get(), 0, SEEK_SET) != 0)
        what.reason = member.size > kMost ? "larger than the logs of a collection are" : error_text(errno);
      else
        note_end(read_lines_of(lines.get(), -1, what), what);
    }
    if (contents.damage.empty()) return;
    log_outcome &whole = outcomes_.emplace_back();
    whole.source = name;
    whole.reason = contents.damage;
  }

  bool read_through(const std::string &program, std::vector<std::string> command, int input, log_outcome &what) {
    if (!command.front().empty()) return read_program(command, input, what);
    what.reason = program + " is needed and is not installed";
    return false;
  }

  // True if it gave anything.
  bool read_program(const std::vector<std::string> &command, int input, log_outcome &what) {
    child program(command, input);
    if (program.output() < 0) {
      what.reason = command.front() + " cannot be started";
      return false;
    }
    const lines_end end = read_lines_of(program.output(), kPatience, what);
    note_end(end, what);
    const std::string complaint = program.finish();
    if (end == lines_end::read && !complaint.empty()) {
      what.result = outcome::failed;
      what.reason = complaint;
    }
    return what.lines > 0;
  }

  lines_end read_lines_of(int fd, int patience, log_outcome &what, std::uint64_t most = UINT64_MAX) {
    return read_lines(
        fd, patience,
        [&](std::string_view text, bool cut) {
          return take_(log_line{what.source, ++what.lines, text, cut});
        },
        most);
  }

  void note_end(lines_end end, log_outcome &what) {
    const int error = errno;
    what.result = outcome::read;
    if (end == lines_end::stopped) stopped_ = true;
    if (end != lines_end::silent && end != lines_end::failed) return;
    what.result = outcome::failed;
    what.reason = end == lines_end::failed ? error_text(error) : "nothing came for a minute";
  }

  void refuse(const std::string &name, int error) {
    outcomes_.push_back({name, error == ENOENT ? outcome::missing : outcome::failed, error_text(error)});
  }

  const take_log_line &take_;
  std::vector<log_outcome> outcomes_;
  bool stopped_ = false;
};

}  // namespace

std::vector<log_outcome> for_each_log_line(const std::vector<std::string> &names, const take_log_line &take) {
  source_reader reader(take);
  for (const std::string &name : names)
    if (!reader.stopped()) reader.read(name);
  return reader.take_outcomes();
}

}  // namespace vosk
