// Finds identifiers in any text, at the speed of reading it.
#ifndef TOOLS_READER_IDENTIFIER_SCAN_H
#define TOOLS_READER_IDENTIFIER_SCAN_H

#include <cstdint>
#include <string_view>
#include <vector>

namespace vosk {

// Looks at every window of 42 digits, whatever stands beside it, and takes those in which every field is one that the
// library writes, with a time from 1990 to tomorrow. Of windows that overlap only one is taken: where the text around
// an identifier consists of digits, too, a shifted window can verify by chance.
class identifier_scanner {
 public:
  // `now`: seconds since the epoch.
  explicit identifier_scanner(std::int64_t now);

  // Appends the offsets of the identifiers in `text` to `found`, in order.
  void scan(std::string_view text, std::vector<std::size_t> &found) const;

  // The length of the part of `text` whose identifiers are known before more is read: those that begin in it lie in
  // `text`, and nothing that follows could make another window of theirs the better one. All but a few dozen bytes.
  static std::size_t complete_part(std::string_view text) noexcept;

 private:
  bool verifies(std::string_view window) const;

  std::int64_t latest_;
};

}  // namespace vosk

#endif
