#include "algo/vcall/pairhmm/pair_hmm.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <string_view>

#include "algo/vcall/pairhmm/engine.h"
#include "algo/vcall/pairhmm/flush_denormals.h"
#include "algo/vcall/pairhmm/models.h"
#include "algo/vcall/pairhmm/read_batch.h"
#include "base/text.h"

namespace {

// Below this score a float has run out of range.
constexpr double kFloatFloor = -64.12;

bool isOutOfRange(double score) {
  return !(score >= kFloatFloor && std::isfinite(score));
}

std::string_view basesOf(const Allele& allele) {
  return {allele.bases, static_cast<size_t>(allele.length)};
}

}  // namespace

PairHMM::PairHMM(std::unique_ptr<Model> model) : model_(std::move(model)) {}
PairHMM::~PairHMM() = default;

bool PairHMM::configure(const std::string& params) {
  std::map<std::string, double> settings;
  if (params.empty()) return true;
  for (const std::string& piece : split(params, ',')) {
    const size_t equals = piece.find('=');
    double number;
    if (equals == std::string::npos || !parseReal(piece.substr(equals + 1), number))
      throw std::invalid_argument(": invalid phmm_param format " + params);
    settings[piece.substr(0, equals)] = number;
  }
  return model_->configure(settings);
}

namespace {

// Fills rows of a matrix with the engines of the calling thread.
class RowScorer {
 public:
  RowScorer(const PairHMM::Model& model, const std::vector<ReadClip>& reads,
            const std::vector<Allele>& alleles, double* out, int debugIndex);

  void fill(unsigned first, unsigned last);

 private:
  // A batch takes as long for one read as for all of its lanes, which is about as long as so many reads one by one.
  static constexpr size_t kWorthBatch = 3;

  static const uint8_t* bytesOf(const ReadClip& clip) {
    return reinterpret_cast<const uint8_t*>(clip.read->getBases()) + clip.readStart;
  }
  static const uint8_t* bytesOf(const Allele& allele) {
    return reinterpret_cast<const uint8_t*>(allele.bases);
  }
  double* rowOf(unsigned r) const { return out_ + size_t(r) * alleles_.size(); }
  void scoreOne(unsigned r);
  void scoreBatch(ReadBatch& batch, const unsigned* rows, size_t count);
  double rescue(unsigned r, unsigned a, double score, bool& is_set);
  void finish(unsigned r) {
    model_.finishRead(reads_[r], rowOf(r), static_cast<int>(alleles_.size()), ref_index_);
  }
  bool isTraced(unsigned r, unsigned a) const {
    return debug_index_ < 0 || size_t(r) * alleles_.size() + a == static_cast<size_t>(debug_index_);
  }
  void resize(PairHMM::Engine& engine, bool& is_resized) const;

