#include "algo/assembler/read_threading_assembler.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "algo/assembler/best_path_search.h"
#include "algo/assembler/chain_pruning.h"
#include "algo/assembler/dangling_ends.h"
#include "algo/assembler/graph_conversion.h"
#include "algo/assembler/graph_cycles.h"
#include "algo/assembler/graph_dot.h"
#include "algo/assembler/graph_reach.h"
#include "algo/assembler/kmer_graph_builder.h"
#include "algo/assembler/seq_graph_util.h"
#include "base/text.h"
#include "base/timer.h"

namespace {

constexpr int kRetryStep = 10, kRetryLimit = 70;  // bases above the largest size

void tellNonUnique(int k, const KmerGraphBuilder& builder) {
  if (builder.nonUniqueKmers().empty()) return;
  std::string text = format("using %d kmer size for this assembly with the following non-uniques\n", k);
  text += "nonUniqueKmers:\n";
  for (const std::string_view kmer : builder.nonUniqueKmers())
    text += format("Kmer{%s}\n", std::string(kmer).c_str());
  fputs(text.c_str(), stderr);
}

}  // namespace

std::unique_ptr<AssemblyResultSet> ReadThreadingAssembler::assemble(std::span<const AssemblyRead> reads,
                                                                    const Haplotype& refHaplotype) const {
  auto set = std::make_unique<AssemblyResultSet>(std::make_unique<Haplotype>(refHaplotype));
  addSizes(reads, refHaplotype, *set);
  chooseAlignments(set->haplotypes());
  return set;
}

void ReadThreadingAssembler::addSizes(std::span<const AssemblyRead> reads, const Haplotype& refHaplotype,
                                      AssemblyResultSet& set) const {
  bool found = false;
  std::vector<int> refused;
  for (const int k : kmerSizes) {
    if (addSize(reads, refHaplotype, k, false, set))
      found = true;
    else
      refused.push_back(k);
  }
  if (refused.empty()) return;

  const int64_t largest = *std::max_element(kmerSizes.begin(), kmerSizes.end());
  const int64_t limit = largest + kRetryLimit;
  const auto length = static_cast<int64_t>(refHaplotype.bases.size());
  bool any_allowed = false;
  for (int64_t k = largest + kRetryStep; k < limit && k <= length && !found; k += kRetryStep) {
    any_allowed = k + kRetryStep >= limit;
    found = addSize(reads, refHaplotype, static_cast<int>(k), any_allowed, set);
  }
  if (any_allowed || allowRepeatKmersInRef) return;

  // Few reads span the k-mers of a large size. What is told by some of them, beside a repeat that the reference has
  // too, is found by the sizes that the repeat refused.
  ReadThreadingAssembler tolerant = *this;
  tolerant.allowRepeatKmersInRef = true;
  for (const int k : refused) tolerant.addSize(reads, refHaplotype, k, false, set);
}

bool ReadThreadingAssembler::addSize(std::span<const AssemblyRead> reads, const Haplotype& refHaplotype,
                                     int k, bool allowAll, AssemblyResultSet& set) const try {
  const std::shared_ptr<AssemblyResult> result = createGraph(reads, refHaplotype, k, allowAll, allowAll);
  BestPathSearch::findBestHaplotypes(result, refHaplotype, maxHaplotypes, debugGraphs, set);
  if (result->graph == nullptr || result->status != AssemblyResult::kWithHaplotypes) return false;
  set.add(result);
  return true;
} catch (const std::exception& error) {
  if (debugGraphs) fprintf(stderr, "%s\n", error.what());
  return false;
}

