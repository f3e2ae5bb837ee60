#include "algo/vcall/snp_pileup.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

#include "algo/vcall/snp_caller.h"
#include "read_builder.h"

namespace {

struct Reads {
  std::vector<std::unique_ptr<BAMRead>> owned;
  std::vector<Read*> all;

  BAMRead& add(const ReadBuilder& builder, int32_t group = 0) {
    bam_record record = builder.build();
    owned.push_back(std::make_unique<BAMRead>());
    owned.back()->attach(record);
    owned.back()->read_group = group;
    all.push_back(owned.back().get());
    return *owned.back();
  }
  std::vector<Read*> over(uint32_t start, uint32_t end) const {
    std::vector<Read*> found;
    for (Read* read : all)
      if (read->start < end && read->end > start) found.push_back(read);
    return found;
  }
};

SNPPileup pileUp(const SNPLookupTable& table, const std::vector<Read*>& reads, uint32_t start, uint32_t end,
                 const std::vector<int32_t>& sample_of = {0}) {
  SNPPileup pileup(table, 2, table.ploidy() == 2);
  pileup.reset(start, end);
  pileup.findOverlaps(reads);
  pileup.addReads(reads, sample_of);
  return pileup;
}

// A read's letter and quality at a position: '-' for a deletion, 0 for nothing.
struct At {
  char base = 0;
  uint8_t qual = 0;
};

At at(Read& read, uint32_t position) {
  const ReadWindow window = adapterFreeWindow(read);
  uint32_t place = read.start, offset = 0;
  for (uint32_t i = 0; i < read.n_cigar && position >= window.start && position < window.end; ++i)
    for (uint32_t n = 0; n < cigarLength(read.cigarWord(i)); ++n) {
      const char op = kCigarOps[cigarOp(read.cigarWord(i))];
      if (strchr("M=X", op) && place == position)
        return {read.getBases()[offset], std::min(read.quals[offset], read.mapq)};
      if (op == 'D' && place == position) return {'-', 0};
      place += strchr("M=XDN", op) != nullptr;
      offset += strchr("M=XIS", op) != nullptr;
    }
  return {};
}

Reads randomReads(std::mt19937& rng) {
  const char* const cigars[] = {"60M", "5S30M3D20M5S", "20M4I36M", "25=2X10N33M", "3H40M20S"};
  std::vector<std::pair<int, ReadBuilder>> made;
  for (int fragment = 0; fragment < 60; ++fragment) {
    const int start = int(rng() % 300), distance = int(rng() % 90), tlen = distance + 60;
    for (int end = 0; end < 2; ++end) {
      const Cigar cigar = parseCigar(cigars[rng() % 5]);
      uint32_t length = 0;
      for (uint32_t word : cigar)
        if (consumesRead(word)) length += cigarLength(word);
      std::string letters;
      std::vector<uint8_t> quals;
      for (uint32_t i = 0; i < length; ++i) {
        letters += "ACGTN"[rng() % 40 == 0 ? 4 : rng() % 4];
        quals.push_back(rng() % 20 == 0 ? 255 : uint8_t(rng() % 42));
      }
      const int own = end ? start + distance : start, other = end ? start : start + distance;
      ReadBuilder read =
          readBuilder("f" + std::to_string(fragment)).at(0, own).cigar(cigar).seq(letters).quals(quals);
      read.mapq(rng() % 10 == 0 ? 5 : 60).mate(0, other, end ? -tlen : tlen);
      if (end) read.flag(FLAG_SECOND | FLAG_REVERSE);
      if (rng() % 15 == 0) read.flag(FLAG_SUPPLEMENTARY);
      made.emplace_back(own, read);
    }
  }
  std::stable_sort(made.begin(), made.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  Reads reads;
  for (const auto& [start, read] : made) reads.add(read);
  return reads;
}

TEST(SNPPileup, IsTheSumOverReadsAndPairs) {
  std::mt19937 rng(2);
  for (uint32_t ploidy : {2u, 1u, 3u}) {
    const SNPLookupTable table(ploidy, 17, ploidy == 2);
    Reads reads = randomReads(rng);
    const SNPPileup pileup = pileUp(table, reads.all, 0, 500);
    for (uint32_t position = 0; position < 500; ++position) {
      std::vector<double> sum(table.stride(), 0.0);
      std::map<std::string, std::vector<At>> fragments;
      uint32_t good = 0, bad = 0;
      for (size_t i = 0; i < reads.all.size(); ++i) {
        const At base = at(*reads.all[i], position);
        good += base.base && base.base != '-';
        bad += base.base == '-';
        const bool alone = ploidy != 2 || reads.all[i]->flag & FLAG_SUPPLEMENTARY;
        if (base.base && strchr("ACGT", base.base) && base.qual >= 17)
          fragments[reads.all[i]->name + (alone ? "/" + std::to_string(i) : "")].push_back(base);
      }
      for (const auto& [name, bases] : fragments) {
        const auto index = [&](size_t i) { return baseIndex(bases[i].base); };
        const double* row = bases.size() == 1
                                ? table.row(bases[0].qual, index(0))
                                : table.pairRow(bases[0].qual, bases[1].qual, index(0), index(1));
        for (uint32_t g = 0; g < table.genotypes(); ++g) sum[g] += row[g];
      }
      ASSERT_EQ(pileup.good(position), good) << position;
      ASSERT_EQ(pileup.bad(position), bad) << position;
      for (uint32_t g = 0; g < table.genotypes(); ++g) {
        ASSERT_NEAR(pileup.likelihoods(0, position)[g], sum[g], 1e-9) << position;
        ASSERT_EQ(pileup.likelihoods(1, position)[g], 0);
      }
    }
  }
}

TEST(SNPPileup, DoesNotDependOnTheRegion) {
  std::mt19937 rng(3);
  const SNPLookupTable table(2, 17, true);
  const Reads reads = randomReads(rng);
  const SNPPileup whole = pileUp(table, reads.all, 0, 500);
  for (uint32_t start = 0, step = 1; start < 500; start += step, step = 1 + uint32_t(rng() % 20)) {
    const uint32_t end = std::min(start + step, 500u);
    const SNPPileup part = pileUp(table, reads.over(start, end), start, end);
    for (uint32_t position = start; position < end; ++position) {
      ASSERT_EQ(part.good(position), whole.good(position));
      for (uint32_t g = 0; g < 10; ++g)
        ASSERT_EQ(part.likelihoods(0, position)[g], whole.likelihoods(0, position)[g]) << position;
    }
  }
}

TEST(SNPPileup, NamesJoinReadsOfOneGroupOnly) {
  const SNPLookupTable table(2, 17, true);
  for (const bool same_group : {true, false}) {
    Reads reads;
    reads.add(readBuilder("x").at(0, 0).cigar("10M").qual(35).mate(0, 0, 300));
    reads.add(
        readBuilder("x").at(0, 0).cigar("10M").qual(35).mate(0, 0, -300).flag(FLAG_SECOND | FLAG_REVERSE),
        same_group ? 0 : 1);
    const SNPPileup pileup = pileUp(table, reads.all, 0, 10, {0, 0});
    EXPECT_EQ(pileup.likelihoods(0, 0)[2],
              same_group ? table.pairRow(35, 35, 0, 0)[2] : 2 * table.row(35, 0)[2]);
  }
}

TEST(SNPCaller, DeletionsInOneOfTwentyReadsAreThatManyAtMost) {
  const SNPLookupTable table(2, 17, true);
  for (const int bases : {19, 18}) {
    Reads reads;
    for (int i = 0; i < bases; ++i) reads.add(readBuilder("r" + std::to_string(i)).at(0, 0).cigar("10M"));
    reads.add(readBuilder("d").at(0, 0).cigar("4M2D4M"));
    const SNPPileup pileup = pileUp(table, reads.all, 0, 12);
    EXPECT_TRUE(SNPCaller::isCovered(pileup, 3));
    EXPECT_EQ(SNPCaller::isCovered(pileup, 4), bases == 19);
    EXPECT_TRUE(SNPCaller::isCovered(pileup, 9));
    EXPECT_FALSE(SNPCaller::isCovered(pileup, 11));
  }
}

TEST(SNPCaller, AlternatesAndLikelihoods) {
  const SNPLookupTable table(2, 17, true);
  Reads reads;
  for (int i = 0; i < 6; ++i)  // sample 0: C and T; sample 1: A alone
    reads.add(readBuilder("a" + std::to_string(i)).at(0, 0).cigar("1M").seq(i % 2 ? "T" : "C").qual(30), 0);
  for (int i = 0; i < 6; ++i)
    reads.add(readBuilder("b" + std::to_string(i)).at(0, 0).cigar("1M").seq("A").qual(30), 1);
  const SNPPileup pileup = pileUp(table, reads.all, 0, 2, {0, 1});
  SNPCaller caller(table, 2);
  const BaseList alts = caller.alternates(pileup, 0, 2);  // of reference G
  ASSERT_EQ(std::vector<int>(alts.bases, alts.bases + alts.count), (std::vector<int>{1, 3, 0}));
  Site site;
  caller.prepare(pileup, 0, 2, alts, false, site);
  // G, C, T, A: the fifth genotype over the first three is C/T, the last over all A/A.
  EXPECT_EQ(site.likelihoods[0].gl[4], 0);
  EXPECT_EQ(site.likelihoods[1].gl[9], 0);
  for (const GenotypeLikelihoods& sample : site.likelihoods)
    for (size_t g = 0; g < 10; ++g) {
      EXPECT_LE(sample.gl[g], 0);
      EXPECT_NEAR(sample.gl[g] * 10, std::round(sample.gl[g] * 10), 1e-9);
    }
  // Given alleles that no read has: the best is that of these alone.
  BaseList given;
  given.add(0);
  caller.prepare(pileup, 0, 2, given, true, site);
  EXPECT_EQ(*std::max_element(site.likelihoods[0].gl.begin(), site.likelihoods[0].gl.end()), 0);
  // Nothing anywhere.
  caller.prepare(pileup, 1, 2, given, false, site);
  EXPECT_TRUE(site.likelihoods[0].gl.empty());
  EXPECT_EQ(caller.alternates(pileup, 1, 2).count, 0);
}

}  // namespace
