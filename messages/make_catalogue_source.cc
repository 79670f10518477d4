// Prints the catalogue source of the messages, for gencat and for translators to start from.

#include <cstdio>

#include "messages.h"

static void put_quoted(const char *text) {
  std::putchar('"');
  for (; *text != '\0'; ++text) {
    switch (*text) {
      case '\n':
        std::fputs("\\n", stdout);
        break;
      case '\t':
        std::fputs("\\t", stdout);
        break;
      case '"':
      case '\\':
        std::putchar('\\');
        [[fallthrough]];
      default:
        std::putchar(*text);
    }
  }
  std::putchar('"');
}

int main() {
  std::printf(
      "$ Messages of catalogue %s. Placeholders (%%1$s) keep their number and type in every language.\n"
      "$ codeset=UTF-8\n"
      "$quote \"\n"
      "$set %d\n"
      "$ Message 0 is not here: numbers of a catalogue start at 1, and nothing fetches the reserved text.\n",
      vk::kCatalogueName, vk::kCatalogueSet);
  for (int number = 1; number < VK_MESSAGE_COUNT; ++number) {
    std::printf("%d ", number);
    put_quoted(vk_mesgtbl_vk_lib[number]);
    std::putchar('\n');
  }
  (void)std::fflush(stdout);
  return std::ferror(stdout) == 0 ? 0 : 1;
}
