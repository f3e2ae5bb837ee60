#include "algo/vcall/pairhmm/engine_simd.h"

#include <array>
#include <bit>
#include <limits>
#include <type_traits>

#include "algo/vcall/pairhmm/emission.h"

namespace {

// A base as a number that compares as the base does: NaN, which is unordered with all, for N.
template <typename T>
T baseCode(uint8_t base) {
  static const auto codes = [] {
    std::array<T, 256> table;
    for (size_t b = 0; b < table.size(); ++b) table[b] = static_cast<T>(b);
    table[kAnyBase] = std::numeric_limits<T>::quiet_NaN();
    return table;
  }();
  return codes[base];
}

}  // namespace

// The kernels weigh X(i, j) and Y(i, j) by xm[i+1], so that they go to M with a factor of 1. What comes in, mx and my, is
// multiplied by the weight, and xx by that of its row over that of the row above. The backward table is divided by the
// weights, which comes to the same factors. Row R and below, from where nothing goes to M, have weight 1.
template <typename T>
void EngineHRVector<T>::foldGapClosing(int R) {
  for (auto* folded : {&folded_mx_, &folded_xx_, &folded_my_}) folded->reserve(this->rows_ + 1);
  T above = this->xm_[1];
  for (size_t i = 1, end = size_t(R) + 16; i <= end; ++i) {
    const T weight = i < size_t(R) ? this->xm_[i + 1] : T(1);
    folded_mx_[i] = this->mx_[i] * weight;
    folded_my_[i] = this->my_[i] * weight;
    folded_xx_[i] = i > 1 ? this->xx_[i] * (weight / above) : T(0);
    above = weight;
  }
}

template <typename T>
double EngineHRVector<T>::score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap,
                                bool debug) {
  if (this->endless_gap_) return EngineHR<T>::score(readLen, read, hapLen, hap, debug);
  const int R = readLen;
  const auto columns = this->nextHaplotype(hap, hapLen);
  const auto stripe = static_cast<size_t>(kernel_.stripe);
  const size_t half = stripe / 2, slots = this->slots_, stripes = (size_t(R) + stripe - 1) / stripe;
  if (this->fresh_) {
    foldGapClosing(R);
    read_codes_.reserve(this->rows_ + 1);
    hap_codes_.reserve(2 * slots);
    for (int i = 1; i <= R; ++i) read_codes_[size_t(i)] = baseCode<T>(read[i - 1]);
    for (T* table : {this->match_.data(), this->gap_.data()})
      for (size_t s = 0; s < stripes; ++s) {
        T* begin = table + s * slots * stripe;
        std::fill_n(begin + (this->forwardSlot(0) - 1) * stripe, (stripe + 1) * stripe, T(0));
        std::fill_n(begin + this->backwardSlot(hapLen + 1, hapLen) * stripe, (stripe + 1) * stripe, T(0));
      }
  }
  T* const hap_codes = hap_codes_.data() + hapLen / 2 + this->kPad;
  T* const by_parity[2] = {hap_codes, hap_codes + slots};
  for (int j = columns.prefix + 1; j <= columns.last; ++j)
    by_parity[j & 1][-(j >> 1)] = baseCode<T>(hap[j - 1]);

  KernelTask<T> task;
  auto moveTables = [&](size_t column_0) {
    task.match = this->match_.data() + column_0 * stripe;
    task.gap = this->gap_.data() + column_0 * stripe;
  };
  task.slots = slots;
  task.line = this->line_.data() + this->kPad * half;
  task.rows = R;
  task.mm = this->mm_.data(), task.yy = this->yy_.data();
  task.mx = folded_mx_.data(), task.xx = folded_xx_.data(), task.my = folded_my_.data();
  task.xm = nullptr;
  task.match_emission = this->match_emission_.data(), task.mismatch = this->mismatch_.data();
  task.row_numbers = nullptr;
  task.read = read_codes_.data(), task.hap = nullptr;
  task.hap_by_parity[0] = by_parity[0], task.hap_by_parity[1] = by_parity[1];
  if (columns.prefix < columns.cut) {
    moveTables(this->forwardSlot(0));
    task.first = columns.prefix, task.last = columns.cut;
    task.border = this->start() * this->xm_[1];
    kernel_.forward(task);
    // Made-up rows hand down what they get, so the last row of the last stripe has what row R hands down.
    for (int j = columns.prefix + 1; j <= columns.cut; ++j) {
      const size_t slot = size_t(j) + stripe - 1;
      this->end_[size_t(j)] = task.line[slot * half + half - 1];
    }
  }
  if (columns.cut < columns.last) {
    moveTables(this->backwardSlot(0, hapLen));
    task.first = columns.cut, task.last = columns.last;
    task.border = this->kInitialScale;
    kernel_.backward(task);
  }
  auto cell = [slots, stripe, half, shift = std::countr_zero(stripe)](int i, size_t slot) {
    const size_t row = size_t(i - 1) & (stripe - 1);
    return (((size_t(i - 1) >> shift) * slots + slot + row) << shift) + row / 2 + (row & 1) * half;
  };
  auto emission = [&](int i, int j) {
    return basesMatch(read[i - 1], hap[j - 1]) ? this->match_emission_[size_t(i)]
                                               : this->mismatch_[size_t(i)];
  };
  return this->join(columns, R, this->xm_[1], cell, emission, debug);
}

