// The binary form of a partial run, in the byte order of the machine. 32-bit words: magic, qualities (94), length of
// the arguments' text, number of groups; the arguments as "name<tab>value<newline>" lines; for each group the length
// of its name, its number of cells, and the name. Then all cells with observations, group by group: a word
// quality << 24 | event << 22 | kind << 20 | index (kind 0 row, 1 context, 2 cycle), and 64-bit observations and errors.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "algo/preprocess/recal_table.h"
#include "base/plain_file.h"
#include "base/text.h"

namespace {

constexpr uint32_t kMagic = 0x014c4351;  // "QCL" and a version
// Longer texts are not what writePart() writes.
constexpr uint32_t kMaxText = 1u << 16;
enum CellKind : uint32_t { kRow, kContextCell, kCycleCell };

uint32_t cellKey(int quality, RecalEvent event, CellKind kind, size_t index) {
  return uint32_t(quality) << 24 | uint32_t(event) << 22 | uint32_t(kind) << 20 | uint32_t(index);
}

// Calls visit(key, counts) for each cell that has observations.
template <class Visit>
void visitCells(const RecalGroup& group, Visit visit) {
  for (RecalEvent event : {kMismatch, kInsertion, kDeletion}) {
    for (int quality = 0; quality < kRecalQualities; quality++) {
      const RecalRow* row = group.find(event, quality);
      if (!row) continue;
      auto visitCell = [&](CellKind kind, size_t index, const RecalCounts& counts) {
        if (counts.observations > 0) visit(cellKey(quality, event, kind, index), counts);
      };
      visitCell(kRow, 0, row->total);
      for (size_t i = 0; i < row->contexts.size(); i++) visitCell(kContextCell, i, row->contexts[i]);
      for (size_t i = 0; i < row->cycles.size(); i++) visitCell(kCycleCell, i, row->cycles[i]);
    }
  }
}

class PartReader {
 public:
  explicit PartReader(const std::string& path) : path_(path), file_(open_plain_file(path.c_str())) {
    if (!file_) throw std::runtime_error("Error: failed to open part file " + path);
  }

  RecalTable read() {
    RecalTable table;
    if (word() != kMagic || word() != kRecalQualities) fail();
    const uint32_t arguments_length = word(), group_count = word();
    for (const std::string& line : split(text(arguments_length), '\n')) {
      const size_t tab = line.find('\t');
      if (line.empty()) continue;
      if (tab == std::string::npos || !table.arguments.set(line.substr(0, tab), line.substr(tab + 1))) fail();
    }
    std::vector<uint32_t> cell_counts;
    for (uint32_t g = 0; g < group_count; g++) {
      const uint32_t name_length = word();
      cell_counts.push_back(word());
      table.groups.emplace_back(text(name_length));
    }
    for (size_t g = 0; g < table.groups.size(); g++)
      for (uint32_t i = 0; i < cell_counts[g]; i++) readCell(table.groups[g], table.arguments);
    if (fgetc(file_.get()) != EOF) fail();
    return table;
  }

 private:
  [[noreturn]] void fail() const {
    throw std::runtime_error("File " + path_ + " is not a partial calibration table");
  }
  void get(void* to, size_t size) {
    if (size > 0 && fread(to, 1, size, file_.get()) != size)
      throw std::runtime_error("File " + path_ + " terminated unexpectedly");
  }
  uint32_t word() {
    uint32_t value;
    get(&value, sizeof value);
    return value;
  }
  std::string text(uint32_t length) {
    if (length > kMaxText) fail();
    std::string text(length, '\0');
    get(text.data(), length);
    return text;
  }
  void readCell(RecalGroup& group, const RecalArguments& arguments) {
    const uint32_t key = word();
    RecalCounts counts;
    get(&counts.observations, sizeof counts.observations);
    get(&counts.errors, sizeof counts.errors);
    const uint32_t quality = key >> 24, event = key >> 22 & 3, kind = key >> 20 & 3, index = key & 0xfffff;
    if (quality >= kRecalQualities || event >= kRecalEvents || kind > kCycleCell) fail();
    if (counts.observations > RecalCounts::kMostObservations || counts.errors < 0 ||
        uint64_t(counts.errors >> RecalCounts::kFractionBits) > counts.observations)
      fail();
    RecalRow* const row = rows_.row(group, RecalEvent(event), int(quality), arguments);
    if (!row) fail();
    std::vector<RecalCounts>& cells = kind == kContextCell ? row->contexts : row->cycles;
    if (index >= (kind == kRow ? 1 : cells.size())) fail();
    (kind == kRow ? row->total : cells[index]) += counts;
  }

  const std::string& path_;
  FileOwner file_;
  RowsOfFile rows_;
};

}  // namespace

void RecalTable::writePart(const std::string& path) const {
  if (path.empty()) return;
  FileOwner file(fopen(path.c_str(), "we"));
  if (!file) throw std::runtime_error("Error: failed to open part file " + path);
  auto put = [&](const void* from, size_t size) { fwrite(from, 1, size, file.get()); };
  auto putWord = [&](size_t value) {
    const auto word = uint32_t(value);
    put(&word, sizeof word);
  };

  std::string text;
  for (const auto& [name, value] : arguments.rows())
    text.append(name).append("\t").append(value).append("\n");
  putWord(kMagic);
  putWord(kRecalQualities);
  putWord(text.size());
  putWord(groups.size());
  put(text.data(), text.size());
  for (const RecalGroup& group : groups) {
    size_t cells = 0;
    visitCells(group, [&](uint32_t, const RecalCounts&) { cells++; });
    putWord(group.name.size());
    putWord(cells);
    put(group.name.data(), group.name.size());
  }
  for (const RecalGroup& group : groups) {
    visitCells(group, [&](uint32_t key, const RecalCounts& counts) {
      putWord(key);
      put(&counts.observations, sizeof counts.observations);
      put(&counts.errors, sizeof counts.errors);
    });
  }
  if (!close_written(std::move(file)))
    throw std::runtime_error("Error: failed to write part file " + path + ": " + strerror(errno));
}

void RecalTable::addPart(const std::string& path) {
  RecalTable part = PartReader(path).read();
  if (groups.empty()) {
    *this = std::move(part);
    return;
  }
  bool same = arguments == part.arguments && groups.size() == part.groups.size();
  for (size_t g = 0; same && g < groups.size(); g++) same = groups[g].name == part.groups[g].name;
  if (!same)
    throw std::runtime_error("File " + path +
                             " is of other read groups or settings than the files before it");
  *this += part;
}
