// vosk collect: an incident, or everything, in one archive that can be read elsewhere.

#include <fcntl.h>
#include <sha2.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "archive_writer.h"
#include "collect_choice.h"
#include "coverage.h"
#include "exit_status.h"
#include "lookup.h"
#include "output.h"
#include "reader/escape.h"
#include "reader/json.h"
#include "reader/node.h"
#include "verbs.h"
#include "version.h"

namespace vosk {

namespace {

constexpr std::int64_t kMostOfACopy = std::int64_t{1} << 30;

class digest {
 public:
  digest() { SHA256Init(&context_); }
  void add(std::string_view bytes) {
    SHA256Update(&context_, reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
  }
  std::string text() {
    char digits[SHA256_DIGEST_STRING_LENGTH] = {};
    return SHA256End(&context_, digits);
  }

 private:
  SHA2_CTX context_{};
};

// A line of the manifest, and of what is printed.
struct collected {
  std::string member, from, sha256;
  const char *kind = "";
  std::int64_t size = 0;
  std::optional<file_facts> facts;  // of the file that it was copied from
  const stack_file *stack = nullptr;
  bool changed = false;  // it became shorter while it was copied
  std::string failure;   // why it could not be read to its end
};

struct not_collected {
  std::string path, reason;
};

std::string utc_text(moment at) {
  return utc_time_text(at.seconds, static_cast<std::uint32_t>(at.microseconds));
}

void fill(json_object &object, const collected &what) {
  object.text("member", what.member).text("kind", what.kind).text("from", what.from);
  object.number("size", what.size).text("sha256", what.sha256);
  if (what.changed) object.boolean("changed", true);
  if (!what.failure.empty()) object.text("failure", what.failure);
  if (!what.facts) return;
  if (what.facts->inode != 0) object.number("file_inode", what.facts->inode).number("device", what.facts->device);
  object.number("owner", what.facts->owner).text("modified", utc_text(what.facts->modified));
  if (what.facts->birth) object.text("made", utc_text(*what.facts->birth));
  if (what.stack == nullptr) return;
  const stack &contents = what.stack->contents;
  if (contents.inode != 0) object.number("inode", contents.inode);
  object.number("records", contents.records.size()).number("damage", contents.damages.size());
  object.boolean("read_in_one_piece", what.stack->steady);
}

class collecting {
 public:
  explicit collecting(const collect_choice &choice) : choice_(choice) {}

  // False if the archive could not be written.
  bool write(int fd, const std::string &asked_for) {
    archive_ = archive_writer(fd);
    for (const auto &[name, open] : choice_.copies)
      if (!add_copy(name, open)) return false;
    for (const auto &[name, lines] : choice_.logs)
      if (!add_text(name, "log", lines, {}, {})) return false;
    for (const auto &[name, file] : choice_.stacks)
      if (!add_stack(name, *file)) return false;
    const std::string text = manifest(asked_for);
    return archive_.begin(kManifestName, static_cast<std::int64_t>(text.size()), 0, now()) && archive_.write(text) &&
           archive_.end() && archive_.finish();
  }

  const std::vector<collected> &members() const noexcept { return members_; }
  const std::vector<not_collected> &missing() const noexcept { return missing_; }
  std::string failure() const { return "cannot write the collection: " + error_text(archive_.error()); }

 private:
  bool add_text(const std::string &name, const char *kind, std::string_view text, std::optional<file_facts> facts,
                moment modified) {
    digest sum;
    sum.add(text);
    const auto size = static_cast<std::int64_t>(text.size());
    members_.push_back({name, "", sum.text(), kind, size, facts, nullptr, false, ""});
    return archive_.begin(name, size, facts ? facts->owner : 0, modified) && archive_.write(text) && archive_.end();
  }

