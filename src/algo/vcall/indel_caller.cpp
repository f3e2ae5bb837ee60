#include "algo/vcall/indel_caller.h"

#include <algorithm>

#include "algo/vcall/model/genotype_from_rows.h"
#include "algo/vcall/model/genotype_index.h"
#include "algo/vcall/pairhmm/models.h"
#include "algo/vcall/read_window.h"
#include "base/timer.h"

namespace {

constexpr uint32_t kFlank = 200;                   // reference bases to each side of the position
constexpr uint32_t kLeftEdge = 4, kRightEdge = 3;  // of the flanks, where no read is looked at
constexpr uint32_t kMargin = 3;                    // of a haplotype around a read
constexpr int32_t kLongestClip = 800;              // bases; no haplotype has so many
constexpr uint8_t kGapOpen = 45, kGapContinuation = 10;

}  // namespace

IndelCaller::IndelCaller(uint32_t ploidy, uint32_t min_base_qual, size_t samples)
    : ploidy_(ploidy),
      min_base_qual_(min_base_qual),
      samples_(samples),
      max_alternates_(maxAlternates(ploidy)),
      hmm_(std::make_unique<IndelModel>(kGapOpen, kGapContinuation)) {}

size_t IndelCaller::maxAlternates(uint32_t ploidy) {
  size_t alternates = 1;
  while (alternates < kMaxAlternates && GenotypeIndex::count(ploidy, alternates + 2) <= kMaxGenotypes)
    ++alternates;
  return alternates;
}

bool IndelCaller::prepare(uint32_t position, const GivenAlleles::Record& record,
                          const ReferenceWindow& window, const std::vector<Read*>& reads,
                          std::span<const int32_t> sample_of_group, Site& site) {
  if (!setHaplotypes(position, record, window)) return false;
  clipReads(position, reads, sample_of_group);
  evaluate();

  site = {};
  site.position = position;
  site.isSNP = false;
  site.pileup = &reads;
  auto allele = [](const std::string& text, bool is_ref) {
    return Allele{text.data(), int32_t(text.size()), 0, is_ref};
  };
  site.ref = allele(record_.ref, true);
  for (const std::string& alt : record_.alts) site.alts.push_back(allele(alt, false));
  rows_ = {clips_, values_.data(), haplotypes_.size()};
  site.rows = &rows_;
  site.likelihoods.resize(samples_);
  genotypeLikelihoods(clips_, values_.data(), haplotypes_.size(), ploidy_, site.likelihoods);
  return true;
}

bool IndelCaller::setHaplotypes(uint32_t position, const GivenAlleles::Record& record,
                                const ReferenceWindow& window) {
  if (record.alts.empty() || !window.contains(position)) return false;
  const size_t alts = std::min(record.alts.size(), max_alternates_);
  low_ = std::max(window.start, position - std::min(position, kFlank));
  high_ = std::min(window.end(), position + kFlank);
  size_t longest = record.ref.size(), shortest = longest;
  for (size_t i = 0; i < alts; ++i) {
    longest = std::max(longest, record.alts[i].size());
    shortest = std::min(shortest, record.alts[i].size());
  }
  if (longest >= high_ - position || high_ - low_ <= kLeftEdge + kRightEdge) return false;
  if (window.bases.compare(position - window.start, record.ref.size(), record.ref) != 0) return false;
  longest_deletion_ = uint32_t(record.ref.size() - shortest);

  record_.ref = record.ref;
  record_.alts.assign(record.alts.begin(), record.alts.begin() + ptrdiff_t(alts));
  const uint32_t behind = position + uint32_t(record_.ref.size());
  const std::string left(window.from(low_), position - low_), right(window.from(behind), high_ - behind);
  haplotypes_.clear();
  haplotypes_.push_back(left + record_.ref + right);
  for (const std::string& alt : record_.alts) haplotypes_.push_back(left + alt + right);
  return true;
}

void IndelCaller::clipReads(uint32_t position, const std::vector<Read*>& reads,
                            std::span<const int32_t> sample_of_group) {
  clips_.clear();
  for (Read* read : reads) {
    if (read->mapq < min_base_qual_) continue;
    const ReadWindow span = adapterFreeWindow(*read);
    if (span.end <= position || span.start > position + 1) continue;
    const uint32_t start = std::max(low_ + kLeftEdge, read->start - std::min(read->start, kMargin));
    const uint32_t end = std::min(high_ - kRightEdge, read->end + kMargin);
    ReadClip clip;
    if (!clipRead(*read, span, start, end, clip) || clip.length() > kLongestClip) continue;
    clip.sample = sample_of_group[size_t(read->read_group)];
    clips_.push_back(clip);
  }
}

void IndelCaller::evaluate() {
  static Timer* const pairhmm_timer = timer("pairhmm");
  TimerScope scope(pairhmm_timer);
  const size_t alleles = haplotypes_.size();
  values_.assign(clips_.size() * alleles, 0);
  // A read whose aligner did not open a gap lies beside its place by the bases that the gap would have skipped.
  const uint32_t slack = kMargin + longest_deletion_;
  std::vector<Allele> cut(alleles);
  for (size_t i = 0; i < clips_.size(); ++i) {
    const ReadClip& clip = clips_[i];
    // Offsets in the reference haplotype; what is behind the position moves with the allele's length.
    const uint32_t from = std::max(clip.refStart, low_ + slack) - slack - low_;
    const uint32_t to = std::min(clip.refEnd + slack, high_) - low_;
    for (size_t a = 0; a < alleles; ++a) {
      cut[a].bases = haplotypes_[a].data() + from;
      cut[a].length = int32_t(to - from) + int32_t(haplotypes_[a].size()) - int32_t(haplotypes_[0].size());
      cut[a].isRef = a == 0;
    }
    hmm_.calcLikelihood(clips_, cut, values_.data(), unsigned(i), unsigned(i + 1));
  }
  makeRowsFinite(values_);
}
