#include "algo/onco/locus_reads.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>

#include "algo/vcall/debug_positions.h"
#include "algo/vcall/fragment_name.h"
#include "algo/vcall/model/genotype_assignment.h"
#include "algo/vcall/seeded_generator.h"
#include "base/log_math.h"
#include "base/text.h"

namespace {

const char* sampleWord(int32_t sample) {
  return sample == kTumor ? "tumor" : "normal";
}

// What the row says of a read that lies there.
int32_t informativeAllele(const double* row, size_t alleles) {
  double best = row[0], second = -std::numeric_limits<double>::infinity();
  int32_t allele = 0;
  for (size_t a = 1; a < alleles; ++a) {
    second = std::max(second, std::min(row[a], best));
    if (row[a] > best) best = row[a], allele = int32_t(a);
  }
  return best - second > kInformativeMargin ? allele : -1;
}

LocusRead locusRead(const ReadClip& clip, uint32_t position) {
  LocusRead made;
  made.read = clip.read;
  made.sample = clip.sample;
  const int32_t contig = clip.read->ref_id;
  int first = 0, end = 0;
  if (clip.read->getAlignment({contig, int32_t(position)}, {contig, int32_t(position) + 1}, first, end) &&
      first < end) {
    made.offset = first;
    made.base = clip.read->getBases()[first];
    made.qual = qualityAt(*clip.read, first);
  }
  return made;
}

// Reads of one fragment are neighbours when sorted, in their order.
struct FragmentRead {
  int32_t sample;
  FragmentName fragment;
  size_t index;
  auto operator<=>(const FragmentRead&) const = default;

  bool isMateOf(const FragmentRead& other) const {
    return sample == other.sample && fragment == other.fragment;
  }
};

// How many of each allele's `counts` reads go, `total` in all; see contaminationDownsample(). `total` is less than the sum.
std::vector<size_t> shareOut(const std::vector<size_t>& counts, size_t total, int mode) {
  std::vector<size_t> taken(counts.size());
  if (total == 0) return taken;
  size_t rest = total;
  const auto take = [&](size_t allele, size_t most) {
    const size_t count = std::min({most, counts[allele] - taken[allele], rest});
    taken[allele] += count;
    rest -= count;
  };
  if (mode == 0) {
    const size_t all = std::accumulate(counts.begin(), counts.end(), size_t{0});
    std::vector<size_t> order(counts.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return counts[a] * total % all > counts[b] * total % all; });
    for (size_t a = 0; a < counts.size(); ++a) take(a, counts[a] * total / all);
    for (const size_t a : order) take(a, 1);  // the largest remainders
  }
  while (rest > 0) {
    const size_t half = rest / 2;
    for (size_t a = 1; a < counts.size(); ++a) take(a, half);
    take(0, std::max(half, size_t{1}));
    for (size_t a = 1; a < counts.size() && half == 0; ++a) take(a, rest);  // the reference had none left
  }
  return taken;
}

}  // namespace

void LocusReads::build(std::span<const ReadClip> clips, const double* rows, size_t alleles, uint32_t position,
                       bool debug) {
  reads_.clear();
  values_.clear();
  alleles_ = alleles;
  debug_ = debug;
  for (size_t i = 0; i < clips.size(); ++i) {
    const double* const row = rows + i * alleles;
    if (std::isnan(row[0])) continue;
    reads_.push_back(locusRead(clips[i], position));
    reads_.back().allele = informativeAllele(row, alleles);
    values_.insert(values_.end(), row, row + alleles);
  }
}

size_t LocusReads::bestAllele(size_t read) const {
  const double* const values = row(read);
  return size_t(std::max_element(values, values + alleles_) - values);
}

// Of two reads of one fragment that which does not count.
size_t LocusReads::weaker(size_t a, size_t b) const {
  const double *const in_a = row(a), *const in_b = row(b);
  size_t best = 0;
  for (size_t i = 1; i < alleles_; ++i)
    if (in_a[i] + in_b[i] > in_a[best] + in_b[best]) best = i;
  return in_a[best] < in_b[best] ? a : b;
}

void LocusReads::removeOverlap() {
  for (const double *t = values_.data(), *end = t + values_.size(); t != end; ++t) assert(!std::isnan(*t));
  std::vector<FragmentRead> order;
  for (const LocusRead& read : reads_) order.push_back({read.sample, FragmentName(*read.read), order.size()});
  std::sort(order.begin(), order.end());
  for (size_t i = 0, kept = 0; i < order.size(); ++i) {
    const size_t next = order[i].index;
    if (i == 0 || !order[i].isMateOf(order[i - 1])) {
      kept = next;
      continue;
    }
    reads_[kept].status |= kReadOfPair;
    reads_[next].status |= kReadOfPair;
    const size_t dropped = weaker(kept, next);
    reads_[dropped].status |= kReadOverlapped;
    if (debug_) debugPrint("%s read filtered by overlapping reads\n", sampleWord(reads_[dropped].sample));
    if (dropped == kept) kept = next;
  }
}

