// region_events.h - from the haplotypes of a region to sites: alleles, the haplotypes that carry them, and the likelihoods
// of reads under them.
// Coords   zero-based half open.
// Units    likelihoods are log10.
// Threads  pure functions.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/model/genotype_from_rows.h"
#include "algo/vcall/model/site_context.h"
#include "algo/vcall/reference_window.h"

// A position with its alleles over a common span of the reference.
struct EventSite {
  uint32_t position = 0;
  std::string ref;
  std::vector<std::string> alts;              // distinct, in order of the haplotypes that bring them
  std::vector<std::vector<size_t>> carriers;  // per allele, reference first: indexes of haplotypes, ascending

  uint32_t end() const { return position + static_cast<uint32_t>(ref.size()); }
  bool isSNP() const;
};

// The sites that begin in [start, end), by position.
//
// The reference is as long as the longest of the events there, and what an alternate lacks of it stands behind its own
// bases. The reference allele has every haplotype without an event at the position, also those whose deletion spans it:
// at most positions they are the other chromosome, and a genotype of two alternates would be claimed without them. Events
// with letters other than A, C, G and T make no site, and their haplotypes carry nothing there.
//
// With `given` (not null) the sites are the records of the file that agree with the reference, SNPs before others at one
// position, with all their alternates. A haplotype carries the allele that it spells over the record's span, or none.
std::vector<EventSite> collectEvents(const std::vector<std::unique_ptr<Haplotype>>& haplotypes,
                                     const ReferenceWindow& reference, uint32_t start, uint32_t end,
                                     const GivenAlleles* given);

// reads x alleles: the reference, the alternates, and <NON_REF> where asked for.
struct AlleleRows {
  std::vector<double> values;
  size_t alleles = 0;
};

// How far a read may lie from a site and still speak for it, bases.
inline constexpr uint32_t kSiteMargin = 2;

// The likelihood of each read under each allele: the best of the allele's haplotypes, the worst of all for an allele that
// none carries. A row is all NaN when the read's row in `haplotypeRows` (reads x haplotypes) begins with NaN, or when the
// clip touches nothing of the site and kSiteMargin bases to both sides. `nonRef` adds a last column for what is neither
// allele: as likely as the second best of the others, so that it never is the best for a read that fits one of them.
void alleleLikelihoods(const EventSite& site, const std::vector<ReadClip>& reads,
                       const std::vector<double>& haplotypeRows, size_t haplotypes, bool nonRef,
                       AlleleRows& rows);

// Keeps the reference and the `limit` alternates of the highest sums over the reads, in their order; the first of equals.
// The haplotypes of the others carry nothing any more. `rows` is of the site before, and no longer fits it.
void limitAlternates(EventSite& site, const AlleleRows& rows, size_t limit);
