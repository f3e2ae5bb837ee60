// cigar_edit.h - small work on CIGARs in the making.
// Coords   offsets count read bases in the order of the reference.
#pragma once

#include <cstdint>
#include <string>

#include "readdata/bam/bam_record.h"

// Appends `length` of an op, joined to the last one when that is of the same kind; a length of 0 does
// nothing.
void appendOp(Cigar& cigar, CigarOp op, uint32_t length);

uint32_t readLength(const Cigar& cigar);       // bases that the CIGAR takes from the read
uint32_t referenceLength(const Cigar& cigar);  // bases that it covers in the reference
uint32_t clipAtStart(const Cigar& cigar);      // soft and hard clipped bases before the first aligned one
uint32_t clipAtEnd(const Cigar& cigar);
bool hasOp(const Cigar& cigar, CigarOp op);
Cigar withClips(const Cigar& cigar, CigarOp op);  // soft and hard clips turned into clips of kind `op`

// Turns the first (last) `bases` read bases into soft clips, and beyond them whatever would leave less than
// `min_match` matched bases between the clip and an indel. `ref_start` moves along. The CIGAR may end up
// without a match.
void softClipStart(Cigar& cigar, uint32_t bases, uint32_t min_match, uint32_t& ref_start);
void softClipEnd(Cigar& cigar, uint32_t bases, uint32_t min_match);

// NM, and MD's text, of `bases` aligned at `reference`, which points to the first aligned reference base.
struct Differences {
  int32_t edit_distance = 0;
  std::string text;
};
void findDifferences(const Cigar& cigar, const char* bases, const char* reference, Differences& out);
