// algo_option.h - option tables: one entry binds a name to a typed field, and the table drives getopt, the
// help text and the parsing.
// Numbers  decimal, cut to the range of int; what does not parse reads as 0, and text behind a number is not
//          looked at.
// Names    may be abbreviated. An option without its argument counts as an unknown one.
// Threads  used on the main thread only (getopt keeps static state).
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <getopt.h>
#include <initializer_list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

struct AlgoOption {
  const char* name;
  int has_arg;       // no_argument, required_argument, optional_argument
  int short_letter;  // 0 for none
  const char* help;  // null hides the option from every usage output; may hold newlines
};

class OptionParser {
 public:
  OptionParser() = default;
  OptionParser(const OptionParser&) = delete;  // the getopt table points into the object
  OptionParser& operator=(const OptionParser&) = delete;

  // Stores the argument (null for a flag). False ends the parsing; the setter has told why.
  using Setter = std::function<bool(const char* value)>;

  void add(const AlgoOption& option, Setter setter);

  // The common bindings. Texts given here must outlive the parser.
  void addFlag(const char* name, int short_letter, const char* help, bool& field);
  void addInt(const char* name, int short_letter, const char* help, int& field);
  void addDouble(const char* name, int short_letter, const char* help, double& field);
  void addText(const char* name, int short_letter, const char* help, std::string& field);
  void addList(const char* name, int short_letter, const char* help, std::vector<std::string>& field);

  enum Outcome { kOk, kUnknownOption, kRefused };
  // Runs getopt_long over args[1..count) from the start. With kOk, `positional` holds the other arguments in
  // order.
  Outcome parse(int count, const char* const args[], std::vector<const char*>& positional);
  // While parse() runs: the option in front of the one that is set now, whatever else stands between; empty for none.
  std::string_view previousOption() const { return previous_option_; }
  // An option that parse() has met more than once and that is none of the `repeatable`; empty for none.
  std::string_view doubledOption(std::initializer_list<std::string_view> repeatable) const;
  // The argument that parse() could not take.
  const std::string& faultyArgument() const { return faulty_argument_; }

  // Prints the entries that have help text, the text starting in column 24; `title` may be null.
  void print(FILE* stream, const char* title) const;

 private:
  struct Entry {
    AlgoOption option;
    Setter setter;
    int times = 0;  // that parse() has met it
  };
  void buildGetoptTable();
  Entry* entryOf(int getopt_answer);

  std::vector<Entry> entries_;
  // For getopt_long, made when first asked for after a change of the entries.
  std::vector<option> getopt_table_;
  std::string short_letters_;
  int long_choice_ = 0;
  std::string faulty_argument_, previous_option_;
};
