// tn_artefacts.h - whether the tumor's reads of a somatic call lie as those of a variant do, or as those of a fault of the
// library or of the sequencer.
//
// The log10 odds of two ways in which the alternate's reads may come about: as the reference's do, or nearly all
//   strand     on one strand. Both mates count where they overlap: such a fault is seen in one of them. What makes a
//              sequencer misread one strand lowers its qualities, too: of a SNP most bases of the alternate are as bad as
//              the worst tenth of the reference's. One fault in ten leaves them as they are, one variant in ten has low
//              ones for other reasons: they make a fault at most nine times likelier or less likely
//   read end   in the outer tenths of their reads
//   oxidation  of orientation F1R2 for G>T, F2R1 for C>A: in fragments of one strand. It comes before sequencing, so that
//              qualities tell nothing
// The more reads lie the other way, the less it is a fault, however many there are. Reads that are not ten times likelier
// with one allele than with the other, those of wrong bases without a quality, say nothing of this.
// Threads  pure functions.
// Source   of oxidation: Costello et al., Nucleic Acids Research 41 (2013), e67; of faults of one strand and their
//          qualities: Nakamura et al., Nucleic Acids Research 39 (2011), e90.
#pragma once

#include <cstdint>

#include "algo/onco/locus_reads.h"
#include "readdata/vcf/variant_context.h"

struct ArtefactLods {
  double strand = 0, readEnd = 0, oxidation = 0;
};

// From these odds on it is a fault. Where a few reads show a change that oxidation makes, in its orientation, oxidation is
// the commoner cause: less is enough.
inline constexpr double kArtefactLod = 1.0, kOxidationLod = 0.5;

// `ref` and `alt` are the bases of a SNP, else 'N'.
ArtefactLods calcArtefacts(const LocusReads& reads, int32_t allele, char ref, char alt);

// strand_artefact, read_end_artefact and oxidation_artefact, behind the filters that are there.
void addArtefactFilters(const ArtefactLods& lods, VariantContext& record);
