#include "catalogue.h"

#include "utils/conversions.h"

namespace vk {

static const nl_catd kNotOpen = reinterpret_cast<nl_catd>(-1);

// First for the locale that the program has set, then by the environment alone: a library does not set the locale.
static nl_catd open_catalogue(const char *name) noexcept {
  if (name[0] == '\0') return kNotOpen;
  const nl_catd handle = catopen(name, NL_CAT_LOCALE);
  return handle != kNotOpen ? handle : catopen(name, 0);
}

catalogue::catalogue(const char *name) noexcept : handle_(open_catalogue(name)) {}

catalogue::~catalogue() {
  if (handle_ != kNotOpen) (void)catclose(handle_);
}

const char *catalogue::text(int set, int number, const char *default_text) const noexcept {
  if (handle_ == kNotOpen) return default_text;
  const char *found = catgets(handle_, set, number, default_text);
  return found != default_text && same_conversions(found, default_text) ? found : default_text;
}

}  // namespace vk