template <typename T>
double EngineRHVector<T>::score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap,
                                bool debug) {
  static_assert(std::is_standard_layout_v<typename EngineRH<T>::Row> &&
                sizeof(typename EngineRH<T>::Row) == 8 * sizeof(T));
  const int R = readLen;
  const auto columns = this->nextHaplotype(hap, hapLen);
  const size_t slots = this->slots_;
  if (this->fresh_) {
    this->setBorders(R, hapLen);
    read_codes_.reserve(this->rows_ + 1);
    hap_codes_.reserve(slots);
    for (int i = 1; i <= R; ++i) read_codes_[size_t(i)] = baseCode<T>(read[i - 1]);
  }
  T* const hap_codes = hap_codes_.data() + this->kPad;
  for (int j = columns.prefix + 1; j <= columns.last; ++j) hap_codes[j] = baseCode<T>(hap[j - 1]);

  KernelTask<T> task = {};
  T* const line = task.line = this->line_.data() + this->kPad;
  task.slots = slots;
  task.rows = R;
  task.row_numbers = &this->row_[0].mm;
  task.read = read_codes_.data(), task.hap = hap_codes;
  if (columns.prefix < columns.cut) {
    task.match = this->match_.data() + this->forwardSlot(0);
    task.gap = this->gap_.data() + this->forwardSlot(0);
    task.first = columns.prefix, task.last = columns.cut;
    std::fill(line + columns.prefix + 1, line + columns.cut + 1, T(0));
    kernel_.forward(task);
    std::copy(line + columns.prefix + 1, line + columns.cut + 1, this->end_.data() + columns.prefix + 1);
  }
  if (columns.cut < columns.last) {
    task.match = this->match_.data() + this->backwardSlot(0, hapLen);
    task.gap = this->gap_.data() + this->backwardSlot(0, hapLen);
    task.first = columns.cut, task.last = columns.last;
    std::fill(line + columns.cut + 1, line + columns.last + 1, this->kInitialScale);
    kernel_.backward(task);
  }
  auto cell = [slots](int i, size_t slot) { return size_t(i) * slots + slot; };
  auto emission = [&](int i, int j) {
    const auto& row = this->row_[size_t(i)];
    return basesMatch(read[i - 1], hap[j - 1]) ? row.match : row.mismatch;
  };
  return this->join(columns, R, this->row_[1].xm, cell, emission, debug);
}

template <>
EngineHRSSE<float>::EngineHRSSE() : EngineHRVector(kStripedSseFloat) {}
template <>
EngineHRSSE<double>::EngineHRSSE() : EngineHRVector(kStripedSseDouble) {}
template <>
EngineHRAVX<float>::EngineHRAVX() : EngineHRVector(kStripedAvxFloat) {}
template <>
EngineHRAVX<double>::EngineHRAVX() : EngineHRVector(kStripedAvxDouble) {}
template <>
EngineRHSSE<float>::EngineRHSSE() : EngineRHVector(kRowSseFloat) {}
template <>
EngineRHSSE<double>::EngineRHSSE() : EngineRHVector(kRowSseDouble) {}
template <>
EngineRHAVX<float>::EngineRHAVX() : EngineRHVector(kRowAvxFloat) {}
template <>
EngineRHAVX<double>::EngineRHAVX() : EngineRHVector(kRowAvxDouble) {}

template class EngineHRVector<float>;
template class EngineHRVector<double>;
template class EngineRHVector<float>;
template class EngineRHVector<double>;
