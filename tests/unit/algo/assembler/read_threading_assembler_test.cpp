#include "algo/assembler/read_threading_assembler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

#include "algo/assembler/chain_pruning.h"
#include "algo/assembler/dangling_ends.h"
#include "algo/assembler/graph_conversion.h"
#include "algo/assembler/graph_cycles.h"
#include "algo/assembler/graph_reach.h"
#include "algo/assembler/kmer_graph_builder.h"
#include "algo/assembler/seq_graph_util.h"
#include "assembly_reads.h"

namespace {
using testing::ElementsAre;
using testing::HasSubstr;

Haplotype haplotypeOf(const std::string& bases) {
  Haplotype haplotype;
  haplotype.bases = bases;
  haplotype.isRef = true;
  haplotype.locus = {"chr1", 1000, 1000 + uint32_t(bases.size())};
  return haplotype;
}

std::vector<int> sizesOf(const AssemblyResultSet& set) {
  std::vector<int> sizes;
  for (const auto& [k, result] : set.results()) sizes.push_back(k);
  return sizes;
}

std::vector<std::string> basesOf(const AssemblyResultSet& set) {
  std::vector<std::string> bases;
  for (const auto& haplotype : set.haplotypes()) bases.push_back(haplotype->bases);
  return bases;
}

// What createGraph() says of a size that it refuses.
std::string refusal(const AssemblyReads& reads, const std::string& reference, int k) {
  ReadThreadingAssembler assembler;
  assembler.debugGraphs = true;
  testing::internal::CaptureStderr();
  const auto told = assembler.createGraph(reads, haplotypeOf(reference), k, false, false);
  const std::string text = testing::internal::GetCapturedStderr();
  assembler.debugGraphs = false;
  EXPECT_EQ(told->graph, nullptr);
  EXPECT_EQ(assembler.createGraph(reads, haplotypeOf(reference), k, false, false)->graph, nullptr);
  EXPECT_NE(assembler.createGraph(reads, haplotypeOf(reference), k, true, true)->graph, nullptr);
  return text;
}

class Assembler : public testing::Test {
 protected:
  Assembler() : random(29), a(randomSequence(random, 100)), b(randomSequence(random, 100)) {}

  std::mt19937 random;
  std::string a, b;
  ReadThreadingAssembler assembler;
};

TEST_F(Assembler, RefusesCyclesAndRepeats) {
  AssemblyReads reads;
  reads.add(b + a);
  EXPECT_EQ(refusal(reads, a + b, 25),
            "Not using kmer size of 25 in read threading assembler because it contains a cycle\n");
  AssemblyReads repeat;
  repeat.add(a.substr(0, 35) + otherBase(b.back()) + a.substr(0, 25));
  repeat.add(b.substr(20, 40));
  const std::string text = refusal(repeat, b + a, 25);
  EXPECT_THAT(text, HasSubstr("using 25 kmer size for this assembly with the following non-uniques\n"
                              "nonUniqueKmers:\nKmer{" +
                              a.substr(0, 25) + "}\n"));
  EXPECT_THAT(text,
              HasSubstr("Not using kmer size of in read threading assembler because it does not produce "
                        "a graph with enough complexity\n"));
}

TEST_F(Assembler, TriesLargerSizes) {
  const AssemblyReads none;
  const std::string repeat = a.substr(0, 30);
  const Haplotype reference = haplotypeOf(repeat + b + repeat);
  EXPECT_THAT(sizesOf(*assembler.assemble(none, haplotypeOf(a + b))), ElementsAre(10, 25));
  EXPECT_THAT(sizesOf(*assembler.assemble(none, reference)), ElementsAre(10, 25, 35));
  assembler.allowRepeatKmersInRef = true;
  EXPECT_THAT(sizesOf(*assembler.assemble(none, reference)), ElementsAre(10, 25));
  assembler.allowRepeatKmersInRef = false;
  EXPECT_THAT(sizesOf(*assembler.assemble(none, haplotypeOf(a + a))), ElementsAre(85));
  AssemblyReads cycle;
  cycle.add(b + a, 3);
  EXPECT_THAT(sizesOf(*assembler.assemble(cycle, haplotypeOf(a + b))), ElementsAre(85));
}

// Neither of two reads spans a k-mer of the size that a repeat beside them asks for.
TEST_F(Assembler, FewReadsBesideARepeat) {
  const std::string repeat = a.substr(0, 40), reference = a + b + repeat;
  std::string haplotype = reference;
  haplotype[150] = otherBase(haplotype[150]);
  AssemblyReads reads;
  reads.add(reference.substr(50, 150), 3);
  reads.add(haplotype.substr(65, 100));
  reads.add(haplotype.substr(135, 100));
  EXPECT_THAT(basesOf(*assembler.assemble(reads, haplotypeOf(reference))), ElementsAre(reference, haplotype));
}

TEST_F(Assembler, SizesThatCannotBe) {
  const AssemblyReads none;
  EXPECT_EQ(assembler.createGraph(none, haplotypeOf("ACGTACG"), 8, false, false)->graph, nullptr);
  try {
    assembler.createGraph(none, haplotypeOf(a), 0, false, false);
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "bad minkKmerSize");
  }
  assembler.kmerSizes = {-3, 0, 2147483647, 25};
  EXPECT_THAT(sizesOf(*assembler.assemble(none, haplotypeOf(a))), ElementsAre(25));
  EXPECT_EQ(assembler.text(), "ReadThreadingAssembler{kmerSizes=[-3,0,2147483647,25]}");
  assembler.kmerSizes = {2147483647};
  EXPECT_THAT(sizesOf(*assembler.assemble(none, haplotypeOf(a))), ElementsAre());
  EXPECT_THAT(basesOf(*assembler.assemble(none, haplotypeOf(""))), ElementsAre(""));
}

