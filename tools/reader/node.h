// The addresses of the node that the tools run on.
#ifndef TOOLS_READER_NODE_H
#define TOOLS_READER_NODE_H

#include <vector>

#include "identifier.h"

namespace vosk {

std::vector<node_address> addresses_of_this_node();

enum class node_test {
  this_node,
  other_node,  // or this one, before its address changed
  not_told,    // no address, a loopback address, or something else in its place
};

node_test test_node(const identifier &id, const std::vector<node_address> &addresses);

}  // namespace vosk

#endif
