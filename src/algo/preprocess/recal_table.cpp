#include "algo/preprocess/recal_table.h"

#include <cassert>
#include <cmath>

namespace {

size_t contextCells(RecalEvent event, const RecalArguments& arguments) {
  return (size_t(1) << 2 * RecalTable::contextSize(event, arguments)) + 1;
}

size_t cycleCells(const RecalArguments& arguments) {
  return 2 * size_t(arguments.maximum_cycle_value) + 2;
}

}  // namespace

RecalRow& RecalGroup::row(RecalEvent event, int quality, const RecalArguments& arguments) {
  std::unique_ptr<RecalRow>& row = rows_[event][quality];
  if (!row) {
    row = std::make_unique<RecalRow>();
    row->contexts.resize(contextCells(event, arguments));
    row->cycles.resize(cycleCells(arguments));
  }
  return *row;
}

RecalSum RecalGroup::sum(RecalEvent event) const {
  if (stated_[event]) return *stated_[event];
  RecalSum sum;
  double promised_errors = 0;
  for (int quality = 0; quality < kRecalQualities; quality++) {
    const RecalRow* row = find(event, quality);
    if (!row) continue;
    sum.counts += row->total;
    promised_errors += double(row->total.observations) * std::pow(10.0, -0.1 * quality);
  }
  if (sum.counts.observations > 0)
    sum.reported = -10 * std::log10(promised_errors / double(sum.counts.observations));
  return sum;
}

RecalRow* RowsOfFile::row(RecalGroup& group, RecalEvent event, int quality, const RecalArguments& arguments) {
  if (group.find(event, quality)) return &group.row(event, quality, arguments);
  const size_t bytes =
      sizeof(RecalRow) + (contextCells(event, arguments) + cycleCells(arguments)) * sizeof(RecalCounts);
  if (bytes > bytes_left_) return nullptr;
  bytes_left_ -= bytes;
  return &group.row(event, quality, arguments);
}

std::string contextText(size_t context, int size) {
  std::string text(size_t(size), ' ');
  for (int i = size; i-- > 0; context >>= 2) text[size_t(i)] = kContextBases[context & 3];
  return text;
}

RecalTable& RecalTable::operator+=(const RecalTable& other) {
  assert(groups.size() == other.groups.size() && arguments == other.arguments);
  auto add = [](std::vector<RecalCounts>& to, const std::vector<RecalCounts>& from) {
    for (size_t i = 0; i < to.size(); i++) to[i] += from[i];
  };
  for (size_t g = 0; g < groups.size(); g++) {
    assert(groups[g].name == other.groups[g].name);
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion}) {
      for (int quality = 0; quality < kRecalQualities; quality++) {
        const RecalRow* from = other.groups[g].find(event, quality);
        if (!from) continue;
        RecalRow& to = groups[g].row(event, quality, arguments);
        to.total += from->total;
        add(to.contexts, from->contexts);
        add(to.cycles, from->cycles);
      }
    }
  }
  return *this;
}
