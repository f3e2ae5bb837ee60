#include "algo/onco/tn_artefacts.h"

#include <cmath>
#include <gtest/gtest.h>

#include "locus_maker.h"

namespace {

// Reads of the reference, half of them reverse, and alternates of either direction; `maker` owns them.
LocusReads locus(LocusMaker& maker, int forward, int reverse) {
  maker.of(20, kTumor, 0).of(20, kTumor, 0, FLAG_REVERSE);
  return maker.of(forward, kTumor, 1).of(reverse, kTumor, 1, FLAG_REVERSE).build();
}

double strandLod(int forward, int reverse) {
  LocusMaker maker;
  return calcArtefacts(locus(maker, forward, reverse), 1, {}, 'A', 'C').strand;
}

TEST(TNArtefacts, OneStrandIsAFaultWhenEnoughReadsSaySo) {
  EXPECT_LT(strandLod(4, 0), kArtefactLod);
  EXPECT_GE(strandLod(5, 0), kArtefactLod);
  EXPECT_DOUBLE_EQ(strandLod(0, 5), strandLod(5, 0));
  EXPECT_NEAR(strandLod(5, 0), 5 * std::log10(0.98 / 0.5) - std::log10(2), 1e-12);
  EXPECT_LT(strandLod(20, 10), kArtefactLod);
}

TEST(TNArtefacts, EndsOfReadsAreWhereTheReferenceIsNot) {
  const auto lod = [](uint32_t alt_start) {
    LocusMaker maker;
    maker.of(30, kTumor, 0);
    for (int i = 0; i < 4; ++i)
      maker.add(kTumor, readBuilder("a" + std::to_string(i)).at(0, int(alt_start)).cigar("20M"), {-4, -1});
    return calcArtefacts(maker.build(), 1, {}, 'A', 'C').readEnd;
  };
  EXPECT_GE(lod(99), kArtefactLod);  // the second base
  EXPECT_LT(lod(98), kArtefactLod);
  EXPECT_GE(lod(82), kArtefactLod);  // the last but one
}

TEST(TNArtefacts, OxidationHasItsChangeAndItsOrientation) {
  AlleleEvidence evidence;
  evidence.refF1R2 = evidence.refF2R1 = 20;
  evidence.altF1R2 = 4;
  LocusMaker maker;
  const LocusReads reads = locus(maker, 2, 2);
  const auto lod = [&](char ref, char alt) { return calcArtefacts(reads, 1, evidence, ref, alt).oxidation; };
  EXPECT_GE(lod('G', 'T'), kArtefactLod);
  EXPECT_LT(lod('C', 'A'), 0);
  EXPECT_EQ(lod('G', 'A'), 0);
  std::swap(evidence.altF1R2, evidence.altF2R1);
  EXPECT_GE(lod('C', 'A'), kArtefactLod);
  EXPECT_LT(lod('G', 'T'), 0);
}

TEST(TNArtefacts, FiltersStandBehindThoseThatAreThere) {
  VariantContext record;
  record.addFilter("t_lod_fstar");
  addArtefactFilters({kArtefactLod, 0.99, kArtefactLod}, record);
  EXPECT_EQ(record.filter, "t_lod_fstar;strand_artefact;oxidation_artefact");
}

}  // namespace
