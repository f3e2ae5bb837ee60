// phasing.h - which records of a region lie on the same haplotypes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "algo/vcall/region_events.h"
#include "readdata/vcf/variant_context.h"

// A record of a region that waits to be written, with the site it was made of.
struct RegionRecord {
  VariantContext record;
  EventSite site;  // owns the bases of the record
};

// Writes PGT (0|1, 1|0 or 1|1) and PID (position_ref_alt of the first record of the group) to the records of one diploid
// sample. Two records are of a group when their called alternates have the same haplotypes, or share out all that carry
// either, among the `haplotypes` of the region that carry any called alternate.
void phaseRecords(std::vector<RegionRecord>& records, size_t haplotypes, const std::string& sample);