  const PairHMM::Model& model_;
  const std::vector<ReadClip>& reads_;
  const std::vector<Allele>& alleles_;
  double* const out_;
  const int debug_index_;
  const ThreadEngines& engines_ = threadEngines();
  const FlushDenormals flush_;
  std::vector<unsigned> order_;  // of the alleles that are not dropped, by bases: neighbours share long ends
  int max_hap_ = 0, max_read_ = 0, ref_index_ = -1;
  bool is_resized_ = false, is_precise_resized_ = false;
};

RowScorer::RowScorer(const PairHMM::Model& model, const std::vector<ReadClip>& reads,
                     const std::vector<Allele>& alleles, double* out, int debugIndex)
    : model_(model), reads_(reads), alleles_(alleles), out_(out), debug_index_(debugIndex) {
  for (unsigned a = 0; a < alleles.size(); ++a) {
    if (alleles[a].isRef && ref_index_ < 0) ref_index_ = static_cast<int>(a);
    if (alleles[a].length <= 0) continue;
    max_hap_ = std::max<int>(max_hap_, alleles[a].length);
    order_.push_back(a);
  }
  std::sort(order_.begin(), order_.end(), [&](unsigned a, unsigned b) {
    const int way = basesOf(alleles[a]).compare(basesOf(alleles[b]));
    return way != 0 ? way < 0 : a < b;
  });
}

void RowScorer::fill(unsigned first, unsigned last) {
  if (order_.empty()) return;
  std::vector<unsigned> rows;
  for (unsigned r = first; r < last; ++r) {
    if (std::isnan(rowOf(r)[0]) || reads_[r].length() <= 0) continue;
    max_read_ = std::max(max_read_, reads_[r].length());
    rows.push_back(r);
  }
  size_t done = 0;
  ReadBatch* const batch = debug_index_ == PairHMM::kNoTrace ? threadBatch() : nullptr;
  if (batch && rows.size() >= kWorthBatch && batch->fits(max_read_, max_hap_)) {
    std::vector<std::span<const uint8_t>> haplotypes;
    for (unsigned a : order_) haplotypes.emplace_back(bytesOf(alleles_[a]), size_t(alleles_[a].length));
    batch->resize(max_read_, max_hap_, haplotypes);
    for (; rows.size() - done >= kWorthBatch; done += std::min(batch->lanes(), rows.size() - done))
      scoreBatch(*batch, rows.data() + done, std::min(batch->lanes(), rows.size() - done));
  }
  for (; done < rows.size(); ++done) scoreOne(rows[done]);
}

void RowScorer::resize(PairHMM::Engine& engine, bool& is_resized) const {
  if (!is_resized)
    engine.resize(max_read_, max_hap_, static_cast<int>(model_.maxReadLength(unsigned(max_read_))));
  is_resized = true;
}

void RowScorer::scoreOne(unsigned r) {
  PairHMM::Engine& engine = *engines_.first;
  const ReadClip& clip = reads_[r];
  resize(engine, is_resized_);
  model_.setupRead(clip, engine, debug_index_ < 0);
  bool is_precise_set = false;
  for (unsigned a : order_) {
    const Allele& allele = alleles_[a];
    const bool is_traced = isTraced(r, a);
    if (is_traced) fprintf(stderr, "%s\t%.*s\n", allele.isRef ? "REF" : "HAP", allele.length, allele.bases);
    double& score = rowOf(r)[a];
    score = engine.score(clip.length(), bytesOf(clip), allele.length, bytesOf(allele), is_traced);
    if (isOutOfRange(score)) score = rescue(r, a, score, is_precise_set);
  }
  finish(r);
}

void RowScorer::scoreBatch(ReadBatch& batch, const unsigned* rows, size_t count) {
  unsigned taken[ReadBatch::kMaxLanes];
  size_t lanes = 0;
  int longest = 0;
  for (size_t k = 0; k < count; ++k) longest = std::max(longest, reads_[rows[k]].length());
  batch.start(longest);
  for (size_t k = 0; k < count; ++k) {
    const ReadClip& clip = reads_[rows[k]];
    model_.setupRead(clip, batch.positions(), false);
    if (batch.add(clip.length(), bytesOf(clip)))
      taken[lanes++] = rows[k];
    else
      scoreOne(rows[k]);
  }
  if (lanes == 0) return;
  batch.score([&](size_t h, const double* scores) {
    for (size_t lane = 0; lane < lanes; ++lane) rowOf(taken[lane])[order_[h]] = scores[lane];
  });
  for (size_t lane = 0; lane < lanes; ++lane) {
    bool is_precise_set = false;
    for (unsigned a : order_) {
      double& score = rowOf(taken[lane])[a];
      if (isOutOfRange(score)) score = rescue(taken[lane], a, score, is_precise_set);
    }
    finish(taken[lane]);
  }
}

// The score in double where a float has run out of range. `is_set`: the engine has the read.
double RowScorer::rescue(unsigned r, unsigned a, double score, bool& is_set) {
  PairHMM::Engine* const precise = engines_.precise.get();
  if (!precise) return score;
  const ReadClip& clip = reads_[r];
  const bool is_traced = isTraced(r, a);
  resize(*precise, is_precise_resized_);
  if (!is_set) model_.setupRead(clip, *precise, is_traced);
  is_set = true;
  return precise->score(clip.length(), bytesOf(clip), alleles_[a].length, bytesOf(alleles_[a]), is_traced);
}

}  // namespace

void PairHMM::calcLikelihood(const std::vector<ReadClip>& reads, const std::vector<Allele>& alleles,
                             double* out, unsigned first, unsigned last, int debugIndex) const {
  RowScorer(*model_, reads, alleles, out, debugIndex).fill(first, last);
}
