// seq_graph_util.h - simplification of a sequence graph.
// Paths    no step changes the set of sequences that paths from refSource to refSink spell, nor that of all
//          paths from a source to a sink, but for the removal of what is not between the reference's ends.
// Ends     refSource stays the first vertex of a path and refSink the last, and follow what becomes of them.
// Order    all depends on the order of vertices and edges in the graph alone.
// Cost     a cycle is near linear in the bases and edges of the graph: every split saves bases, every merge a
//          vertex, and only vertices around a change are looked at again. No recursion.
// Threads  one graph, one thread.
#pragma once

#include <string>

#include "algo/assembler/assembly_result.h"
#include "algo/assembler/seq_graph.h"

class SeqGraphUtil {
 public:
  static constexpr int kMaxCycles = 100;

  bool debug = false;                // a dot file of each step, in the working directory
  bool dropUnconnectedPaths = true;  // if not, paths from other sources or to other sinks may stay

  // Zips, removes orphans and what is not between the reference's source and sink, simplifies. Without
  // dropUnconnectedPaths a vertex stays that can be reached from the one or can reach the other.
  // kWithHaplotypes, or kJustAssembled when the reference's source or sink is not known. Throws
  // std::runtime_error.
  AssemblyResult::Status cleanSequenceGraph(GRAPH::SeqGraph& graph) const;

  // Cycles of all steps below, in this order, until one changes nothing or, from cycle 6 on, gives the graph
  // of the cycle before; with a warning after maxCycles. Dot files are named `prefix` + "simplifyGraph.%d.".
  void simplifyGraph(GRAPH::SeqGraph& graph, const std::string& prefix, int maxCycles = kMaxCycles) const;

  // The steps of a cycle, each repeated until it makes no change. They tell whether they made one.
  // Joins each chain of vertices without branches into its first one. Inner edges are dropped.
  static bool zip(GRAPH::SeqGraph& graph);
  // Where all out-edges of a vertex lead to vertices with one in-edge and one out-edge, and these to one
  // vertex, the suffix they share is moved to a new vertex in front of that, and a prefix, if any, to a new
  // one behind the top.
  static bool mergeDiamonds(GRAPH::SeqGraph& graph);
  // The suffix shared by the sinks among the successors of a vertex is moved to a new sink. refSink takes no
  // part.
  static bool mergeTails(GRAPH::SeqGraph& graph);
  // The vertices that lead to the same one and nowhere else, by their last base: the suffix that those with
  // the same base share is moved to a new vertex. Not when they are all equal.
  static bool splitSuffixes(GRAPH::SeqGraph& graph);
  // The vertices that lead to the same one and nowhere else, and have the same bases, become one. Sources
  // only with sources.
  static bool mergeSuffixes(GRAPH::SeqGraph& graph);

 private:
  bool simplifyGraphOnce(GRAPH::SeqGraph& graph, const std::string& prefix, int cycle) const;
};
