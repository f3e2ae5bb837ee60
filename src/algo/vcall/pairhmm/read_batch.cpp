#include "algo/vcall/pairhmm/read_batch.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "algo/vcall/pairhmm/emission.h"

namespace {

template <typename Before>
void sortUnique(std::vector<int>& columns, Before before) {
  std::sort(columns.begin(), columns.end(), before);
  columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
}

}  // namespace

bool ReadBatch::fits(int maxRead, int maxHap) const {
  return double(maxRead) * (double(maxHap) + 2) * 2 * double(lanes()) * sizeof(float) <= kMaxBytes;
}

void ReadBatch::resize(int maxRead, int maxHap, const std::vector<std::span<const uint8_t>>& haplotypes) {
  const size_t lanes = this->lanes();
  positions_.resize(maxRead, 0, 0);
  max_hap_ = maxHap;
  slots_ = size_t(maxHap) + 2;
  plane_ = size_t(maxRead) * lanes;
  planSteps(haplotypes);
  std::array<bool, 256> occurs{};
  for (const auto& hap : haplotypes)
    for (const uint8_t letter : hap) occurs[letter] = true;
  letters_.clear();
  for (size_t letter = 0; letter < occurs.size(); ++letter)
    if (occurs[letter]) letters_.push_back(uint8_t(letter));
  columns_.reserve(slots_ * 2 * plane_);
  passing_.reserve(2 * plane_);
  numbers_.reserve(BatchTask::kNumbers * plane_);
  emissions_.reserve(letters_.size() * plane_);
  for (size_t k = 0; k < letters_.size(); ++k) emission_[letters_[k]] = emissions_.data() + k * plane_;
  for (auto* by_column : {&ended_, &started_}) by_column->reserve(slots_ * lanes);
  ends_.reserve(slots_ * lanes);
  scale_.fill(Positions::kInitialScale);
}

void ReadBatch::planSteps(const std::vector<std::span<const uint8_t>>& haplotypes) {
  // By column, from the left or from the right: the step that computes what is in the table now.
  std::vector<size_t> forward_by(slots_), backward_by(slots_);
  Halves halves;
  steps_.clear();
  for (const auto& hap : haplotypes) {
    const MiddleColumns c = halves.next(hap.data(), int(hap.size()));
    const size_t own = steps_.size();
    steps_.push_back({hap.data(), c, {}, {}});
    // By distance from the right; a step's own columns count from the left.
    const auto keepForward = [&](int j) {
      if (j > 0) steps_[forward_by[size_t(j)]].forward.push_back(j);
    };
    const auto keepBackward = [&](int k) {
      if (k == 0) return;
      Step& by = steps_[backward_by[size_t(k)]];
      by.backward.push_back(by.columns.length + 1 - k);
    };
    keepForward(c.prefix);
    keepBackward(c.length - c.last);
    std::fill(forward_by.begin() + c.prefix + 1, forward_by.begin() + c.cut + 1, own);
    std::fill(backward_by.begin() + c.length - c.last + 1, backward_by.begin() + c.length - c.cut + 1, own);
    keepForward(c.cut);
    keepBackward(c.length - c.cut);
  }
  for (Step& step : steps_) {
    sortUnique(step.forward, std::less<>());
    sortUnique(step.backward, std::greater<>());
  }
}

void ReadBatch::start(int length) {
  rows_ = length;
  reads_ = 0;
}