TEST_F(Assembler, SequencesWithoutStructure) {
  for (const char* unit : {"N", "A", "AC", "ACG"}) {
    std::string bases;
    while (bases.size() < 300) bases += unit;
    AssemblyReads reads;
    reads.add(bases.substr(0, 150), 50);
    reads.add(bases.substr(0, 70) + "T" + bases.substr(0, 70), 50);
    const auto set = assembler.assemble(reads, haplotypeOf(bases));
    EXPECT_THAT(sizesOf(*set), ElementsAre(85)) << unit;
    EXPECT_EQ(basesOf(*set)[0], bases);
  }
}

// Two haplotypes at depth 10 each, with errors in single reads.
TEST_F(Assembler, FindsPlantedHaplotypes) {
  for (int n = 0; n < 100; ++n) {
    const std::string reference = randomSequence(random, 250 + random() % 200);
    std::string haplotype = reference;
    for (size_t at = 60 + random() % 40; at + 60 < haplotype.size(); at += 20 + random() % 80) {
      const size_t kind = random() % 4;
      const std::string inserted = randomSequence(random, 1 + random() % 25);
      if (kind == 0) haplotype.insert(at, inserted);
      if (kind == 1) haplotype.erase(at, 1 + random() % 25);
      if (kind >= 2) haplotype[at] = otherBase(haplotype[at]);
    }
    AssemblyReads reads;
    reads.cover(reference, 100, 10);
    reads.cover(haplotype, 100, 10);
    std::string wrong = haplotype.substr(random() % 100, 100);
    wrong[45] = otherBase(wrong[45]);
    reads.add(wrong);
    const auto result = assembler.createGraph(reads, haplotypeOf(reference), 25, false, false);
    ASSERT_NE(result->graph, nullptr);
    EXPECT_TRUE(spells(*result->graph, reference, true));
    EXPECT_TRUE(spells(*result->graph, haplotype)) << reference << "\n" << haplotype;
    const auto bases = basesOf(*assembler.assemble(reads, haplotypeOf(reference)));
    EXPECT_EQ(bases[0], reference);
    EXPECT_THAT(bases, testing::Contains(haplotype));
  }
}

