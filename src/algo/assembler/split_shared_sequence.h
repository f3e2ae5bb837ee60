// split_shared_sequence.h - the bases that vertices side by side begin or end with, as one vertex.
// Paths    spell the same sequences before and after. What a path scores stays too: the edges out of a vertex
//          keep their share of the weight.
// Threads  one graph, one thread.
#pragma once

#include <string>
#include <vector>

#include "algo/assembler/seq_graph.h"

namespace GRAPH {

// Adds an edge, or its multiplicity and isRef to the one that is there.
void addOrJoinEdge(SeqGraph& graph, VertexId from, VertexId to, const SimpleEdge& edge);
SimpleEdge joined(const SimpleEdge& a, const SimpleEdge& b);

class SplitSharedSequence {
 public:
  // Holds the longest common suffix, and what is a common prefix of the rest. A source, and refSource, keep
  // a base of their own, for paths begin there. REQUIRES: at least one vertex, refSink not among them; either
  // all are sinks, or each has one out-edge, to a vertex that all share and that is none of them. Throws
  // std::runtime_error "splitGraph is NULL" without a graph.
  SplitSharedSequence(SeqGraph* splitGraph, std::vector<VertexId> vertices);

  const std::string& prefix() const { return prefix_; }
  const std::string& suffix() const { return suffix_; }

  // Moves the suffix, which is not empty, to a new vertex in front of the shared successor, or a new sink
  // when that is kNone. A vertex of nothing else is removed, and its in-edges lead to the new one. Returns
  // that.
  VertexId moveSuffix(VertexId bottom);
  // Moves the prefix, which is not empty, to a new vertex behind `top`, the one predecessor of every vertex.
  // After moveSuffix(), if at all.
  VertexId movePrefix(VertexId top);

 private:
  SeqGraph& graph_;
  std::vector<VertexId> vertices_;
  std::string prefix_, suffix_;
};

}  // namespace GRAPH
