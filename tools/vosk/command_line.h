// The command line of a program with verbs, as the arguments*.cc files describe it. The argument library behind it
// takes long to compile: command_line.cc alone includes it.
#ifndef TOOLS_VOSK_COMMAND_LINE_H
#define TOOLS_VOSK_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace vosk {

// What is added to a command line. The calls can follow each other: line.add(...).required().
class argument {
 public:
  argument required() const;
  argument one_of(const std::vector<std::string> &values) const;
  argument between(int lowest, int highest) const;
  argument excludes(argument other) const;
  argument needs(argument other) const;
  argument value_optional() const;

 private:
  friend class command_line;
  explicit argument(CLI::Option *option) : option_(option) {}
  CLI::Option *option_;
};

// The words that the program, or one of its verbs, takes. A copy is the same command line.
class command_line {
 public:
  command_line(const std::string &program, const std::string &help, const std::string &version);

  command_line add_verb(const std::string &name, const std::string &help);
  void require_verb();
  void set_help(const std::string &help);
  void set_footer(const std::string &text);  // what stands below the options in the help

  // `names`, such as "-o,--output", are those of an option; one without "-" is of a word at its place. A value is a
  // text, a number, an optional or a vector of them; `type` is what the help calls it.
  template <class Value>
  argument add(const char *names, Value &value, const char *help, const char *type = "");
  argument add(const char *names, const std::function<void(const std::string &)> &take, const char *help,
               const char *type);
  argument add_flag(const char *names, bool &given, const char *help);
  argument add_flag(const char *names, const std::function<void()> &when_given, const char *help);

  // An option that can be given several times, each time with one value.
  template <class Value>
  argument add_list(const char *names, std::vector<Value> &values, const char *help, const char *type);

  void before_words(const std::function<void()> &action);  // runs when the verb is found, before its words are read
  void after_words(const std::function<void()> &action);   // runs when they have been read

  // Reads the words. False where help or the version was asked for and is printed. Throws usage_error. With
  // `empty_values` the verb takes "--detail=" for an option whose value is empty, as scripts write it; without them the
  // option lacks its value.
  bool parse(std::vector<std::string> words, bool empty_values);

  // True if the words called the verb, up to where parse gave up.
  bool called(std::string_view verb, std::string_view verb_below = "") const;

 private:
  explicit command_line(std::shared_ptr<CLI::App> app) : app_(std::move(app)) {}
  std::shared_ptr<CLI::App> app_;
};

}  // namespace vosk

#endif
