#include "identifier_text.h"

#include <array>

#include "reader/moment.h"

namespace vosk {

namespace {

constexpr std::array<const char *, 24> kFacilities = {"kern",   "user",   "mail",   "daemon", "auth",     "syslog",
                                                      "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                                      "ntp",    "audit",  "alert",  "clock",  "local0",   "local1",
                                                      "local2", "local3", "local4", "local5", "local6",   "local7"};
constexpr std::array<const char *, 8> kPriorities = {"emerg",   "alert",  "crit", "err",
                                                     "warning", "notice", "info", "debug"};

std::string place_text(const identifier &id) {
  switch (id.where) {
    case location::stack:
      return "an Error Stack, i-node " + std::to_string(id.inode);
    case location::system_log:
      return std::string("the System Log, ") + kFacilities.at(id.facility) + "." + kPriorities.at(id.priority);
    case location::error_template:
      break;
  }
  return "the Error Log, template " + std::to_string(id.template_id);
}

const char *node_name(node_test node) {
  switch (node) {
    case node_test::this_node:
      return "this_node";
    case node_test::other_node:
      return "other_node";
    case node_test::not_told:
      break;
  }
  return "not_told";
}

std::string node_text(const identifier &id, node_test node) {
  const std::string address = id.address->text();
  switch (node) {
    case node_test::this_node:
      return address + ", this node";
    case node_test::other_node:
      return address + ", not an address of this node now";
    case node_test::not_told:
      break;
  }
  return address + ", which does not tell the node";
}

}  // namespace

std::vector<labelled> identifier_fields(const identifier &id, node_test node, const common_options &common) {
  return {{"Made", time_text(id.seconds, id.microseconds, common.utc ? zone::utc : zone::local)},
          {"Kept in", place_text(id)},
          {"Node", node_text(id, node)}};
}

void identifier_members(json_object &object, const identifier &id, node_test node) {
  object.number("version", id.version);
  switch (id.where) {
    case location::stack:
      object.text("location", "stack").number("inode", id.inode);
      break;
    case location::system_log:
      object.text("location", "system_log")
          .text("facility", kFacilities.at(id.facility))
          .text("priority", kPriorities.at(id.priority));
      break;
    case location::error_template:
      object.text("location", "error_template").number("template", id.template_id);
      break;
  }
  object.text("time", utc_time_text(id.seconds, id.microseconds)).number("seconds", id.seconds);
  object.number("microseconds", *id.microseconds);
  object.text("node", id.address->text()).text("node_test", node_name(node));
}

}  // namespace vosk
