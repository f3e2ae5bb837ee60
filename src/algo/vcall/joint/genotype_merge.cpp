#include "algo/vcall/joint/genotype_merge.h"

#include <algorithm>
#include <limits>

#include "algo/vcall/model/genotype_index.h"
#include "base/text.h"

namespace {

constexpr double kPhred = -0.1;  // to log10

// PL of the genotype that has one allele only.
int32_t homozygous(const std::vector<int32_t>& pl, uint32_t ploidy, size_t allele) {
  return pl[GenotypeIndex::count(ploidy, allele + 1) - 1];
}

int32_t addDepths(int32_t a, int32_t b) {
  return static_cast<int32_t>(std::min<int64_t>(int64_t{a} + b, std::numeric_limits<int32_t>::max()));
}

}  // namespace

void JointSamples::clear(const std::vector<uint32_t>& ploidies) {
  const size_t count = ploidies.size();
  likelihoods.resize(count);
  counts.resize(count);
  strands.assign(count, StrandCounts{});
  attrs.resize(count);
  for (size_t i = 0; i < count; ++i) {
    likelihoods[i].ploidy = ploidies[i];
    likelihoods[i].gl.clear();
    counts[i].ad.clear();
    counts[i].depth = -1;
    attrs[i].clear();
  }
}

void GenotypeMerge::add(const Event& event, const std::vector<int>& sampleMap, size_t alleles,
                        JointSamples& samples) {
  if (!event.line) return;
  columns_.restart(*event.line);
  for (size_t column = 0; column < sampleMap.size() && columns_.next(); ++column) {
    if (sampleMap[column] < 0) continue;
    const auto sample = static_cast<size_t>(sampleMap[column]);
    GenotypeLikelihoods& likelihoods = samples.likelihoods[sample];
    map_.clear();
    uint32_t ploidy;
    if (columns_.likelihoods(event.alts.size(), max_ploidy_, ploidy, pl_) &&
        (likelihoods.gl.empty() || likelihoods.ploidy == ploidy)) {
      likelihoods.ploidy = ploidy;
      addLikelihoods(event, alleles, likelihoods);
    }
    addCounts(event, alleles, samples.counts[sample]);
    if (!event.starts || event.isBlock) continue;
    addStrands(samples.strands[sample]);
    addAttrs(samples.attrs[sample]);
  }
}

// ---- likelihoods ----

// Of several alleles that are the same in the union, as all that are "*", the likeliest stands for them.
void GenotypeMerge::mapAlleles(const Event& event, uint32_t ploidy, size_t alleles) {
  map_.assign(alleles, event.nonRef < 0 ? kUnknown : static_cast<uint32_t>(event.nonRef) + 1);
  map_[0] = 0;
  for (size_t i = 0; i < event.alts.size(); ++i) {
    if (event.alts[i].index <= 0) continue;
    uint32_t& place = map_[static_cast<size_t>(event.alts[i].index)];
    const bool taken = place != kUnknown && static_cast<int32_t>(place) != event.nonRef + 1;
    if (!taken || homozygous(pl_, ploidy, i + 1) < homozygous(pl_, ploidy, place))
      place = static_cast<uint32_t>(i) + 1;
  }
}

double GenotypeMerge::likelihoodOf(const std::vector<uint32_t>& genotype) {
  mapped_.clear();
  for (const uint32_t allele : genotype) {
    if (map_[allele] == kUnknown) return worst_ * kPhred;
    mapped_.push_back(map_[allele]);
  }
  std::sort(mapped_.begin(), mapped_.end());
  return pl_[genotypePlace(mapped_)] * kPhred;
}

void GenotypeMerge::addLikelihoods(const Event& event, size_t alleles, GenotypeLikelihoods& likelihoods) {
  const uint32_t ploidy = likelihoods.ploidy;
  mapAlleles(event, ploidy, alleles);
  // A record of the reference alone tells nothing of alternates.
  if (pl_.size() == 1 && alleles > 1) return;
  worst_ = *std::max_element(pl_.begin(), pl_.end());
  std::vector<double>& gl = likelihoods.gl;
  gl.resize(GenotypeIndex::count(ploidy, alleles), 0.0);
  if (ploidy == 2) {
    size_t place = 0;
    for (size_t j = 0; j < alleles; ++j)
      for (size_t i = 0; i <= j; ++i, ++place) {
        const uint32_t a = std::max(map_[i], map_[j]), b = std::min(map_[i], map_[j]);
        gl[place] += (a == kUnknown ? worst_ : pl_[static_cast<size_t>(a) * (a + 1) / 2 + b]) * kPhred;
      }
    return;
  }
  GenotypeWalk walk(ploidy);
  for (double& value : gl) {
    value += likelihoodOf(walk.alleles());
    walk.next();
  }
}

// ---- counts ----

// Of a block, and of a record that began before the position, the depth alone.
void GenotypeMerge::addCounts(const Event& event, size_t alleles, SampleCounts& counts) {
  const bool own = event.starts && !event.isBlock;
  columns_.numbers("MIN_DP", numbers_, 0);
  if (numbers_.empty() || own) columns_.numbers("DP", numbers_, 0);
  if (!numbers_.empty()) counts.depth = addDepths(std::max(counts.depth, 0), numbers_[0]);
  if (!own) return;

  columns_.numbers("AD", numbers_, 0);
  if (numbers_.empty()) return;
  if (numbers_.size() != event.alts.size() + 1)
    failRecord(*event.line, format("AD has %zu values, not one for each of %zu alleles", numbers_.size(),
                                   event.alts.size() + 1));
  counts.ad.resize(alleles, 0);
  counts.ad[0] = addDepths(counts.ad[0], numbers_[0]);
  for (size_t i = 0; i < event.alts.size(); ++i) {
    const int32_t index = event.alts[i].index;
    if (index <= 0) continue;
    // Where likelihoods chose one of several alleles, its reads are meant.
    if (!map_.empty() && map_[static_cast<size_t>(index)] != i + 1) continue;
    int32_t& depth = counts.ad[static_cast<size_t>(index)];
    depth = addDepths(depth, numbers_[i + 1]);
  }
}

void GenotypeMerge::addStrands(StrandCounts& strands) {
  columns_.numbers("SB", numbers_, 0);
  for (size_t i = 0; numbers_.size() == strands.size() && i < strands.size(); ++i) strands[i] += numbers_[i];
}

// ---- other values ----

void GenotypeMerge::addAttrs(std::vector<SampleAttr>& attrs) const {
  static constexpr std::string_view kMerged[] = {"GT", "PL", "AD", "DP", "GQ", "MIN_DP", "SB"};
  for (size_t i = 0; i < columns_.keys().size(); ++i) {
    const std::string_view key = columns_.keys()[i], value = columns_.value(i);
    if (value.empty() || key.empty() ||
        std::find(std::begin(kMerged), std::end(kMerged), key) != std::end(kMerged))
      continue;
    const bool known =
        std::any_of(attrs.begin(), attrs.end(), [&](const SampleAttr& attr) { return attr.first == key; });
    if (!known) attrs.push_back({key, value});
  }
}
