#include "algo/vcall/model/genotype_assignment.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cctype>
#include <cmath>
#include <limits>

#include "algo/vcall/model/genotype_index.h"
#include "base/bases.h"

namespace {
constexpr int kMaxGQ = 99;
constexpr double kMaxPL = 1 << 30;  // of a genotype that cannot be

// The alleles of a site that are left: the reference and the alternates that were not dropped.
struct KeptAlleles {
  std::vector<int32_t> kept;     // indexes into ref and all alternates, ascending
  std::vector<int32_t> written;  // place in `kept`, by index; -1: dropped

  explicit KeptAlleles(const Site& site) : kept{0}, written(site.alts.size() + 1, -1) {
    written[0] = 0;
    for (size_t i = 0; i < site.alts.size(); ++i) {
      if (site.alts[i].length <= 0) continue;
      written[i + 1] = int32_t(kept.size());
      kept.push_back(int32_t(i + 1));
    }
  }
  size_t alts() const { return kept.size() - 1; }
};

// The allele that a base stands for: that of the reference and of alternates that replace one base.
std::array<int32_t, 4> alleleOfBase(const Site& site) {
  std::array<int32_t, 4> table;
  table.fill(-1);
  auto put = [&table](char base, int32_t allele) {
    const uint8_t b = baseIndex(char(toupper(static_cast<unsigned char>(base))));
    if (b != kNoBase && table[b] < 0) table[b] = allele;
  };
  if (site.ref.length > 0) put(*site.ref.bases, 0);
  for (size_t i = 0; i < site.alts.size(); ++i) {
    const Allele& alt = site.alts[i];
    if (alt.length == 1 && (site.ref.length == 1 || alt.refSuffix == site.ref.length - 1))
      put(*alt.bases, int32_t(i + 1));
  }
  return table;
}

// The offset in the read of its base at `position`, -1 when it has none there.
int32_t offsetAt(const Read& read, uint32_t position) {
  if (position < read.start || position >= read.end) return -1;
  int64_t place = read.start, offset = 0;
  for (uint32_t i = 0; i < read.n_cigar && place <= position; ++i) {
    const uint32_t word = read.cigarWord(i);
    const int64_t length = cigarLength(word);
    if (consumesReference(word) && place + length > position) {
      offset += position - place;
      return consumesRead(word) && offset < read.length ? int32_t(offset) : -1;
    }
    if (consumesReference(word)) place += length;
    if (consumesRead(word)) offset += length;
  }
  return -1;
}

SiteRead siteRead(Read* read, int32_t sample, uint32_t position) {
  SiteRead r;
  r.read = read;
  r.sample = sample;
  r.offset = offsetAt(*read, position);
  if (r.offset >= 0) {
    r.base = read->getBases()[r.offset];
    r.qual = qualityAt(*read, r.offset);
  }
  return r;
}

// Reads by strand: forward and reverse of the reference, then of the alternates.
using StrandCounts = std::array<int, 4>;

// By sample, over all alternates as one.
std::vector<StrandCounts> countStrands(const Site& site, const KeptAlleles& alleles,
                                       std::span<const SiteRead> pileup, size_t samples) {
  std::vector<StrandCounts> counts(samples, StrandCounts{});
  auto add = [&counts](const Read& read, int32_t sample, bool alt) {
    if (size_t(sample) < counts.size())
      ++counts[size_t(sample)][(alt ? 2u : 0u) + (read.isReverse() ? 1 : 0)];
  };
  if (!site.rows) {
    for (const SiteRead& r : pileup)
      if (r.allele >= 0) add(*r.read, r.sample, r.allele > 0);
    return counts;
  }
  const double* row = site.rows->values;
  for (const ReadClip& clip : site.rows->reads) {
    double best = -std::numeric_limits<double>::infinity();
    for (size_t i = 1; i < alleles.kept.size(); ++i) best = std::max(best, row[alleles.kept[i]]);
    if (!std::isnan(row[0]) && std::abs(best - row[0]) > kInformativeMargin)
      add(*clip.read, clip.sample, best > row[0]);
    row += site.rows->alleles;
  }
  return counts;
}

// The genotypes of one sample over the alleles that are kept.
struct Ranking {
  std::vector<int32_t> pl;      // as they come, not yet relative to the best
  std::vector<int32_t> counts;  // of the best
  int32_t best = std::numeric_limits<int32_t>::max(), second = best;
  bool all_equal = false;

