#include "algo/vcall/pairhmm/engine_rh.h"

#include "algo/vcall/pairhmm/emission.h"

template <typename T>
void EngineRH<T>::resize(int maxRead, int maxHap, int gapLimit) {
  this->resizeTables(std::max(maxRead, gapLimit), maxHap);
  row_.reserve(this->rows_);
}

template <typename T>
void EngineRH<T>::setPosition(int length, int pos, int baseQual, int insQual, int delQual, int gcp) {
  const auto& tables = phredTables<T>();
  if (pos == 0) {
    this->newRead();
    row_[size_t(length) + 1] = {0, 0, 1, 1, 0, 0, 0, 0};
  }
  const T base_error = tables.pow10Neg[uint8_t(baseQual)], extend = tables.pow10Neg[uint8_t(gcp)];
  row_[size_t(pos) + 1] = {tables.stayMatched(uint8_t(insQual), uint8_t(delQual)),
                           1 - extend,
                           tables.pow10Neg[uint8_t(insQual)],
                           extend,
                           tables.pow10Neg[uint8_t(delQual)],
                           extend,
                           1 - base_error,
                           base_error / 3};
}

template <typename T>
void EngineRH<T>::setBorders(int R, int hapLen) {
  const size_t n = this->slots_, left = this->forwardSlot(0), right = this->backwardSlot(hapLen + 1, hapLen);
  for (T* table : {this->match_.data(), this->gap_.data()}) {
    for (int i = 0; i <= R + 1; ++i) table[size_t(i) * n + left] = table[size_t(i) * n + right] = 0;
    std::fill_n(table + size_t(R + 1) * n, n, T(0));
  }
  std::fill_n(this->match_.data(), n, this->start() * row_[1].xm);
}

template <typename T>
double EngineRH<T>::score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) {
  const int R = readLen;
  const auto columns = this->nextHaplotype(hap, hapLen);
  const size_t n = this->slots_;
  auto row = [n](AlignedBuffer<T>& table, int i, size_t slot) { return table.data() + size_t(i) * n + slot; };
  auto emission = [&](int i, int j) {
    return basesMatch(read[i - 1], hap[j - 1]) ? row_[size_t(i)].match : row_[size_t(i)].mismatch;
  };
  if (this->fresh_) setBorders(R, hapLen);
  T* X = this->line_.data();  // by column, what the row above hands down

  std::fill(X + columns.prefix + 1, X + columns.cut + 1, T(0));
  for (int i = 1; i <= R; ++i) {
    const Row &own = row_[size_t(i)], &next = row_[size_t(i) + 1];
    const size_t origin = this->forwardSlot(0);
    const T* to_match = row(this->match_, i - 1, origin);
    T *new_match = row(this->match_, i, origin), *new_gap = row(this->gap_, i, origin);
    T Y = new_gap[columns.prefix];
    for (int j = columns.prefix + 1; j <= columns.cut; ++j) {
      const T M = to_match[j - 1] * emission(i, j);
      new_match[j] = M * next.mm + (X[j] + Y) * next.xm;
      X[j] = M * next.mx + X[j] * next.xx;
      new_gap[j] = Y = M * own.my + Y * own.yy;
    }
  }
  std::copy(X + columns.prefix + 1, X + columns.cut + 1, this->end_.data() + columns.prefix + 1);

  std::fill(X + columns.cut + 1, X + columns.last + 1, this->kInitialScale);
  for (int i = R; i > 0; --i) {
    const Row &own = row_[size_t(i)], &next = row_[size_t(i) + 1];
    const size_t origin = this->backwardSlot(0, hapLen);
    const T* in_match = row(this->match_, i + 1, origin);
    T *new_match = row(this->match_, i, origin), *new_gap = row(this->gap_, i, origin);
    T Y = new_gap[columns.last + 1];
    for (int j = columns.last; j > columns.cut; --j) {
      const T entered = next.xm * in_match[j + 1];
      new_match[j] = emission(i, j) * (next.mm * in_match[j + 1] + next.mx * X[j] + own.my * Y);
      X[j] = entered + next.xx * X[j];
      new_gap[j] = Y = entered + own.yy * Y;
    }
  }
  return this->join(
      columns, R, row_[1].xm, [n](int i, size_t slot) { return size_t(i) * n + slot; }, emission, debug);
}

template class EngineRH<float>;
template class EngineRH<double>;
