// Pushes with a known time, node and i-node, recorded in full, for the tests of what they write, report and trace.
#ifndef TESTS_STACK_PUSH_TEST_H
#define TESTS_STACK_PUSH_TEST_H

#include <cinttypes>
#include <cstdint>

#include "stack/stack_test.h"
#include "support/cu_double.h"

namespace stack_test {

// Of i-node 1234567 at kNow on 192.168.1.10.
inline const std::string kIdentifier = z("75Oh2...2zIZ/.7S..XO.8....................");

class PushTest : public StackTest {
 protected:
  PushTest() { cu_double::reset(); }

  // Clock and i-node as in kIdentifier, for a stack that exists already.
  static void prepare(platform::Calls &calls) {
    calls.fixed_clock(kNow, kMicroseconds);
    calls.fake_stat("stat", kStack, {.inode = 1234567});
  }
  template <typename... Arguments>
  int push_known(const Incident &in, Arguments... arguments) {
    cu_double::reset();
    platform::Calls calls;
    prepare(calls);
    return calls.during([&] { return push(in, arguments...); });
  }
  static Golden golden() {
    Golden record;
    record.identifier = kIdentifier;
    record.seconds = 1700000000;
    return record;
  }
  // An empty stack file, as the first push makes it before it writes its record.
  static std::string empty_stack() { return file_of(16384, header(0, 24, 24, 24, 16384, 0)); }
  static std::string stack_with(const std::string &record) {
    return file_of(16384, header(0, 24, static_cast<std::int32_t>(24 + record.size()), 24, 16384, 0), {{24, record}});
  }
  // What the push's own trace starts with.
  static std::string parameters(const Incident &in) {
    const auto text = [](const char *value) { return std::string(value != nullptr ? value : "(none)"); };
    char fid[16], data[16];
    std::snprintf(fid, sizeof fid, "%" PRIx32, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(in.fid)));
    std::snprintf(data, sizeof data, "%" PRIx32, static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(in.data)));
    return std::string("Called with these params:\nfid=0x") + fid + ", assoc_fid=" + text(in.assoc_fid) +
           "\nResource " + text(in.resource) + "\nFile info: " + text(in.product) + ", " + text(in.file) + ", " +
           text(in.version) + ", " + std::to_string(in.line) + "\nDetail Data ptr 0x" + data + ", Detail File " +
           text(in.detail_file) + "\nMsg Info: " + text(in.catalogue) + ", " + std::to_string(in.set) + ", " +
           std::to_string(in.number) + "\nDef Msg: " + text(in.message) + "\n";
  }
};

inline const std::string kNormalDetail = "Calling vk_format_stack_rec using normal detail data\n";
inline const std::string kFileDetail = "Calling vk_format_stack_rec using detail file name as detail data\n";
inline std::string recorded(std::size_t size, std::size_t offset) {
  return "Incident information recorded - Size " + std::to_string(size) + " bytes, offset " + std::to_string(offset) +
         " bytes\n";
}

}  // namespace stack_test

#endif