  Ranking(const GenotypeLikelihoods& likelihoods, const KeptAlleles& alleles) {
    const std::vector<double>& gl = likelihoods.gl;
    assert(gl.size() == GenotypeIndex::count(likelihoods.ploidy, alleles.written.size()));
    int64_t sum = 0;
    for (GenotypeIndex g(likelihoods.ploidy, alleles.written.size()); !g.exhausted(); g.next()) {
      bool dropped = false;
      for (size_t a = 0; a < g.counts.size(); ++a) dropped |= g.counts[a] > 0 && alleles.written[a] < 0;
      if (dropped) continue;
      double phred = std::round(-10 * gl[size_t(g.index)]);
      int32_t x = int32_t(std::isnan(phred) ? kMaxPL : std::clamp(phred, -kMaxPL, kMaxPL));
      pl.push_back(x);
      sum += x;
      if (x < best) {
        second = best;
        best = x;
        counts = g.counts;
      } else {
        second = std::min(second, x);
      }
    }
    if (pl.size() < gl.size()) sum -= int64_t(pl.size()) * best;
    all_equal = sum < 1;
  }
};

// The sample's genotype as text; "." for each chromosome when there is none.
std::string genotypeText(const std::vector<int32_t>& counts, const KeptAlleles& alleles, uint32_t ploidy) {
  std::string text;
  auto add = [&text](const std::string& allele) {
    if (!text.empty()) text += '/';
    text += allele;
  };
  for (uint32_t i = 0; counts.empty() && i < ploidy; ++i) add(".");
  for (size_t a = 0; a < counts.size(); ++a)
    for (int32_t c = 0; c < counts[a]; ++c) add(std::to_string(alleles.written[a]));
  return text;
}

bool isHomozygousAlt(const std::vector<int32_t>& counts, uint32_t ploidy) {
  return std::find(counts.begin() + 1, counts.end(), int32_t(ploidy)) != counts.end();
}

// Counts the reads of each sample.
void countReads(const Site& site, std::span<const SiteRead> rows, std::span<const SiteRead> pileup,
                std::vector<GenotypeCall>& calls) {
  for (GenotypeCall& call : calls) {
    call.adDepth.assign(site.alts.size() + 1, 0);
    call.depth = 0;
  }
  for (const SiteRead& r : site.rows ? rows : pileup)
    if (r.allele >= 0 && size_t(r.sample) < calls.size()) ++calls[size_t(r.sample)].adDepth[size_t(r.allele)];
  for (const SiteRead& r : pileup)
    if (isBase(r.base) && size_t(r.sample) < calls.size()) ++calls[size_t(r.sample)].depth;
  // A read without a base at the position, or beyond it, may still tell the alleles apart: it counts, too.
  for (GenotypeCall& call : calls) {
    int32_t informative = 0;
    for (int32_t n : call.adDepth) informative += n;
    call.depth = std::max(call.depth, informative);
  }
}

void takeCounts(const std::vector<SampleCounts>& counts, std::vector<GenotypeCall>& calls) {
  assert(counts.size() == calls.size());
  for (size_t s = 0; s < calls.size(); ++s) {
    calls[s].adDepth = counts[s].ad;
    calls[s].depth = counts[s].depth;
  }
}
}  // namespace

void collectPileup(const Site& site, std::span<const int32_t> sampleOf, std::vector<SiteRead>& reads) {
  reads.clear();
  if (!site.pileup) return;
  const std::array<int32_t, 4> alleles = alleleOfBase(site);
  for (Read* read : *site.pileup) {
    const size_t group = size_t(read->read_group);
    SiteRead r = siteRead(read, group < sampleOf.size() ? sampleOf[group] : -1, site.position);
    if (isBase(r.base)) r.allele = alleles[baseIndex(r.base)];
    reads.push_back(r);
  }
}

