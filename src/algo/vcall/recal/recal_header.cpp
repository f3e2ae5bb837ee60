#include "algo/vcall/recal/recal_header.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "base/text.h"

namespace {

constexpr size_t kPiece = 4095;  // bytes of a line that are read at once
constexpr std::string_view kFilterStart = "##FILTER=<ID=", kInfoStart = "##INFO=<ID=",
                           kColumnStart = "#CHROM";

// What stands between `start` and the next attribute; `line` begins with `start`.
std::string_view idOf(std::string_view line, std::string_view start) {
  line.remove_prefix(start.size());
  return line.substr(0, line.find_first_of(",>\r\n"));
}

bool isWhole(std::string_view piece) {
  return piece.ends_with('\n');
}

}  // namespace

RecalHeader::RecalHeader(std::string name, const RecalFilter& filter) : name_(std::move(name)) {
  const std::vector<Tranche>& tranches = filter.tranches;
  const char* const model = kModelNames[filter.model];
  for (size_t i = 0; i + 1 < tranches.size(); ++i)
    addFilter(tranches[i].name,
              format("Truth sensitivity tranche level for %s model at VQS Lod: %f <= x < %f", model,
                     tranches[i].minVQSLod, tranches[i + 1].minVQSLod));
  if (tranches.empty())
    addFilter(kLowVQSLod, format("VQSLOD < %f", filter.cutoff));
  else
    addFilter(tranches[0].name + "+", format("Truth sensitivity tranche level for %s model at VQS Lod < %f",
                                             model, tranches[0].minVQSLod));
  addFilter("PASS", "Passed all filters");
}

void RecalHeader::addFilter(const std::string& id, const std::string& description) {
  if (!filter_ids_.insert(id).second) return;
  filter_lines_.push_back(std::string(kFilterStart) + id + ",Description=\"" + description + "\">\n");
}

void RecalHeader::failRead(const IOHandle& stream, const std::string& path) const {
  throw std::runtime_error(name_ + ": Failed to read from file " + path + ", " + stream.error_text());
}

void RecalHeader::readInfoLines(IOHandle& stream, const std::string& path) {
  char buffer[kPiece];
  bool at_start = true;  // of a line
  for (;;) {
    const int64_t got = stream.read_until(buffer, kPiece, '\n');
    if (got < 0) failRead(stream, path);
    const std::string_view piece(buffer, size_t(got));
    if (at_start && !piece.starts_with("##")) return;
    if (at_start && isWhole(piece) && piece.starts_with(kInfoStart)) {
      const std::string text(piece.substr(0, piece.find_last_not_of("\r\n") + 1));
      info_lines_.emplace(idOf(piece, kInfoStart), text + "\n");
    }
    at_start = isWhole(piece);
    if (got == 0) return;
  }
}

bool RecalHeader::keeps(std::string_view line) {
  if (line.starts_with(kFilterStart)) return !filter_ids_.contains(idOf(line, kFilterStart));
  if (line.starts_with(kInfoStart))
    if (const auto same = info_lines_.find(idOf(line, kInfoStart)); same != info_lines_.end())
      info_lines_.erase(same);
  return true;
}

void RecalHeader::copy(IOHandle& input, const std::string& path, const std::string& commandLine,
                       const Sink& write) {
  char buffer[kPiece];
  bool at_start = true, keep = true, in_columns = false;
  for (;;) {
    const int64_t got = input.read_until(buffer, kPiece, '\n');
    if (got < 0) failRead(input, path);
    std::string_view piece(buffer, size_t(got));
    if (got == 0 || (at_start && piece[0] != '#'))
      throw std::runtime_error(name_ + ": No line of columns in the header of file " + path);
    if (at_start) {
      keep = keeps(piece);
      in_columns = piece.starts_with(kColumnStart);
    }
    if (at_start && in_columns) {
      for (const auto& [id, line] : info_lines_) write(line);
      for (const std::string& line : filter_lines_) write(line);
      write(commandLine);
    }
    at_start = isWhole(piece);
    if (piece.ends_with("\r\n")) {  // records are written without the carriage return, too
      piece.remove_suffix(2);
      if (keep) write(piece);
      piece = "\n";
    }
    if (keep) write(piece);
    if (at_start && in_columns) return;
  }
}
