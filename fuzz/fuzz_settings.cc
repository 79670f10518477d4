// The environment test under arbitrary variables, traced: its result is that of the table, and the trace file stays
// one.
#include <qx_vosk.h>

#include "fuzz/target.h"
#include "support/trace_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static fuzz::memory_file trace("trace");
  trace.set(trace_model::fresh(16384));
  setenv("VOSKDEBUG", trace.path(), 1);
  fuzz::input in(data, size);
  constexpr const char *kNames[] = {"VOSKSTACK", "VOSKORIG", "VOSKPID", "VOSKADDR", "VOSKPNAME"};
  const auto present = in.number<std::uint8_t>();
  const int pid = in.number<std::int16_t>();
  bool set[5];
  std::string value[5];
  for (unsigned i = 0; i < 5; ++i) {
    value[i] = in.text(400);
    set[i] = (present >> i & 1) != 0 && !value[i].empty();
    if ((present >> i & 1) != 0) {
      setenv(kNames[i], value[i].c_str(), 1);
    } else {
      unsetenv(kNames[i]);
    }
  }
  int expected = VK_NO_VK_ENVIR;
  if (set[0]) {
    const bool complete = set[1] && set[2] && set[3] && set[4];
    const long long owner = std::strtoll(value[2].c_str(), nullptr, 10);
    expected = !complete ? VK_ENV_CORRUPT : owner == pid ? VK_SUCCESS : VK_NO_VK_ENVIR;
  } else if (set[1] || set[2]) {
    expected = VK_ENV_CORRUPT;
  }
  FUZZ_EXPECT(vk_test_stack_main_1(pid) == expected);

  const std::string bytes = trace.bytes();
  FUZZ_EXPECT(bytes.size() == 16384 && bytes.compare(0, 6, "VKTFO=") == 0);
  const std::size_t end = std::stoul(bytes.substr(6, 5));
  FUZZ_EXPECT(bytes.compare(end, 21, "[END OF FINAL ENTRY]\n") == 0);
  FUZZ_EXPECT(bytes.find_first_not_of('\0', end + 21) == std::string::npos);
  return 0;
}
