// The generator's parts by hand-worked cases: alignment clean-up, differences, alleles, options.
#include <gtest/gtest.h>
#include <stdexcept>

#include "cigar_edit.h"
#include "haplotype.h"
#include "options.h"
#include "read_builder.h"  // parseCigar
#include "rng.h"
#include "variants.h"

namespace {

std::string text(const Cigar& cigar) {
  return cigarString(reinterpret_cast<const uint8_t*>(cigar.data()), static_cast<uint32_t>(cigar.size()));
}

TEST(Rng, SplitmixGivesThePublishedNumbers) {
  uint64_t state = 1234567;
  EXPECT_EQ(splitmix64(state), 6457827717110365317u);
  EXPECT_EQ(splitmix64(state), 3203168211198807973u);
}

TEST(Rng, StreamsDifferAndDrawsAreEven) {
  EXPECT_NE(Rng(1, 2, 3).next(), Rng(1, 3, 2).next());
  Rng rng(9);
  int64_t sum = 0, squares = 0, happened = 0;
  uint32_t seen[7] = {};
  constexpr int kDraws = 70000;
  for (int i = 0; i < kDraws; ++i) {
    int32_t draw = rng.normal(400, 80);
    sum += draw;
    squares += int64_t(draw - 400) * (draw - 400);
    ++seen[rng.below(7)];
    happened += rng.happens(chanceOf(0.1));
  }
  EXPECT_NEAR(static_cast<double>(sum) / kDraws, 400, 2);
  EXPECT_NEAR(static_cast<double>(squares) / kDraws, 6400, 200);
  EXPECT_NEAR(static_cast<double>(happened), 7000, 400);
  for (uint32_t count : seen) EXPECT_NEAR(count, 10000, 500);
}

TEST(CigarEdit, ClipsSwallowIndelsNearTheEnd) {
  struct Case {
    const char* cigar;
    uint32_t bases;
    const char* at_start;
    uint32_t start;  // of 100 before
    const char* at_end;
  };
  const Case cases[] = {
      {"50M", 0, "50M", 100, "50M"},
      {"50M", 7, "7S43M", 107, "43M7S"},
      {"5S40M5S", 0, "5S40M5S", 100, "5S40M5S"},
      {"5S40M5S", 9, "9S36M5S", 104, "5S36M9S"},
      {"3M2I40M", 0, "5S40M", 103, "3M2I40M"},
      {"3M2D40M", 0, "3S40M", 105, "3M2D40M"},
      {"40M2D3M", 0, "40M2D3M", 100, "40M3S"},
      {"4I40M", 0, "4S40M", 100, "4I40M"},
      {"10M1D40M", 7, "10S40M", 111, "10M1D33M7S"},
      {"10S3M27S", 0, "40S", 103, "40S"},
  };
  for (const Case& c : cases) {
    Cigar cigar = parseCigar(c.cigar);
    uint32_t start = 100;
    softClipStart(cigar, c.bases, 5, start);
    EXPECT_EQ(text(cigar), c.at_start) << c.cigar;
    EXPECT_EQ(start, c.start) << c.cigar;
    cigar = parseCigar(c.cigar);
    softClipEnd(cigar, c.bases, 5);
    EXPECT_EQ(text(cigar), c.at_end) << c.cigar;
  }
}

TEST(CigarEdit, FindsDifferences) {
  struct Case {
    const char *cigar, *bases, *reference, *md;
    int32_t nm;
  };
  const Case cases[] = {
      {"4M", "ACGT", "ACGT", "4", 0},      {"4M", "TCGA", "ACGT", "0A2T0", 2},
      {"2S2M", "GGAC", "AC", "2", 0},      {"2M2D2M", "ACTT", "ACGGAT", "2^GG0A1", 3},
      {"2M1I2M", "ACTGT", "ACGT", "4", 1}, {"3M", "ANT", "ACT", "1C1", 1},
  };
  for (const Case& c : cases) {
    Differences found;
    findDifferences(parseCigar(c.cigar), c.bases, c.reference, found);
    EXPECT_EQ(found.text, c.md) << c.cigar << " " << c.bases;
    EXPECT_EQ(found.edit_distance, c.nm) << c.cigar << " " << c.bases;
  }
}

TEST(Haplotype, AlignsAroundAllelesOfEveryKind) {
  GenomeContig contig;
  contig.name = "c";
  contig.bases = "ACGTACGTACGTACGTACGT";
  std::vector<Site> sites = {
      {0, 2, "G", {"T"}}, {0, 5, "C", {"CTT"}}, {0, 9, "CGTA", {"C"}}, {0, 15, "TA", {"T", "TAA"}}};
  Haplotype haplotype(contig, 0, sites, {1, 1, 1, 2});
  // ref 0-5 with T for G, TT, ref 6-9, ref 13-15, A, ref 16-19
  EXPECT_EQ(haplotype.bases(), "ACTTACTTGTACCGTAACGT");
  struct Case {
    uint32_t start, end, ref_start;
    const char* cigar;
  };
  const Case cases[] = {
      {0, 20, 0, "6M2I4M3D3M1I4M"}, {0, 6, 0, "6M"},  {0, 7, 0, "6M1I"},
      {7, 12, 6, "1I4M"},           {8, 12, 6, "4M"}, {8, 14, 6, "4M3D2M"},
      {12, 15, 13, "3M"},
  };
  for (const Case& c : cases) {
    Cigar cigar;
    EXPECT_EQ(haplotype.align(c.start, c.end, cigar), c.ref_start) << c.start;
    EXPECT_EQ(text(cigar), c.cigar) << c.start;
  }
  for (uint32_t place : {0u, 5u, 6u, 9u, 13u, 19u})
    EXPECT_EQ(haplotype.toReference(haplotype.fromReference(place)), place);
  EXPECT_EQ(haplotype.fromReference(11), 12u) << "a deleted base leads to the next that is there";
}

TEST(Variants, TrimsAllelesToTheirChange) {
  struct Case {
    const char *ref, *alt;
    uint32_t start;
    const char *cut_ref, *cut_alt;
  };
  for (const Case& c :
       {Case{"A", "T", 7, "A", "T"}, Case{"A", "AGG", 8, "", "GG"}, Case{"ACC", "A", 8, "CC", ""},
        Case{"AT", "ATT", 8, "", "T"}, Case{"ACT", "AGG", 8, "CT", "GG"}}) {
    Site site{0, 7, c.ref, {c.alt}};
    AlleleChange change = trimAllele(site, 0);
    EXPECT_EQ(change.start, c.start) << c.ref << ">" << c.alt;
    EXPECT_EQ(change.ref, c.cut_ref);
    EXPECT_EQ(change.alt, c.cut_alt);
  }
}

TEST(Options, ReadsEveryForm) {
  SimulateOptions o = parseOptions({"--out-dir=x", "--contigs", "a:1000,b:2000", "--samples", "tumor,normal",
                                    "--insert", "300/50", "--error", "binned", "--optical", "0.5"});
  EXPECT_EQ(o.contigs.size(), 2u);
  EXPECT_EQ(o.contigs[1].length, 2000u);
  EXPECT_EQ(o.samples, (std::vector<std::string>{"tumor", "normal"}));
  EXPECT_EQ(o.insert_sd, 50);
  EXPECT_EQ(o.optical, Chance(1) << 31);
  EXPECT_EQ(o.error, ErrorProfile::kBinned);
  o = parseOptions({"--out-dir", "x", "--length", "9000", "--contig-count", "3", "--samples", "2"});
  EXPECT_EQ(o.contigs[2].name, "chr3");
  EXPECT_EQ(o.contigs[2].length, 3000u);
  EXPECT_EQ(o.samples[1], "sample2");
}

TEST(Options, RefusesWithATextThatNamesTheOption) {
  const std::vector<std::pair<std::vector<std::string>, const char*>> cases = {
      {{}, "--out-dir"},
      {{"--out-dir", "x", "--depth"}, "--depth"},
      {{"--out-dir", "x", "--depth", "-1"}, "--depth"},
      {{"--out-dir", "x", "--depth", "3x"}, "--depth"},
      {{"--out-dir", "x", "--optical", "1.1"}, "--optical"},
      {{"--out-dir", "x", "--optical", "nan"}, "--optical"},
      {{"--out-dir", "x", "--contigs", "a"}, "--contigs"},
      {{"--out-dir", "x", "--contigs", "a:1000,a:1000"}, "--contigs"},
      {{"--out-dir", "x", "--contigs", "a:600000000"}, "--contigs"},
      {{"--out-dir", "x", "--samples", "../a"}, "--samples"},
      {{"--out-dir", "x", "--prefix", "a/b"}, "--prefix"},
      {{"--out-dir", "x", "--contig-count", "900"}, "--contig-count"},
      {{"--out-dir", "x", "--libraries", "5"}, "--libraries"},
      {{"--out-dir", "x", "--flag-duplicates=1"}, "--flag-duplicates"},
      {{"--out-dir", "x", "--bogus"}, "--bogus"},
      {{"bogus"}, "bogus"},
  };
  for (const auto& [args, named] : cases) {
    try {
      parseOptions(args);
      ADD_FAILURE() << named << " was taken";
    } catch (const std::invalid_argument& error) {
      EXPECT_NE(std::string(error.what()).find(named), std::string::npos) << error.what();
    }
  }
}

}  // namespace
