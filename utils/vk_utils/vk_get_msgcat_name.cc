#include <clocale>
#include <cstring>

#include "qx_vosk.h"
#include "utils/text.h"

char *vk_get_msgcat_name(char *buffer, const char *name) {
  (void)setlocale(LC_ALL, "");  // so that catopen finds the catalogue of the user's language
  name = vk::printable(name);
  std::memcpy(buffer, name, std::strlen(name) + 1);
  return buffer;
}
