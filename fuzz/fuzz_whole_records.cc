// Whole records over an arbitrary file: what the ring finds is whole and in order, and a push changes nothing, or it
// leaves the newest of the former records and the new one, which is the model's.
#include <fcntl.h>
#include <pthread.h>
#include <qx_vosk.h>

#include <vector>

#include "fuzz/recording_stack.h"
#include "lib/vk_push_stack/ctrl_info.h"
#include "lib/vk_push_stack/record_ring.h"
#include "support/stack_model.h"

namespace {

constexpr int kRefused = 24;

fuzz::memory_file &stack() {
  return fuzz::recording_stack("whole");
}

struct found {
  bool foreign, usable, linked, gapless;
  std::int32_t position;
  std::vector<std::pair<std::size_t, std::string>> records;  // oldest first
};

found look() {
  vk::stack_header header;
  static vk::stack_image image;
  const int fd = open(stack().path(), O_RDONLY);
  FUZZ_EXPECT(fd >= 0);
  const int result = vk::vk_get_stack_ctrl_info(0, nullptr, fd, &header, false, vk::reclaim_rule::whole, &image);
  close(fd);
  if (result != VOSK_SUCCESS) return {result == VOSK_UNSUPPORTED, false, false, false, 0, {}};
  const vk::record_ring ring(image, header.control);
  found out = {false, true, ring.linked(), true, header.control.recording_position, {}};
  FUZZ_EXPECT(ring.limit() <= static_cast<std::size_t>(header.control.file_size) + 4 && ring.limit() <= image.end);
  FUZZ_EXPECT(ring.count() <= vk::kMostRecords);
  bool in_front = false;  // of the position: the newer half
  std::size_t end = 0;
  for (const vk::extent &record : ring) {
    if (record.begin < end && !in_front) {
      in_front = true;
      end = 0;
      out.gapless = out.gapless && record.begin == static_cast<std::size_t>(header.control.init_offset);
    } else {
      out.gapless = out.gapless && (end == 0 || end == record.begin);
    }
    FUZZ_EXPECT(record.begin >= end && record.begin >= 24 && record.end <= ring.limit());
    FUZZ_EXPECT(!in_front || record.end <= ring.position());
    const std::span<const unsigned char> bytes(image.bytes + record.begin, record.end - record.begin);
    FUZZ_EXPECT(vk::check_record(bytes).size == bytes.size());
    out.records.emplace_back(record.begin, std::string(bytes.begin(), bytes.end()));
    end = record.end;
  }
  return out;
}

stack_model::Record record_of(const vk_eid_t &fid, const std::string &detail) {
  stack_model::Push push;
  push.identifier.assign(fid, sizeof fid);
  push.seconds = static_cast<std::uint32_t>(vk_a64l(push.identifier.substr(7, 6).c_str()));
  push.process_name = "fuzz";
  push.pid = getpid();
  push.thread = static_cast<std::int32_t>(pthread_self());
  push.file = "file";
  push.version = "1";
  push.product = "product";
  push.line = push.set = push.number = 1;
  push.catalogue = "cat";
  push.message = "message";
  push.detail = detail;
  return stack_model::build(push);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const std::string detail(in.number<std::uint16_t>() % 1100, 'd');
  const std::string bytes = in.rest();
  // A file that another process seems to be creating is waited for; other tests do that.
  if (bytes.empty() || bytes.compare(0, 4, "VKTF") == 0 || bytes.size() > 20000) return 0;
  stack().set(bytes);
  const found before = look();

  vk_eid_t fid = {};
  const int code = vk_push_stack_1(&fid, nullptr, "fuzz", "product", "file", "1", 1, 0, detail.c_str(), nullptr, "cat",
                                   1, 1, "message");
  if (before.foreign) return 0;  // used as if it were checked
  if (code == kRefused) {
    FUZZ_EXPECT(stack().bytes() == bytes);
    return 0;
  }
  FUZZ_EXPECT(before.usable);
  const stack_model::Record record = record_of(fid, detail);
  FUZZ_EXPECT(code == (detail.empty() ? VK_NO_DETAILS : record.over_length ? VK_RECORD_TRUNCATED : 0));
  const found after = look();
  FUZZ_EXPECT(after.usable && !after.records.empty());
  const auto &[offset, newest] = after.records.back();
  FUZZ_EXPECT(newest == record.bytes && offset + newest.size() == static_cast<std::size_t>(after.position));
  // In the middle of a damaged file the links end, and what was cleared can make another record of the same bytes.
  if (!before.linked || !before.gapless) return 0;
  FUZZ_EXPECT(after.linked && after.records.size() <= before.records.size() + 1);
  for (std::size_t kept = after.records.size() - 1, i = 0; i < kept; ++i)
    FUZZ_EXPECT(after.records[i] == before.records[before.records.size() - kept + i]);
  return 0;
}
