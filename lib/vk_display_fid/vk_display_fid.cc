// Showing an identifier to a person.
#include <cstdio>
#include <cstring>

#include "lib/report.h"
#include "utils/conversions.h"
#include "utils/paths.h"
#include "utils/text.h"
#include "utils/vk_debug/trace.h"
#include "utils/vk_eid/fields.h"

namespace vk {
namespace {

constexpr int kInvalidIdentifier = 13, kIdentifierLine = 19;
constexpr std::size_t kCatalogueName = 4097;

nl_catd open_catalogue() noexcept {
  char name[kCatalogueName];
  const nl_catd catalogue = catopen(vk_get_msgcat_name(name, kCatalogue), NL_CAT_LOCALE);
  return catalogue != reinterpret_cast<nl_catd>(-1) ? catalogue : catopen(name, 0);
}

void print_line(const char *eid, std::FILE *stream) noexcept {
  const nl_catd catalogue = open_catalogue();
  const char *const fallback = vk_mesgtbl_vk_lib[kIdentifierLine];
  const char *line = catgets(catalogue, kMessageSet, kIdentifierLine, fallback);
  // A catalogue's text is a format only if it takes what the message takes.
  if (!same_conversions(line, fallback)) line = fallback;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  (void)std::fprintf(stream, line, eid);
#pragma GCC diagnostic pop
  if (catalogue != reinterpret_cast<nl_catd>(-1)) (void)catclose(catalogue);
}

}  // namespace
}  // namespace vk

int vk_display_fid_main_1(const char *eid, int to_stderr) {
  char trace_path[vk::kPathSize];
  const int trace_on = vk::decide_tracing(trace_path);
  const vk::tracer trace(trace_on, trace_path, "vk_display_fid");
  VK_TRACE(trace, "Called with pointer value of 0x%x\n", vk::low32_of_address(eid));
  if (eid == nullptr || strnlen(eid, vk::kEidDigits + 1) != vk::kEidDigits)
    return vk::report(VK_NO_EID_PTR, vk::kInvalidIdentifier, "vk_display_fid");
  // "stdout", whatever the stream is, on purpose.
  const vk::tracer short_form(trace_on, trace_path, "vk_display_fid_1");
  VK_TRACE(short_form, "Displaying VOSK ID \"%s\" to stdout", eid);
  vk::print_line(eid, to_stderr == 1 ? stderr : stdout);
  return cu_set_no_error_1();
}

int vk_display_fid_1(const char *eid) {
  return vk_display_fid_main_1(eid, 1);
}
