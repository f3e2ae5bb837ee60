#include "algo/assembler/kmer_graph_builder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <unordered_map>

#include "algo/assembler/graph_conversion.h"
#include "algo/assembler/graph_cycles.h"
#include "algo/assembler/graph_dot.h"
#include "assembly_reads.h"

namespace {
using namespace GRAPH;

KmerGraphBuilder builderOf(int k) {
  return {k, 10, 1, false, 0};
}

// The edge between two k-mers that are one vertex each; null when there is none.
const MultiSampleEdge* edgeBetween(const SeqKmerGraph& graph, const std::string& from,
                                   const std::string& to) {
  for (EdgeId e = 0; e < graph.edgeLimit(); ++e)
    if (graph.hasEdge(e) && graph.vertex(graph.source(e)).kmer == from &&
        graph.vertex(graph.target(e)).kmer == to)
      return &graph.edge(e);
  return nullptr;
}

TEST(KMerFactory, KnowsWhatASetOfStringsKnows) {
  std::mt19937 random(3);
  const std::string bases = randomSequence(random, 20000);
  for (const int k : {1, 6, 31}) {
    KMerFactory factory(k);
    std::unordered_map<std::string, int32_t> known;
    RollingHash hash(bases.data(), k);
    for (int i = 0; i + k <= 20000; ++i) {
      if (i > 0) hash.roll(bases[size_t(i) - 1], bases[size_t(i + k) - 1]);
      ASSERT_EQ(hash.value(), RollingHash(bases.data() + i, k).value());
      const int32_t mark = known.emplace(bases.substr(size_t(i), size_t(k)), i).first->second;
      ASSERT_EQ(factory.find(bases.data() + i, hash.value(), i).mark, mark);
    }
    EXPECT_EQ(factory.size(), known.size());
    const std::string other(size_t(k), 'N'), another(size_t(k), 'R');  // with one hash
    EXPECT_NE(&factory.find(other.data(), 7, 1), &factory.find(another.data(), 7, 1));
  }
}

TEST(KmerGraphBuilder, CountsPerSampleAndInAll) {
  AssemblyReads reads;
  reads.add("ACGTTGC", 1, 0);
  reads.add("CGTTGCA", 2, 1);
  reads.add("ACGTTG", 2, 0);  // joins the first sample's count all the same
  const auto graph = builderOf(4).build(reads, "ACGTTGCA", false);
  ASSERT_TRUE(graph);
  EXPECT_EQ(graph->vertexCount(), 5u);
  EXPECT_EQ(graph->edgeCount(), 4u);
  const MultiSampleEdge* edge = edgeBetween(*graph, "CGTT", "GTTG");
  ASSERT_NE(edge, nullptr);
  EXPECT_TRUE(edge->isRef);
  EXPECT_EQ(edge->multiplicity, 6);
  EXPECT_EQ(edge->edgeWeight, 3);
  edge = edgeBetween(*graph, "TTGC", "TGCA");
  EXPECT_EQ(edge->multiplicity, 3);
  EXPECT_EQ(edge->edgeWeight, 2);
  EXPECT_EQ(graph->vertex(graph->refSource).kmer, "ACGT");
  EXPECT_EQ(graph->vertex(graph->refSink).kmer, "TGCA");
}

TEST(KmerGraphBuilder, CutsReadsAtBasesWithoutMeaning) {
  AssemblyReads reads;
  reads.add("ACCTTNGGATACAGG");
  reads.quals(0)[10] = 9;  // left are ACCTT, GGAT and CAGG
  reads.quals(0)[2] = 10;
  const auto graph = builderOf(4).build(reads, "TTTTCCCC", false);
  std::vector<std::string> kmers;
  for (VertexId v = 0; v < graph->vertexLimit(); ++v) kmers.emplace_back(graph->vertex(v).kmer);
  EXPECT_THAT(kmers,
              testing::ElementsAre("TTTT", "TTTC", "TTCC", "TCCC", "CCCC", "ACCT", "CCTT", "GGAT", "CAGG"));
}

TEST(KmerGraphBuilder, NonUniqueKmersAreVerticesOfTheirOwn) {
  AssemblyReads reads;
  reads.add("GACACACT", 2);
  reads.add("ACACAC");  // has no unique k-mer to begin with
  KmerGraphBuilder builder = builderOf(3);
  const auto graph = builder.build(reads, "GGACATT", false);
  EXPECT_THAT(builder.nonUniqueKmers(), testing::ElementsAre("ACA", "CAC"));
  EXPECT_TRUE(builder.lowComplexity());
  EXPECT_FALSE(hasCycle(*graph));
  EXPECT_TRUE(spells(toSeqGraph(*graph), "GGACATT", true));
  // GAC, the reference's ACA, then the read's own CAC, ACA and CAC, and ACT, which is unique. Both reads share them.
  EXPECT_EQ(graph->vertexCount(), 5u + 4u);
  EXPECT_FALSE(builderOf(3).build(reads, "GGACATT", true));

  const AssemblyReads none;
  KmerGraphBuilder lenient(3, 10, 1, true, 0);
  EXPECT_TRUE(lenient.build(none, "GGACACAT", true));
  EXPECT_FALSE(lenient.lowComplexity());
  EXPECT_EQ(lenient.nonUniqueKmers().size(), 1u);
}

TEST(KmerGraphBuilder, SpellsTheReferenceWhateverItIs) {
  std::mt19937 random(11);
  const AssemblyReads none;
  for (const std::string& reference :
       {std::string(60, 'N'), std::string(60, 'A'), "AC" + std::string(30, 'T') + "NNNNNNNNRYACACACACAC",
        std::string("GATTACAGAT"), randomSequence(random, 500)}) {
    const auto graph = builderOf(10).build(none, reference, false);
    EXPECT_TRUE(spells(toSeqGraph(*graph), reference, true)) << reference;
  }
  EXPECT_THROW(builderOf(0), std::runtime_error);
}

TEST(KmerGraphBuilder, EveryReadLiesOnAPath) {
  std::mt19937 random(5);
  for (int n = 0; n < 200; ++n) {
    const std::string reference = randomSequence(random, 150 + random() % 150);
    AssemblyReads reads;
    for (int r = 0; r < 40; ++r) {
      std::string bases = reference.substr(random() % (reference.size() - 80), 40 + random() % 40);
      for (size_t errors = random() % 3; errors > 0; --errors) {
        char& base = bases[random() % bases.size()];
        base = otherBase(base);
      }
      reads.add(bases, 1, int(random() % 2));
    }
    const int k = 6 + int(random() % 12);
    KmerGraphBuilder builder = builderOf(k);
    const auto graph = builder.build(reads, reference, false);
    const auto& repeats = builder.nonUniqueKmers();
    for (const AssemblyRead& read : std::span<const AssemblyRead>(reads)) {
      std::string_view bases(read.bases, size_t(read.length));
      auto first = [&] { return bases.substr(0, size_t(k)); };
      while (bases.size() >= size_t(k) && std::count(repeats.begin(), repeats.end(), first()) > 0)
        bases.remove_prefix(1);
      if (bases.size() < size_t(k)) continue;
      VertexId v = 0;
      while (graph->vertex(v).kmer != first()) ASSERT_LT(++v, graph->vertexLimit());
      for (const char base : bases.substr(size_t(k))) {
        VertexId next = kNone;
        for (const EdgeId e : graph->outEdges(v))
          if (graph->vertex(graph->target(e)).lastBase() == base) {
            ASSERT_EQ(next, kNone) << "two ways";
            next = graph->target(e);
          }
        ASSERT_NE(next, kNone);
        ASSERT_EQ(graph->vertex(next).kmer.substr(0, size_t(k) - 1), graph->vertex(v).kmer.substr(1));
        v = next;
      }
    }
  }
}

TEST(GraphDot, MarksReferenceAndDanglingEdges) {
  AssemblyReads reads;
  reads.add("ACGA");
  const auto graph = builderOf(3).build(reads, "ACGT", false);
  EXPECT_EQ(dotLines(*graph, "k"),
            "\tk0 -> k1 [label=\"1\"];\n"
            "\tk0 -> k1 [color=red];\n"
            "\tk0 -> k2 [style=dotted,color=grey,label=\"1\"];\n"
            "\tk0 [label=\"ACG\",shape=box]\n"
            "\tk1 [label=\"CGT\",shape=box]\n"
            "\tk2 [label=\"CGA\",shape=box]\n");
}

}  // namespace
