// The description of a record: its message from the catalogue, in the reader's language, or its stored default text,
// with the stored arguments put in.
#ifndef TOOLS_READER_DESCRIPTION_H
#define TOOLS_READER_DESCRIPTION_H

#include <nl_types.h>

#include <map>
#include <string>

#include "record.h"

namespace vosk {

// `text` with the arguments in the place of its conversions, or as it stands where the arguments are not those that it
// takes. "%m" stays: the error number that it stood for is not stored.
std::string fill_in(const std::string &text, const std::vector<argument> &arguments);

// Opens each catalogue once. A catalogue's text is used only if its conversions are those of the default text, and its
// name only if it has no slash: a record cannot point anywhere else. For the superuser NLSPATH is ignored.
class describer {
 public:
  describer();
  describer(const describer &) = delete;
  describer &operator=(const describer &) = delete;
  ~describer();

  std::string description(const record &r);

 private:
  nl_catd open(const std::string &name);

  std::map<std::string, nl_catd> open_;
};

}  // namespace vosk

#endif
