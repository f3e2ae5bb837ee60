// tumor.h - a tumor beside its normal: somatic sites by allele fraction, artefacts, contamination, and the lists
// of sites that somatic callers are given.
// Threads  constant once made.
#pragma once

#include <cstdint>
#include <vector>

#include "artefact.h"
#include "genome.h"
#include "options.h"
#include "variants.h"

struct SomaticSite {
  Site site;              // one alternative
  uint32_t fraction = 0;  // of the tumor's own fragments that carry it, in millionths
};

struct TumorPair {
  Variants
      carried;  // what reads are made of: germline and somatic sites, the normal and the tumor in haplotypes
  std::vector<SomaticSite> somatic;  // sorted, as all lists here
  std::vector<Artefact> artefacts;
  std::vector<Site> cosmic;  // half of the somatic sites, and a few germline ones
  std::vector<Site> panel;   // half of the artefacts, and a third of the germline sites

  std::vector<Artefact> artefactsOf(bool tumor) const;
};

// `germline` comes with the normal and another individual, from whom a contaminated tumor has reads, and is left
// with what the normal carries; sites of the other individual alone become decoys.
// A tumor grows in steps: with the mutations of a fraction, its cells have all those of larger fractions.
TumorPair makeTumorPair(const SimulateOptions& options, const Genome& genome, Variants& germline);
