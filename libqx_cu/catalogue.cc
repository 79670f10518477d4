#include "catalogue.h"

#include <clocale>
#include <cstdint>
#include <cstring>

#include "utils/conversions.h"

namespace vk {

static bool is_open(nl_catd handle) noexcept {
  return reinterpret_cast<std::intptr_t>(handle) != -1;
}

// A library does not set the locale. Where the program has set none either, the catalogue of C would hide the user's,
// who is asked for by the environment first then.
static bool program_set_locale() noexcept {
  const char *locale = setlocale(LC_MESSAGES, nullptr);
  return locale != nullptr && std::strcmp(locale, "C") != 0;
}

static nl_catd open_catalogue(const char *name) noexcept {
  const int first = program_set_locale() ? NL_CAT_LOCALE : 0;
  nl_catd handle = catopen(name, first);
  if (!is_open(handle)) handle = catopen(name, first == 0 ? NL_CAT_LOCALE : 0);
  return handle;
}

catalogue::catalogue(const char *name) noexcept : handle_(open_catalogue(name)) {}

catalogue::~catalogue() {
  if (is_open(handle_)) (void)catclose(handle_);
}

const char *catalogue::text(int set, int number, const char *default_text) const noexcept {
  if (!is_open(handle_)) return default_text;
  const char *found = catgets(handle_, set, number, default_text);
  return found != default_text && same_conversions(found, default_text) ? found : default_text;
}

}  // namespace vk
