// given_haplotypes.h - haplotypes made of the reference and the alleles that a file gives.
// Coords   zero-based half open on the contig.
// Threads  pure function.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "algo/assembler/haplotype.h"
#include "algo/vcall/activity_tracker.h"
#include "algo/vcall/given_alleles.h"
#include "algo/vcall/reference_window.h"

// `reference`, which spans `window`, then it with the alleles that begin in `active`: each alone, then together those that
// a haplotype of `assembled` has among its events, then each on top of the alleles in front of it, as far as `limit`
// haplotypes allow. Alleles whose reference bases are not those of the window, or that have a letter other than A, C, G,
// T, are left out.
std::vector<std::unique_ptr<Haplotype>> givenHaplotypes(
    const GivenAlleles& given, ActiveRegion active, const ReferenceWindow& window, const Haplotype& reference,
    const std::vector<std::unique_ptr<Haplotype>>& assembled, size_t limit);
