// variants.h - the sites at which the samples differ from the reference, and what each sample carries there.
// Coords   zero-based; `start` is that of the first base of `ref`.
// Threads  constant once made.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "genome.h"

// Alleles as a VCF line holds them: left-aligned, indels with the base before them, no two sites overlapping.
struct Site {
  uint32_t contig = 0;
  uint32_t start = 0;
  std::string ref;
  std::vector<std::string> alts;
  bool isSnp() const { return ref.size() == 1 && alts[0].size() == 1; }
};

// One set of alleles through the genome, and the share of a sample's fragments that comes from it.
struct WeightedHaplotype {
  std::vector<uint8_t> alleles;  // parallel to the sites: 0 the reference, n the nth of alts
  uint32_t weight = 1;
};

struct Sample {
  std::string name;
  std::vector<WeightedHaplotype>
      haplotypes;  // of the ploidy's number: the sides of a phased genotype, in order
};

struct Variants {
  std::vector<Site> sites;  // sorted; each has every alt in some sample
  std::vector<Sample> samples;
  std::vector<Site> decoys;         // further known sites that nobody carries; sorted
  std::vector<uint8_t> site_known;  // parallel to sites: listed among the known sites
  uint64_t snps = 0, insertions = 0, deletions = 0, multi_allelic = 0;
};

// Every third sample is the child of the two before it, with recombination; all others are unrelated but draw
// on the same allele frequencies.
// A normal beside a tumor comes with one more individual, last and without a name.
Variants makeVariants(const SimulateOptions& options, const Genome& genome);

// SNPs and indels of one alternative that keep half of their mean distance or more between them, outside of
// repeats, where reads can be placed.
std::vector<Site> drawSparseSites(const Genome& genome, uint64_t seed, uint64_t stream, Chance snp,
                                  Chance indel);

// Keeps of `drawn` what touches none of `sites`; both sorted.
void dropClashes(const std::vector<Site>& sites, std::vector<Site>& drawn);

void countKinds(Variants& variants);  // sets the numbers of sites by kind

// What is left of an allele once the bases it shares with the reference at either end are gone.
struct AlleleChange {
  uint32_t start = 0;
  std::string_view ref, alt;
};
AlleleChange trimAllele(const Site& site, size_t alt);
