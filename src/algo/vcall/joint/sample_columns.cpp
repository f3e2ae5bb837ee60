#include "algo/vcall/joint/sample_columns.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "algo/vcall/model/genotype_index.h"
#include "base/text.h"

namespace {

// Calls `take` with each piece of `text`.
template <typename Take>
void forPieces(std::string_view text, char separator, Take take) {
  for (size_t from = 0;;) {
    const size_t to = std::min(text.find(separator, from), text.size());
    take(text.substr(from, to - from));
    if (to == text.size()) return;
    from = to + 1;
  }
}

// The chromosomes of a GT: 0 when it is missing, "./." has 2.
uint32_t ploidyOf(std::string_view genotype) {
  if (genotype.empty()) return 0;
  return 1 + static_cast<uint32_t>(std::count_if(genotype.begin(), genotype.end(),
                                                 [](char c) { return c == '/' || c == '|'; }));
}

}  // namespace

void failRecord(const VCFLine& line, const std::string& what) {
  throw std::runtime_error(format("%s in the record at %s:%d", what.c_str(), line.line, line.pos + 1));
}

// ---- columns ----

void SampleColumns::restart(const VCFLine& line) {
  line_ = &line;
  sample_ = 0;
  keys_.clear();
  values_.clear();
  cursor_ = line.hasColumn(VCFLine::kSample) ? line.column(VCFLine::kSample) : nullptr;
  if (cursor_)
    forPieces(line.column(VCFLine::kFormat), ':', [this](std::string_view key) { keys_.push_back(key); });
}

bool SampleColumns::next() {
  if (!cursor_) return false;
  const char* const end = strchrnul(cursor_, '\t');
  values_.clear();
  forPieces({cursor_, static_cast<size_t>(end - cursor_)}, ':', [this](std::string_view value) {
    if (values_.size() < keys_.size()) values_.push_back(value);
  });
  cursor_ = *end == '\t' ? end + 1 : nullptr;
  ++sample_;
  return true;
}

size_t SampleColumns::place(const char* key) const {
  return static_cast<size_t>(std::find(keys_.begin(), keys_.end(), key) - keys_.begin());
}

void SampleColumns::numbers(const char* key, std::vector<int32_t>& list, int32_t dot) const {
  list.clear();
  const std::string_view text = value(key);
  if (text.empty()) return;
  bool missing = false;
  forPieces(text, ',', [&](std::string_view piece) {
    if (piece == ".") {
      missing = missing || dot < 0;
      list.push_back(dot);
      return;
    }
    int32_t number = -1;
    if (!parseNumber(piece, number) || number < 0)
      failRecord(*line_, format("%s of sample %d has an element '%.*s'", key, sample_,
                                static_cast<int>(std::min<size_t>(piece.size(), 100)), piece.data()));
    list.push_back(number);
  });
  if (missing) list.clear();
}

bool SampleColumns::likelihoods(size_t alts, uint32_t maxPloidy, uint32_t& ploidy,
                                std::vector<int32_t>& pl) const {
  pl.clear();
  ploidy = ploidyOf(value("GT"));
  if (ploidy == 0) return false;
  numbers("PL", pl);
  if (pl.empty()) return false;
  if (ploidy > maxPloidy)
    failRecord(*line_, format("Sample %d has ploidy %u, above %u, the largest of the files' first records",
                              sample_, ploidy, maxPloidy));
  if (const size_t expected = GenotypeIndex::count(ploidy, alts + 1); pl.size() != expected)
    failRecord(*line_, format("PL of sample %d has %zu values, not the %zu of its genotypes", sample_,
                              pl.size(), expected));
  return true;
}

// ---- genotypes ----

void GenotypeWalk::next() {
  for (size_t i = 0; i < alleles_.size(); ++i) {
    if (i + 1 < alleles_.size() && alleles_[i] == alleles_[i + 1]) continue;
    ++alleles_[i];
    std::fill_n(alleles_.begin(), i, 0);
    return;
  }
}

size_t genotypePlace(const std::vector<uint32_t>& alleles) {
  size_t place = 0;
  for (size_t i = 0; i < alleles.size(); ++i)
    if (alleles[i] > 0) place += GenotypeIndex::count(static_cast<uint32_t>(i) + 1, alleles[i]);
  return place;
}
