#include "algo/preprocess/qual_transform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <set>

#include "algo/preprocess/empirical_quality.h"
#include "algo/preprocess/quantization.h"
#include "algo/preprocess/recal_table.h"
#include "base/text.h"

namespace {

constexpr int kTextOffset = 33;  // of BI and BD
constexpr int kHighest = kRecalQualities - 1;
constexpr uint8_t kNoQuality = 0xff;

bool refuse(const char* what, const std::string& value) {
  fprintf(stderr, "%s %s\n", what, value.c_str());
  return false;
}

bool parseLevels(const std::string& text, std::vector<int>& levels) {
  levels.clear();
  if (text.empty()) {
    fputs("Warning: the static quantization level is 0!\n", stderr);
    return true;
  }
  for (const std::string& word : split(text, '/')) {
    int level;
    if (!parseNumber(word, level)) return refuse("Invalid level", word);
    if (level < 0) return refuse("Negative level", word);
    if (level > kHighest) return refuse("Too high level", word);
    levels.push_back(level);
  }
  return true;
}

}  // namespace

bool QualCalParams::parse(const std::string& text) {
  for (const auto& [key, value] : parseKeyValues(text)) {
    if (key == "table") {
      table = value;
    } else if (key == "prior") {
      if (!parseNumber(value, prior) || !std::isfinite(prior)) return refuse("Invalid prior val", value);
    } else if (key == "min_qual") {
      if (!parseNumber(value, min_qual)) return refuse("Invalid min_qual val", value);
    } else if (key == "indel") {
      if (value != "true" && value != "false") return refuse("Unknown indel val", value);
      indel = value == "true";
    } else if (key == "levels") {
      if (!parseLevels(value, levels)) return false;
    } else if (key == "rounding") {
      if (value != "up" && value != "down") return refuse("Unknown rounding val", value);
      round_down = value == "down";
    } else {
      return refuse("Unknown param", key);
    }
  }
  if (table.empty()) fputs("Missing table param\n", stderr);
  return !table.empty();
}

namespace {

// New qualities of one kind of event. Empirical qualities are whole numbers, so each cell needs a byte: the quality
// by reported one and context, and what the cycle adds. One more row serves qualities that the table cannot hold.
class EventQualities {
 public:
  EventQualities(const RecalGroup& group, RecalEvent event, const RecalArguments& arguments, double prior,
                 const std::vector<uint8_t>& map)
      : context_count_((1u << 2 * RecalTable::contextSize(event, arguments)) + 1) {
    const RecalSum sum = group.sum(event);
    known_ = sum.counts.observations > 0;
    if (!known_) return;
    findCycleSpan(group, event, arguments.maximum_cycle_value);
    const int of_group = empiricalQuality(sum.counts, prior > 0 && event == kMismatch ? prior : sum.reported);
    contexts_.assign(size_t(kRecalQualities + 1) * context_count_, uint8_t(of_group));
    cycles_.assign(size_t(kRecalQualities + 1) * (cycle_count_ + 1), 0);
    for (int quality = 0; quality < kRecalQualities; quality++) {
      const RecalRow* row = group.find(event, quality);
      if (row && row->total.observations > 0) fillRow(*row, quality, of_group, arguments.maximum_cycle_value);
    }
    for (int i = 0; i < int(map_.size()); i++)
      map_[size_t(i)] = map[size_t(std::clamp(i - kMapZero, 1, kHighest))];
  }

  bool known() const { return known_; }

  // Replaces the qualities, which stand in text `offset` above their value, that are `min_qual` or more.
  void apply(uint8_t* qualities, int length, int offset, int min_qual, const uint16_t* contexts,
             const int32_t* cycles) const {
    // Copies, since a byte that is written might be part of any member.
    const uint8_t* by_context = contexts_.data();
    const int8_t* by_cycle = cycles_.data();
    const uint8_t* map = map_.data() + kMapZero;
    const uint32_t context_count = context_count_, cycle_count = cycle_count_,
                   lowest = uint32_t(lowest_cycle_);
    for (int i = 0; i < length; i++) {
      const int quality = qualities[i] - offset;
      if (quality < min_qual) continue;
      const uint32_t row = std::min(uint32_t(quality), uint32_t(kRecalQualities));
      // One comparison finds both cycles that are out of the span and those that are none.
      const uint32_t cycle = std::min(uint32_t(cycles[i]) - lowest, cycle_count);
      const int value =
          by_context[row * context_count + contexts[i]] + by_cycle[row * (cycle_count + 1) + cycle];
      qualities[i] = uint8_t(map[value] + offset);
    }
  }

 private:
  static constexpr int kMapZero = 64;  // sums of a quality of 0 to 60 and a change by at most as much

  void findCycleSpan(const RecalGroup& group, RecalEvent event, int limit) {
    int highest = -INT32_MAX;
    for (int quality = 0; quality < kRecalQualities; quality++) {
      const RecalRow* row = group.find(event, quality);
      if (!row) continue;
      for (int i = 0; i <= 2 * limit; i++) {
        if (row->cycles[size_t(i)].observations == 0) continue;
        lowest_cycle_ = std::min(lowest_cycle_, i - limit);
        highest = std::max(highest, i - limit);
      }
    }
    cycle_count_ = highest < lowest_cycle_ ? 0 : uint32_t(highest - lowest_cycle_ + 1);
  }

