#include "algo/vcall/pairhmm/engine_hr.h"

#include "algo/vcall/pairhmm/emission.h"

template <typename T>
void EngineHR<T>::resize(int maxRead, int maxHap, int gapLimit) {
  this->resizeTables(std::max(maxRead, gapLimit), maxHap);
  for (auto* row_values : {&mm_, &xm_, &mx_, &xx_, &my_, &yy_, &match_emission_, &mismatch_})
    row_values->reserve(this->rows_ + 1);
}

template <typename T>
void EngineHR<T>::setPosition(int length, int pos, int baseQual, int insQual, int delQual, int gcp) {
  const auto& tables = phredTables<T>();
  if (pos == 0) {
    this->newRead();
    endless_gap_ = false;
    // Vector kernels go on to the end of their last block of up to 16 rows.
    for (size_t i = static_cast<size_t>(length) + 1, end = i + 16; i <= end; ++i) {
      mm_[i] = xm_[i] = my_[i] = yy_[i] = match_emission_[i] = mismatch_[i] = 0;
      mx_[i] = xx_[i] = 1;
    }
  }
  const size_t i = static_cast<size_t>(pos) + 1;
  if (pos > 0 && uint8_t(gcp) == 0) endless_gap_ = true;
  mm_[i] = tables.stayMatched(uint8_t(insQual), uint8_t(delQual));
  xm_[i] = 1 - tables.pow10Neg[uint8_t(gcp)];
  mx_[i] = tables.pow10Neg[uint8_t(insQual)];
  my_[i] = tables.pow10Neg[uint8_t(delQual)];
  xx_[i] = yy_[i] = tables.pow10Neg[uint8_t(gcp)];
  match_emission_[i] = 1 - tables.pow10Neg[uint8_t(baseQual)];
  mismatch_[i] = tables.pow10Neg[uint8_t(baseQual)] / 3;
}

template <typename T>
double EngineHR<T>::score(int readLen, const uint8_t* read, int hapLen, const uint8_t* hap, bool debug) {
  const int R = readLen;
  const auto columns = this->nextHaplotype(hap, hapLen);
  const size_t rows = this->rows_;
  auto column = [rows](AlignedBuffer<T>& table, size_t slot) { return table.data() + slot * rows; };
  auto emission = [&](int i, int j) {
    return basesMatch(read[i - 1], hap[j - 1]) ? match_emission_[size_t(i)] : mismatch_[size_t(i)];
  };
  const T *mm = mm_.data(), *xm = xm_.data(), *mx = mx_.data(), *xx = xx_.data(), *my = my_.data(),
          *yy = yy_.data();
  if (this->fresh_) {
    for (AlignedBuffer<T>* table : {&this->match_, &this->gap_}) {
      std::fill_n(column(*table, this->forwardSlot(0)), rows, T(0));
      std::fill_n(column(*table, this->backwardSlot(hapLen + 1, hapLen)), rows, T(0));
    }
    this->match_[this->forwardSlot(0) * rows] = this->start() * xm[1];
  }

  for (int j = columns.prefix + 1; j <= columns.cut; ++j) {
    const size_t slot = this->forwardSlot(j);
    const T *to_match = column(this->match_, slot - 1), *to_gap = column(this->gap_, slot - 1);
    T *new_match = column(this->match_, slot), *new_gap = column(this->gap_, slot);
    new_match[0] = to_match[0];
    T X = 0;
    for (int i = 1; i <= R; ++i) {
      const T M = to_match[i - 1] * emission(i, j), Y = to_gap[i];
      new_match[i] = M * mm[i + 1] + (X + Y) * xm[i + 1];
      new_gap[i] = M * my[i] + Y * yy[i];
      X = M * mx[i + 1] + X * xx[i + 1];
    }
    this->end_[size_t(j)] = X;
  }
  for (int j = columns.last; j > columns.cut; --j) {
    const size_t slot = this->backwardSlot(j, hapLen);
    const T *in_match = column(this->match_, slot + 1), *in_gap = column(this->gap_, slot + 1);
    T *new_match = column(this->match_, slot), *new_gap = column(this->gap_, slot);
    new_match[R + 1] = 0;
    T X = this->kInitialScale;
    for (int i = R; i > 0; --i) {
      const T entered = xm[i + 1] * in_match[i + 1], Y = in_gap[i];
      new_match[i] = emission(i, j) * (mm[i + 1] * in_match[i + 1] + mx[i + 1] * X + my[i] * Y);
      new_gap[i] = entered + yy[i] * Y;
      X = entered + xx[i + 1] * X;
    }
  }
  return this->join(
      columns, R, xm[1], [rows](int i, size_t slot) { return slot * rows + size_t(i); }, emission, debug);
}

template class EngineHR<float>;
template class EngineHR<double>;
