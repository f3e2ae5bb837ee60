#include "algo/preprocess/base_alignment.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>
#ifdef __SSE2__
#include <xmmintrin.h>
#endif

namespace {

constexpr double kGapExtension = 0.1;
constexpr double kInsertedBase = 0.25;  // emission of an insertion state
constexpr int kQualities = 94;
constexpr int kPad = 8;           // zeros on either side of a row, so that its neighbours can be looked at
constexpr int kNarrowLanes = 16;  // of the fast path

// Probabilities of a base of quality q where it differs from the reference, and where it does not.
struct Emission {
  double differs, equals;
};
constexpr double kThird = 0.33333333333;

const std::array<Emission, kQualities>& emissions() {
  static const std::array<Emission, kQualities> table = [] {
    std::array<Emission, kQualities> made;
    for (int q = 0; q < kQualities; q++) {
      const double e = std::pow(10.0, -0.1 * std::max(q, BaseAlignment::kLowestQuality));
      made[size_t(q)] = {kThird * e, 1 - e};
    }
    return made;
  }();
  return table;
}

// A bit per base, all of them for a letter that is no base.
constexpr std::array<int32_t, 256> makeBits() {
  std::array<int32_t, 256> bits{};
  bits.fill(15);
  bits['A'] = bits['a'] = 1;
  bits['C'] = bits['c'] = 2;
  bits['G'] = bits['g'] = 4;
  bits['T'] = bits['t'] = 8;
  return bits;
}
constexpr std::array<int32_t, 256> kBits = makeBits();

// Numbers far below the others of their row go to zero at once: they count for nothing, and cost a lot.
class FlushTinyNumbers {
 public:
#ifdef __SSE2__
  FlushTinyNumbers() : saved_(_mm_getcsr()) {
    _mm_setcsr(saved_ | 0x8040);
  }
  ~FlushTinyNumbers() {
    _mm_setcsr(saved_);
  }

 private:
  unsigned saved_;
#endif
};

}  // namespace

BaseAlignment::BaseAlignment(double gap_open) : gap_open_(std::pow(10.0, -0.1 * gap_open)) {}

template <>
std::vector<float>& BaseAlignment::rows<float>() {
  return float_rows_;
}
template <>
std::vector<double>& BaseAlignment::rows<double>() {
  return double_rows_;
}

// Sums of one row, a row being a base of the read. Lane j of row i stands for the reference position i + first
// diagonal + j. kLanes of 0: as many as `lanes` says.
template <class Real, int kLanes>
struct BaseAlignment::Sums {
  Sums(double gap_open, int lanes) : lanes_(lanes), open(Real(gap_open)), stay(Real(1 - 2 * gap_open)) {}
  int lanes() const { return kLanes > 0 ? kLanes : lanes_; }

  // Sums over gaps in the reference's direction: out[j] = opening[j] + extension * out[j - 1], with `step` -1; with
  // step 1 over the lanes above. In a narrow band a gap has no more than eight lanes that are told apart from zero.
  template <int kStep>
  void extend(Real* row) const {
    if constexpr (kLanes > 0) {
      constexpr auto e1 = Real(kGapExtension), e2 = e1 * e1, e4 = e2 * e2;
      Real once[kLanes + 2 * kPad] = {}, twice[kLanes + 2 * kPad] = {};
      for (int j = 0; j < kLanes; j++) once[kPad + j] = row[j] + e1 * row[j + kStep];
      for (int j = 0; j < kLanes; j++) twice[kPad + j] = once[kPad + j] + e2 * once[kPad + j + 2 * kStep];
      for (int j = 0; j < kLanes; j++) row[j] = twice[kPad + j] + e4 * twice[kPad + j + 4 * kStep];
    } else {
      const auto e = Real(kGapExtension);
      if (kStep < 0)
        for (int j = 1; j < lanes(); j++) row[j] += e * row[j - 1];
      else
        for (int j = lanes() - 2; j >= 0; j--) row[j] += e * row[j + 1];
    }
  }

  // Keeps the numbers of a row in range; what they are multiplied by does not matter.
  void rescale(Real* a, Real* b, Real* c) const {
    Real sum = 0;
    if constexpr (kLanes > 0) {
      Real part[4] = {};
      for (int j = 0; j < kLanes; j += 4)
        for (int l = 0; l < 4; l++) part[l] += a[j + l] + b[j + l];
      sum = (part[0] + part[1]) + (part[2] + part[3]);
    } else {
      for (int j = 0; j < lanes(); j++) sum += a[j] + b[j];
    }
    if (sum > Real(1e-8) && sum < Real(1e8)) return;
    const Real factor = sum > 0 ? 1 / sum : 0;
    for (int j = 0; j < lanes(); j++) a[j] *= factor, b[j] *= factor, c[j] *= factor;
  }

  int lanes_;
  Real open, stay;
  static constexpr Real extension = Real(kGapExtension), close = Real(1 - kGapExtension);
  static constexpr Real inserted = Real(kInsertedBase);
};

