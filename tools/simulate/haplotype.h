// haplotype.h - one contig with the alleles of one haplotype put in, and the way back to the reference.
// Coords   zero-based half open, of the haplotype or of the reference as the name says.
// Threads  constant once made.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "readdata/bam/bam_record.h"
#include "variants.h"

class Haplotype {
 public:
  Haplotype(const GenomeContig& contig, uint32_t contig_number, const std::vector<Site>& sites,
            const std::vector<uint8_t>& alleles);

  const std::string& bases() const { return bases_; }

  // The haplotype base that comes of `ref_place`, or of the first base behind it that was not deleted.
  uint32_t fromReference(uint32_t ref_place) const;
  // The reference base that `hap_place` comes of; for an inserted base, the one behind the insertion.
  uint32_t toReference(uint32_t hap_place) const;
  // Appends the alignment of haplotype bases [start, end) and returns where in the reference it begins. A
  // read that begins or ends in an insertion begins or ends with I.
  uint32_t align(uint32_t start, uint32_t end, Cigar& cigar) const;

 private:
  // Bases that stand for the same number of reference bases; what lies between two blocks is an indel.
  struct Block {
    uint32_t hap_start, ref_start, length;
  };
  size_t blockAt(uint32_t hap_place) const;  // the last one that begins at or before it

  std::string bases_;
  std::vector<Block> blocks_;
};
