// cigar_utils.h - CIGARs of haplotypes: computed against the reference, trimmed, left-aligned, converted.
// Coords   offsets into the sequences and the read are zero-based; trimCigar() alone has an inclusive end.
// Threads  pure functions.
// Errors   std::runtime_error where told.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "algo/assembler/cigar_elements.h"
#include "algo/assembler/smith_waterman.h"
#include "readdata/bam/bam_record.h"

namespace CigarUtils {

// The CIGAR of `alt` against the whole of `ref`, from end to end; false when the two do not align, with an
// empty `cigar`. An empty `alt` is one deletion. An empty `ref` is one insertion, told as a warning on
// standard error. Throws as SMITHWATERMAN::SmithWaterman does.
bool computeCigar(const char* ref, size_t refLen, const char* alt, size_t altLen, CigarElements& cigar);
// The same by an aligner that the caller keeps. The match score is above 0, the others are below it, and a
// mismatch costs no more, against a match, than two gaps.
bool computeCigar(SMITHWATERMAN::SWPairwiseAlignment& aligner, const char* ref, size_t refLen,
                  const char* alt, size_t altLen, CigarElements& cigar,
                  const SMITHWATERMAN::Scores& scores = SMITHWATERMAN::haplotypeAlignScores);

// The part that covers the bases `start` to `end` of the read, `end` included. Deletions and skips next to
// these bases stay, at either edge. Consolidated. Throws for operators other than M, I, D, S, N, = and X.
CigarElements trimCigar(const CigarElements& cigar, size_t start, size_t end);

// Moves each insertion and deletion, in order, as far left as leftAlignIndel() does, at most to the one
// before in its new place, and consolidates. The first element begins at `refIndex` and `readIndex`. A CIGAR
// that does not lie within the sequences is returned unchanged, and told on standard error.
CigarElements leftAlignCigarSequentially(const CigarElements& cigar, const char* ref, size_t refLen,
                                         const char* read, size_t readLen, size_t refIndex, size_t readIndex);

// Moves the last element, an insertion or deletion, left within the element in front of it when that is M or
// =, and leaves other pieces as they are. A base is passed only when read and reference agree there and the
// bases that the gap adds or takes stay the same: mismatches are never moved. The piece must lie within the
// sequences.
void leftAlignIndel(CigarElements& piece, const char* ref, const char* read, size_t refIndex,
                    size_t readIndex);

// Joins neighbours of the same operator and drops elements of length 0. The order stays, of an I next to a D
// too.
CigarElements consolidate(const CigarElements& cigar);

// From and to the words of records. Throws for an operator that has no object (B), and a length beyond 28
// bits.
CigarElements fromWords(const Cigar& words);
Cigar toWords(const CigarElements& cigar);

}  // namespace CigarUtils
