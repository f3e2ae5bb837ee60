#include "algo/vcall/snp_lookup_table.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <stdexcept>

#include "algo/vcall/model/genotype_index.h"

namespace {

// Of a base of some quality: the probability to be read when it was sequenced, and when one other base was.
struct ReadBase {
  double right, wrong;
};

ReadBase readBase(size_t quality) {
  const double error = std::pow(10.0, -double(quality) / 10);
  return {1 - error, error / 3};
}

}  // namespace

void SNPLookupTable::Free::operator()(double* block) const {
  std::free(block);
}

// Zeros, which cost no memory until they are touched.
SNPLookupTable::Block SNPLookupTable::allocate(size_t count) {
  double* block = static_cast<double*>(std::calloc(count, sizeof(double)));
  if (!block) throw std::bad_alloc();
  return Block(block);
}

SNPLookupTable::SNPLookupTable(uint32_t ploidy, uint32_t minQual, bool pairs)
    : ploidy_(ploidy), minQual_(minQual) {
  if (ploidy > kMaxPloidy || (pairs && ploidy != 2)) throw std::logic_error("SNPLookupTable: ploidy");
  listGenotypes();
  fillRows();
  if (pairs) fillPairs();
}

void SNPLookupTable::listGenotypes() {
  for (GenotypeIndex g(ploidy_, 4); !g.exhausted(); g.next()) {
    std::array<int32_t, 4> counts;
    uint8_t mask = 0;
    for (uint8_t b = 0; b < 4; b++) {
      counts[b] = g.counts[b];
      if (counts[b] > 0) mask |= uint8_t(1 << b);
      if (counts[b] == int32_t(ploidy_)) homozygous_[b] = uint32_t(g.index);
    }
    counts_.push_back(counts);
    alleles_.push_back(mask);
  }
  stride_ = ploidy_ == 0 ? 2 : (genotypes() + 1) & ~1u;
}

// A genotype's value depends on its copies of the observed base alone. Quality 0 has no row: the base would be known to
// be wrong, and that is not what is meant by it.
void SNPLookupTable::fillRows() {
  block_ = allocate(kQualities * 4 * stride_);
  std::vector<double> byCopies(ploidy_ + 1);
  const double copied = ploidy_ == 2 ? 1 - kPcrError : 1, miscopied = ploidy_ == 2 ? kPcrError / 3 : 0;
  for (size_t quality = std::max(minQual_, 1u); quality < kQualities; quality++) {
    const ReadBase read = readBase(quality);
    const double same = copied * read.right + 3 * miscopied * read.wrong;
    const double other = miscopied * read.right + (copied + 2 * miscopied) * read.wrong;
    for (uint32_t n = 0; n <= ploidy_; n++)
      byCopies[n] = std::log10(n * same + (ploidy_ - n) * other) - std::log10(double(ploidy_));
    for (size_t base = 0; base < 4; base++) {
      double* row = block_.get() + (quality * 4 + base) * stride_;
      for (size_t g = 0; g < counts_.size(); g++) row[g] = byCopies[size_t(counts_[g][base])];
      rows_[quality * kRowsPerQuality + base] = row;
    }
  }
}

// Of two qualities there are few values: bases are alike but for being observed or not. They are computed once for equal
// and for different bases, and then laid out for each pair of bases.
void SNPLookupTable::fillPairs() {
  pairBlock_ = allocate(kQualities * kQualities * 16 * kPairStride);
  constexpr double copied = 1 - kPcrError, miscopied = kPcrError / 3;
  // The classes of a base: seen in the first read, in the second, in neither.
  enum { kFirst, kSecond, kNeither, kClasses };
  const double log2 = std::log10(2.0);
  for (size_t q1 = 0; q1 < kQualities; q1++) {
    if (q1 != 0 && q1 < minQual_) continue;
    for (size_t q2 = 0; q2 < kQualities; q2++) {
      if ((q2 != 0 && q2 < minQual_) || q1 + q2 == 0) continue;  // of two times nothing the row stays 0
      const ReadBase none{1, 1};
      const ReadBase r1 = q1 ? readBase(q1) : none, r2 = q2 ? readBase(q2) : none;
      // Of a sequenced base of each class.
      double equal[kClasses][kClasses], different[kClasses][kClasses];
      {
        const double seen = r1.right * r2.right, unseen = r1.wrong * r2.wrong;
        const double same = copied * seen + 3 * miscopied * unseen;
        const double other = miscopied * seen + (copied + 2 * miscopied) * unseen;
        equal[kFirst][kFirst] = std::log10(2 * same) - log2;
        equal[kFirst][kNeither] = equal[kNeither][kFirst] = std::log10(same + other) - log2;
        equal[kNeither][kNeither] = std::log10(2 * other) - log2;
      }
      {
        const double x[kClasses] = {r1.right * r2.wrong, r1.wrong * r2.right, r1.wrong * r2.wrong};
        const double sum = x[kFirst] + x[kSecond] + 2 * x[kNeither];
        double p[kClasses];
        for (int c = 0; c < kClasses; c++) p[c] = copied * x[c] + miscopied * (sum - x[c]);
        for (int c = 0; c < kClasses; c++)
          for (int d = 0; d <= c; d++) different[c][d] = different[d][c] = std::log10(p[c] + p[d]) - log2;
      }
      double* row = pairBlock_.get() + ((q1 << 8 | q2) << 4) * kPairStride;
      for (uint32_t b1 = 0; b1 < 4; b1++)
        for (uint32_t b2 = 0; b2 < 4; b2++, row += kPairStride) {
          const auto& values = b1 == b2 ? equal : different;
          auto classOf = [&](uint32_t b) { return b == b1 ? kFirst : b == b2 ? kSecond : kNeither; };
          double* cell = row;
          for (uint32_t high = 0; high < 4; high++)
            for (uint32_t low = 0; low <= high; low++) *cell++ = values[classOf(low)][classOf(high)];
        }
    }
  }
}