template <class Real, int kLanes>
void BaseAlignment::run(const Piece& piece, int first_diagonal, int lanes, float* errors) {
  const Sums<Real, kLanes> sums(gap_open_, lanes);
  const int width = sums.lanes(), stride = width + 2 * kPad;
  const auto length = size_t(piece.length);
  const Real open = sums.open, stay = sums.stay;
  constexpr Real extension = sums.extension, close = sums.close, inserted = sums.inserted;

  // Of each base, forward: two rows, match and insertion. Behind them one row of deletion and the rows of the way
  // back: the current ones, and those of the base behind.
  std::vector<Real>& memory = rows<Real>();
  const size_t needed = (2 * length + 6) * size_t(stride);
  if (kLanes == 0) memory.assign(needed, 0);  // else the pads are where they were, and still zero
  if (memory.size() < needed) memory.resize(needed);
  auto row = [&](size_t number) { return memory.data() + number * size_t(stride) + kPad; };
  Real* const deletion = row(2 * length);

  const auto& table = emissions();
  struct RowEmission {
    int32_t bit;
    Real differs, equals;
    const int32_t* reference;
    Real at(int j) const { return reference[j] & bit ? equals : differs; }
  };
  auto emission = [&](size_t i) {
    const int32_t bit = kBits[uint8_t(piece.bases[i])];
    const Emission& e = table[std::min<size_t>(piece.quals[i], kQualities - 1)];
    RowEmission made{bit, Real(e.differs), Real(e.equals), reference_bits_.data() + i};
    if (bit == 15) made.differs = made.equals = 1;
    return made;
  };

  const RowEmission first = emission(0);
  for (int j = 0; j < width; j++) {
    row(0)[j] = first.at(j) * (1 - open);
    row(1)[j] = inserted * open;
  }
  for (size_t i = 0;; i++) {
    const Real* match = row(2 * i);
    const Real* insertion = row(2 * i + 1);
    for (int j = 0; j < width; j++) deletion[j] = open * match[j - 1];
    sums.template extend<-1>(deletion);
    if (i + 1 == length) break;
    const RowEmission e = emission(i + 1);
    Real* next_match = row(2 * i + 2);
    Real* next_insertion = row(2 * i + 3);
    for (int j = 0; j < width; j++)
      next_match[j] = e.at(j) * (stay * match[j] + close * (insertion[j] + deletion[j]));
    for (int j = 0; j < width; j++)
      next_insertion[j] = inserted * (open * match[j + 1] + extension * insertion[j + 1]);
    sums.rescale(next_match, next_insertion, deletion);
  }

  Real* match = row(2 * length + 1);
  Real* insertion = row(2 * length + 2);
  Real* behind_match = row(2 * length + 3);  // with the emission of its base
  Real* behind_insertion = row(2 * length + 4);
  std::fill_n(deletion, width, Real(0));
  for (int j = 0; j < width; j++) match[j] = insertion[j] = 1;
  for (size_t i = length; i-- > 0;) {
    Real* forward_match = row(2 * i);
    Real* forward_insertion = row(2 * i + 1);
    const int lane = piece.positions[i] - int(i) - first_diagonal;
    Real& stated = (piece.inserted[i] ? forward_insertion : forward_match)[lane];
    const Real right = stated * (piece.inserted[i] ? insertion : match)[lane];
    stated = 0;
    Real wrong = 0;
    if constexpr (kLanes > 0) {
      Real part[4] = {};
      for (int j = 0; j < kLanes; j += 4)
        for (int l = 0; l < 4; l++)
          part[l] += forward_match[j + l] * match[j + l] + forward_insertion[j + l] * insertion[j + l];
      wrong = (part[0] + part[1]) + (part[2] + part[3]);
    } else {
      for (int j = 0; j < width; j++)
        wrong += forward_match[j] * match[j] + forward_insertion[j] * insertion[j];
    }
    errors[i] = right > 0 ? float(wrong / (wrong + right)) : 1;

    if (i == 0) break;
    const RowEmission e = emission(i);
    for (int j = 0; j < width; j++) behind_match[j] = match[j] * e.at(j);
    for (int j = 0; j < width; j++) behind_insertion[j] = insertion[j] * inserted;
    for (int j = 0; j < width; j++) deletion[j] = close * behind_match[j];
    sums.template extend<1>(deletion);
    for (int j = 0; j < width; j++) {
      insertion[j] = close * behind_match[j] + extension * behind_insertion[j - 1];
      match[j] = stay * behind_match[j] + open * (behind_insertion[j - 1] + deletion[j + 1]);
    }
    sums.rescale(match, insertion, deletion);
  }
}

void BaseAlignment::compute(const Piece& piece, float* errors) {
  if (piece.length <= 0) return;
  int low = piece.positions[0], high = low;
  for (int i = 1; i < piece.length; i++) {
    low = std::min(low, piece.positions[i] - i);
    high = std::max(high, piece.positions[i] - i);
  }
  const int first = low - kBand;
  const int wanted = high - low + 1 + 2 * kBand;
  const int lanes = (wanted + kNarrowLanes - 1) / kNarrowLanes * kNarrowLanes;

  reference_bits_.assign(size_t(piece.length + lanes), 0);
  const int from = std::max(0, -first), to = std::min(piece.length + lanes, piece.reference_length - first);
  for (int i = from; i < to; i++) reference_bits_[size_t(i)] = kBits[uint8_t(piece.reference[first + i])];

  const FlushTinyNumbers scope;
  if (lanes == kNarrowLanes)
    run<float, kNarrowLanes>(piece, first, lanes, errors);
  else
    run<double, 0>(piece, first, lanes, errors);
}
