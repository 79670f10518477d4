#include "detail_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "coverage.h"
#include "reader/archive.h"
#include "reader/collection.h"
#include "reader/detail_path.h"
#include "reader/escape.h"
#include "user_name.h"

namespace vosk {

namespace {

constexpr int kDepth = 8;
constexpr std::int64_t kMostInJson = 1 << 20;

// Makes `archive` the copy of this name that lies in it, and `path` its path there.
bool find_in_archive(opened_file &archive, const std::string &name, std::string &path) {
  if (!is_archive(archive.fd.get())) return false;
  for (const archive_member &member : list_archive(archive.fd.get()).members) {
    if (member.base_name() != name || !member.is_in("dumps")) continue;
    archive.packed = true;
    archive.content_at = member.offset;
    archive.facts = {};  // those of the archive are not the copy's
    archive.facts.owner = member.owner;
    archive.facts.size = member.size;
    archive.facts.modified = member.modified;
    path = member.name;
    return true;
  }
  return false;
}

// A file of this name below one of the directories; those of several nodes can have the same name only if they were
// made in the same second by processes of one name and number.
opened_file find_below(const std::vector<std::string> &directories, const std::string &name, std::string &path) {
  opened_file found;
  found.result = outcome::missing;
  found.reason = error_text(ENOENT);
  const auto look_at = [&](int dir, const directory_entry &entry, const std::string &entry_path) {
    if (found.result == outcome::read) return;
    // A stack can have the name of a copy, when both are made by one process in one second.
    const std::string among_stacks = "/stacks/" + name;
    std::string_view base = entry_path;
    base.remove_prefix(entry_path.rfind('/') + 1);
    if (base == name && !entry_path.ends_with(among_stacks)) {
      found = open_regular(dir, entry.name.c_str());
      path = entry_path;
      return;
    }
    opened_file archive = open_regular(dir, entry.name.c_str());
    if (archive.result == outcome::read && find_in_archive(archive, name, path)) found = std::move(archive);
    if (found.packed) path = entry_path + "/" + path;
  };
  const visit_entry visit = look_at;
  for (const std::string &directory : directories) {
    const bool walked = walk_directory(directory, kDepth, visit);
    if (walked || errno != ENOTDIR) continue;
    const directory_entry itself{directory};
    look_at(AT_FDCWD, itself, directory);
  }
  return found;
}

// Hands the content to `take` in pieces. False, with errno set, on a read error.
template <class Take>
bool read_pieces(const opened_file &file, Take take) {
  std::array<char, 65536> piece;
  std::int64_t at = file.content_at;
  const std::int64_t end = file.packed ? at + file.facts.size : std::numeric_limits<std::int64_t>::max();
  for (;;) {
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(piece.size(), end - at));
    const ssize_t n = wanted > 0 ? pread(file.fd.get(), piece.data(), wanted, at) : 0;
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return n == 0;
    at += n;
    if (!take(std::string_view(piece.data(), static_cast<std::size_t>(n)))) return true;
  }
}

const char *state_name(outcome result) {
  switch (result) {
    case outcome::read:
      return "there";
    case outcome::missing:
      return "gone";
    case outcome::skipped:
      return "refused";
    case outcome::failed:
      break;
  }
  return "not_readable";
}

void note_state(outcome result, exit_status &status) {
  if (result == outcome::missing) status.not_found = true;
  if (result == outcome::failed || result == outcome::skipped) status.failure = true;
}

void print_copy_json(output &out, const located_detail &detail) {
  const opened_file &file = detail.file;
  json_line line("detail");
  line.text("kind", "file").text("path", detail.text_or_path).text("state", state_name(file.result));
  if (file.result == outcome::read) {
    line.text("owner", user_name(file.facts.owner)).number("size", file.facts.size);
    std::string content;
    const bool small = file.facts.size <= kMostInJson;
    const auto append = [&](std::string_view piece) {
      content += piece;
      return true;
    };
    if (small && read_pieces(file, append)) line.text("content", content);
  } else {
    line.text("reason", file.reason);
  }
  out.write(line.take());
}

void print_copy(output &out, const located_detail &detail) {
  const opened_file &file = detail.file;
  std::string text = "-- detail file " + out.safe(detail.text_or_path) + ": " + state_name(file.result);
  if (file.result == outcome::read)
    text += ", owner " + out.safe(user_name(file.facts.owner)) + ", " + std::to_string(file.facts.size) + " bytes";
  else
    text += ": " + file.reason;
  out.line(out.painted(style::note, text));
  if (file.result != outcome::read) return;
  // A terminal gets the content harmless. Pieces can end inside a character, which then is shown as bytes.
  bool line_open = false;
  (void)read_pieces(file, [&](std::string_view piece) {
    if (out.terminal())
      out.write(out.safe_lines(piece));
    else
      out.write(piece);
    line_open = piece.back() != '\n';
    return !out.closed();
  });
  if (line_open && out.terminal()) out.line("");
}

// The archive or directory that a collected stack and the copies that it cites lie in; empty for other stacks.
std::string collection_of(const stack_file &file) {
  if (file.packed) return file.packed->archive;
  const std::string directory = file.path.substr(0, std::min(file.path.rfind('/'), file.path.size()));
  if (directory == kStackDirectory || !directory.ends_with("/stacks")) return "";
  return directory.substr(0, directory.rfind('/')) + "/dumps";
}

// `elsewhere`: the recording is not known to be of this node, so its copy is looked for among the copies first.
located_detail locate(const std::vector<std::string> &copies, std::string_view text, bool elsewhere) {
  located_detail detail;
  if (text.empty()) return detail;
  detail.text_or_path = text;
  const auto name = cited_copy(text);
  detail.kind = name ? located_detail::copy : located_detail::text;
  if (!name) return detail;
  if (elsewhere && !copies.empty())
    detail.file = find_below(copies, *name, detail.text_or_path);
  else
    detail.file = open_copy(kDumpDirectory, *name);
  return detail;
}

}  // namespace

