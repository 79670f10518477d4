// A System Log record of arbitrary texts: what reaches syslog is the record, and none of its characters converts
// anything.
#include <qx_vosk.h>
#include <syslog.h>

#include "fuzz/target.h"

static std::string &sent() {
  static std::string format;
  return format;
}

extern "C" void openlog(const char *, int, int) {}
extern "C" void closelog() {}
extern "C" void syslog(int, const char *format, ...) {
  sent() = format;
}

static std::string as_format(const std::string &record) {
  std::string out;
  for (std::size_t i = 0; i < record.size(); ++i) {
    out += record[i];
    if (record[i] != '%') continue;
    const bool unit = i + 1 < record.size() && (record[i + 1] == '%' || record[i + 1] == 'm');
    out += unit ? record[++i] : '%';
  }
  return out;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  setenv("VOSKADDR", "z/../....................", 1);
  unsetenv("VOSKDEBUG");
  fuzz::input in(data, size);
  const auto templ = in.number<std::uint32_t>();
  const int type = in.number<std::int8_t>();
  const std::string assoc = in.text(900), product = in.text(20), message = in.rest();
  fuzz::exact reference(assoc), lpp(product), text(message);
  vk_eid_t eid = {};
  (void)vk_log_error_1(&eid, reference.get(), "fuzz", lpp.get(), "f", "1", 1, 0, type, templ, "d", 1, nullptr, "%s",
                       text.get());
  char hex[16];
  std::snprintf(hex, sizeof hex, "%x", templ);
  std::string location = (product.empty() ? "qrn_product" : product) + ",f,1,1";
  location.resize(46, ' ');
  std::string record = "(Recorded using libqx_vosk.a cv 2):::Error ID: " + std::string(eid) +
                       ":::Reference ID: " + assoc + ":::Template ID: " + hex +
                       ":::Details File: :::Location: " + location + ":::" + std::string(text.get()).substr(0, 945);
  FUZZ_EXPECT(std::strlen(eid) == 42);
  FUZZ_EXPECT(sent() == as_format(record.substr(0, 992)));
  return 0;
}
