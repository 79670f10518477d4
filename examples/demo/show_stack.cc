#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>

#include "show.h"

namespace demo {

// Takes fields off the front of a record, none beyond its end.
class cursor {
 public:
  explicit cursor(std::string_view bytes) : rest_(bytes) {}
  std::string_view bytes(std::size_t n) {
    const std::string_view field = rest_.substr(0, n);
    rest_.remove_prefix(field.size());
    return field;
  }
  std::uint32_t number() {
    std::uint32_t value = 0;
    const std::string_view field = bytes(sizeof value);
    std::memcpy(&value, field.data(), field.size());
    return value;
  }
  std::string text() {
    const std::string_view field = rest_.substr(0, rest_.find('\0'));
    rest_.remove_prefix(std::min(rest_.size(), field.size() + 1));
    return visible(std::string(field));
  }
  std::string identifier() { return cursor(bytes(43)).text(); }

 private:
  std::string_view rest_;
};

static void show_record(cursor body) {
  (void)body.number();
  const std::string id = body.identifier(), associated = body.identifier();
  (void)body.number();
  const std::string process = body.text();
  const std::uint32_t pid = body.number(), parent = body.number();
  (void)body.number();
  const std::string source = body.text(), version = body.text(), product = body.text();
  const std::uint32_t line = body.number();
  const std::string catalogue = body.text();
  const std::uint32_t set = body.number(), message = body.number();
  const std::string description = body.text();
  std::printf("  %s\n", id.c_str());
  if (!associated.empty()) std::printf("    follows from  %s\n", associated.c_str());
  std::printf("    process       %s[%u], parent %u\n", process.c_str(), pid, parent);
  std::printf("    detected in   %s %s:%u (%s)\n", product.c_str(), source.c_str(), line, version.c_str());
  std::printf("    message       %s %u/%u \"%s\"\n", catalogue.c_str(), set, message, description.c_str());
  for (std::uint32_t left = std::min(body.number(), 128U); left > 0; --left) {
    const std::uint32_t type = body.number();
    if (type == 5) {
      std::printf("    argument      %s\n", body.text().c_str());
    } else {
      const std::uint32_t low = body.number();
      (void)body.number();
      std::printf("    argument      %u\n", low);
    }
  }
  const std::string detail = body.text();
  std::printf("    detail        %s\n", detail.c_str());
  if (detail.rfind("/var/adm/vosk/dumps/", 0) == 0) show_file(detail, 20);
}

void show_stack(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // The stack is younger than its file is long: it has not wrapped, so lengths lead from record to record.
  for (std::size_t at = 24; at + 8 < bytes.size();) {
    const std::uint32_t length = cursor(std::string_view(bytes).substr(at)).number();
    if (length == 0 || length > 1016) break;
    show_record(cursor(std::string_view(bytes).substr(at + 8, length)));
    at += 8 + std::size_t{length};
  }
}

}  // namespace demo
