#include "algo/vcall/assembly_task.h"

#include <algorithm>
#include <deque>
#include <future>
#include <gtest/gtest.h>
#include <random>

#include "algo/vcall/read_sampling.h"
#include "algo/vcall/region_trimmer.h"
#include "assembly_reads.h"
#include "read_builder.h"

namespace {

constexpr uint32_t kStart = 1000;  // of the reference on the contig

// A region of 400 bases, of which 100 to 300 are active, and the reads over it.
struct Region {
  explicit Region(unsigned seed = 7, size_t length = 400) : random(seed) {
    task.contig = "c";
    task.reference = {randomSequence(random, length), kStart};
    task.paddedInterval = {kStart, kStart + uint32_t(length)};
    task.activeInterval = {kStart + 100, kStart + 300};
  }
  std::string& bases() { return task.reference.bases; }
  // The reference with `count` bases at `offset` replaced.
  std::string with(size_t offset, size_t count, const std::string& alt) {
    return bases().substr(0, offset) + alt + bases().substr(offset + count);
  }
  Read& add(const std::string& letters, size_t offset, const std::string& cigar, int mapq = 60,
            int group = 0) {
    const std::string name = "r" + std::to_string(reads.size());
    return add(readBuilder(name).at(0, int32_t(kStart + offset)).cigar(cigar).seq(letters).mapq(mapq), group);
  }
  Read& add(const ReadBuilder& builder, int group = 0) {
    bam_record record = builder.build();
    Read& read = reads.emplace_back();
    read.attach(record);
    read.getBases();
    read.read_group = group;
    task.fetched.push_back(&read);
    return read;
  }
  // Reads of 100 bases along `haplotype`. That indels shift them does not matter to the assembler.
  void cover(const std::string& haplotype, size_t step = 4, int group = 0) {
    for (size_t i = 0; i + 100 <= haplotype.size(); i += step)
      add(haplotype.substr(i, 100), i, "100M", 60, group);
  }
  AssemblyTask& assemble(AssemblyParam param = {}) {
    RegionAssembler(param, {0, 1}).assemble(task);
    return task;
  }
  // Per haplotype its events by offset in the reference, "150A>C 160AT>A ". That of the reference stays first.
  std::vector<std::string> events() const {
    std::vector<std::string> all;
    for (const auto& haplotype : task.haplotypes) {
      std::string& text = all.emplace_back();
      for (const auto& [position, event] : haplotype->eventMap)
        text += std::to_string(position - kStart) + event.ref + ">" + event.alt + " ";
    }
    std::sort(all.begin() + 1, all.end());
    return all;
  }
  std::string snp(size_t offset) const {
    const char ref = task.reference.bases[offset];
    return std::to_string(offset) + ref + ">" + otherBase(ref) + " ";
  }