void LocusReads::contaminationDownsample(int32_t sample, double fraction, int mode, const char* contig,
                                         uint32_t position) {
  assert(values_.size() == reads_.size() * alleles_);
  if (!(fraction > 0)) return;
  std::vector<size_t> left(alleles_);
  const auto is_valid = [sample](const LocusRead& read) { return read.sample == sample && read.counts(); };
  for (size_t i = 0; i < reads_.size(); ++i)
    if (is_valid(reads_[i])) ++left[bestAllele(i)];
  const size_t valid = std::accumulate(left.begin(), left.end(), size_t{0});
  const auto to_remove = size_t(fraction * double(valid));
  std::vector<size_t> remove = shareOut(left, to_remove, mode);
  if (debug_) {
    std::string alleles, counts, targets;
    for (size_t a = 0; a < alleles_; ++a) {
      alleles += format(" %zu", a);
      counts += format(" %zu", left[a]);
      targets += format(" %zu", left[a] - remove[a]);
    }
    debugPrint("contaminationDownsampling for sample %s with frac %f nAllele=%d\n", sampleWord(sample),
               fraction, int(alleles_));
    debugPrint("totalValidRead %d numReadsToRemove %d\n", int(valid), int(to_remove));
    debugPrint("Allele:%s\ncounts:%s\ntarget:%s\n", alleles.c_str(), counts.c_str(), targets.c_str());
  }
  SeededGenerator generator(contig, position);
  for (size_t i = 0; i < reads_.size(); ++i) {
    if (!is_valid(reads_[i])) continue;
    const size_t allele = bestAllele(i);
    const bool goes = remove[allele] > 0 && generator.below(left[allele]) < remove[allele];
    --left[allele];
    if (!goes) continue;
    --remove[allele];
    reads_[i].status |= kReadContaminant;
    if (debug_) debugPrint("%s", "read filtered by contamination downsample\n");
  }
}

void LocusReads::tell(const char* contig, uint32_t position) const {
  std::string text = "reads after filtering:\n";
  for (size_t i = 0; i < reads_.size(); ++i) {
    const LocusRead& read = reads_[i];
    text +=
        format("%s:%u %s %s %u", contig, position + 1, sampleWord(read.sample), read.read->name, read.status);
    for (size_t a = 0; a < alleles_; ++a) text += format(" %.17g", row(i)[a]);
    text += '\n';
  }
  debugPrint("%s", text.c_str());
}

std::vector<TumorNormalLod> calcLods(const LocusReads& reads, bool hasNormal) {
  const size_t alleles = reads.alleles();
  std::vector<int32_t> counts(alleles);
  for (const LocusRead& read : reads.reads())
    if (read.counts() && read.sample == kTumor && read.allele >= 0) ++counts[size_t(read.allele)];

  std::vector<TumorNormalLod> lods(alleles - 1);
  for (size_t a = 1; a < alleles; ++a) {
    TumorNormalLod& lod = lods[a - 1];
    const double n = counts[0] + counts[a];
    const bool has_counts = n > 0;
    if (has_counts) lod.fraction = std::clamp(counts[a] / n, 1 / (n + 1), n / (n + 1));
    const double log_ref = std::log10(1 - lod.fraction), log_alt = std::log10(lod.fraction);
    double tumor_ref = 0, tumor_alt = 0, normal_ref = 0, normal_het = 0;
    for (size_t i = 0; i < reads.reads().size(); ++i) {
      const LocusRead& read = reads.reads()[i];
      const double* const row = reads.row(i);
      if (!read.counts()) continue;
      if (read.sample == kTumor && has_counts) {
        tumor_ref += row[0];
        tumor_alt += log10SumFast(log_ref + row[0], log_alt + row[a]);
      } else if (read.sample == kNormal && hasNormal) {
        normal_ref += row[0];
        normal_het += log10SumFast(row[a], row[0]) - kLog10Of2;
      }
    }
    lod.tumor = tumor_alt - tumor_ref;
    lod.normal = normal_ref - normal_het;
    if (reads.debug())
      debugPrint("Calculated allelic fraction :%f TLOD %f NLOD %f\n", lod.fraction, lod.tumor, lod.normal);
  }
  return lods;
}
