// A line of any log: what is read out of it lies in bounds, whatever it holds.
#include "fuzz/target.h"
#include "reader/identifier.h"
#include "reader/log_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  // A buffer of exactly this size, so that a sanitizer sees every byte too many.
  const std::string source = "log", text(reinterpret_cast<const char *>(data), size);
  fuzz::exact line(text);
  const auto r = vosk::parse_log_record({source, 1, {line.get(), size}, false});
  if (!r) return 0;
  FUZZ_EXPECT(text.find("(Recorded using") != std::string::npos || text.starts_with('{'));
  FUZZ_EXPECT(r->eid.empty() || r->eid.size() == vosk::kIdentifierLength);
  FUZZ_EXPECT(r->reference.size() + r->detail_file.size() + r->location.size() + r->message.size() <= size);
  FUZZ_EXPECT(r->process.size() <= size && r->host.size() <= size);
  FUZZ_EXPECT(vosk::same_recording(*r, *r));
  return 0;
}
