// Which records are wanted.
#ifndef TOOLS_VOSK_FILTER_H
#define TOOLS_VOSK_FILTER_H

#include <regex.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "options.h"
#include "reader/moment.h"
#include "reader/record.h"

namespace vosk {

// From `since` to `until`, both included where they are given.
struct time_window {
  std::optional<moment> since, until;
};

// The window that --since, --until and --around ask for. Throws usage_error.
time_window window_of(const record_filters &filters, zone where, moment now);

// All filters but the window: of those of one kind one has to match, of each kind that is given one does.
class record_filter {
 public:
  explicit record_filter(const record_filters &filters);  // throws usage_error

  bool selects(const record &r, const std::string &description) const;

 private:
  struct free_regex {
    void operator()(regex_t *regex) const {
      regfree(regex);
      std::default_delete<regex_t>()(regex);
    }
  };

  bool matches(const record &r, const std::string &description) const;
  bool matches_source(const record &r) const;
  bool matches_message(const record &r) const;
  bool matches_text(const record &r, const std::string &description) const;

  const record_filters &wanted_;
  std::vector<std::pair<unsigned, unsigned>> messages_;  // set, number
  std::vector<std::unique_ptr<regex_t, free_regex>> patterns_;
};

}  // namespace vosk

#endif
