// vosk annotate: any text, with what its identifiers say under the lines that hold them.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "exit_status.h"
#include "identifier_text.h"
#include "output.h"
#include "reader/description.h"
#include "reader/escape.h"
#include "reader/identifier_scan.h"
#include "reader/record_index.h"
#include "record_text.h"
#include "verbs.h"

namespace vosk {

namespace {

constexpr std::size_t kBlock = 1 << 18;
// One line of a hostile text can hold any number of identifiers.
constexpr std::size_t kMostPerLine = 1000;

// Goes through a text piece by piece; memory does not grow with it.
class annotator {
 public:
  annotator(const common_options &common, exit_status &status)
      : common_(common),
        status_(status),
        out_(common, false),
        scanner_(now().seconds),
        addresses_(addresses_of_this_node()),
        records_(kStackDirectory, common.copies) {}

  output &out() { return out_; }

  // False, with errno set, on a read error.
  bool run(int fd) {
    std::vector<char> buffer(kBlock);
    std::size_t held = 0;  // bytes that wait for what follows them
    for (;;) {
      const ssize_t n = read(fd, buffer.data() + held, buffer.size() - held);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return false;
      const std::string_view text(buffer.data(), held + static_cast<std::size_t>(n));
      const std::size_t part = n == 0 ? text.size() : identifier_scanner::complete_part(text);
      const std::size_t done = take(text, part);
      if (n == 0) break;
      held = text.size() - done;
      std::memmove(buffer.data(), buffer.data() + done, held);
      out_.flush();  // somebody may be watching
      if (out_.closed()) return true;
    }
    if (!pending_.empty()) {
      pass("\n");
      annotate_line();
    }
    return true;
  }

 private:
  // Passes on the first `part` bytes of `text`, with their annotations, and the rest of an identifier that begins in
  // them. Returns how much was passed on.
  std::size_t take(std::string_view text, std::size_t part) {
    found_.clear();
    scanner_.scan(text, found_);
    std::size_t passed = 0;
    for (const std::size_t at : found_) {
      if (at >= part) break;
      pass_lines(text.substr(passed, at + kIdentifierLength - passed));
      passed = at + kIdentifierLength;
      if (pending_.size() < kMostPerLine) pending_.emplace_back(text.substr(at, kIdentifierLength));
    }
    const std::size_t end = std::max(part, passed);
    pass_lines(text.substr(passed, end - passed));
    return end;
  }

  // Passes a piece on; where a line ends in it for which annotations wait, they follow that line.
  void pass_lines(std::string_view piece) {
    if (!pending_.empty()) {
      const std::size_t end = piece.find('\n');
      if (end == std::string_view::npos) {
        count_lines(piece);
        pass(piece);
        return;
      }
      pass(piece.substr(0, end + 1));
      annotate_line();
      ++line_;
      piece.remove_prefix(end + 1);
    }
    count_lines(piece);
    pass(piece);
  }

  void pass(std::string_view piece) {
    if (!common_.json) out_.write(piece);
  }

  // Only the JSON form tells line numbers.
  void count_lines(std::string_view piece) {
    if (!common_.json) return;
    for (std::size_t at = piece.find('\n'); at != std::string_view::npos; at = piece.find('\n', at + 1)) ++line_;
  }

  void annotate_line() {
    for (const std::string &eid : pending_) {
      const identifier id = *decode_identifier(eid);  // the scanner finds whole ones only
      const found_record found = id.where == location::stack ? records_.find(eid) : found_record{};
      if (found.what != nullptr && !found.what->intact) status_.damage = true;
      if (common_.json)
        print_json(eid, id, found);
      else
        print_text(eid, id, found);
    }
    pending_.clear();
  }

  void print_json(const std::string &eid, const identifier &id, const found_record &found) {
    json_line line("identifier");
    line.number("line", line_).text("identifier", eid);
    identifier_members(line, id, test_node(id, addresses_));
    if (found.what != nullptr)
      line.object("record", [&](json_object &object) {
        record_members(object, {&found.file->path, found.what}, descriptions_.description(*found.what));
      });
    out_.write(line.take());
  }

  void print_text(const std::string &eid, const identifier &id, const found_record &found) {
    std::string text = "    ^ " + eid + ":";
    for (const labelled &field : identifier_fields(id, test_node(id, addresses_), common_))
      text += " " + field.value + ";";
    text.pop_back();
    if (found.what != nullptr) {
      const std::string description = descriptions_.description(*found.what);
      text += "; " + process_text(out_, *found.what) + " " + source_text(out_, *found.what) + " " +
              out_.safe(description.substr(0, description.find('\n')));
    }
    out_.line(out_.painted(style::note, text));
  }

  const common_options &common_;
  exit_status &status_;
  output out_;
  identifier_scanner scanner_;
  std::vector<node_address> addresses_;
  record_index records_;
  describer descriptions_;
  std::vector<std::size_t> found_;
  std::vector<std::string> pending_;  // identifiers of the line that has not ended yet
  std::size_t line_ = 1;
};

}  // namespace

int annotate(const common_options &common, const annotate_options &options) {
  exit_status status;
  unique_fd file;
  if (!options.file.empty() && options.file != "-") {
    file = unique_fd(open(options.file.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file.valid()) {
      const int error = errno;
      complain("cannot read " + escaped(options.file) + ": " + error_text(error));
      return error == ENOENT ? kExitNotFound : kExitFailure;
    }
  }
  annotator work(common, status);
  if (!work.run(file.valid() ? file.get() : 0)) {
    complain("cannot read the text: " + error_text(errno));
    status.failure = true;
  }
  if (!work.out().finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