located_detail locate_detail(const common_options &common, const found_record &found) {
  std::vector<std::string> copies = common.copies;
  const std::string own = collection_of(*found.file);
  if (!own.empty()) copies.insert(copies.begin(), own);
  return locate(copies, found.what->detail.value_or(""), is_copy(*found.file));
}

located_detail locate_detail(const common_options &common, const log_record &found, node_test node) {
  return locate(common.copies, found.detail_file, node != node_test::this_node);
}

bool read_detail(const opened_file &copy, const std::function<bool(std::string_view)> &take) {
  return read_pieces(copy, take);
}

void print_detail(output &out, const common_options &common, located_detail &detail, exit_status &status) {
  if (detail.kind == located_detail::copy) {
    note_state(detail.file.result, status);
    if (common.json)
      print_copy_json(out, detail);
    else
      print_copy(out, detail);
    return;
  }
  const bool none = detail.kind == located_detail::none;
  if (none) status.not_found = true;
  if (common.json) {
    json_line line("detail");
    line.text("kind", none ? "none" : "text");
    if (!none) line.text("content", detail.text_or_path);
    out.write(line.take());
    return;
  }
  out.line(out.painted(style::note,
                       none ? "-- the record has no detail" : "-- the record cites no detail file; its detail is"));
  if (!none) out.line(out.safe_lines(detail.text_or_path));
}

bool save_detail(output &out, located_detail &detail, const std::string &path) {
  const unique_fd file(path == "-" ? dup(1) : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  int error = file.valid() ? 0 : errno;
  const auto write_all = [&](std::string_view piece) {
    while (error == 0 && !piece.empty()) {
      const ssize_t n = write(file.get(), piece.data(), piece.size());
      if (n >= 0)
        piece.remove_prefix(static_cast<std::size_t>(n));
      else if (errno != EINTR)
        error = errno;
    }
    return error == 0;
  };
  out.flush();
  if (detail.kind == located_detail::copy) {
    if (error == 0 && !read_pieces(detail.file, write_all)) error = errno;
  } else if (error == 0) {
    (void)write_all(detail.text_or_path);
  }
  if (error != 0) complain("cannot write " + escaped(path) + ": " + error_text(error));
  return error == 0;
}

}  // namespace vosk
