// What each road answers when one of its platform calls fails, written down call by call.
#ifndef QX_TESTS_PROOF_FAULT_TABLE_H
#define QX_TESTS_PROOF_FAULT_TABLE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "proof/roads.h"
#include "support/stack_model.h"

namespace proof {

// What one fault changes, beside nothing at all.
struct Change {
  enum Stop {
    kGoesOn,    // the call does its work all the same
    kStops,     // nothing is written behind the fault
    kUndoes,    // the file that was being made is gone
    kStampsEnd  // the text line of a reservation lands behind the file instead of at its start
  } stop = kGoesOn;
  int code = 0;
  std::string report = {};     // the report that comes, "" for none; it takes the place of a final "no error"
  bool copy_fails = false;     // of the detail file
  std::string detail = {};     // what the record says then
  bool no_identifier = false;  // none is made
  std::string variables = {};  // of the environment: how many of the assignments were made, as digits "12345"
  bool socket_closed = false;  // the socket that otherwise stays open is closed, or was never opened
  bool not_on_node = false;    // the decoder finds no address of this node
  bool not_found = false;      // the decoder finds no file
};

// A call of a road that can fail.
struct Site {
  std::string call;
  bool writes = false;  // to the file that the road makes or changes: the next write of the model's list
  std::function<Change(int error)> fault;
  // When the call moves only `bytes` bytes; none where it moves no bytes.
  std::function<Change(long long bytes)> shortened = {};
};

std::vector<Site> sites_of(const Road &road);

// Calls that no document of the library names: whether they fail changes nothing.
bool is_check_of_our_own(const std::string &call);

}  // namespace proof

#endif
