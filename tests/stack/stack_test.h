// The surroundings of the stack tests: an environment that this process owns, a trace file at hand, and an incident
// with nothing missing, of which a test changes what it is about.
#ifndef TESTS_STACK_STACK_TEST_H
#define TESTS_STACK_STACK_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qx_vosk.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/interpose.h"
#include "support/sandbox.h"
#include "support/scratch_trace.h"

namespace stack_test {

// 14 November 2023, 22:13:20.123456 UTC, and how identifiers show it.
inline constexpr std::int64_t kNow = 1700000000;
inline constexpr std::int64_t kMicroseconds = 123456;
inline constexpr char kTimeField[] = ".2zIZ/.7S.";
inline constexpr char kAddress[] = ".XO.8....................";  // 192.168.1.10
inline constexpr char kStack[] = "/var/adm/vosk/stacks/stack";

// The 24 bytes at the start of a stack file.
inline std::string header(std::uint32_t version, std::int32_t init, std::int32_t recording, std::int32_t earliest,
                          std::int32_t size, unsigned char wrap, const std::string &reserved = {'\0', '\0', '\0'}) {
  return files::u32(version) + files::i32(init) + files::i32(recording) + files::i32(earliest) + files::i32(size) +
         static_cast<char>(wrap) + reserved;
}

inline std::string zeros(std::size_t count) {
  return std::string(count, '\0');
}
// A text as it stands in a record: with the zero byte behind it.
inline std::string z(const std::string &text) {
  return text + '\0';
}

// A file with `head` at its start, `pieces` where they belong and `filling` everywhere else.
struct Piece {
  std::size_t at;
  std::string bytes;
};
inline std::string file_of(std::size_t size, const std::string &head, const std::vector<Piece> &pieces = {},
                           char filling = '\0') {
  std::string bytes(size, filling);
  bytes.replace(0, head.size(), head);
  for (const Piece &piece : pieces) bytes.replace(piece.at, piece.bytes.size(), piece.bytes);
  return bytes;
}

// A trace file of which every test, and every row, looks at what came since the last look.
class Trace : public ScratchTrace {
 public:
  std::vector<std::string> take() {
    const std::vector<std::string> found = entries();
    clear();
    return found;
  }
};

// The entries of one routine, as Trace::take() gives them.
inline std::vector<std::string> trace_entries(std::string_view routine, const std::vector<std::string> &texts) {
  std::vector<std::string> entries;
  for (const std::string &text : texts) entries.push_back(trace_entry(routine, text));
  return entries;
}

// An incident with nothing missing.
struct Incident {
  vk_eid_t *fid;
  const char *assoc_fid = nullptr;
  const char *resource = "disk0";
  const char *product = "store";
  const char *file = "reader.c";
  const char *version = "1.4";
  int line = 42;
  const char *data = "sector 17";
  const char *detail_file = nullptr;
  const char *catalogue = "store.cat";
  int set = 2;
  int number = 9;
  const char *message = "read failed";
};

// What push() makes of it: 189 bytes where the details are those above.
struct Golden {
  std::string identifier = zeros(43);
  std::uint32_t seconds = 0;
  std::int32_t parent = 0;
  std::string arguments = files::i32(0);
  std::string details = "sector 17";

  std::string bytes() const {
    const std::string body = zeros(4) + identifier + zeros(43) + files::u32(seconds) + z("service") +
                             files::i32(getpid()) + files::i32(parent) +
                             files::u32(static_cast<std::uint32_t>(pthread_self())) + z("reader.c") + z("1.4") +
                             z("store") + files::i32(42) + z("store.cat") + files::i32(2) + files::i32(9) +
                             z("read failed") + arguments + z(details);
    return files::u32(static_cast<std::uint32_t>(body.size())) + zeros(4) + body;
  }
};
inline constexpr std::size_t kRecordSize = 189;

template <typename... Arguments>
int push(const Incident &in, Arguments... arguments) {
  return vk_push_stack_1(in.fid, in.assoc_fid, in.resource, in.product, in.file, in.version, in.line, 0, in.data,
                         in.detail_file, in.catalogue, in.set, in.number, in.message, arguments...);
}

class StackTest : public testing::Test {
 protected:
  StackTest() {
    for (const char *name : {"VOSKDEBUG", "VOSKRECLAIM", "VOSKSDISABLE"}) environment_.unset(name);
    const std::string pid = std::to_string(getpid());
    set("VOSKSTACK", kStack);
    set("VOSKORIG", pid);
    set("VOSKPID", pid);
    set("VOSKADDR", kAddress);
    set("VOSKPNAME", "service");
    forget_identifier();
  }
  void set(const std::string &name, const std::string &value) { environment_.set(name, value); }
  void unset(const std::string &name) { environment_.unset(name); }

  Incident incident() {
    Incident in;
    in.fid = &fid_;
    return in;
  }
  // The caller's buffer, filled so that every change shows.
  void forget_identifier() { std::fill(std::begin(fid_), std::end(fid_), '#'); }
  std::string identifier() const { return std::string(fid_, sizeof fid_); }
  static std::string untouched() { return std::string(sizeof(vk_eid_t), '#'); }

  void trace() { set("VOSKDEBUG", trace_file_.path()); }

  static std::string stack() { return files::read(kStack).value_or("(no stack)"); }
  static void put_stack(const std::string &bytes) { ASSERT_TRUE(files::write(kStack, bytes)); }

  vk_eid_t fid_;
  Trace trace_file_;

 private:
  platform::UtcZone utc_;
  platform::Environment environment_;
};

}  // namespace stack_test

#endif
