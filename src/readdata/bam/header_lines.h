// header_lines.h - the lines of a SAM header text, one after the other.
// Forgiving: lines end in LF or CRLF, empty ones are skipped, the text ends at a zero byte, and what is not
// of the form XX:value is left out of the fields. Memory is that of one line.
// Source   the SAM format document.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct HeaderLine {
  std::string_view text;                                              // the whole line without its end
  std::string_view type;                                              // "@SQ"; up to the first tab
  std::vector<std::pair<std::string_view, std::string_view>> fields;  // two-letter key, value

  // The first field of that key; empty when it is absent or has no value.
  std::string_view value(std::string_view key) const;
};

// Views into the text that it was made of, which must outlive it and its lines.
class HeaderLines {
 public:
  explicit HeaderLines(std::string_view text);
  // To the next line; false at the end.
  bool next(HeaderLine& line);

 private:
  std::string_view rest_;
};

// Fields with each key once (the first one wins), as text of their own.
struct HeaderFields {
  explicit HeaderFields(const HeaderLine& line);
  // Replaces the value of a key that is there.
  void replace(const std::string& key, const std::string& value);
  // Equal for lines of equal fields in whatever order.
  std::string canonicalText() const;

  std::map<std::string, std::string> by_key;
  std::vector<std::pair<std::string, std::string>> ordered;
};

// "@XX\tKY:value..." without newline.
std::string headerLineText(std::string_view type,
                           const std::vector<std::pair<std::string, std::string>>& fields);
