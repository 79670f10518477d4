// vosk show: what an identifier says, and the record that it belongs to, or why it cannot be shown.

#include "coverage.h"
#include "exit_status.h"
#include "identifier_text.h"
#include "output.h"
#include "reader/verdict.h"
#include "record_text.h"
#include "verbs.h"

namespace vosk {

namespace {

class presenter {
 public:
  presenter(const common_options &common, const show_options &options)
      : common_(common), eid_(options.identifier), out_(common, true) {}

  output &out() { return out_; }

  void print_verdict(const verdict &given, const identifier *id, node_test node) {
    if (common_.json) {
      print_verdict_json(given, id, node);
      return;
    }
    out_.line(out_.painted(style::identifier, out_.safe(eid_)));
    if (id != nullptr)
      for (const labelled &field : identifier_fields(*id, node, common_)) print_field(field.label, field.value);
    const bool good = given.kind == verdict_kind::present;
    print_field("Verdict", out_.painted(good ? style::note : style::damage, std::string(name_of(given.kind)) + ": " +
                                                                                std::string(sentence_of(given.kind))));
    for (const evidence &fact : given.facts) print_field(label_of(fact.name), out_.safe(text_of(fact)));
  }

  void print_record(const found_record &found) {
    const placed_record r{&found.file->path, found.what};
    const std::string description = descriptions_.description(*found.what);
    if (common_.json) {
      json_line line("record");
      record_members(line, r, description);
      out_.write(line.take());
    } else {
      out_.line("");
      out_.write(verbose_block(out_, common_, r, description));
    }
  }

 private:
  void print_verdict_json(const verdict &given, const identifier *id, node_test node) {
    json_line line("verdict");
    line.text("identifier", eid_).text("verdict", name_of(given.kind));
    if (id != nullptr) identifier_members(line, *id, node);
    line.array("evidence", given.facts, [&](const evidence &fact, std::string &text) {
      json_object object(text);
      if (const auto *number = std::get_if<std::size_t>(&fact.value))
        object.number(fact.name, *number);
      else if (const auto *at = std::get_if<moment>(&fact.value))
        object.text(fact.name, utc_time_text(at->seconds, static_cast<std::uint32_t>(at->microseconds)));
      else
        object.text(fact.name, std::get<std::string>(fact.value));
      object.close();
    });
    out_.write(line.take());
  }

  void print_field(const std::string &label, const std::string &value) {
    std::string line = "  " + label;
    line.resize(18, ' ');
    out_.line(line + value);
  }

  static std::string label_of(std::string name) {
    for (char &c : name)
      if (c == '_') c = ' ';
    name[0] = static_cast<char>(name[0] - 'a' + 'A');
    return name;
  }

  std::string text_of(const evidence &fact) const {
    if (const auto *number = std::get_if<std::size_t>(&fact.value)) return std::to_string(*number);
    if (const auto *at = std::get_if<moment>(&fact.value))
      return time_text(at->seconds, static_cast<std::uint32_t>(at->microseconds),
                       common_.utc ? zone::utc : zone::local);
    return std::get<std::string>(fact.value);
  }

  const common_options &common_;
  const std::string &eid_;
  output out_;
  describer descriptions_;
};

// The node's own stacks are looked through even where the address is another one: it may have changed.
search_places places_for(const common_options &common, const show_options &options, node_test node) {
  search_places places;
  if (!options.node_only || node == node_test::this_node) places.node_stacks = kStackDirectory;
  places.others = common.copies;
  const char *const own = std::getenv("VOSKSTACK");
  if (own != nullptr && *own != '\0' &&
      std::string_view(own).substr(0, std::string_view(own).rfind('/')) != kStackDirectory)
    places.others.emplace_back(own);
  return places;
}

}  // namespace

int show(const common_options &common, const show_options &options) {
  exit_status status;
  presenter to(common, options);
  std::string why;
  const auto id = decode_identifier(options.identifier, &why);
  if (!id || !is_whole_identifier(options.identifier)) {
    if (why.empty()) why = "its microseconds or its address are not valid";
    to.print_verdict({verdict_kind::not_an_identifier, {{"reason", why}}}, nullptr, node_test::not_told);
    status.not_found = true;
  } else {
    const node_test node = test_node(*id, addresses_of_this_node());
    record_search search(options.identifier);
    const verdict given = judge(*id, node, places_for(common, options, node), search);
    to.print_verdict(given, &*id, node);
    for (std::size_t i = 0; i < search.found().size(); ++i) {
      const found_record &r = search.found()[i];
      const bool shown_already = i > 0 && same_record(r, search.found()[0]);
      if (!shown_already) to.print_record(r);
      if (!r.what->intact) status.damage = true;
    }
    if (given.kind == verdict_kind::not_searched)
      status.failure = true;
    else if (search.found().empty())
      status.not_found = true;
  }
  if (!to.out().finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