  // As it was read under its lock.
  bool add_stack(const std::string &name, const stack_file &file) {
    const std::vector<unsigned char> &bytes = file.contents.bytes;
    const bool added = add_text(name, "stack", {reinterpret_cast<const char *>(bytes.data()), bytes.size()}, file.facts,
                                file.facts.modified);
    members_.back().from = file.path;
    members_.back().stack = &file;
    return added;
  }

  bool add_copy(const std::string &name, const open_detail &open) {
    const located_detail detail = open();
    const opened_file &file = detail.file;
    // Anybody can make a file that claims to be larger than every disk.
    const bool too_large = file.result == outcome::read && file.facts.size > kMostOfACopy;
    if (file.result != outcome::read || too_large) {
      missing_.push_back({detail.text_or_path, too_large ? "too large" : file.reason});
      return true;
    }
    const std::string member = "dumps/" + name;
    if (!archive_.begin(member, file.facts.size, file.facts.owner, file.facts.modified)) return false;
    digest sum;
    std::int64_t size = 0;
    const auto take = [&](std::string_view piece) {
      piece = piece.substr(0, static_cast<std::size_t>(std::min<std::int64_t>(
                                  file.facts.size - size, static_cast<std::int64_t>(piece.size()))));
      size += static_cast<std::int64_t>(piece.size());
      sum.add(piece);
      return archive_.write(piece) && size < file.facts.size;
    };
    const std::string failure = read_detail(file, take) ? "" : error_text(errno);
    if (!failure.empty()) complain("cannot read " + escaped(detail.text_or_path) + ": " + failure);
    const bool shorter = failure.empty() && size < file.facts.size;
    members_.push_back(
        {member, detail.text_or_path, sum.text(), "detail", size, file.facts, nullptr, shorter, failure});
    return archive_.end();
  }

  std::string manifest(const std::string &asked_for) const {
    json_line line("manifest");
    line.text("program", std::string("vosk ") + kVersion).text("asked_for", asked_for);
    line.object("clock", [](json_object &object) {
      timespec boot{};
      (void)clock_gettime(CLOCK_BOOTTIME, &boot);
      const moment at = now();
      const std::time_t seconds = at.seconds;
      std::tm local{};
      (void)localtime_r(&seconds, &local);
      object.text("now", utc_text(at)).number("seconds_since_boot", boot.tv_sec);
      object.number("seconds_east_of_utc", local.tm_gmtoff);
    });
    line.object("node", [](json_object &object) {
      utsname node{};
      (void)uname(&node);
      object.text("name", node.nodename).text("machine", node.machine);
      object.array("addresses", addresses_of_this_node(),
                   [](const node_address &address, std::string &text) { append_json_text(text, address.text()); });
    });
    line.array("identifiers", choice_.identifiers,
               [](const std::string &eid, std::string &text) { append_json_text(text, eid); });
    line.array("members", members_, [](const collected &member, std::string &text) {
      json_object object(text);
      fill(object, member);
      object.close();
    });
    line.array("missing", missing_, [](const not_collected &copy, std::string &text) {
      json_object object(text);
      object.text("file", copy.path).text("reason", copy.reason);
      object.close();
    });
    line.array("logs_not_read", choice_.log_sources, [](const log_outcome &log, std::string &text) {
      json_object object(text);
      object.text("log", log.source).boolean("read", log.result == outcome::read).text("reason", log.reason);
      object.close();
    });
    if (choice_.too_many) line.boolean("logs_not_whole", true);
    return line.take();
  }

  const collect_choice &choice_;
  archive_writer archive_{-1};
  std::vector<collected> members_;
  std::vector<not_collected> missing_;
};

// The new file, which is removed again unless it is kept.
class new_file {
 public:
  explicit new_file(const std::string &path)
      : path_(path), fd_(path == "-" ? dup(1) : open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    if (!fd_.valid()) complain("cannot make " + escaped(path) + ": " + error_text(errno));
    made_ = fd_.valid() && path != "-";
  }
  new_file(const new_file &) = delete;
  new_file &operator=(const new_file &) = delete;
  ~new_file() {
    struct stat by_name {
    }, open_file{};
    // Only if it still is the one that was made.
    if (made_ && lstat(path_.c_str(), &by_name) == 0 && fstat(fd_.get(), &open_file) == 0 &&
        by_name.st_dev == open_file.st_dev && by_name.st_ino == open_file.st_ino)
      (void)unlink(path_.c_str());
  }
  int fd() const noexcept { return fd_.get(); }
  bool valid() const noexcept { return fd_.valid(); }

