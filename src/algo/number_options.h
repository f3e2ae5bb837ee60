// number_options.h - options that are numbers in a range.
// Errors   std::invalid_argument that names option and value, `name` of the algorithm in front, for another text.
#pragma once

#include <climits>
#include <limits>
#include <string>

#include "algo/algo_option.h"

class NumberOptions {
 public:
  // Both, and the fields, outlive the parsing.
  NumberOptions(OptionParser& parser, const std::string& name) : parser_(parser), name_(name) {}

  // Ranges are inclusive; numbers are finite. `help` may be null.
  void add(const char* option, const char* help, int& field, int low = INT_MIN, int high = INT_MAX);
  void add(const char* option, const char* help, double& field,
           double low = std::numeric_limits<double>::lowest(),
           double high = std::numeric_limits<double>::max());

 private:
  OptionParser& parser_;
  const std::string& name_;
};
