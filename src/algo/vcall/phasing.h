// phasing.h - which records of a region lie on the same haplotypes.
// Threads  pure functions.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "algo/vcall/region_events.h"
#include "readdata/vcf/variant_context.h"

// A record of a region that waits to be written, with the site it was made of: the record's alleles point into it.
struct RegionRecord {
  VariantContext record;
  std::unique_ptr<const EventSite> site;  // stays where it is when the record moves
};

// Writes PGT (0|1, 1|0 or 1|1) and PID (position_ref_alt of the first record of the group, one-based) to the records of
// one diploid sample, by the haplotypes that carry the alternate in its genotype.
//
// Called haplotypes are those that carry an alternate in any of the sample's genotypes. Two heterozygous records are of a
// group when their alternates have the same called haplotypes, or share all of them out: on the same chromosome, or on
// opposite ones. Assembly by short k-mers also makes haplotypes that no chromosome is. So two neighbours are of a group as
// well when the `reads` (with `rows` of reads x haplotypes, NaN in front of one that says nothing) that reach both agree
// on one of the two; without reads the haplotypes alone decide. The first of a group is 0|1. A homozygous record whose
// alternate all called haplotypes carry fits every group, and joins that of the heterozygous record before it, or else
// behind it; without any, such records are one group.
// Without `twoChromosomes`, as in a tumor, there may be others that carry neither of two alternates: opposite is then what
// the reads alone say.
// Records of two alternates, of <NON_REF> and without a genotype have no phase, and neither has a group of one.
void phaseRecords(std::vector<RegionRecord>& records, size_t haplotypes, const std::string& sample,
                  std::span<const ReadClip> reads = {}, std::span<const double> rows = {},
                  bool twoChromosomes = true);
