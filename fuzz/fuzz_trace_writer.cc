// An entry written into an arbitrary trace file: result and bytes are the model's.
#include <pthread.h>
#include <qx_vosk.h>
#include <sys/time.h>

#include "fuzz/target.h"
#include "support/trace_model.h"

// By the clock that the entry is made by; time() lags a little behind it.
static std::int64_t second() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  return now.tv_sec;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static fuzz::memory_file file("trace");
  fuzz::input in(data, size);
  const std::string message(in.number<std::uint8_t>(), 'm');
  const std::string bytes = in.rest();
  for (;;) {
    const std::int64_t before = second();
    file.set(bytes);
    fuzz::exact text(message);
    const int result = vk_debug(file.path(), "fuzz", "%s\n", text.get());
    if (second() != before) continue;  // the entry may have either time
    std::string model = bytes;
    const auto thread = static_cast<int>(static_cast<unsigned>(pthread_self()));
    FUZZ_EXPECT(result ==
                trace_model::append(model, trace_model::entry(before, "fuzz", getpid(), thread, message + "\n")));
    FUZZ_EXPECT(file.bytes() == model);
    return 0;
  }
}
