// Pruning of chains and recovery of dangling ends.
#include <gtest/gtest.h>
#include <stdexcept>

#include "algo/assembler/chain_pruning.h"
#include "algo/assembler/dangling_ends.h"
#include "algo/assembler/graph_conversion.h"
#include "algo/assembler/kmer_graph_builder.h"
#include "assembly_reads.h"

namespace {
using namespace GRAPH;

// A reference of vertices 0 to 5 that no read took.
class ChainPruning : public testing::Test {
 protected:
  ChainPruning() : graph(3) {
    for (int v = 0; v < 12; ++v) graph.addVertex({"ACG", 0});
    for (VertexId v = 0; v < 5; ++v) graph.addEdge(v, v + 1, {{0, true}, 0, 0});
    graph.refSource = 0;
    graph.refSink = 5;
  }
  void edge(VertexId from, VertexId to, int weight) { graph.addEdge(from, to, {{9, false}, weight, 0}); }
  // The vertices besides the reference's that are left.
  std::string left(int factor = 2) {
    pruneLowWeightChains(graph, factor);
    std::string text;
    for (VertexId v = 0; v < graph.vertexLimit(); ++v)
      if (graph.hasVertex(v) && v > 5) text += std::to_string(v) + " ";
    for (VertexId v = 0; v <= 5; ++v) EXPECT_TRUE(graph.hasVertex(v));
    for (VertexId v = 0; v < 5; ++v) EXPECT_NE(graph.findEdge(v, v + 1), kNone);
    return text;
  }
  SeqKmerGraph graph;
};

TEST_F(ChainPruning, KeepsAChainForOneGoodEdge) {
  edge(1, 6, 1), edge(6, 7, 1), edge(7, 3, 1);
  edge(1, 8, 1), edge(8, 9, 2), edge(9, 3, 1);
  edge(2, 10, 1), edge(10, 11, 1);
  EXPECT_EQ(left(), "8 9 ");
}

TEST_F(ChainPruning, DecidesForEachPieceBetweenBranches) {
  edge(1, 6, 5), edge(6, 7, 1), edge(7, 3, 1), edge(6, 8, 4), edge(8, 4, 4);
  edge(9, 8, 1);
  EXPECT_EQ(left(), "6 8 ");
  EXPECT_EQ(graph.edgeCount(), 8u);
}

TEST_F(ChainPruning, DoesNotDecideByTheFirstEdgeOfADanglingHead) {
  edge(6, 7, 5), edge(7, 3, 1);
  edge(8, 9, 1), edge(9, 3, 5);
  edge(10, 3, 5);
  edge(1, 11, 5), edge(11, 4, 1);
  EXPECT_EQ(left(), "8 9 10 11 ");
}

TEST_F(ChainPruning, LeavesAReferenceOfOneVertex) {
  SeqKmerGraph one(3);
  one.refSource = one.refSink = one.addVertex({"ACG", 0});
  one.addVertex({"ACC", 0});
  pruneLowWeightChains(one, 2);
  EXPECT_TRUE(one.hasVertex(0));
  EXPECT_EQ(one.vertexCount(), 1u);
}

constexpr int kKmerSize = 15;

class DanglingEndsOf : public testing::Test {
 protected:
  DanglingEndsOf() {
    std::mt19937 random(23);
    reference = randomSequence(random, 200);
  }
  struct Recovered {
    int count;
    bool found;  // some path spells the haplotype
  };
  // After two reads, or what is told, that hold the bases `from` to `to` of the haplotype.
  Recovered recover(const std::string& haplotype, size_t from, size_t to, int times = 2) {
    AssemblyReads reads;
    reads.add(haplotype.substr(from, to - from), times);
    auto graph = KmerGraphBuilder(kKmerSize, 10, 1, false, 0).build(reads, reference, false);
    EXPECT_FALSE(spells(toSeqGraph(*graph), haplotype));
    DanglingEnds ends(*graph, 2, 4);
    const int count = ends.recoverDanglingTails() + ends.recoverDanglingHeads();
    const SeqGraph sequences = toSeqGraph(*graph);
    EXPECT_TRUE(spells(sequences, reference, true));
    return {count, spells(sequences, haplotype)};
  }
  std::string edited(size_t at, size_t erase, const std::string& insert) const {
    return std::string(reference).replace(at, erase, insert);
  }
  std::string snp(size_t at) const { return edited(at, 1, std::string(1, otherBase(reference[at]))); }