  std::mt19937 random;
  std::deque<BAMRead> reads;
  AssemblyTask task;
};

using Texts = std::vector<std::string>;

// What a task promises of its haplotypes: the events put into the reference spell them.
void expectSound(const AssemblyTask& task) {
  ASSERT_FALSE(task.haplotypes.empty());
  EXPECT_TRUE(task.haplotypes[0]->isRef);
  const ActiveRegion span = task.trimmedInterval;
  const std::string reference(task.reference.from(span.start), span.end - span.start);
  for (size_t i = 0; i < task.haplotypes.size(); ++i) {
    const Haplotype& haplotype = *task.haplotypes[i];
    EXPECT_EQ(haplotype.isRef, i == 0);
    if (i > 1) {
      EXPECT_LT(task.haplotypes[i - 1]->bases, haplotype.bases);
    }
    EXPECT_EQ(haplotype.alignmentStart, int(span.start - task.reference.start));
    EXPECT_EQ(haplotype.locus.end, span.end);
    std::string spelled = reference;
    for (auto at = haplotype.eventMap.rbegin(); at != haplotype.eventMap.rend(); ++at)
      spelled.replace(at->first - span.start, at->second.ref.size(), at->second.alt);
    EXPECT_EQ(spelled, haplotype.bases);
  }
  for (const ReadClip& clip : task.reads) {
    EXPECT_GE(clip.refStart, span.start);
    EXPECT_LE(clip.refEnd, span.end);
    EXPECT_GE(clip.length(), RegionAssembler::kMinReadBases);
  }
}

TEST(RegionAssembler, FindsPlantedVariants) {
  Region region;
  std::string& bases = region.bases();
  bases.replace(198, 8, "TCATGCAG");
  const auto planted = [&](const std::string& haplotype) {
    region.task.fetched.clear();
    region.cover(bases);
    region.cover(haplotype);
    expectSound(region.assemble());
    return region.events();
  };
  const std::string snp = region.with(200, 1, std::string(1, otherBase(bases[200])));
  EXPECT_EQ(planted(snp), (Texts{"", region.snp(200)}));
  // Of SNPs alone the region is small; the flanks of the active interval are too far away.
  EXPECT_EQ(region.task.trimmedInterval.start, kStart + 155);
  EXPECT_EQ(region.task.trimmedInterval.end, kStart + 246);
  for (const ReadClip& clip : region.task.reads) EXPECT_LE(clip.length(), 91);

  EXPECT_EQ(planted(region.with(201, 2, "")), (Texts{"", "200ATG>A "}));
  EXPECT_EQ(region.task.trimmedInterval.start, kStart + 75);
  EXPECT_EQ(region.task.trimmedInterval.end, kStart + 325);
  EXPECT_EQ(planted(region.with(201, 0, "GGACC")), (Texts{"", "200A>AGGACC "}));

  std::string several = region.with(240, 4, "");
  several[200] = otherBase(several[200]);
  const std::string gap = "239" + bases.substr(239, 5) + ">" + bases[239] + " ";
  const Texts found = planted(several);  // paths that change between the haplotypes are found too
  EXPECT_TRUE(std::count(found.begin(), found.end(), region.snp(200) + gap));
  EXPECT_FALSE(region.task.skipFlag);

  // Nothing begins in the active interval.
  EXPECT_TRUE((planted(bases), region.task.skipFlag)) << "no variant";
  std::string outside = bases;
  outside[60] = otherBase(outside[60]);
  region.task.fetched.clear();
  region.cover(outside);
  expectSound(region.assemble());
  EXPECT_TRUE(region.task.skipFlag);
  EXPECT_EQ(region.events(), Texts{""});
}

TEST(RegionAssembler, TakesReadsThatCount) {
  Region region;
  const std::string snp = region.with(200, 1, std::string(1, otherBase(region.bases()[200])));
  region.cover(region.bases());
  const size_t good = region.reads.size();
  region.add(snp.substr(150, 100), 150, "100M", 19);
  region.add(snp.substr(150, 100), 150, "100M", 60, 5);  // of no sample
  region.add("ACGTACGTAC", 395, "10M");                  // 5 bases inside
  region.assemble();
  EXPECT_TRUE(region.task.skipFlag);
  EXPECT_EQ(region.task.reads.size(), good);

  // The variant in soft-clipped bases alone.
  for (int i = 0; i < 6; ++i) region.add(snp.substr(195, 100), 235, "40S60M", 60, 1);
  EXPECT_EQ((region.assemble(), region.events()), (Texts{"", region.snp(200)}));
  expectSound(region.task);
  EXPECT_EQ(std::count_if(region.task.reads.begin(), region.task.reads.end(),
                          [](const ReadClip& clip) { return clip.sample == 1; }),
            6);
  AssemblyParam trimming;
  trimming.trimSoftClip = 1;
  EXPECT_TRUE((region.assemble(trimming), region.task.skipFlag));
}

// Fragments that leave the reference at 215 for its other strand, at 211 and back. It is the same there for 6 bases, but
// for one.
TEST(RegionAssembler, LeavesOutFoldBacks) {
  Region region;
  std::string& bases = region.bases();
  bases.replace(205, 16, "AGGTCCTTACGGTCCT");
  region.cover(bases);
  for (size_t start = 130; start < 154; start += 4) {
    std::string copy = bases.substr(166, 211 - 166);
    std::reverse(copy.begin(), copy.end());
    for (char& base : copy) base = "TGCA"[std::string("ACGT").find(base)];
    region.add(bases.substr(start, 215 - start) + copy, start, std::to_string(221 - start) + "M39S");
  }
  region.assemble();
  EXPECT_EQ(region.events(), Texts{""});
}

// Variants on different chromosomes, nearer than a k-mer: one read has both.
TEST(RegionAssembler, AddsWhatSingleReadsCombine) {
  for (const bool adds : {true, false}) {
    Region region;
    const std::string& bases = region.bases();
    const std::string first(1, otherBase(bases[190])), second = bases[205] + std::string("GATTACA");
    const std::string one = region.with(190, 1, first), other = region.with(205, 1, second);
    std::string both = other;
    both.replace(190, 1, first);
    region.cover(one);
    region.cover(other);
    region.add(both.substr(140, 100), 140, "66M7I27M");
    region.add(both.substr(120, 79), 120, "79M");       // says nothing of the second
    region.add(other.substr(140, 53), 140, "53M", 10);  // maps badly
    AssemblyParam param;
    param.addsCrossovers = adds;
    param.kmerSizes = {25};
    expectSound(region.assemble(param));
    const std::string snp = region.snp(190), insertion = "205" + second.substr(0, 1) + ">" + second + " ";
    EXPECT_EQ(region.events(),
              adds ? (Texts{"", snp, snp + insertion, insertion}) : (Texts{"", snp, insertion}));
  }
}

TEST(RegionAssembler, CountsOverlappingMatesOnce) {
  Region region;
  const std::string& bases = region.bases();
  region.cover(bases);
  region.cover(region.with(200, 1, std::string(1, otherBase(bases[200]))));
  const auto mate = [&](size_t start, int flag, int group) {
    region.add(readBuilder("pair")
                   .at(0, int32_t(kStart + start))
                   .cigar("100M")
                   .seq(bases.substr(start, 100))
                   .mapq(60)
                   .flag(FLAG_PAIRED | flag),
               group);
  };
  mate(110, FLAG_FIRST, 0);
  mate(190, FLAG_SECOND | FLAG_REVERSE, 0);
  mate(195, FLAG_SECOND | FLAG_REVERSE, 1);  // of another fragment: names are those of a read group
  std::vector<uint32_t> starts;
  for (const ReadClip& clip : region.assemble().reads)
    if (clip.read->name == std::string("pair")) starts.push_back(clip.refStart);
  EXPECT_EQ(starts, (std::vector<uint32_t>{kStart + 155, kStart + 195, kStart + 210}));
}

TEST(RegionAssembler, DoesNotDependOnOrderOrThreads) {
  std::vector<std::string> texts;
  AssemblyParam param;
  param.resampleDepth = 20;
  const auto text = [](const AssemblyTask& task) {
    std::string all;
    for (const auto& haplotype : task.haplotypes) all += haplotype->text() + "\n";
    for (const ReadClip& clip : task.reads) all += clip.read->name + std::to_string(clip.readStart) + " ";
    return all;
  };
  std::deque<Region> regions;
  for (int i = 0; i < 6; ++i) {
    Region& region = regions.emplace_back();
    region.cover(region.bases(), 2);
    region.cover(region.with(200, 3, "CTTGA"), 2);
    region.cover(region.with(120, 1, "G"), 3, 1);
    std::shuffle(region.task.fetched.begin(), region.task.fetched.end(), std::mt19937(unsigned(i)));
  }
  const RegionAssembler assembler(param, {0, 1});
  std::vector<std::future<void>> running;
  for (Region& region : regions)
    running.push_back(std::async(std::launch::async, [&] { assembler.assemble(region.task); }));
  for (auto& one : running) one.get();
  for (const Region& region : regions) EXPECT_EQ(text(region.task), text(regions[0].task));
  EXPECT_GT(regions[0].task.haplotypes.size(), 1U);
}

TEST(SampleReads, DrawsEvenlyAndByRegion) {
  std::vector<ReadClip> all(1000);
  for (int i = 0; i < 1000; ++i) all[size_t(i)].readStart = i, all[size_t(i)].sample = i % 2;
  const auto draw = [&](const char* contig, uint32_t start) {
    std::vector<ReadClip> reads = all;
    sampleReads(reads, std::vector<size_t>{100, 1000}, contig, start);
    std::vector<int> drawn;
    for (const ReadClip& clip : reads) drawn.push_back(clip.readStart);
    return drawn;
  };
  const std::vector<int> first = draw("a", 100);
  EXPECT_EQ(first.size(), 600U);
  EXPECT_TRUE(std::is_sorted(first.begin(), first.end()));
  EXPECT_EQ(first, draw("a", 100));
  EXPECT_NE(first, draw("b", 100));
  EXPECT_NE(first, draw("a", 101));
  // Each read as often as others: 200 draws of 1 in 5 take one 40 times, within 5 standard deviations.
  std::vector<int> taken(1000);
  for (uint32_t start = 0; start < 200; ++start)
    for (const int i : draw("a", start)) ++taken[size_t(i)];
  for (size_t i = 0; i < 1000; i += 2) EXPECT_NEAR(taken[i], 40, 29) << i;
  EXPECT_EQ(taken[1], 200);
}

TEST(RegionTrimmer, CutsThroughIndels) {
  const ReferenceWindow reference{"ACGTTGCAAGCTTACGGATC", kStart};
  const auto make = [&](const char* cigar, const std::string& bases) {
    auto made = std::make_unique<Haplotype>();
    made->bases = bases, made->cigar = parseCigar(cigar);
    made->eventMap.build(bases, made->cigar, reference.bases, kStart, 0);
    return made;
  };
  const auto cut = [&](const Haplotype& haplotype, uint32_t from, uint32_t to) {
    const auto made = RegionTrimmer::cut(haplotype, reference, kStart + from, kStart + to);
    std::string text = made->bases + " ";
    for (const uint32_t word : made->cigar)
      text += std::to_string(cigarLength(word)) + kCigarOps[cigarOp(word)];
    for (const auto& [position, event] : made->eventMap)
      text += " " + std::to_string(position - kStart) + event.ref + ">" + event.alt;
    return text + (made->isRef ? " ref" : "");
  };
  const auto gap = make("5M4D11M", "ACGTTGCTTACGGATC");  // GCAA
  EXPECT_EQ(cut(*gap, 2, 14), "GTTGCTTA 3M4D5M 4TGCAA>T");
  EXPECT_EQ(cut(*gap, 4, 10), "TG 1M4D1M 4TGCAA>T");
  EXPECT_EQ(cut(*gap, 5, 10), "GCAAG 5M ref");  // on the border
  EXPECT_EQ(cut(*gap, 7, 10), "AAG 3M ref");
  EXPECT_EQ(cut(*gap, 2, 9), "GTTGCAA 7M ref");
  EXPECT_EQ(cut(*gap, 2, 7), "GTTGC 5M ref");
  const auto most = make("2M14D4M", "ACGATC");  // with less bases than lie in front or behind
  EXPECT_EQ(cut(*most, 0, 1), "A 1M ref");
  EXPECT_EQ(cut(*most, 17, 20), "ATC 3M ref");
  const auto more = make("5M2I15M", "ACGTTCCGCAAGCTTACGGATA");  // and a SNP at the end
  EXPECT_EQ(cut(*more, 4, 6), "TCCG 1M2I1M 4T>TCC");
  EXPECT_EQ(cut(*more, 5, 20), "GCAAGCTTACGGATA 15M 19C>A");
  EXPECT_EQ(cut(*more, 0, 5), "ACGTT 5M ref");
  EXPECT_EQ(cut(*make("20M3I", reference.bases + "GGG"), 10, 20), "CTTACGGATCGGG 10M3I 19C>CGGG");

  // What differs outside alone falls together, the reference first.
  RegionTrimmer::Haplotypes all;
  all.push_back(make("5M2I15M", "ACGTTCCGCAAGCTTACGGATC"));
  all.push_back(make("20M", "ACGTTGCAAGCTTACGGATT"));
  all.push_back(make("20M", reference.bases));
  all.push_back(make("5M2I15M", "ACGTTCCGCAAGCTTACGGATA"));
  RegionTrimmer::cutAll(all, reference, {kStart + 2, kStart + 12});
  ASSERT_EQ(all.size(), 2U);
  EXPECT_TRUE(all[0]->isRef);
  EXPECT_EQ(all[1]->bases, "GTTCCGCAAGCT");
}

TEST(RegionAssembler, GivenAllelesAlone) {
  Region region;
  std::string& bases = region.bases();
  bases.replace(198, 8, "TCATGCAG");
  region.cover(region.with(150, 1, std::string(1, otherBase(bases[150]))));
  GivenAlleles& given = region.task.given;
  const std::string first(1, bases[180]), other(1, otherBase(bases[180]));
  given.snps[kStart + 180] = {{first, {other}}};
  given.others[kStart + 200] = {{"ATG", {"A", "ATGTG", "N"}}};
  given.others[kStart + 203] = {{bases.substr(203, 1) + "NNN", {"A"}}};     // of another reference
  given.snps[kStart + 20] = {{bases.substr(20, 1), {"A", "C", "G", "T"}}};  // not of this region
  AssemblyParam param;
  param.hasGiven = true;
  expectSound(region.assemble(param));
  const std::string snp = region.snp(180);
  EXPECT_EQ(region.events(),
            (Texts{"", snp, snp + "200A>ATG ", snp + "200ATG>A ", "200A>ATG ", "200ATG>A "}));

  // More combinations than haplotypes: each allele is there, and what the reads have together.
  std::string together = bases;
  for (const uint32_t i : {150u, 250u, 282u}) together[i] = otherBase(bases[i]);
  region.cover(together);
  for (uint32_t i = 110; i < 290; i += 4)
    if (i < 178 || i > 206)
      given.snps[kStart + i] = {{bases.substr(i, 1), {std::string(1, otherBase(bases[i]))}}};
  expectSound(region.assemble(param));
  EXPECT_EQ(region.task.haplotypes.size(), RegionAssembler::kMaxHaplotypes);
  const Texts found = region.events();
  for (uint32_t i = 110; i < 290; i += 4)
    if (i < 178 || i > 206) {
      EXPECT_TRUE(std::count(found.begin(), found.end(), region.snp(i))) << i;
    }
  EXPECT_TRUE(std::count(found.begin(), found.end(), region.snp(150) + region.snp(250) + region.snp(282)));
}

TEST(RegionAssembler, HardRegions) {
  Region bare;
  expectSound(bare.assemble());
  EXPECT_TRUE(bare.task.skipFlag);
  Region small(1, 8);  // than a k-mer, and then nothing
  small.task.activeInterval = small.task.paddedInterval;
  small.add(small.bases(), 0, "8M");
  expectSound(small.assemble());
  small.task.reference.bases.clear();
  small.task.paddedInterval.end = kStart;
  small.assemble();
  EXPECT_TRUE(small.task.haplotypes.empty());
}

}  // namespace