  // False, with errno set, if it is not whole on the disk.
  bool keep() {
    if (!made_) return true;
    if (fsync(fd_.get()) != 0 && errno != EINVAL) return false;
    made_ = false;
    return true;
  }

 private:
  const std::string path_;
  unique_fd fd_;
  bool made_ = false;
};

// False, with a message, if there is no whole file now.
bool write_file(collecting &work, const collect_options &options) {
  new_file file(options.output_file);
  if (!file.valid()) return false;
  const bool written = work.write(file.fd(), options.all ? "all" : options.identifier);
  if (!written) complain(work.failure());
  if (!written || file.keep()) return written;
  complain("cannot write the collection: " + error_text(errno));
  return false;
}

void print_members(output &out, const common_options &common, const collecting &work, const std::string &file) {
  std::int64_t bytes = 0;
  for (const collected &member : work.members()) {
    bytes += member.size;
    if (common.json) {
      json_line line("collected");
      fill(line, member);
      out.write(line.take());
    } else {
      out.line(out.safe(member.member) + "  " + std::to_string(member.size) + " bytes" +
               (member.changed ? ", it became shorter meanwhile" : "") +
               (member.failure.empty() ? "" : ", not whole: " + member.failure));
    }
  }
  for (const not_collected &copy : work.missing()) {
    if (!common.json) {
      out.line(out.painted(style::damage, "-- not collected: " + out.safe(copy.path) + ": " + copy.reason));
      continue;
    }
    json_line line("not_collected");
    line.text("file", copy.path).text("reason", copy.reason);
    out.write(line.take());
  }
  if (!common.json)
    out.line(out.painted(style::note, "-- " + out.safe(file) + ": " + std::to_string(work.members().size()) +
                                          " files of " + std::to_string(bytes) + " bytes"));
}

void note_sources(const collect_choice &choice, const collect_options &options, exit_status &status) {
  for (const log_outcome &log : choice.log_sources) {
    if (log.result == outcome::read || options.logs.empty()) continue;
    complain("cannot read " + escaped(log.source) + ": " + log.reason);
    status.failure = true;
  }
  if (choice.too_many) {
    complain("cannot read the rest of the logs: they hold more than can be looked at at once");
    status.failure = true;
  }
  for (const refused_file &file : choice.read.refused) {
    if (!file.failed || file.missing) continue;
    complain("cannot read " + escaped(file.path) + ": " + file.reason);
    status.failure = true;
  }
  for (const auto &[name, file] : choice.stacks)
    if (!file->contents.damages.empty()) status.damage = true;
}

}  // namespace

int collect(const common_options &common, const collect_options &options) {
  if (options.all == !options.identifier.empty()) throw usage_error("either an identifier or --all is needed");
  if (options.output_file == "-" && isatty(1) != 0) throw usage_error("an archive is nothing for a terminal");
  exit_status status;
  collect_choice choice = choose_what_to_collect(common, options);
  note_sources(choice, options, status);
  if (choice.empty()) {
    complain(options.all ? "there is nothing to collect" : "nothing has this identifier or refers to it");
    status.not_found = true;
    return status.value();
  }
  stop_on_signals();
  collecting work(choice);
  const bool written = write_file(work, options);
  end_by_signal();
  if (!written) return kExitFailure;
  for (const collected &member : work.members())
    if (!member.failure.empty()) status.failure = true;
  if (options.output_file == "-") return status.value();
  output out(common, true);
  print_members(out, common, work, options.output_file);
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
