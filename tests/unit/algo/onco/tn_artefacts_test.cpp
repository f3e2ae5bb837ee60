#include "algo/onco/tn_artefacts.h"

#include <cmath>
#include <gtest/gtest.h>

#include "locus_maker.h"

namespace {

ReadBuilder lociRead(const std::string& name, bool reverse, int quality) {
  return readBuilder(name).at(0, 90).cigar("20M").flag(reverse ? FLAG_REVERSE : 0).qual(quality);
}

// 40 reads of the reference, half of them reverse, four of them with a quality of 25 instead of 30, and alternates.
LocusMaker& withReference(LocusMaker& maker) {
  for (int i = 0; i < 4; ++i) maker.add(kTumor, lociRead("low" + std::to_string(i), i % 2, 25), {-1, -4});
  return maker.of(18, kTumor, 0).of(18, kTumor, 0, FLAG_REVERSE);
}

double strandLod(int forward, int reverse, int quality, char ref = 'A') {
  LocusMaker maker;
  withReference(maker);
  for (int i = 0; i < forward + reverse; ++i)
    maker.add(kTumor, lociRead("a" + std::to_string(i), i >= forward, quality), {-4, -1});
  // Bases without a quality are no evidence, wherever they lie.
  for (const bool reverse : {false, true}) maker.add(kTumor, lociRead("junk", reverse, 2), {-2, -1.1});
  return calcArtefacts(maker.build(), 1, ref, 'C').strand;
}

TEST(TNArtefacts, OneStrandIsAFaultWhenEnoughReadsSaySo) {
  EXPECT_LT(strandLod(4, 0, 40, 'N'), kArtefactLod);  // no SNP: qualities do not tell
  EXPECT_GE(strandLod(5, 0, 40, 'N'), kArtefactLod);
  EXPECT_NEAR(strandLod(5, 0, 20, 'N'), 5 * std::log10(0.98 / 0.5) - std::log10(2), 1e-12);
  EXPECT_LT(strandLod(7, 0, 40), kArtefactLod);
  EXPECT_GE(strandLod(8, 0, 40), kArtefactLod);
  EXPECT_GE(strandLod(3, 0, 24), kArtefactLod);
  EXPECT_LT(strandLod(3, 0, 30), kArtefactLod);
  EXPECT_DOUBLE_EQ(strandLod(0, 5, 24), strandLod(5, 0, 24));
  EXPECT_LT(strandLod(60, 20, 24), kArtefactLod);  // on both strands
}

TEST(TNArtefacts, EndsOfReadsAreWhereTheReferenceIsNot) {
  const auto lod = [](uint32_t alt_start) {
    LocusMaker maker;
    maker.of(30, kTumor, 0);
    for (int i = 0; i < 4; ++i)
      maker.add(kTumor, readBuilder("a" + std::to_string(i)).at(0, int(alt_start)).cigar("20M"), {-4, -1});
    return calcArtefacts(maker.build(), 1, 'A', 'C').readEnd;
  };
  EXPECT_GE(lod(99), kArtefactLod);  // the second base
  EXPECT_LT(lod(98), kArtefactLod);
  EXPECT_GE(lod(82), kArtefactLod);  // the last but one
}

TEST(TNArtefacts, OxidationHasItsChangeAndItsOrientation) {
  const auto lod = [](int f1r2, int f2r1, char ref, char alt) {
    LocusMaker maker;
    const int first = FLAG_PAIRED | FLAG_FIRST, second = FLAG_PAIRED | FLAG_SECOND;
    maker.of(20, kTumor, 0, first).of(20, kTumor, 0, second);
    maker.of(f1r2, kTumor, 1, first).of(f2r1, kTumor, 1, second);
    return calcArtefacts(maker.build(), 1, ref, alt).oxidation;
  };
  EXPECT_LT(lod(1, 0, 'G', 'T'), kOxidationLod);
  EXPECT_GE(lod(2, 0, 'G', 'T'), kOxidationLod);
  EXPECT_LT(lod(4, 1, 'G', 'T'), kOxidationLod);
  EXPECT_DOUBLE_EQ(lod(0, 3, 'C', 'A'), lod(3, 0, 'G', 'T'));
  EXPECT_LT(lod(3, 0, 'C', 'A'), 0);
  EXPECT_EQ(lod(3, 0, 'G', 'A'), 0);
}

TEST(TNArtefacts, FiltersStandBehindThoseThatAreThere) {
  VariantContext record;
  record.addFilter("t_lod_fstar");
  addArtefactFilters({kArtefactLod, 0.99, kOxidationLod}, record);
  EXPECT_EQ(record.filter, "t_lod_fstar;strand_artefact;oxidation_artefact");
}

}  // namespace
