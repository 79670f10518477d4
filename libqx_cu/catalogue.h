// A message catalogue, open for as long as its texts are needed.

#ifndef LIBQX_CU_CATALOGUE_H
#define LIBQX_CU_CATALOGUE_H

#include <nl_types.h>

namespace vk {

class catalogue {
 public:
  explicit catalogue(const char *name) noexcept;
  catalogue(const catalogue &) = delete;
  catalogue &operator=(const catalogue &) = delete;
  ~catalogue();

  // The catalogue's text of a message if it takes the arguments that `default_text` takes; `default_text` otherwise.
  // Valid for the life of this object.
  const char *text(int set, int number, const char *default_text) const noexcept;

 private:
  nl_catd handle_;
};

}  // namespace vk

#endif