bool ReadBatch::add(int length, const uint8_t* read) {
  if (positions_.endless_gap_) return false;
  positions_.foldGapClosing(length);
  const size_t lanes = this->lanes(), lane = size_t(reads_++);
  const Positions& p = positions_;
  for (size_t i = 1; i <= size_t(rows_); ++i) {
    float* const to = numbers_.data() + (i - 1) * BatchTask::kNumbers * lanes + lane;
    const bool is_read = i <= size_t(length);
    to[0] = is_read ? p.mm_[i + 1] : 0;
    to[lanes] = is_read ? p.folded_mx_[i + 1] : 1;
    to[2 * lanes] = is_read ? p.folded_xx_[i + 1] : 1;
    to[3 * lanes] = is_read ? p.folded_my_[i] : 0;
    to[4 * lanes] = is_read ? p.yy_[i] : 0;
  }
  for (size_t k = 0; k < letters_.size(); ++k) {
    float* const to = emissions_.data() + k * plane_ + lane;
    for (size_t i = 0; i < size_t(length); ++i)
      to[i * lanes] = basesMatch(read[i], letters_[k]) ? p.match_emission_[i + 1] : p.mismatch_[i + 1];
    for (size_t i = size_t(length); i < size_t(rows_); ++i) to[i * lanes] = 0;
  }
  const float start = Positions::kInitialScale / static_cast<float>(max_hap_);
  border_[lane] = start * p.xm_[1];
  enter_right_[lane] = static_cast<double>(start) * p.xm_[1];
  return true;
}

void ReadBatch::run(void (*pass)(const BatchTask&), BatchTask& task, float* table, int way, int column,
                    const std::vector<int>& keep) {
  task.column = column;
  task.from = table + ptrdiff_t(column) * ptrdiff_t(columnSize());
  for (const int kept : keep)
    while (task.column != kept) {
      // Passes of much the same size: a narrow one takes as long for a column as a wide one for two.
      const int left = (kept - task.column) * way, passes = (left + kernel_.columns - 1) / kernel_.columns;
      task.count = (left + passes - 1) / passes;
      task.to = task.count < left ? passing_.data() : table + ptrdiff_t(kept) * ptrdiff_t(columnSize());
      pass(task);
      task.column += way * task.count;
      task.from = task.to;
    }
}

void ReadBatch::scoreStep(const Step& step, double* scores) {
  const size_t lanes = this->lanes(), column = columnSize();
  const MiddleColumns& c = step.columns;
  float *const forward = forwardColumns(), *const backward = backwardColumns(c.length);
  if (&step == steps_.data()) {
    std::fill_n(forward, column, 0.0F);
    std::fill_n(backward + size_t(c.length + 1) * column, column, 0.0F);
    std::fill_n(ended_.data(), lanes, 0.0);
    std::fill_n(started_.data(), lanes, 0.0);
  }
  BatchTask task;
  task.rows = rows_;
  task.hap = step.hap;
  task.numbers = numbers_.data();
  task.emission = emission_.data();
  task.ends = ends_.data();

  task.border = border_.data();
  run(kernel_.forward, task, forward, 1, c.prefix, step.forward);
  for (size_t at = size_t(c.prefix + 1) * lanes; at < size_t(c.cut + 1) * lanes; ++at)
    ended_[at] = ended_[at - lanes] + ends_[at];

  task.border = scale_.data();
  run(kernel_.backward, task, backward, -1, c.last + 1, step.backward);
  for (int j = c.last; j > c.cut; --j) {
    double* const sum = started_.data() + size_t(c.length + 1 - j) * lanes;
    for (size_t lane = 0; lane < lanes; ++lane)
      sum[lane] = sum[lane - lanes] + ends_[size_t(j) * lanes + lane];
  }

  alignas(64) std::array<double, kMaxLanes> matches, gaps;
  kernel_.join(forward + size_t(c.cut) * column, backward + size_t(c.cut + 1) * column, rows_, matches.data(),
               gaps.data());
  constexpr double scale = Positions::kInitialScale;
  static const double log10_scale = std::log10(scale);
  const double* const ended = ended_.data() + size_t(c.cut) * lanes;
  const double* const started = started_.data() + size_t(c.length - c.cut) * lanes;
  for (size_t lane = 0; lane < size_t(reads_); ++lane) {
    const double total =
        ended[lane] + (enter_right_[lane] * started[lane] + matches[lane] + gaps[lane]) / scale;
    scores[lane] = std::log10(total / c.length * max_hap_) - log10_scale;
  }
}
