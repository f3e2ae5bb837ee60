// A header's text: reading, writing, and telling whether a file has one.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "base/text.h"
#include "readdata/stream/open_stream.h"
#include "readdata/vcf/vcf_header.h"

namespace {

constexpr size_t kLineLimit = 4095;  // bytes
constexpr std::string_view kColumns = "#CHROM\tPOS\tID\tREF\tALT\tQUAL\tFILTER\tINFO";

// What a header may take in memory: a compressed file of a few MB can hold GB of short lines.
constexpr size_t kMaxHeaderBytes = size_t{256} << 20;
constexpr size_t kEntryBytes = 160;  // of containers, per line and per attribute

// `text` stands behind "##".
void parseMetaLine(std::string_view text, VCFHeader& header) {
  const size_t equals = text.find('=');
  const std::string_view key = text.substr(0, equals);
  if (equals != text.npos && text.substr(equals + 1).starts_with('<') && text.ends_with('>')) {
    VCFHeaderDef& def = header.defs[std::string(key)].emplace_back();
    const std::string_view interior = text.substr(equals + 2, text.size() - equals - 3);
    if (interior.empty()) return;
    for (const std::string& piece : split(interior, ',')) {
      if (piece.starts_with("ID="))
        def.id = piece.substr(3);
      else
        def.attrs.push_back(piece);
    }
  } else if (equals == text.npos || key != "fileformat") {
    header.lines.emplace_back(text);
  }
}

void parseColumnLine(std::string_view line, VCFHeader& header) {
  if (!line.starts_with(kColumns)) return;
  line.remove_prefix(kColumns.size());
  constexpr std::string_view format = "\tFORMAT\t";
  if (!line.starts_with(format)) return;
  header.samples = split(line.substr(format.size()), '\t');
}

}  // namespace

void VCFHeader::parse(IOHandle& stream) {
  lines.clear();
  samples.clear();
  defs.clear();
  char buffer[kLineLimit];
  size_t held = 0;
  while (true) {
    const int64_t begin = stream.seek(0, SEEK_CUR);
    int64_t got = stream.read_until(buffer, kLineLimit, '\n');
    if (got <= 0) return;
    if (buffer[0] != '#') {
      stream.seek(begin, SEEK_SET);
      return;
    }
    if (got == kLineLimit && buffer[got - 1] != '\n') {
      do {
        got = stream.read_until(buffer, kLineLimit, '\n');
      } while (got > 0 && buffer[got - 1] != '\n');
      continue;
    }
    std::string_view line(buffer, static_cast<size_t>(got));
    line = line.substr(0, line.find('\0'));
    line = line.substr(0, line.find_last_not_of("\r\t\n") + 1);
    held += line.size() + kEntryBytes * (2 + std::count(line.begin(), line.end(), ','));
    if (held > kMaxHeaderBytes) throw std::runtime_error("VCF header is too large");
    if (line.starts_with("##"))
      parseMetaLine(line.substr(2), *this);
    else
      parseColumnLine(line, *this);
  }
}

void VCFHeader::print(IOHandle& stream) {
  std::string text = "##fileformat=VCFv4.2\n";
  for (auto& [key, entries] : defs) {
    if (key == "FORMAT" || key == "INFO")
      std::stable_sort(entries.begin(), entries.end(),
                       [](const VCFHeaderDef& a, const VCFHeaderDef& b) { return a.id < b.id; });
    for (const VCFHeaderDef& def : entries) {
      text.append("##").append(key).append("=<ID=").append(def.id);
      for (const std::string& attr : def.attrs) text.append(",").append(attr);
      text += ">\n";
    }
  }
  for (const std::string& line : lines) text.append("##").append(line).append("\n");
  text += kColumns;
  if (!samples.empty()) text += "\tFORMAT";
  for (const std::string& sample : samples) text.append("\t").append(sample);
  text += '\n';
  stream.write(text.data(), text.size());
}

bool isVCF(const std::string& path) {
  const auto stream = openStream(path, "r");
  char magic[12];
  return stream && stream->read(magic, sizeof magic) == sizeof magic &&
         memcmp(magic, "##fileformat", 12) == 0;
}