  std::string reference;
};

TEST_F(DanglingEndsOf, TailsFindTheirWayBack) {
  for (const size_t behind : {3, 8, 14}) {  // bases behind the difference
    EXPECT_TRUE(recover(snp(100), 50, 101 + behind).found) << behind;
  }
  for (const size_t deleted : {1, 5, 30})
    EXPECT_TRUE(recover(edited(100, deleted, ""), 50, 112).found) << deleted;
  EXPECT_TRUE(recover(edited(100, 0, "GATTACA"), 50, 115).found);
  EXPECT_EQ(recover(snp(100), 50, 103).count, 0);     // three bases are no branch
  EXPECT_EQ(recover(snp(100), 50, 108, 1).count, 0);  // nor is one read
  std::string two = snp(100);
  two[110] = otherBase(two[110]);
  EXPECT_EQ(recover(two, 50, 111).count, 0);  // ends with a difference
  EXPECT_EQ(recover(two, 50, 114).count, 1);
  std::string three = snp(100);
  for (const size_t at : {101, 102}) three[at] = otherBase(three[at]);
  EXPECT_EQ(recover(three, 50, 107).count, 0);  // too many for so few bases
  EXPECT_TRUE(recover(three, 50, 114).found);
  for (const size_t at : {190, 196}) EXPECT_TRUE(recover(snp(at), 150, 200).found) << at;
}

TEST_F(DanglingEndsOf, HeadsFindTheirWayBack) {
  for (const size_t before : {3, 8, 14}) {
    EXPECT_TRUE(recover(snp(100), 100 - before, 150).found) << before;
  }
  for (const size_t deleted : {1, 5, 30})
    EXPECT_TRUE(recover(edited(100, deleted, ""), 88, 150).found) << deleted;
  EXPECT_TRUE(recover(edited(100, 0, "GATTACA"), 92, 150).found);
  EXPECT_EQ(recover(snp(100), 98, 150).count, 0);
  EXPECT_EQ(recover(snp(100), 94, 150, 1).count, 0);
  EXPECT_TRUE(recover(snp(18), 10, 60).found);
  for (const size_t at : {3, 10, 14}) EXPECT_TRUE(recover(snp(at), 0, 60).found) << at;
  EXPECT_EQ(recover(snp(2), 0, 60).count, 0);
}

TEST_F(DanglingEndsOf, StopWhereReadsBecomeFew) {
  const std::string good = snp(100);
  std::string bad = good;
  bad[108] = otherBase(bad[108]);  // one read goes on with an error
  AssemblyReads reads;
  reads.add(good.substr(60, 46), 2);
  reads.add(bad.substr(60, 50));
  auto graph = KmerGraphBuilder(kKmerSize, 10, 1, false, 0).build(reads, reference, false);
  DanglingEnds ends(*graph, 2, 4);
  EXPECT_EQ(ends.recoverDanglingTails(), 1);
  EXPECT_TRUE(spells(toSeqGraph(*graph), good));
  EXPECT_FALSE(spells(toSeqGraph(*graph), bad));
  EXPECT_EQ(ends.recoverDanglingTails(), 0);  // there is no second way
}

TEST_F(DanglingEndsOf, JunkFindsNoWay) {
  std::mt19937 random(31);
  int found = 0;
  for (int n = 0; n < 100; ++n) {
    const std::string haplotype = edited(100, 40, randomSequence(random, 40));
    found += recover(haplotype, 50, 112 + random() % 20).count + recover(haplotype, 125, 180).count;
  }
  EXPECT_LE(found, 4);
}

TEST_F(DanglingEndsOf, NeedReadsAllAlong) {
  AssemblyReads reads;
  reads.add(snp(100).substr(50, 60));
  reads.add(snp(100).substr(90, 20), 2);  // begin behind the branch
  auto graph = KmerGraphBuilder(kKmerSize, 10, 1, false, 0).build(reads, reference, false);
  EXPECT_EQ(DanglingEnds(*graph, 2, 4).recoverDanglingTails(), 0);

  std::string two = snp(100);
  two[108] = otherBase(two[108]);
  AssemblyReads others;
  others.add(two.substr(50, 70), 2);
  others.add(snp(100).substr(50, 63));  // parts from them, alone
  graph = KmerGraphBuilder(kKmerSize, 10, 1, false, 0).build(others, reference, false);
  EXPECT_EQ(DanglingEnds(*graph, 2, 4).recoverDanglingTails(), 1);
  EXPECT_TRUE(spells(toSeqGraph(*graph), two));
  EXPECT_FALSE(spells(toSeqGraph(*graph), snp(100)));
}

TEST_F(DanglingEndsOf, InnerVerticesAreRefused) {
  auto graph = KmerGraphBuilder(kKmerSize, 10, 1, false, 0).build(AssemblyReads(), reference, false);
  DanglingEnds ends(*graph, 2, 4);
  EXPECT_THROW(ends.recoverDanglingTail(5), std::runtime_error);
  EXPECT_THROW(ends.recoverDanglingHead(5), std::runtime_error);
}

}  // namespace
