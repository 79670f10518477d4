// The tools' reader over an arbitrary file: records and damage lie in it, in their order, and no two records overlap.
#include "fuzz/target.h"
#include "reader/stack.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const auto inode = in.number<std::uint32_t>();
  const std::string bytes = in.rest();
  const vosk::stack read =
      vosk::read_stack({bytes.begin(), bytes.end()}, inode == 0 ? std::nullopt : std::optional<std::uint64_t>(inode));
  FUZZ_EXPECT(read.bytes.size() == bytes.size());
  std::vector<std::pair<std::size_t, std::size_t>> places;
  for (const vosk::record &record : read.records) {
    FUZZ_EXPECT(record.size != 0 && record.offset <= bytes.size() && record.size <= bytes.size() - record.offset);
    if (record.intact) FUZZ_EXPECT(record.size == record.length + 8u && record.size <= 1024);
    const auto inside = [&](const std::optional<std::string_view> &text) {
      const auto *begin = reinterpret_cast<const char *>(read.bytes.data());
      return !text || text->empty() || (text->data() >= begin && text->data() + text->size() <= begin + bytes.size());
    };
    FUZZ_EXPECT(inside(record.process) && inside(record.default_text) && inside(record.detail));
    places.emplace_back(record.offset, record.end());
  }
  std::sort(places.begin(), places.end());
  for (std::size_t i = 1; i < places.size(); ++i) FUZZ_EXPECT(places[i - 1].second <= places[i].first);
  for (std::size_t i = 1; i < read.damages.size(); ++i) {
    FUZZ_EXPECT(read.damages[i - 1].offset <= read.damages[i].offset);
  }
  FUZZ_EXPECT(read.unreadable <= bytes.size());
  return 0;
}
