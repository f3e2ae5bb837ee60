#include "base/text.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

std::string format(const char* form, ...) {
  va_list arguments;
  va_start(arguments, form);
  std::string text = formatList(form, arguments);
  va_end(arguments);
  return text;
}

std::string formatList(const char* form, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  char small[512];
  int length = vsnprintf(small, sizeof small, form, arguments);
  std::string text;
  if (length >= 0 && size_t(length) < sizeof small) {
    text.assign(small, length);
  } else if (length >= 0) {
    text.resize(length);
    vsnprintf(text.data(), text.size() + 1, form, again);
  }
  va_end(again);
  if (length < 0) throw std::runtime_error("Text cannot be formatted");
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (size_t from = 0;;) {
    size_t to = text.find(separator, from);
    pieces.emplace_back(text.substr(from, to == text.npos ? to : to - from));
    if (to == text.npos) return pieces;
    from = to + 1;
  }
}

std::map<std::string, std::string> parseKeyValues(std::string_view text) {
  std::map<std::string, std::string> values;
  for (const std::string& piece : split(text, ',')) {
    if (piece.empty()) continue;
    size_t equals = piece.find('=');
    values[piece.substr(0, equals)] = equals == piece.npos ? "" : piece.substr(equals + 1);
  }
  return values;
}

bool scanUnsigned(const char*& cursor, uint64_t limit, uint64_t& value) {
  while (isspace(static_cast<unsigned char>(*cursor))) ++cursor;
  if (!isdigit(static_cast<unsigned char>(*cursor))) return false;
  uint64_t sum = 0;
  for (; isdigit(static_cast<unsigned char>(*cursor)); ++cursor) {
    unsigned digit = *cursor - '0';
    sum = sum > (limit - digit) / 10 || digit > limit ? limit + 1 : sum * 10 + digit;
  }
  value = sum;
  return true;
}

bool parseReal(const std::string& text, double& value) {
  char* rest;
  value = strtod(text.c_str(), &rest);
  return rest != text.c_str() && rest == text.c_str() + text.size();
}

bool parseInteger(std::string_view text, int64_t low, int64_t high, int64_t& value) {
  int64_t number;
  if (!parseNumber(text, number) || number < low || number > high) return false;
  value = number;
  return true;
}
