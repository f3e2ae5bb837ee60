// The generator's parts by hand-worked cases: alignment clean-up and alleles.
#include <gtest/gtest.h>

#include "cigar_edit.h"
#include "genome.h"
#include "haplotype.h"
#include "read_builder.h"  // parseCigar
#include "variants.h"

namespace {

std::string text(const Cigar& cigar) {
  return cigarString(reinterpret_cast<const uint8_t*>(cigar.data()), static_cast<uint32_t>(cigar.size()));
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

// The truth of a made-up genome, without its reads.
Variants variantsOf(std::vector<std::string> args) {
  args.insert(args.end(), {"--out-dir", "unused", "--length", "60000"});
  SimulateOptions options = parseOptions(args);
  return makeVariants(options, makeGenome(options.seed, options.contigs));
}

TEST(Variants, AnyPloidyAndEveryAltIsCarried) {
  for (const char* ploidy : {"1", "2", "3", "8"})
    for (const char* samples : {"1", "3"}) {
      Variants variants =
          variantsOf({"--ploidy", ploidy, "--samples", samples, "--multi-allelic-rate", "0.5"});
      for (const Sample& sample : variants.samples)
        ASSERT_EQ(sample.haplotypes.size(), static_cast<size_t>(std::stoi(ploidy)));
      for (size_t i = 0; i < variants.sites.size(); ++i)
        for (size_t alt = 1; alt <= variants.sites[i].alts.size(); ++alt) {
          bool carried = false;
          for (const Sample& sample : variants.samples)
            for (const WeightedHaplotype& haplotype : sample.haplotypes)
              carried |= haplotype.alleles[i] == alt;
          EXPECT_TRUE(carried) << ploidy << " " << samples << " " << variants.sites[i].start;
        }
      if (std::string(samples) == "3") {  // a child has each allele from a parent
        for (size_t i = 0; i < variants.sites.size(); ++i)
          for (const WeightedHaplotype& mine : variants.samples[2].haplotypes) {
            bool inherited = false;
            for (size_t parent : {0, 1})
              for (const WeightedHaplotype& theirs : variants.samples[parent].haplotypes)
                inherited |= theirs.alleles[i] == mine.alleles[i];
            EXPECT_TRUE(inherited);
          }
      }
    }
}

TEST(Variants, ClustersAndMultiAllelicSitesOnDemand) {
  auto near = [](const Variants& variants) {
    int pairs = 0;
    for (size_t i = 1; i < variants.sites.size(); ++i) {
      const Site &a = variants.sites[i - 1], &b = variants.sites[i];
      EXPECT_GT(b.start, a.start + a.ref.size());
      pairs += b.start <= a.start + a.ref.size() + 12;
    }
    return pairs;
  };
  Variants plain = variantsOf({}),
           hard = variantsOf({"--cluster-rate", "0.5", "--multi-allelic-rate", "0.3"});
  EXPECT_LT(near(plain) * 10, static_cast<int>(plain.sites.size()));
  EXPECT_GT(near(hard) * 4, static_cast<int>(hard.sites.size()));
  EXPECT_GT(hard.multi_allelic * 5, hard.sites.size());
}

}  // namespace
