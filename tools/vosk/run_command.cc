// vosk run: a command in the caller's place, and a record when it fails.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <system_error>

#include "child.h"
#include "child_stderr.h"
#include "detail_source.h"
#include "exit_status.h"
#include "message_format.h"
#include "output.h"
#include "reader/escape.h"
#include "reader/identifier.h"
#include "reader/json.h"
#include "recording.h"
#include "run_text.h"
#include "verbs.h"

namespace vosk {

namespace {

// What of a command line goes into a record's detail, and into a detail file, which has room.
constexpr std::size_t kLimitInRecord = 100, kLimitInFile = 1 << 16;
// What of the tail goes into a record where no copy of a detail file can be made.
constexpr std::size_t kTailInRecord = 256;

// The file that --id-file names, empty until there is an identifier.
class id_file {
 public:
  explicit id_file(const std::string &name) {
    if (name.empty()) return;
    fd_ = unique_fd(open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd_.valid()) throw std::system_error(errno, std::generic_category(), "cannot open '" + escaped(name) + "'");
  }

  int descriptor() const noexcept { return fd_.get(); }

  void write(const std::string &identifier) const {
    if (!fd_.valid() || identifier.empty()) return;
    const std::string line = identifier + "\n";
    if (::write(fd_.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
      complain("cannot write the identifier: " + error_text(errno));
  }

 private:
  unique_fd fd_;
};

// A pipe that the command closes is to end for the one at its other side, so nothing of the command's is kept open here
// but standard error.
void let_go_of_descriptors(std::vector<int> own) {
  const unique_fd nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO}) (void)dup3(nothing.get(), fd, O_CLOEXEC);
  std::sort(own.begin(), own.end());
  unsigned from = STDERR_FILENO + 1;
  for (const int fd : own) {
    if (fd < static_cast<int>(from)) continue;
    if (static_cast<unsigned>(fd) > from) (void)close_range(from, static_cast<unsigned>(fd) - 1, 0);
    from = static_cast<unsigned>(fd) + 1;
  }
  (void)close_range(from, ~0U, 0);
}

std::string detail_with_tail(const std::vector<std::string> &command, const child_end &end,
                             const stderr_tail::excerpt &tail, std::size_t limit) {
  return run_detail(command, end, limit) + "\n" + tail_heading(tail) + tail.bytes;
}

class runner {
 public:
  runner(const common_options &common, const run_options &options)
      : common_(common), options_(options), id_file_(options.id_file), child_(options.pipe_ignored) {
    if (options.stderr_tail) tail_ = std::make_unique<stderr_tail>(*options.stderr_tail);
  }

  child_end run() {
    child_.start(options_.command, tail_ ? tail_->write_end() : -1);
    if (tail_) tail_->close_write_end();
    let_go_of_descriptors({id_file_.descriptor(), child_.descriptor(), tail_ ? tail_->descriptor() : -1});
    const child_end end = child_.wait();
    child_.signals().only_interrupt();
    return end;
  }

  void tell(const child_end &end) {
    stderr_tail::excerpt written;
    if (tail_) written = tail_->take();
    if (end.succeeded()) return;
    const recording made = record_failure(end, written);
    id_file_.write(made.identifier);
    if (common_.json)
      print_json(end, made);
    else
      print(end, made);
  }

 private:
  recording record_failure(const child_end &end, stderr_tail::excerpt &written) const {
    incident what;
    what.cause = options_.cause;
    what.format = as_format(run_summary(options_.command, end));
    const auto file = detail_file(end, written);
    if (file) {
      what.detail_file = file->path();
    } else {
      if (written.bytes.size() > kTailInRecord) written.bytes.erase(0, written.bytes.size() - kTailInRecord);
      what.detail =
          written.total > 0 ? tail_heading(written) + written.bytes : run_detail(options_.command, end, kLimitInRecord);
      what.detail_is_default = true;
    }
    fill_in_defaults(what, recorder::parent);
    return record(what, recorder::parent, road::automatic);
  }

  // Nothing where there can be no file: that costs details, not the record.
  std::unique_ptr<detail_source> detail_file(const child_end &end, const stderr_tail::excerpt &written) const {
    if (!tail_ || !can_keep_files()) return nullptr;
    try {
      return std::make_unique<detail_source>(
          detail_source::of_text(detail_with_tail(options_.command, end, written, kLimitInFile)));
    } catch (const std::exception &error) {
      complain(error.what());
      return nullptr;
    }
  }

  void print(const child_end &end, const recording &made) const {
    const std::string text = cut_text(escaped(options_.command.front()), 80) + ": " + end_text(end);
    if (!made.made)
      complain(text);
    else
      complain(text + "; recorded as " + (made.identifier.empty() ? "(no identifier)" : made.identifier));
    complain_about(made, false);
  }

  void print_json(const child_end &end, const recording &made) const {
    json_line line("run");
    run_members(line, options_.command, end);
    const std::string text = line.take() + recording_line(made);
    (void)!::write(STDERR_FILENO, text.data(), text.size());
  }

  const common_options &common_;
  const run_options &options_;
  id_file id_file_;
  child child_;
  std::unique_ptr<stderr_tail> tail_;
};

void check(const run_options &options) {
  if (options.command.empty() || !options.misplaced.empty())
    throw usage_error("a command to run stands behind --: vosk run [OPTION...] -- COMMAND [ARG...]");
  if (!options.cause.empty() && !decode_identifier(options.cause))
    throw usage_error("--cause is no identifier: 42 characters are needed");
}

}  // namespace

int run_command(const common_options &common, const run_options &options) {
  std::unique_ptr<runner> running;
  child_end end;
  try {
    check(options);
    running = std::make_unique<runner>(common, options);
    end = running->run();
  } catch (const std::exception &error) {
    complain(error.what());
    return kExitNotStarted;
  }
  // The command's status stands, whatever becomes of its record.
  try {
    running->tell(end);
  } catch (const std::exception &error) {
    complain(std::string("not recorded: ") + error.what());
  }
  return end_as(end);
}

}  // namespace vosk
