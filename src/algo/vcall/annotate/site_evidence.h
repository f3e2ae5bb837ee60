// site_evidence.h - questions that several annotators ask of a site.
#pragma once

#include <span>

#include "algo/vcall/model/site_context.h"
#include "base/bases.h"

inline bool isKept(const Allele& alternate) {
  return alternate.length > 0;
}

inline size_t countKept(const Site& site) {
  size_t kept = 0;
  for (const Allele& alternate : site.alts) kept += isKept(alternate);
  return kept;
}

inline bool supportsReference(const SiteRead& read) {
  return read.allele == 0;
}
inline bool supportsAlternate(const SiteRead& read, const Site& site) {
  return read.allele > 0 && isKept(site.alts[static_cast<size_t>(read.allele) - 1]);
}

// Reads of groups that no sample of the output has belong to none.
inline bool hasSample(const SiteContext& context, const SiteRead& read) {
  return static_cast<size_t>(read.sample) < context.calls.size();
}
inline const GenotypeCall& callOf(const SiteContext& context, const SiteRead& read) {
  return context.calls[static_cast<size_t>(read.sample)];
}

// The mapping quality is known and not 0.
inline bool hasMappingQuality(const SiteRead& read) {
  return read.read->mapq >= 1 && read.read->mapq <= 254;
}
inline constexpr int kMinBaseQuality = 6;  // phred: below, a base says nothing

// The reads that stand at the position: those of the pileup with one of the four bases there, or without a pileup
// those whose likelihoods tell which allele they have.
inline std::span<const SiteRead> coveringReads(const SiteContext& context) {
  return context.pileup.empty() ? context.reads : context.pileup;
}
inline bool covers(const SiteRead& read, const SiteContext& context) {
  if (context.pileup.empty() && context.hasRows()) return read.allele >= 0;
  return isBase(read.base);
}

// A sample that has a genotype.
inline bool isCalled(const SiteContext& context, size_t sample) {
  return !context.site->likelihoods[sample].gl.empty() && !context.calls[sample].counts.empty();
}
