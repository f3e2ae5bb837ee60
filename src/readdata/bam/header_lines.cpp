#include "readdata/bam/header_lines.h"

namespace {

// Cuts `rest` behind its first `separator` and returns what stood before it.
std::string_view takePiece(std::string_view& rest, char separator) {
  size_t at = rest.find(separator);
  std::string_view piece = rest.substr(0, at);
  rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + 1);
  return piece;
}

}  // namespace

std::string_view HeaderLine::value(std::string_view key) const {
  for (const auto& [name, value] : fields)
    if (name == key) return value;
  return {};
}

HeaderLines::HeaderLines(std::string_view text) : rest_(text.substr(0, text.find('\0'))) {}

bool HeaderLines::next(HeaderLine& line) {
  do {
    if (rest_.empty()) return false;
    line.text = takePiece(rest_, '\n');
    if (!line.text.empty() && line.text.back() == '\r') line.text.remove_suffix(1);
  } while (line.text.empty());

  std::string_view rest = line.text;
  line.type = takePiece(rest, '\t');
  line.fields.clear();
  while (!rest.empty()) {
    std::string_view field = takePiece(rest, '\t');
    if (field.size() >= 3 && field[2] == ':') line.fields.emplace_back(field.substr(0, 2), field.substr(3));
  }
  return true;
}

HeaderFields::HeaderFields(const HeaderLine& line) {
  for (const auto& [key, value] : line.fields)
    if (by_key.emplace(key, value).second) ordered.emplace_back(key, value);
}

void HeaderFields::replace(const std::string& key, const std::string& value) {
  by_key[key] = value;
  for (auto& field : ordered)
    if (field.first == key) field.second = value;
}

std::string HeaderFields::canonicalText() const {
  std::string text;
  for (const auto& [key, value] : by_key) text += key + ':' + value + '\t';
  return text;
}

std::string headerLineText(std::string_view type,
                           const std::vector<std::pair<std::string, std::string>>& fields) {
  std::string text(type);
  for (const auto& [key, value] : fields) text += '\t' + key + ':' + value;
  return text;
}
