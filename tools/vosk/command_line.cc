#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <optional>

#include "options.h"

namespace vosk {

namespace {

const CLI::App *verb_of(const CLI::App &app, std::string_view name) {
  const auto found = app.get_subcommands([&](const CLI::App *verb) { return verb->get_name() == name; });
  return found.empty() ? nullptr : found.front();
}

// True if the word behind `word` is its value, whatever that looks like.
bool takes_next_word(const CLI::App &verb, const std::string &word) {
  const CLI::Option *const option = word.starts_with('-') ? verb.get_option_no_throw(word) : nullptr;
  return option != nullptr && option->get_items_expected_min() > 0;
}

// "--detail=", where the value is empty.
bool is_emptied_option(const std::string &word) {
  return word.starts_with("--") && word.find('=') == word.size() - 1;
}

// "--detail=" as two words, since the argument library takes it for an option without a value.
void spell_out_empty_values(const CLI::App &app, std::vector<std::string> &words) {
  const CLI::App *verb = verb_of(app, words.at(0));
  for (std::size_t i = 1; verb != nullptr && i < words.size() && words[i] != "--"; ++i) {
    if (const CLI::App *const below = verb_of(*verb, words[i])) {
      verb = below;
    } else if (takes_next_word(*verb, words[i])) {
      ++i;
    } else if (is_emptied_option(words[i])) {
      words[i].pop_back();
      words.emplace(words.begin() + static_cast<std::ptrdiff_t>(++i));
    }
  }
}

}  // namespace

argument argument::required() const {
  option_->required();
  return *this;
}

argument argument::one_of(const std::vector<std::string> &values) const {
  option_->check(CLI::IsMember(values));
  return *this;
}

argument argument::between(int lowest, int highest) const {
  option_->check(CLI::Range(lowest, highest));
  return *this;
}

argument argument::excludes(argument other) const {
  option_->excludes(other.option_);
  return *this;
}

argument argument::needs(argument other) const {
  option_->needs(other.option_);
  return *this;
}

argument argument::value_optional() const {
  option_->expected(0, 1);
  return *this;
}

command_line::command_line(const std::string &program, const std::string &help, const std::string &version)
    : app_(std::make_shared<CLI::App>(help, program)) {
  app_->set_version_flag("--version", version);
  app_->get_formatter()->column_width(28);
}

command_line command_line::add_verb(const std::string &name, const std::string &help) {
  return command_line(app_->get_subcommand_ptr(app_->add_subcommand(name, help)));
}

void command_line::require_verb() {
  app_->require_subcommand(1);
}

void command_line::set_help(const std::string &help) {
  app_->description(help);
}

void command_line::set_footer(const std::string &text) {
  app_->footer(text);
}

template <class Value>
argument command_line::add(const char *names, Value &value, const char *help, const char *type) {
  return argument(app_->add_option(names, value, help)->type_name(type));
}

template argument command_line::add(const char *, std::string &, const char *, const char *);
template argument command_line::add(const char *, std::optional<std::string> &, const char *, const char *);
template argument command_line::add(const char *, std::optional<int> &, const char *, const char *);
template argument command_line::add(const char *, std::optional<std::size_t> &, const char *, const char *);
template argument command_line::add(const char *, std::vector<std::string> &, const char *, const char *);

argument command_line::add(const char *names, const std::function<void(const std::string &)> &take, const char *help,
                           const char *type) {
  return argument(app_->add_option_function(names, take, help)->type_name(type));
}

argument command_line::add_flag(const char *names, bool &given, const char *help) {
  return argument(app_->add_flag(names, given, help));
}

argument command_line::add_flag(const char *names, const std::function<void()> &when_given, const char *help) {
  return argument(app_->add_flag_callback(names, when_given, help));
}

template <class Value>
argument command_line::add_list(const char *names, std::vector<Value> &values, const char *help, const char *type) {
  return argument(app_->add_option(names, values, help)->allow_extra_args(false)->type_name(type));
}

template argument command_line::add_list(const char *, std::vector<std::string> &, const char *, const char *);
template argument command_line::add_list(const char *, std::vector<unsigned> &, const char *, const char *);

void command_line::before_words(const std::function<void()> &action) {
  app_->preparse_callback([action](std::size_t) { action(); });
}

void command_line::after_words(const std::function<void()> &action) {
  app_->parse_complete_callback(action);
}

bool command_line::parse(std::vector<std::string> words, bool empty_values) {
  if (empty_values) spell_out_empty_values(*app_, words);
  std::reverse(words.begin(), words.end());  // the parser takes the last one first
  try {
    app_->parse(std::move(words));
    return true;
  } catch (const CLI::ParseError &error) {
    if (error.get_exit_code() != 0) throw usage_error(error.what());
    (void)app_->exit(error, std::cout, std::cerr);
    return false;
  }
}

bool command_line::called(std::string_view verb, std::string_view verb_below) const {
  const CLI::App *const app = verb_of(*app_, verb);
  if (app == nullptr || app->count() == 0) return false;
  return verb_below.empty() || app->got_subcommand(std::string(verb_below));
}

}  // namespace vosk
