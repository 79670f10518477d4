#include "log_text.h"

#include "field_text.h"
#include "reader/escape.h"
#include "reader/identifier.h"
#include "reader/moment.h"

namespace vosk {

namespace {

void optional_text(json_object &object, std::string_view name, const std::string &value) {
  if (!value.empty()) object.text(name, value);
}

void identifier_member(json_object &object, std::string_view name, const std::string &value) {
  if (value.empty())
    object.null(name);
  else
    object.text(name, value);
}

}  // namespace

std::string process_text(const output &out, const log_record &r) {
  return or_dash(out.safe(r.process)) + "[" + number_text(r.pid) + "]";
}

std::string source_text(const output &out, const log_record &r) {
  return r.file_line ? out.safe(r.file) + ":" + std::to_string(*r.file_line) : or_dash(out.safe(r.location));
}

std::string log_block(const output &out, const common_options &common, const log_record &r) {
  const identifier id = *decode_identifier(r.eid);
  std::string block = out.painted(style::note, "Record in line " + std::to_string(r.line) + " of " +
                                                   out.safe(r.source) + (r.complete ? "" : ", cut")) +
                      "\n";
  add_field(block, "Identifier", out.painted(style::identifier, r.eid));
  add_field(block, "Follows from", or_dash(out.safe(r.reference)));
  add_field(block, "Time", time_text(id.seconds, id.microseconds, common.utc ? zone::utc : zone::local));
  add_field(block, "Node", id.address->text());
  add_field(block, "Process", process_text(out, r) + (r.host.empty() ? "" : ", host " + out.safe(r.host)));
  if (r.file_line) {
    add_field(block, "Product", or_dash(out.safe(r.product)));
    add_field(block, "Source", source_text(out, r) + ", version " + or_dash(out.safe(r.version)));
  } else {
    add_field(block, "Location", or_dash(out.safe(r.location)));
  }
  if (r.template_id) add_field(block, "Template", hex_text(*r.template_id));
  add_field(block, "Description", or_dash(out.safe_lines(r.message)));
  add_field(block, "Detail", or_dash(out.safe(r.detail_file)));
  return block;
}

void log_members(json_object &object, const log_record &r) {
  object.text("log", r.source).number("log_line", r.line).boolean("complete", r.complete);
  identifier_member(object, "identifier", r.eid);
  identifier_member(object, "associated", r.reference);
  if (const auto id = decode_identifier(r.eid)) {
    object.text("time", utc_time_text(id->seconds, id->microseconds)).number("seconds", id->seconds);
    if (id->microseconds) object.number("microseconds", *id->microseconds);
    if (id->address) object.text("node", id->address->text());
  }
  optional_text(object, "host", r.host);
  object.text("process", r.process);
  if (r.pid) object.number("pid", *r.pid);
  object.text("location", r.location);
  if (r.file_line) {
    object.text("product", r.product).text("source", r.file).text("version", r.version);
    object.number("line", *r.file_line);
  }
  if (r.template_id) object.number("template", *r.template_id);
  optional_text(object, "detail", r.detail_file);
  object.text("description", r.message);
}

void print_unreadable_logs(output &out, const common_options &common, const log_findings &found, bool asked_for,
                           exit_status &status) {
  const auto print = [&](const std::string &name, const std::string &reason) {
    if (asked_for) status.failure = true;
    if (!common.json) {
      complain("cannot read " + escaped(name) + ": " + escaped(reason));
      return;
    }
    json_line line("unreadable");
    line.text("file", name).text("reason", reason);
    out.write(line.take());
  };
  for (const log_outcome &source : found.sources)
    if (source.result != outcome::read) print(source.source, source.reason);
  if (!found.too_many) return;
  status.failure = true;
  print("the rest of the logs", "they hold more recordings than can be looked at at once");
}

}  // namespace vosk
