// seq_graph_util.h - simplification of a sequence graph. No step changes the set of sequences that paths from source to
// sink spell, but for those that a step is there to remove.
#pragma once

#include "algo/assembler/assembly_result.h"
#include "algo/assembler/seq_graph.h"

class SeqGraphUtil {
 public:
  bool debug = false;  // dot files of each step
  bool dropUnconnectedPaths = true;

  // Zips, removes what is not between the reference's source and sink, simplifies. The status is kFailed's neighbour
  // kJustAssembled when the reference is lost, else kWithHaplotypes. Throws std::runtime_error.
  AssemblyResult::Status cleanSequenceGraph(GRAPH::SeqGraph& graph) const;
  // Cycles of diamond merge, tail merge, suffix split and suffix merge until none changes anything, at most maxCycles.
  void simplifyGraph(GRAPH::SeqGraph& graph, const char* prefix, int maxCycles = 100) const;
  // Joins each chain of vertices without branches into one.
  static bool zip(GRAPH::SeqGraph& graph);
};
