// The calling thread's current error.

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "arguments.h"
#include "catalogue.h"
#include "message.h"
#include "qx_cu.h"

namespace vk {

namespace {

// Small, because every thread of a program that links the library pays for it in its stack.
struct thread_error {
  int id, set, number;
  char catalogue[256];
  char text[4104];
};

thread_local thread_error current;

const char *text_or_empty(const char *text) noexcept {
  return text != nullptr ? text : "";
}

template <std::size_t size>
void copy_text(char (&buffer)[size], const char *text) noexcept {
  (void)std::snprintf(buffer, size, "%s", text);
}

void set_text(thread_error &error, const char *catalogue_name, const char *default_text, std::va_list inserts,
              int error_number) noexcept {
  const format_arguments list = arguments_of(default_text);
  if (!list.valid) {  // an already formatted text with a '%' of its own, most likely: no insert can be read for it
    copy_text(error.text, default_text);
    return;
  }
  argument_value values[kMaxArguments];
  read_arguments(list, inserts, values);
  const catalogue translations(catalogue_name);
  format_message(error.text, sizeof error.text, translations.text(error.set, error.number, default_text), values,
                 error_number);
}

}  // namespace

}  // namespace vk

extern "C" int cu_set_error_1(int id, [[maybe_unused]] int zero, const char *catalogue, int set, int number,
                              const char *default_text, ...) {
  const int saved_errno = errno;
  catalogue = vk::text_or_empty(catalogue);
  vk::thread_error error;  // copied when done: the texts may come from the current error
  error.id = id;
  error.set = set;
  error.number = number;
  vk::copy_text(error.catalogue, catalogue);
  va_list inserts;
  va_start(inserts, default_text);
  vk::set_text(error, catalogue, vk::text_or_empty(default_text), inserts, saved_errno);
  va_end(inserts);
  vk::current = error;
  errno = saved_errno;
  return id;
}

extern "C" int cu_set_no_error_1(void) {
  vk::current.id = vk::current.set = vk::current.number = 0;
  vk::current.catalogue[0] = vk::current.text[0] = '\0';
  return 0;
}

extern "C" int cu_get_error_1(cu_error_t *error) {
  if (error != nullptr)
    *error = {vk::current.id, vk::current.set, vk::current.number, vk::current.catalogue, vk::current.text};
  return vk::current.id;
}
