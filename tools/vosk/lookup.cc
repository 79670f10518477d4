#include "lookup.h"

#include <cstdlib>

#include "identifier_text.h"
#include "reader/json.h"

namespace vosk {

namespace {

constexpr std::size_t kLabelWidth = 18;

// The node's own stacks are looked through even where the address is another one: it may have changed.
search_places places_for(const common_options &common, bool node_only, node_test node) {
  search_places places;
  if (!node_only || node == node_test::this_node) places.node_stacks = kStackDirectory;
  places.others = common.copies;
  const char *const own = std::getenv("VOSKSTACK");
  const std::string_view path = own != nullptr ? own : "";
  if (!path.empty() && path.substr(0, path.rfind('/')) != kStackDirectory) places.others.emplace_back(path);
  return places;
}

void print_field(output &out, const std::string &label, const std::string &value) {
  std::string line = "  " + label;
  line.resize(std::max(line.size(), kLabelWidth), ' ');
  out.line(line + value);
}

std::string label_of(std::string name) {
  for (char &c : name)
    if (c == '_') c = ' ';
  name[0] = static_cast<char>(name[0] - 'a' + 'A');
  return name;
}

std::string text_of(const evidence &fact, const common_options &common) {
  if (const auto *number = std::get_if<std::size_t>(&fact.value)) return std::to_string(*number);
  if (const auto *at = std::get_if<moment>(&fact.value))
    return time_text(at->seconds, static_cast<std::uint32_t>(at->microseconds), common.utc ? zone::utc : zone::local);
  return std::get<std::string>(fact.value);
}

void append_evidence(const evidence &fact, std::string &text) {
  json_object object(text);
  if (const auto *number = std::get_if<std::size_t>(&fact.value))
    object.number(fact.name, *number);
  else if (const auto *at = std::get_if<moment>(&fact.value))
    object.text(fact.name, utc_time_text(at->seconds, static_cast<std::uint32_t>(at->microseconds)));
  else
    object.text(fact.name, std::get<std::string>(fact.value));
  object.close();
}

}  // namespace

std::vector<std::string> logs_to_read(const common_options &common, const std::vector<std::string> &logs) {
  std::vector<std::string> names = logs.empty() ? std::vector<std::string>{"auto"} : logs;
  if (names == std::vector<std::string>{"none"}) return names;
  for (const std::string &copies : common.copies) {
    const std::vector<std::string> more = logs_of_collections(copies);
    names.insert(names.end(), more.begin(), more.end());
  }
  return names;
}

lookup look_up(const common_options &common, const std::string &text, const lookup_places &places) {
  lookup looked(text);
  std::string why = "its microseconds or its address are not valid";
  const auto id = decode_identifier(text, &why);
  if (!id || !is_whole_identifier(text)) {
    looked.judged = {verdict_kind::not_an_identifier, {{"reason", why}}};
    return looked;
  }
  looked.id = id;
  looked.node = test_node(*id, addresses_of_this_node());
  if (id->where == location::system_log) {
    looked.logged = places.already != nullptr ? recordings_of(*places.already, text)
                                              : find_log_records(logs_to_read(common, places.logs), text);
    looked.judged = judge_logged(looked.logged);
  } else {
    looked.judged = judge(*id, looked.node, places_for(common, places.node_only, looked.node), looked.search);
  }
  return looked;
}

void print_verdict(output &out, const common_options &common, const lookup &looked) {
  const verdict &given = looked.judged;
  if (common.json) {
    json_line line("verdict");
    line.text("identifier", looked.eid).text("verdict", name_of(given.kind));
    if (looked.id) identifier_members(line, *looked.id, looked.node);
    line.array("evidence", given.facts, append_evidence);
    out.write(line.take());
    return;
  }
  out.line(out.painted(style::identifier, out.safe(looked.eid)));
  if (looked.id)
    for (const labelled &field : identifier_fields(*looked.id, looked.node, common))
      print_field(out, field.label, field.value);
  const style colour = given.kind == verdict_kind::present ? style::note : style::damage;
  print_field(out, "Verdict",
              out.painted(colour, std::string(name_of(given.kind)) + ": " + std::string(sentence_of(given.kind))));
  for (const evidence &fact : given.facts) print_field(out, label_of(fact.name), out.safe(text_of(fact, common)));
}

void note_verdict(const lookup &looked, exit_status &status) {
  for (const found_record &r : looked.search.found())
    if (!r.what->intact) status.damage = true;
  if (looked.judged.kind == verdict_kind::not_searched || looked.judged.kind == verdict_kind::logs_not_readable)
    status.failure = true;
  else if (!looked.found())
    status.not_found = true;
}

}  // namespace vosk
