// text.h - small helpers on text: printf formatting into a string, splitting, key=value lists.
// Threads  pure functions.
#pragma once

#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// The text that printf would make of `form` and its arguments, of any length.
[[gnu::format(printf, 1, 2)]] std::string format(const char* form, ...);
[[gnu::format(printf, 1, 0)]] std::string formatList(const char* form, va_list arguments);

// `text` cut at every `separator`; an empty text gives one empty piece.
std::vector<std::string> split(std::string_view text, char separator);

// "key=value,key=value": pieces are cut at the comma and each at its first '='; a piece without '=' gets an
// empty value, an empty piece is dropped, and the last value of a key wins.
std::map<std::string, std::string> parseKeyValues(std::string_view text);

// Reads an unsigned decimal number, behind white space but without sign, and moves `cursor` behind its
// digits. False, with `cursor` behind the white space, when there are no digits. A number above `limit` is
// stored as limit + 1, and so shows itself; `limit` is below 2^64 - 1.
bool scanUnsigned(const char*& cursor, uint64_t limit, uint64_t& value);

// Whether all of `text` is a number as std::from_chars reads it: no blanks, no '+', in the range of its type. `value` is of
// use only then.
template <typename Number>
bool parseNumber(std::string_view text, Number& value) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end;
}

// The same as strtod reads it: with blanks in front, '+', hexadecimal, infinities, and what no double can hold.
bool parseReal(const std::string& text, double& value);

// Whether all of `text` is a decimal number in [low, high], with a '-' in front of it or no sign. Sets `value` only then.
bool parseInteger(std::string_view text, int64_t low, int64_t high, int64_t& value);