// Reads of all kinds: with errors, chimeric, short, repeating; some of the reference from its very ends.
AssemblyReads tangledReads(std::mt19937& random, const std::string& reference) {
  AssemblyReads reads;
  for (size_t n = 10 + random() % 60; n > 0; --n) {
    const size_t from = random() % 3 == 0 ? 0 : random() % reference.size();
    std::string bases = reference.substr(from, 5 + random() % 90);
    for (size_t errors = random() % 4; errors > 0; --errors) {
      char& base = bases[random() % bases.size()];
      base = otherBase(base);
    }
    if (random() % 4 == 0) bases += reference.substr(random() % reference.size(), 60);
    if (random() % 6 == 0) bases.insert(random() % bases.size(), bases.substr(0, 25));
    reads.add(bases, 1 + int(random() % 4), int(random() % 2));
  }
  return reads;
}

TEST_F(Assembler, TheReferenceSurvivesEachStep) {
  int recovered = 0;
  for (int n = 0; n < 200; ++n) {
    std::string reference = randomSequence(random, 80 + random() % 200);
    if (n % 3 == 0) reference.insert(random() % 80, reference.substr(random() % 40, 20 + random() % 20));
    const AssemblyReads reads = tangledReads(random, reference);
    auto graph = KmerGraphBuilder(6 + n % 20, 10, 1, false, 0).build(reads, reference, false);
    auto is_there = [&] { return spells(toSeqGraph(*graph), reference, true); };
    ASSERT_TRUE(is_there());
    const bool cyclic = hasCycle(*graph);
    pruneLowWeightChains(*graph, 2);
    ASSERT_TRUE(is_there());
    DanglingEnds ends(*graph, 2, 4);
    recovered += ends.recoverDanglingTails();
    recovered += ends.recoverDanglingHeads();
    ASSERT_TRUE(is_there());
    ASSERT_TRUE(cyclic || !hasCycle(*graph));
    GRAPH::dropUnconnectedVertices(*graph);
    ASSERT_TRUE(is_there());
    GRAPH::SeqGraph sequences = toSeqGraph(*graph);
    ASSERT_EQ(SeqGraphUtil().cleanSequenceGraph(sequences), AssemblyResult::kWithHaplotypes);
    ASSERT_TRUE(spells(sequences, reference, true));

    const auto set = assembler.assemble(reads, haplotypeOf(reference));
    ASSERT_EQ(set->haplotypes()[0]->bases, reference);
    for (const auto& haplotype : set->haplotypes()) {
      std::string spelled = reference;
      for (auto event = haplotype->eventMap.rbegin(); event != haplotype->eventMap.rend(); ++event)
        spelled.replace(event->first - 1000, event->second.ref.size(), event->second.alt);
      ASSERT_EQ(spelled, haplotype->bases) << haplotype->text();
    }
  }
  EXPECT_GT(recovered, 100);
}

TEST_F(Assembler, DropsWhatIsNotBetweenTheEnds) {
  AssemblyReads reads;
  reads.add(a.substr(50) + randomSequence(random, 60), 2);
  reads.add(randomSequence(random, 60), 2);
  assembler.simplifyGraph = false;
  const auto result = assembler.createGraph(reads, haplotypeOf(a + b), 25, false, false);
  EXPECT_EQ(result->status, AssemblyResult::kWithHaplotypes);
  EXPECT_EQ(result->graph->vertexCount(), 200u - 25 + 1);
  assembler.dropUnconnectedPaths = false;
  EXPECT_GT(assembler.createGraph(reads, haplotypeOf(a + b), 25, false, false)->graph->vertexCount(), 250u);
}

TEST_F(Assembler, DropsSingleErrors) {
  AssemblyReads reads;
  reads.cover(a + b, 60, 6);
  for (size_t at = 20; at < 40; ++at) {
    std::string bases = (a + b).substr(at * 3, 60);
    bases[at] = otherBase(bases[at]);
    reads.add(bases);
  }
  EXPECT_THAT(basesOf(*assembler.assemble(reads, haplotypeOf(a + b))), ElementsAre(a + b));
  assembler.pruneFactor = 0;
  EXPECT_GT(assembler.assemble(reads, haplotypeOf(a + b))->haplotypes().size(), 20u);
}

}  // namespace
