#include "algo/number_options.h"

#include <stdexcept>

#include "base/text.h"

namespace {

[[noreturn]] void refuse(const std::string& name, const char* option, const char* value) {
  throw std::invalid_argument(name + ": invalid " + option + " " + value);
}

}  // namespace

void NumberOptions::add(const char* option, const char* help, int& field, int low, int high) {
  parser_.add({option, required_argument, 0, help},
              [&name = name_, option, low, high, &field](const char* value) {
                int64_t number;
                if (!parseInteger(value, low, high, number)) refuse(name, option, value);
                field = int(number);
                return true;
              });
}

void NumberOptions::add(const char* option, const char* help, double& field, double low, double high) {
  parser_.add({option, required_argument, 0, help},
              [&name = name_, option, low, high, &field](const char* value) {
                double number;
                if (!parseReal(value, number) || !(number >= low && number <= high))
                  refuse(name, option, value);
                field = number;
                return true;
              });
}
