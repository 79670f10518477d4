#include "catalogue.h"

#include <cstdint>

#include "utils/conversions.h"

namespace vk {

static bool is_open(nl_catd handle) noexcept {
  return reinterpret_cast<std::intptr_t>(handle) != -1;
}

// First for the locale that the program has set, then by the environment alone: a library does not set the locale.
static nl_catd open_catalogue(const char *name) noexcept {
  nl_catd handle = catopen(name, NL_CAT_LOCALE);
  if (!is_open(handle)) handle = catopen(name, 0);
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
