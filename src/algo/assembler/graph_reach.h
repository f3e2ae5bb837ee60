// graph_reach.h - what of a graph lies between the reference's source and sink, and removal of the rest.
// Works on every SeqBaseGraph. Linear in the graph; no recursion.
// Errors   std::runtime_error with the stated text.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "algo/assembler/directed_graph.h"

namespace GRAPH {

enum ReachMark : unsigned char {
  kFromSource = 1,   // can be reached from refSource
  kReachesSink = 2,  // can reach refSink
  kToGo = 4,
};

// refSource and refSink are known, and still vertices of the graph.
template <class Graph>
bool hasRefEnds(const Graph& graph) {
  auto known = [&](VertexId v) { return v != kNone && graph.hasVertex(v); };
  return known(graph.refSource) && known(graph.refSink);
}

// Sets `mark` on `start` and on all vertices that edges lead to from there, or from where they lead there
// with `backward`. `marks` has an element per vertex id.
template <class Graph>
void markReachable(const Graph& graph, VertexId start, bool backward, ReachMark mark,
                   std::vector<unsigned char>& marks) {
  std::vector<VertexId> open = {start};
  marks[static_cast<size_t>(start)] |= mark;
  while (!open.empty()) {
    const VertexId v = open.back();
    open.pop_back();
    for (const EdgeId e : backward ? graph.inEdges(v) : graph.outEdges(v)) {
      const VertexId next = backward ? graph.source(e) : graph.target(e);
      unsigned char& found = marks[static_cast<size_t>(next)];
      if ((found & mark) != 0) continue;
      found |= mark;
      open.push_back(next);
    }
  }
}

// Removes the vertices that cannot be reached from refSource or cannot reach refSink; unless `between`, only
// those of which both is true. refSource and refSink always stay. Throws when one of them is not known.
template <class Graph>
void dropUnconnectedVertices(Graph& graph, bool between = true) {
  if (!hasRefEnds(graph)) throw std::runtime_error("must have ref source and sink");
  std::vector<unsigned char> marks(static_cast<size_t>(graph.vertexLimit()));
  markReachable(graph, graph.refSource, false, kFromSource, marks);
  markReachable(graph, graph.refSink, true, kReachesSink, marks);
  for (VertexId v = 0; v < graph.vertexLimit(); ++v) {
    if (!graph.hasVertex(v) || v == graph.refSource || v == graph.refSink) continue;
    unsigned char& mark = marks[static_cast<size_t>(v)];
    if (mark == 0 || (between && mark != (kFromSource | kReachesSink))) mark = kToGo;
  }
  for (VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (marks[static_cast<size_t>(v)] == kToGo) graph.removeVertex(v);
}

// Removes the vertices without edges, but for the reference's.
template <class Graph>
void removeSingletonOrphanVertices(Graph& graph) {
  for (VertexId v = 0; v < graph.vertexLimit(); ++v)
    if (graph.hasVertex(v) && graph.isSingletonOrphan(v) && v != graph.refSource && v != graph.refSink)
      graph.removeVertex(v);
}

}  // namespace GRAPH
