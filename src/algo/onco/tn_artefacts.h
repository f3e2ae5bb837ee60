// tn_artefacts.h - whether the tumor's reads of a somatic call lie as those of a variant do, or as those of a fault of the
// library or of the sequencer.
//
// The log10 odds of two ways in which the alternate's reads may come about: as the reference's do, or nearly all
//   strand     on one strand. Both mates count where they overlap: such a fault is seen in one of them
//   read end   in the outer tenths of their reads
//   oxidation  of orientation F1R2 for G>T, F2R1 for C>A: in fragments of one strand
// The more reads lie the other way, the less it is a fault, however many there are.
// Threads  pure functions.
// Source   of oxidation: Costello et al., Nucleic Acids Research 41 (2013), e67.
#pragma once

#include <cstdint>

#include "algo/onco/locus_reads.h"
#include "algo/onco/tn_annotations.h"
#include "readdata/vcf/variant_context.h"

struct ArtefactLods {
  double strand = 0, readEnd = 0, oxidation = 0;
};

// From these odds on it is a fault.
inline constexpr double kArtefactLod = 1.0;

// `ref` and `alt` are the bases of a SNP, else 'N'. `evidence` is the tumor's.
ArtefactLods calcArtefacts(const LocusReads& reads, int32_t allele, const AlleleEvidence& evidence, char ref,
                           char alt);

// strand_artefact, read_end_artefact and oxidation_artefact, behind the filters that are there.
void addArtefactFilters(const ArtefactLods& lods, VariantContext& record);
