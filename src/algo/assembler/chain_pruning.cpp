#include "algo/assembler/chain_pruning.h"

#include <cstddef>
#include <vector>

#include "algo/assembler/graph_reach.h"

using GRAPH::EdgeId;
using GRAPH::SeqKmerGraph;
using GRAPH::VertexId;

namespace {

bool isInner(const SeqKmerGraph& graph, VertexId v) {
  return graph.inDegree(v) == 1 && graph.outDegree(v) == 1;
}

// Fills `chain` with the edges from `first` on.
void walk(const SeqKmerGraph& graph, EdgeId first, std::vector<EdgeId>& chain) {
  chain = {first};
  // A head is no inner vertex, so that a ring is not entered.
  for (VertexId v = graph.target(first); isInner(graph, v); v = graph.target(chain.back()))
    chain.push_back(graph.outEdges(v).front());
}

bool isKept(const SeqKmerGraph& graph, const std::vector<EdgeId>& chain, int pruneFactor) {
  const VertexId head = graph.source(chain.front());
  const bool dangling = graph.isSource(head) && head != graph.refSource;
  for (size_t i = 0; i < chain.size(); ++i) {
    const GRAPH::MultiSampleEdge& edge = graph.edge(chain[i]);
    if (edge.isRef) return true;
    if (edge.edgeWeight >= pruneFactor && !(dangling && i == 0 && chain.size() > 1)) return true;
  }
  return false;
}

}  // namespace

void pruneLowWeightChains(SeqKmerGraph& graph, int pruneFactor) {
  std::vector<bool> dead(static_cast<size_t>(graph.edgeLimit()));
  std::vector<EdgeId> chain;
  for (VertexId v = 0; v < graph.vertexLimit(); ++v) {
    if (!graph.hasVertex(v) || isInner(graph, v)) continue;
    for (const EdgeId e : graph.outEdges(v)) {
      walk(graph, e, chain);
      if (isKept(graph, chain, pruneFactor)) continue;
      for (const EdgeId lost : chain) dead[static_cast<size_t>(lost)] = true;
    }
  }
  graph.removeEdgesIf([&dead](EdgeId e) { return dead[static_cast<size_t>(e)]; });
  removeSingletonOrphanVertices(graph);
}
