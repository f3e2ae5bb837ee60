// best_path_search.h - the likeliest paths of a sequence graph as haplotypes.
// Score    log10 of the product, over the edges of a path, of the edge's share of the weight out of its
//          vertex; the weight of an edge is its multiplicity, at least 0.5. Compared as lround(score * 1e8).
// Ties     along the reference first, then in the order of the edges.
// Cycles   edges that close a cycle are no part of any path, though of the weight out of their vertex: those
//          that lead to a vertex still open in a depth-first walk from refSource, which takes the reference's
//          edges first and others in their order. None of the reference's own is among them. A path ends
//          where it first meets refSink.
// Cost     limit x edges in time, limit x vertices in memory: paths share their tails. No recursion.
// Threads  one graph, one thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "algo/assembler/assembly_result.h"

struct GraphPath {
  std::string bases;
  double score = 0;  // log10
};

class BestPathSearch {
 public:
  static constexpr int kHaplotypesPerGraph = 128;
  static constexpr int kMinReferenceBases = 30;

  // Adds to `set` the reference's path of result->graph and the best `limit` paths from refSource to refSink.
  // A path with the bases of a haplotype in the set only lends it a better score. The others get their cigar
  // against the whole reference, indels leftmost, and their events; without a cigar, or with fewer than
  // kMinReferenceBases bases of the reference in it, they are left out. Nothing is done for a result without
  // graph or kWithHaplotypes. Throws std::runtime_error "NULL AssemblyResult", and as checkGraph().
  static void findBestHaplotypes(const std::shared_ptr<AssemblyResult>& result, const Haplotype& refHaplotype,
                                 int limit, bool debug, AssemblyResultSet& set);

  // The best `limit` paths from refSource to refSink, best first. Several may spell the same. Both are known.
  static std::vector<GraphPath> findBestPaths(const GRAPH::SeqGraph& graph, int limit);

  // The path along the reference's edges. Throws std::runtime_error when refSource or refSink is not known,
  // and when it does not spell the reference.
  static GraphPath checkGraph(const GRAPH::SeqGraph& graph, const Haplotype& refHaplotype);
};
