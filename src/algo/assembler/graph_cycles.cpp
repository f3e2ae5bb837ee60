#include "algo/assembler/graph_cycles.h"

#include <cstddef>
#include <cstdint>
#include <vector>

using GRAPH::VertexId;

bool hasCycle(const GRAPH::SeqKmerGraph& graph) {
  enum State : uint8_t { kNew, kOpen, kDone };
  struct Step {
    VertexId vertex;
    size_t next;  // of its out-edges
  };
  std::vector<State> states(static_cast<size_t>(graph.vertexLimit()), kNew);
  std::vector<Step> way;
  auto open = [&](VertexId v) {
    states[static_cast<size_t>(v)] = kOpen;
    way.push_back({v, 0});
  };
  for (VertexId start = 0; start < graph.vertexLimit(); ++start) {
    if (!graph.hasVertex(start) || states[static_cast<size_t>(start)] != kNew) continue;
    if (!graph.isSource(start) && start != graph.refSource) continue;
    open(start);
    while (!way.empty()) {
      Step& step = way.back();
      if (step.next == graph.outDegree(step.vertex)) {
        states[static_cast<size_t>(step.vertex)] = kDone;
        way.pop_back();
        continue;
      }
      const VertexId to = graph.target(graph.outEdges(step.vertex)[step.next++]);
      if (states[static_cast<size_t>(to)] == kOpen) return true;
      if (states[static_cast<size_t>(to)] == kNew) open(to);
    }
  }
  return false;
}
