// vosk list: a line for each stack.

#include <algorithm>

#include "coverage.h"
#include "exit_status.h"
#include "output.h"
#include "reader/detail_path.h"
#include "reader/originator.h"
#include "reader/reclamation.h"
#include "user_name.h"
#include "verbs.h"

namespace vosk {

namespace {

struct details_count {
  std::size_t cited = 0, missing = 0;
};

struct stack_line {
  const stack_file *file = nullptr;
  covered_time time;
  push_outlook outlook;
  std::string owner;
  std::optional<int> originator;  // its process id; nothing where the name does not tell
  bool alive = false;
  details_count details;
};

details_count count_details(const stack &contents) {
  details_count count;
  for (const record &r : contents.records) {
    const auto name = cited_copy(r.detail.value_or(""));
    if (!name) continue;
    ++count.cited;
    if (open_copy(kDumpDirectory, *name).result == outcome::missing) ++count.missing;
  }
  return count;
}

stack_line describe(const stack_file &file) {
  stack_line line;
  line.file = &file;
  line.time = covered_by(file.contents);
  line.outlook = next_push(file.contents);
  line.owner = user_name(file.facts.owner);
  // Of a copy neither process id nor detail files are those of this node.
  if (is_copy(file)) return line;
  if (const auto name = parse_stack_name(file.path)) {
    line.originator = name->pid;
    line.alive = is_alive(*name);
  }
  line.details = count_details(file.contents);
  return line;
}

void print_json(output &out, const stack_line &stack) {
  const vosk::stack &contents = stack.file->contents;
  json_line line("stack");
  line.text("file", stack.file->path).text("owner", stack.owner);
  if (stack.originator)
    line.number("originator", *stack.originator).boolean("originator_alive", stack.alive);
  else
    line.null("originator");
  line.boolean("copy", is_copy(*stack.file)).number("records", contents.records.size());
  coverage_members(line, stack.time);
  line.boolean("wrapped", contents.wrapped).number("damage", contents.damages.size());
  line.number("unreadable_bytes", contents.unreadable);
  line.number("detail_files", stack.details.cited).number("detail_files_missing", stack.details.missing);
  outlook_members(line, stack.outlook);
  out.write(line.take());
}

using cells = std::vector<std::string>;

cells text_cells(const output &out, const common_options &common, const stack_line &stack) {
  const vosk::stack &contents = stack.file->contents;
  const std::string &path = stack.file->path;
  const std::string directory = std::string(kStackDirectory) + "/";
  const bool here = path.starts_with(directory);
  std::string originator = "-";
  if (stack.originator) originator = std::to_string(*stack.originator) + (stack.alive ? " alive" : " gone");
  std::string details = std::to_string(stack.details.cited);
  if (stack.details.missing > 0) details += " (" + std::to_string(stack.details.missing) + " gone)";
  std::string next = "taken";
  if (!stack.outlook.taken()) next = "refused: " + stack.outlook.reason;
  if (stack.outlook.stopped_by == obstacle::reclamation) next += std::string("; ") + kRemedy;
  return {out.safe(here ? path.substr(directory.size()) : path),
          out.safe(stack.owner),
          originator,
          std::to_string(contents.records.size()),
          covered_text(stack.time.first, common),
          covered_text(stack.time.last, common),
          contents.wrapped ? "yes" : "no",
          std::to_string(contents.damages.size()),
          details,
          next};
}

void print_table(output &out, const std::vector<cells> &rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const cells &row : rows)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  for (const cells &row : rows) {
    std::string line;
    for (std::size_t i = 0; i + 1 < row.size(); ++i) line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    line += row.back();
    out.line(&row == &rows.front() ? out.painted(style::note, line) : line);
  }
}

}  // namespace

int list(const common_options &common, const list_options &options) {
  exit_status status;
  const collection found = read_names(names_to_list(options.names, common));
  output out(common, true);
  print_refused(out, common, found, status);
  std::vector<cells> rows{
      {"STACK", "OWNER", "ORIGINATOR", "RECORDS", "FROM", "TO", "WRAPPED", "DAMAGE", "DETAILS", "NEXT PUSH"}};
  bool any = false;
  for (const stack_file &file : found.stacks) {
    const stack_line stack = describe(file);
    if (options.failed && stack.outlook.taken()) continue;
    any = true;
    if (!file.contents.damages.empty()) status.damage = true;
    if (common.json)
      print_json(out, stack);
    else
      rows.push_back(text_cells(out, common, stack));
  }
  if (rows.size() > 1) print_table(out, rows);
  if (!any) status.not_found = true;
  if (!out.finish()) status.failure = true;
  return status.value();
}

}  // namespace vosk