void collectRows(const Site& site, std::vector<SiteRead>& reads) {
  reads.clear();
  if (!site.rows) return;
  const KeptAlleles alleles(site);
  assert(site.rows->alleles == alleles.written.size());
  const double* row = site.rows->values;
  for (const ReadClip& clip : site.rows->reads) {
    if (!std::isnan(row[0])) {
      SiteRead r = siteRead(clip.read, clip.sample, site.position);
      double best = row[0], second = -std::numeric_limits<double>::infinity();
      int32_t allele = 0;
      for (size_t i = 1; i < alleles.kept.size(); ++i) {
        const double x = row[alleles.kept[i]];
        second = std::max(second, std::min(x, best));
        if (x > best) best = x, allele = alleles.kept[i];
      }
      if (best - second > kInformativeMargin) r.allele = allele;
      reads.push_back(r);
    }
    row += site.rows->alleles;
  }
}

GQStatistics assignGenotypes(const Site& site, std::span<const SiteRead> rows,
                             std::span<const SiteRead> pileup, const std::vector<std::string>& samples,
                             bool gvcf, VariantContext& record, std::vector<GenotypeCall>& calls) {
  assert(site.likelihoods.size() == samples.size());
  const KeptAlleles alleles(site);
  const bool has_reads = site.rows || site.pileup;
  calls.assign(samples.size(), GenotypeCall());
  if (has_reads) countReads(site, rows, pileup, calls);
  if (site.counts) takeCounts(*site.counts, calls);
  std::vector<StrandCounts> strands;
  if (gvcf && has_reads) strands = countStrands(site, alleles, pileup, samples.size());

  double sum = 0, sum_of_squares = 0;
  int values = 0;
  for (size_t s = 0; s < samples.size(); ++s) {
    const GenotypeLikelihoods& likelihoods = site.likelihoods[s];
    const uint32_t ploidy = likelihoods.ploidy;
    GenotypeCall& call = calls[s];
    GenotypeAttr& columns = record.genotypes[samples[s]];
    auto put = [&columns](const char* key) -> std::vector<std::string>& {
      std::vector<std::string>& column = columns[key];
      column.clear();
      return column;
    };

    if (likelihoods.gl.empty() || std::isnan(likelihoods.gl[0])) {
      call = GenotypeCall();
      put("GT").push_back(genotypeText({}, alleles, ploidy));
      continue;
    }
    const Ranking ranking(likelihoods, alleles);
    if (!ranking.all_equal || alleles.alts() == 0) call.counts = ranking.counts;
    put("GT").push_back(genotypeText(call.counts, alleles, ploidy));

    if (!call.counts.empty() && ranking.pl.size() > 1) {
      call.gq = int32_t(std::min<int64_t>(int64_t(ranking.second) - ranking.best, kMaxGQ));
      put("GQ").push_back(std::to_string(call.gq));
      sum += call.gq;
      sum_of_squares += double(call.gq) * call.gq;
      ++values;
    }
    if (!call.counts.empty() && alleles.alts() > 0 &&
        (ranking.pl.size() <= kMaxWrittenGenotypes || (ploidy == 2 && has_reads))) {
      std::vector<std::string>& pl = put("PL");
      for (int32_t x : ranking.pl) pl.push_back(std::to_string(int64_t(x) - ranking.best));
    }
    if (!call.adDepth.empty()) {
      std::vector<std::string>& ad = put("AD");
      for (int32_t allele : alleles.kept) ad.push_back(std::to_string(call.adDepth[size_t(allele)]));
    }
    if (call.depth >= 0) put("DP").push_back(std::to_string(call.depth));
    if (!strands.empty()) {
      std::vector<std::string>& sb = put("SB");
      for (int n : strands[s]) sb.push_back(std::to_string(n));
    }
    if (ploidy == 2 && !call.counts.empty() && isHomozygousAlt(call.counts, ploidy)) {
      auto phase = columns.find("PGT");
      if (phase != columns.end() && !phase->second.empty()) phase->second.assign(1, "1|1");
    }
  }

  constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  GQStatistics gq{kNaN, kNaN};
  if (values > 0) gq.mean = sum / values;
  if (values > 1) gq.stddev = std::sqrt(std::max(0.0, (sum_of_squares - gq.mean * sum) / (values - 1)));
  return gq;
}