  void fillRow(const RecalRow& row, int quality, int of_group, int limit) {
    const int of_row = empiricalQuality(row.total, of_group);
    uint8_t* contexts = &contexts_[size_t(quality) * context_count_];
    std::fill_n(contexts, context_count_, uint8_t(of_row));
    for (size_t i = 0; i + 1 < context_count_; i++)
      if (row.contexts[i].observations > 0) contexts[i] = uint8_t(empiricalQuality(row.contexts[i], of_row));
    int8_t* cycles = &cycles_[size_t(quality) * (cycle_count_ + 1)];
    for (uint32_t i = 0; i < cycle_count_; i++) {
      const RecalCounts& cell = row.cycles[uint32_t(lowest_cycle_ + limit) + i];
      if (cell.observations > 0) cycles[i] = int8_t(empiricalQuality(cell, of_row) - of_row);
    }
  }

  uint32_t context_count_;
  bool known_ = false;
  int32_t lowest_cycle_ = INT32_MAX;
  uint32_t cycle_count_ = 0;
  std::vector<uint8_t> contexts_;      // [quality][context]
  std::vector<int8_t> cycles_;         // [quality][cycle - lowest], and one cell of 0 for all others
  std::array<uint8_t, 3 * 64> map_{};  // final quality of sum + kMapZero
};

}  // namespace

struct QualTransform::Group {
  Group(const RecalGroup& counted, const RecalArguments& made_with, int platform_index,
        const QualCalParams& params, const std::vector<uint8_t>& map)
      : arguments(made_with),
        platform(platform_index),
        min_qual(std::max(params.min_qual, 0)),
        indel(params.indel) {
    for (RecalEvent event : {kMismatch, kInsertion, kDeletion})
      if (event == kMismatch || indel) events.emplace_back(counted, event, arguments, params.prior, map);
  }

  RecalArguments arguments;
  int platform;
  int min_qual;
  bool indel;
  std::vector<EventQualities> events;
};

QualTransform::Groups QualTransform::load(const std::vector<QualCalParams>& params,
                                          const std::vector<ReadGroup>& read_groups) {
  Groups groups(read_groups.size());
  std::vector<bool> found(read_groups.size());
  std::set<std::string> unsupported;
  for (const QualCalParams& of_table : params) {
    RecalTable table;
    table.readText(of_table.table);
    const std::vector<uint8_t> map =
        of_table.levels.empty() ? table.quantized : staticQuantization(of_table.levels, of_table.round_down);
    for (size_t g = 0; g < read_groups.size(); g++) {
      const ReadGroup& read_group = read_groups[g];
      auto counted = std::find_if(table.groups.begin(), table.groups.end(),
                                  [&](const RecalGroup& group) { return group.name == read_group.id; });
      if (counted == table.groups.end()) continue;
      if (found[g]) {
        fprintf(stderr, "Warning: read group %s has a calibration table already, that of %s is not used\n",
                read_group.id.c_str(), of_table.table.c_str());
        continue;
      }
      found[g] = true;
      const int platform = platformIndex(read_group.platform);
      if (platform >= 0)
        groups[g] = std::make_shared<const Group>(*counted, table.arguments, platform, of_table, map);
      else if (unsupported.insert(read_group.platform).second)
        fprintf(stderr, "Warning: Unsupported platform: %s, no recalibration will be performed. \n",
                read_group.platform.c_str());
    }
  }
  for (size_t g = 0; g < read_groups.size(); g++)
    if (!found[g])
      fprintf(stderr, "Warning: read group %s is in no calibration table, its base qualities are kept\n",
              read_groups[g].id.c_str());
  return groups;
}

QualTransform::QualTransform(Groups groups) : groups_(std::move(groups)) {
  for (const auto& group : groups_) covariates_.emplace_back(group ? group->arguments : RecalArguments());
}

QualTransform::~QualTransform() = default;

bool QualTransform::needsBaseTags(int32_t read_group) const {
  const Group* group = groups_[size_t(read_group)].get();
  return group && group->indel;
}

Read* QualTransform::transform(Read* read) {
  const Group* group = groups_[size_t(read->read_group)].get();
  if (!group || read->length == 0 || read->quals[0] == kNoQuality) return read;
  Covariates& covariates = covariates_[size_t(read->read_group)];
  covariates.compute(*read, group->platform, group->indel);
  for (size_t e = 0; e < group->events.size(); e++) {
    const EventQualities& event = group->events[e];
    if (!event.known()) continue;
    uint8_t* qualities = e == kMismatch ? read->quals : e == kInsertion ? read->getBITag() : read->getBDTag();
    event.apply(qualities, read->length, e == kMismatch ? 0 : kTextOffset, group->min_qual,
                covariates.contexts(RecalEvent(e)).data(), covariates.cycles(RecalEvent(e)).data());
  }
  return read;
}
