#include "algo/assembler/best_path_search.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "graph_paths.h"
#include "thrown.h"

namespace {
using namespace GRAPH;

std::vector<std::string> bases(const std::vector<GraphPath>& paths) {
  std::vector<std::string> all;
  for (const GraphPath& path : paths) all.push_back(path.bases);
  return all;
}

TEST(BestPaths, AreThoseOfFullEnumeration) {
  std::mt19937 random(7);
  size_t cut = 0;
  for (int round = 0; round < 1000; ++round) {
    const SeqGraph graph = randomGraph(random, 2 + round % 11, 2, false);
    std::vector<SpelledPath> all = refPaths(graph);
    const int limit = 1 + round % 20;
    const std::vector<GraphPath> best = BestPathSearch::findBestPaths(graph, limit);
    ASSERT_EQ(best.size(), std::min(all.size(), size_t(limit)));
    cut += all.size() > best.size();
    std::stable_sort(all.begin(), all.end(), [](auto& a, auto& b) { return a.score > b.score; });
    for (size_t i = 0; i < best.size(); ++i) {
      ASSERT_NEAR(best[i].score, all[i].score, 2e-8) << round << " " << edgesText(graph);
      // Each is one of those enumerated, and none is taken twice.
      auto same = std::find_if(all.begin(), all.end(), [&](const SpelledPath& path) {
        return path.bases == best[i].bases && std::abs(path.score - best[i].score) < 1e-12;
      });
      ASSERT_NE(same, all.end()) << round;
      same->bases = "taken";
    }
  }
  EXPECT_GT(cut, 200u);
}

TEST(BestPaths, TiesBelowTheResolutionGoAlongTheReferenceThenByEdgeOrder) {
  const std::vector<std::string> vertices = {"A", "C", "G", "T", "A"};
  auto order = [&](int c, int g, int t) {
    return bases(BestPathSearch::findBestPaths(
        seqGraph(vertices, {{0, 1, c}, {0, 2, g}, {0, 3, t, true}, {1, 4, 1}, {2, 4, 1}, {3, 4, 1, true}}),
        9));
  };
  using Strings = std::vector<std::string>;
  EXPECT_EQ(order(5, 5, 5), (Strings{"ATA", "ACA", "AGA"}));
  EXPECT_EQ(order(5, 6, 5), (Strings{"AGA", "ATA", "ACA"}));
  EXPECT_EQ(order(1000000001, 1000000002, 2000000000), (Strings{"ATA", "ACA", "AGA"}));
  EXPECT_EQ(order(1000001, 1000002, 1000000), (Strings{"AGA", "ACA", "ATA"}));
  EXPECT_EQ(order(-3, 0, 1), (Strings{"ATA", "ACA", "AGA"}));  // both weigh 0.5
}

TEST(BestPaths, EdgesThatCloseCyclesAreLeftOut) {
  // The way around the reference's edge 1 -> 2 comes first among the edges out of 0, and leads back to 1.
  const SeqGraph graph = seqGraph(
      {"A", "C", "G", "T"},
      {{0, 2, 1}, {0, 1, 1, true}, {2, 1, 2}, {1, 2, 1, true}, {2, 2, 5}, {2, 3, 1, true}, {3, 0, 4}});
  const auto paths = BestPathSearch::findBestPaths(graph, 100);
  EXPECT_EQ(bases(paths), (std::vector<std::string>{"ACGT", "AGT"}));
  EXPECT_NEAR(paths[0].score, std::log10(0.5 / 8), 1e-12);
  // What can be reached behind refSink, too, is not closed by it.
  const SeqGraph behind = seqGraph({"A", "C", "T"}, {{0, 2, 2, true}, {0, 1, 1}, {1, 2, 1}, {2, 1, 9}});
  EXPECT_EQ(bases(BestPathSearch::findBestPaths(behind, 9)), (std::vector<std::string>{"AT", "ACT"}));

  std::mt19937 random(8);
  for (int round = 0; round < 300; ++round) {
    const SeqGraph tangle = randomGraph(random, 200, 3, true);
    const auto best = BestPathSearch::findBestPaths(tangle, 128);
    EXPECT_EQ(best.size(), 128u);
    EXPECT_TRUE(
        std::is_sorted(best.begin(), best.end(), [](auto& a, auto& b) { return a.score > b.score + 2e-8; }));
  }
}

// A reference of `length` bases with a SNP, an insertion and a deletion as bubbles of the multiplicity given.
struct Region {
  explicit Region(size_t length, int multiplicity = 3) {
    std::mt19937 random(9);
    while (reference.bases.size() < length) reference.bases += "ACGT"[random() % 4];
    reference.locus = {"chr1", 1000, uint32_t(1000 + length)};
    const std::string& r = reference.bases;
    const size_t third = length / 3;
    const char snp = r[third - 1] == 'A' ? 'C' : 'A';
    result->kmerSize = 10;
    result->status = AssemblyResult::kWithHaplotypes;
    result->graph = std::make_shared<SeqGraph>(seqGraph({r.substr(0, third - 1),
                                                         {r[third - 1]},
                                                         {snp},
                                                         r.substr(third, third),
                                                         "GATTACA",
                                                         r.substr(2 * third, 2),
                                                         r.substr(2 * third + 2)},
                                                        {{0, 1, 9, true},
                                                         {1, 3, 9, true},
                                                         {0, 2, multiplicity},
                                                         {2, 3, multiplicity},
                                                         {3, 5, 9, true},
                                                         {3, 4, multiplicity},
                                                         {4, 5, multiplicity},
                                                         {5, 6, 9, true},
                                                         {3, 6, multiplicity}}));
    set = std::make_unique<AssemblyResultSet>(std::make_unique<Haplotype>(reference));
  }
  void find(int limit = 128) { BestPathSearch::findBestHaplotypes(result, reference, limit, false, *set); }

