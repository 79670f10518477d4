// What a whole identifier says, in text and JSON.
#ifndef TOOLS_VOSK_IDENTIFIER_TEXT_H
#define TOOLS_VOSK_IDENTIFIER_TEXT_H

#include <string>
#include <vector>

#include "options.h"
#include "reader/identifier.h"
#include "reader/json.h"
#include "reader/node.h"

namespace vosk {

struct labelled {
  std::string label, value;
};

// Made, kept in, node.
std::vector<labelled> identifier_fields(const identifier &id, node_test node, const common_options &common);

void identifier_members(json_object &object, const identifier &id, node_test node);

}  // namespace vosk

#endif
