// Numbers to digits and back: 36 bits survive, a buffer too short is refused, digits count as they are written.
#include <qx_vosk.h>

#include <string_view>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  constexpr std::string_view kDigits = "./0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  fuzz::input in(data, size);
  const auto value = in.number<std::uint64_t>();
  const int length = in.number<std::int8_t>();
  std::string expected;
  for (std::uint64_t rest = value; rest != 0 && expected.size() < 6; rest >>= 6) expected += kDigits[rest & 63];
  // A digit may land at the index of the length itself, and the zero byte behind it.
  fuzz::exact out(length < 0 ? 1 : static_cast<std::size_t>(length) + 2);
  const bool fits = expected.empty() || static_cast<int>(expected.size()) <= length + 1;
  FUZZ_EXPECT(vk_l64a_r(value, out.get(), length) == (fits ? 0 : -1));
  FUZZ_EXPECT(fits ? out.get() == expected : *out.get() == '\0');
  FUZZ_EXPECT(vk_a64l(expected.c_str()) == (value & 0xFFFFFFFFF));

  const std::string text = in.text(200);
  std::uint64_t sum = 0;
  bool digits = true;
  for (std::size_t i = text.size(); i-- > 0;) {
    const std::size_t digit = kDigits.find(text[i]);
    digits = digits && digit != std::string_view::npos;
    sum = sum * 64 + digit;
  }
  fuzz::exact copy(text);
  const std::uint64_t found = vk_a64l(copy.get());
  FUZZ_EXPECT(!digits || found == sum);
  return 0;
}
