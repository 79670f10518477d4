// An arbitrary text from a catalogue: where it passes as a message's translation, it is formatted as the C library
// would.
#include "fuzz/target.h"
#include "libqx_cu/message.h"
#include "utils/conversions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const std::string text = in.rest().substr(0, 300);
  fuzz::exact translation(text);
  if (!vk::same_conversions(translation.get(), "%1$s %2$d %3$s")) return 0;
  vk::argument_value values[3] = {};
  values[0].string = "one";
  values[1].integer = 22;
  values[2].string = "a third word";
  constexpr int kError = 13;
  fuzz::exact found(700), expected(700);
  vk::format_message(found.get(), 700, translation.get(), values, kError);
  errno = kError;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  (void)std::snprintf(expected.get(), 700, translation.get(), "one", 22, "a third word");
#pragma GCC diagnostic pop
  FUZZ_EXPECT(std::string(found.get()) == expected.get());
  // A smaller buffer holds the start of it.
  fuzz::exact small(9);
  vk::format_message(small.get(), 9, translation.get(), values, kError);
  FUZZ_EXPECT(std::string(expected.get()).substr(0, 8) == small.get());
  return 0;
}