std::shared_ptr<AssemblyResult> ReadThreadingAssembler::createGraph(std::span<const AssemblyRead> reads,
                                                                    const Haplotype& refHaplotype, int k,
                                                                    bool allowLowComplexity,
                                                                    bool allowCycles) const {
  static Timer* build_timer = timer("assemble_buildGraph");
  static Timer* prune_timer = timer("assemble_kg_op1");
  static Timer* recover_timer = timer("assemble_kg_op2");
  static Timer* drop_timer = timer("assemble_kg_op3");
  static Timer* create_timer = timer("assemble_sg_create");
  static Timer* clean_timer = timer("assemble_sg_clean");
  if (k < 1) throw std::runtime_error("bad minkKmerSize");
  auto result = std::make_shared<AssemblyResult>();
  result->kmerSize = k;
  if (refHaplotype.bases.size() < static_cast<size_t>(k)) return result;

  const bool write_dot = (debugFlags & kWriteDot) != 0;
  auto dot = [&](const auto& graph, const char* step) {
    if (write_dot)
      GRAPH::writeDotFile(format("%s-sequenceGraph.%d.%s.dot", toText(refHaplotype.locus).c_str(), k, step),
                          GRAPH::dotLines(graph));
  };

  std::optional<GRAPH::SeqKmerGraph> graph;
  bool low_complexity;
  {
    TimerScope scope(build_timer);
    KmerGraphBuilder builder(k, minBaseQual, pruneSampleCount, allowRepeatKmersInRef, debugFlags);
    // A graph that will be refused is of use to who looks at it alone.
    const bool unseen = !debugGraphs && debugFlags == 0;
    graph = builder.build(reads, refHaplotype.bases, unseen && !allowLowComplexity);
    if (!graph) return result;
    low_complexity = builder.lowComplexity();
    if (debugGraphs) tellNonUnique(k, builder);
  }
  dot(*graph, "0.0.raw_readthreading_graph");

  {
    TimerScope scope(prune_timer);
    if (!allowCycles && hasCycle(*graph)) {
      if (debugGraphs)
        fprintf(stderr, "Not using kmer size of %d in read threading assembler because it contains a cycle\n",
                k);
      return result;
    }
    if (!allowLowComplexity && low_complexity) {
      if (debugGraphs)
        fputs(
            "Not using kmer size of in read threading assembler because it does not produce a graph with "
            "enough complexity\n",
            stderr);
      return result;
    }
    if (pruneFactor > 0) pruneLowWeightChains(*graph, pruneFactor);
  }
  dot(*graph, "0.0.pruneLowWeightChains");

  {
    TimerScope scope(recover_timer);
    DanglingEnds ends(*graph, pruneFactor, minBranchLength);
    if (pruneFactor > 0 || recoverDanglingHeads) {
      ends.recoverDanglingTails();
      dot(*graph, "0.0.recoverDanglingTails");
    }
    if (recoverDanglingHeads) {
      ends.recoverDanglingHeads();
      dot(*graph, "0.0.recoverDanglingHeads");
    }
  }

  if (dropUnconnectedPaths) {
    TimerScope scope(drop_timer);
    GRAPH::dropUnconnectedVertices(*graph);
    GRAPH::removeSingletonOrphanVertices(*graph);
  }
  dot(*graph, "0.1.cleaned_readthreading_graph");

  {
    TimerScope scope(create_timer);
    result->graph = std::make_shared<GRAPH::SeqGraph>(toSeqGraph(*graph));
  }
  TimerScope scope(clean_timer);
  dot(*result->graph, "0.1.initial_seqgraph");
  if (simplifyGraph) {
    SeqGraphUtil util;
    util.debug = write_dot;
    util.dropUnconnectedPaths = dropUnconnectedPaths;
    result->status = util.cleanSequenceGraph(*result->graph);
  } else {
    result->status =
        GRAPH::hasRefEnds(*result->graph) ? AssemblyResult::kWithHaplotypes : AssemblyResult::kJustAssembled;
  }
  dot(*result->graph, "0.2.initial_seqgraph");
  if (debugGraphs && result->status == AssemblyResult::kWithHaplotypes)
    fprintf(stderr, "Using kmer size of %d in read threading assembler\n", k);
  return result;
}

std::string ReadThreadingAssembler::text() const {
  std::string sizes;
  for (const int k : kmerSizes) sizes += (sizes.empty() ? "" : ",") + std::to_string(k);
  return "ReadThreadingAssembler{kmerSizes=[" + sizes + "]}";
}