  Haplotype reference;
  std::shared_ptr<AssemblyResult> result = std::make_shared<AssemblyResult>();
  std::unique_ptr<AssemblyResultSet> set;
};

TEST(BestHaplotypes, HaveCigarsAndEventsThatSpellTheirBases) {
  Region region(240);
  region.find();
  ASSERT_EQ(region.set->haplotypes().size(), 6u);
  size_t events = 0;
  for (const auto& haplotype : region.set->haplotypes()) {
    const Haplotype& h = *haplotype;
    size_t read = 0, used = 0;
    for (const uint32_t word : h.cigar) {
      if (consumesRead(word)) read += cigarLength(word);
      if (consumesReference(word)) used += cigarLength(word);
    }
    EXPECT_EQ(read, h.bases.size());
    EXPECT_EQ(used, region.reference.bases.size());
    std::string spelled = region.reference.bases;
    for (auto event = h.eventMap.rbegin(); event != h.eventMap.rend(); ++event) {
      const size_t at = event->first - 1000;
      ASSERT_EQ(spelled.substr(at, event->second.ref.size()), event->second.ref);
      spelled.replace(at, event->second.ref.size(), event->second.alt);
    }
    EXPECT_EQ(spelled, h.bases) << h.text();
    EXPECT_EQ(h.isRef, h.eventMap.empty());
    events += h.eventMap.size();
    EXPECT_EQ(region.set->resultOf(h), h.isRef ? nullptr : region.result.get());
  }
  EXPECT_EQ(events, 7u);  // SNP or not, times nothing, an insertion, a deletion
}

// Bases put in front of a few that stay, others taken behind them: aligned base by base the two look like a dozen events.
TEST(BestHaplotypes, UnlikeStretchesAreNotTakenApart) {
  std::mt19937 random(5);
  for (int round = 0; round < 50; ++round) {
    Region region(300);
    std::string& r = region.reference.bases;
    for (char& base : r) base = "ACGT"[random() % 4];
    std::string inserted;
    while (inserted.size() < 24) inserted += "ACGT"[random() % 4];
    const std::string taken = r.substr(150, 31), put = inserted + r.substr(150, 6);
    region.set = std::make_unique<AssemblyResultSet>(std::make_unique<Haplotype>(region.reference));
    region.result->graph =
        std::make_shared<SeqGraph>(seqGraph({r.substr(0, 150), taken, put, r.substr(181)},
                                            {{0, 1, 9, true}, {0, 2, 9}, {1, 3, 9, true}, {2, 3, 9}}));
    region.find();
    chooseAlignments(region.set->haplotypes());
    EXPECT_LE(region.set->haplotypes().back()->eventMap.size(), 4u)
        << region.set->haplotypes().back()->text();
  }
}

TEST(BestHaplotypes, ReferenceIsTakenBeyondTheLimit) {
  Region region(240, 1000);
  region.find(2);
  ASSERT_EQ(region.set->haplotypes().size(), 3u);
  EXPECT_FALSE(region.set->haplotypes()[1]->eventMap.empty());
  EXPECT_TRUE(region.set->refHaplotype().isRef);
}

TEST(BestHaplotypes, GraphsWithoutThemAreRefused) {
  Region region(60);
  const SeqGraph good = *region.result->graph;
  region.result->graph->refSource = kNone;
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { region.find(); }), "reference source vertex is NULL_Vertex");
  *region.result->graph = good;
  region.result->graph->removeVertex(good.refSink);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { region.find(); }), "reference sink vertex is NULL_Vertex");
  *region.result->graph = good;
  region.result->graph->removeEdge(0);
  EXPECT_EQ(thrownBy<std::runtime_error>([&] {
              region.find();
            }).rfind("Mismatch between the reference haplotype and", 0),
            0u);
  region.result->status = AssemblyResult::kJustAssembled;
  region.find();
  region.result->graph = nullptr;
  region.find();
  EXPECT_EQ(region.set->haplotypes().size(), 1u);
  region.result = nullptr;
  EXPECT_EQ(thrownBy<std::runtime_error>([&] { region.find(); }), "NULL AssemblyResult");
}

}  // namespace
