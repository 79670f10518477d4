// Argument lists of arbitrary formats: a list that is accepted is the one that the C library sees in the format.
#include <printf.h>
#include <qx_cu.h>

#include <cstdarg>

#include "fuzz/target.h"

#define FOUR(x) x, x, x, x
#define SIXTY_FOUR(x) FOUR(FOUR(FOUR(x)))

// More values than any list that is accepted can take, long doubles included.
static int list(const char *format, cu_arg_t **out, int *count, ...) {
  va_list values;
  va_start(values, count);
  const int result = cu_set_error_args_1(format, values, out, count);
  va_end(values);
  return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  fuzz::input in(data, size);
  const std::string text = in.rest().substr(0, 300);
  fuzz::exact format(text);
  cu_arg_t *arguments = nullptr;
  int count = -1;
  const char *word = "word";
  const int result = list(format.get(), &arguments, &count, SIXTY_FOUR(word), SIXTY_FOUR(word), SIXTY_FOUR(word));
  if (result != 0) {
    FUZZ_EXPECT(arguments == nullptr && count >= 0 && count <= 64);
    return 0;
  }
  int types[128] = {};
  FUZZ_EXPECT(parse_printf_format(format.get(), 128, types) == static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    FUZZ_EXPECT((arguments[i].type == CU_ARG_STRING) == (types[i] == PA_STRING));
    if (arguments[i].type == CU_ARG_STRING) FUZZ_EXPECT(arguments[i].value.string == word);
  }
  FUZZ_EXPECT(cu_rel_error_args_1(arguments, count) == 0);
  return 0;
}
