#include "algo/assembler/seq_graph_util.h"

#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>

#include "algo/assembler/graph_reach.h"
#include "algo/assembler/split_shared_sequence.h"
#include "graph_paths.h"

namespace {
using namespace GRAPH;

TEST(SeqGraphUtil, DiamondGivesItsSuffixAndPrefix) {
  const std::vector<EdgeSpec> diamond = {{0, 1, 2, true}, {0, 2, 3}, {1, 3, 4, true}, {2, 3, 5}};
  SeqGraph graph = seqGraph({"A", "CAGG", "TGG", "T"}, diamond);
  EXPECT_TRUE(SeqGraphUtil::mergeDiamonds(graph));
  EXPECT_EQ(edgesText(graph), "A>CA*2! A>T*3 CA>GG*4! GG>T*9! T>GG*5");
  // One middle is all suffix: its in-edge keeps its weight.
  graph = seqGraph({"A", "CAGG", "GG", "T"}, diamond);
  EXPECT_TRUE(SeqGraphUtil::mergeDiamonds(graph));
  EXPECT_EQ(edgesText(graph), "A>CA*2! A>GG*3 CA>GG*4! GG>T*9!");
  graph = seqGraph({"A", "CTAG", "CTG", "T"}, diamond);
  EXPECT_TRUE(SeqGraphUtil::mergeDiamonds(graph));
  EXPECT_EQ(edgesText(graph), "A>CT*5! A>G*4! CT>A*2! CT>G*3 G>T*9!");
  // A middle with another way in or out is none.
  graph = seqGraph({"A", "CAGG", "TGG", "T"}, diamond);
  graph.addEdge(graph.addVertex({"C"}), 2, {});
  EXPECT_FALSE(SeqGraphUtil::mergeDiamonds(graph));
}

TEST(SeqGraphUtil, SuffixesAreSplitInGroups) {
  SeqGraph graph =
      seqGraph({"AA", "CTG", "TG", "GC", "CC", "T"},
               {{0, 5, 1, true}, {1, 5, 2}, {2, 5, 3}, {3, 5, 4}, {4, 5, 5}, {0, 3, 1}, {0, 2, 1}});
  EXPECT_TRUE(SeqGraphUtil::splitSuffixes(graph));
  // Sources keep a base: TG is one of them no longer, AA leads elsewhere too.
  EXPECT_EQ(edgesText(graph), "AA>G*1 AA>T*1! AA>TG*1 C>C*5 C>T*9 C>TG*2 G>C*4 TG>T*5");
}

TEST(SeqGraphUtil, EqualVerticesAboveOneAreMerged) {
  SeqGraph graph = seqGraph(
      {"A", "C", "G", "TT", "TT", "TT", "A"},
      {{0, 1, 1, true}, {0, 2, 2}, {1, 3, 1, true}, {2, 4, 2}, {3, 6, 1, true}, {4, 6, 2}, {5, 6, 4}});
  EXPECT_TRUE(SeqGraphUtil::mergeSuffixes(graph));
  EXPECT_EQ(edgesText(graph), "A>C*1! A>G*2 C>TT*1! G>TT*2 TT>A*3! TT>A*4");  // not a source with others
  graph = seqGraph({"AA", "AA", "C"}, {{1, 2, 2}, {0, 2, 1, true}});
  EXPECT_TRUE(SeqGraphUtil::mergeSuffixes(graph));
  EXPECT_EQ(edgesText(graph), "AA>C*3!");
  EXPECT_TRUE(hasRefEnds(graph));
}

TEST(SeqGraphUtil, SimplificationKeepsWhatPathsSpell) {
  std::mt19937 random(5);
  size_t simpler = 0;
  for (int round = 0; round < 3000; ++round) {
    const bool cyclic = round % 3 == 0;
    const SeqGraph graph = randomGraph(random, 2 + round % 9, 1.2, cyclic);
    const size_t longest = cyclic ? 11 : 1000;
    const auto paths = spelled(graph, false, longest), all = spelled(graph, true, longest);
    SeqGraph simple = graph;
    SeqGraphUtil().simplifyGraph(simple, "");
    SeqGraph clean = graph;
    ASSERT_EQ(SeqGraphUtil().cleanSequenceGraph(clean), AssemblyResult::kWithHaplotypes);
    simpler += simple.vertexCount() < graph.vertexCount();
    const auto after = spelled(simple, false, longest), after_clean = spelled(clean, false, longest);
    ASSERT_EQ(spelled(simple, true, longest), all) << round << " " << edgesText(graph);
    ASSERT_EQ(after.size(), paths.size()) << round << " " << edgesText(graph);
    ASSERT_EQ(after_clean.size(), paths.size()) << round << " " << edgesText(graph);
    for (const auto& [bases, probability] : paths) {
      ASSERT_NEAR(after.at(bases), probability, 1e-12) << round;
      ASSERT_GE(after_clean.at(bases), probability - 1e-12) << round;  // what was removed weighs no more
    }
  }
  EXPECT_GT(simpler, 1000u);
}

TEST(SeqGraphUtil, CleansToWhatLiesBetweenTheReferenceEnds) {
  const std::vector<std::string> vertices = {"ACG", "TT", "GA", "C", "A", "T", "GG"};
  const std::vector<EdgeSpec> edges = {{0, 6, 3, true}, {0, 1, 2}, {2, 6, 2}, {3, 4, 1}};  // 5 is an orphan
  SeqGraph graph = seqGraph(vertices, edges);
  EXPECT_EQ(SeqGraphUtil().cleanSequenceGraph(graph), AssemblyResult::kWithHaplotypes);
  EXPECT_EQ(graph.vertexCount(), 1u);
  EXPECT_EQ(graph.vertex(graph.refSource).bases, "ACGGG");

  graph = seqGraph(vertices, edges);
  SeqGraphUtil keep_ends;
  keep_ends.dropUnconnectedPaths = false;
  EXPECT_EQ(keep_ends.cleanSequenceGraph(graph), AssemblyResult::kWithHaplotypes);
  EXPECT_EQ(edgesText(graph), "ACG>GG*3! ACG>TT*2 GA>GG*2");

  graph.refSink = kNone;
  EXPECT_EQ(SeqGraphUtil().cleanSequenceGraph(graph), AssemblyResult::kJustAssembled);
  EXPECT_THROW(dropUnconnectedVertices(graph), std::runtime_error);
  EXPECT_THROW(SplitSharedSequence(nullptr, {}), std::runtime_error);
}

// A ladder of bubbles as deep as no stack is, and vertices with thousands of edges.
TEST(SeqGraphUtil, LargeGraphsTakeLinearTime) {
  std::mt19937 random(6);
  auto bases = [&](size_t length) {
    std::string text;
    while (text.size() < length) text += "ACGT"[random() % 4];
    return text;
  };
  std::vector<std::string> vertices = {"ACGT"};
  std::vector<EdgeSpec> edges;
  for (int v = 0; v < 90000; v += 3) {
    for (size_t i = 0; i < 3; ++i) vertices.push_back(bases(i == 2 ? 1 : 8));
    for (int middle = v + 1; middle <= v + 2; ++middle) {
      edges.push_back({v, middle, 1, middle == v + 1});
      edges.push_back({middle, v + 3, 1, middle == v + 1});
    }
  }
  SeqGraph ladder = seqGraph(vertices, edges);
  EXPECT_EQ(SeqGraphUtil().cleanSequenceGraph(ladder), AssemblyResult::kWithHaplotypes);

  vertices = {"ACGT"};
  edges.clear();
  for (int v = 1; v <= 3000; ++v) {
    vertices.push_back(bases(12));
    edges.push_back({0, v, 1, v == 1});
    edges.push_back({v, 3001, 1, v == 1});
  }
  vertices.push_back("A");
  SeqGraph fan = seqGraph(vertices, edges);
  EXPECT_EQ(SeqGraphUtil().cleanSequenceGraph(fan), AssemblyResult::kWithHaplotypes);
  EXPECT_LT(fan.vertexCount(), 6000u);
}

}  // namespace
