// dangling_ends.h - reconnects the paths of a k-mer graph that leave the reference and end, or begin and join it: reads
// that stop less than k bases from a difference, at the ends of a region above all.
// Path     the vertices between a vertex of the reference and the dangling end, in a row without other ways on, as far
//          from the reference as their edges have weight pruneFactor; what lies behind is left to be dropped. It is at
//          least minBranchLength long, and at most kMaxLength. An end from which others of that weight go on is none.
// Match    the bases of the path are aligned with the reference from where they part, which may go on kMaxGap bases
//          longer; if that gives nothing, with as many bases of the reference: in a long stretch a short path finds its
//          bases in scattered places, for gaps are cheap. Accepted are alignments of at most three elements, the last
//          one M, with kMinMatch matching bases at the end, or all but one of a shorter path, and mismatches at a
//          quarter of the bases at most, or one. A difference needs kMinMatch bases of a read behind it, thus; chimeric
//          ends and adapters have none. A deletion may be kMaxGap long, an insertion as long as the path holds with its
//          other bases.
// Merge    an edge without isRef to the reference behind the last base; a tail that ends with the reference's last base
//          joins there. A head begins with k - 1 bases that no vertex of its own adds: they come as new vertices, but
//          for those at its begin that match the reference. To join within the reference's first k-mer, that k-mer is
//          spelled by a vertex for each base. Multiplicity and weight are the least of the path. An acyclic graph stays
//          acyclic.
// Threads  one object, one thread.
// Cost     at most kMaxAlignments alignments of kMaxLength bases for tails, and so many for heads; no recursion.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "algo/assembler/seq_graph.h"
#include "algo/assembler/smith_waterman.h"

class DanglingEnds {
 public:
  static constexpr int kMaxLength = 300, kMaxGap = 300, kMinMatch = 3, kMaxAlignments = 2000;

  // The graph has no edges of the reference but those of one path from refSource, and outlives the object.
  DanglingEnds(GRAPH::SeqKmerGraph& graph, int pruneFactor, int minBranchLength);

  // How many were reconnected.
  int recoverDanglingTails();
  int recoverDanglingHeads();
  // One, which has no out-edges, or no in-edges. Throws std::runtime_error when it has.
  bool recoverDanglingTail(GRAPH::VertexId v);
  bool recoverDanglingHead(GRAPH::VertexId v);

 private:
  struct Path {
    std::vector<GRAPH::VertexId> vertices;  // from the reference to the dangling end
    int32_t join;                           // index in reference_ of the vertex in front of them
    GRAPH::MultiSampleEdge edge;            // what an edge that continues the path gets
  };

  int32_t referenceIndex(GRAPH::VertexId v) const;
  // For a base within the first k-mer the reference gets vertices of its begin, and another source, when first asked.
  GRAPH::VertexId referenceEndingWith(int32_t base);
  bool findPath(GRAPH::VertexId end, bool backward, Path& path) const;
  // How many bases of `reference` the bases of a path reach over; 0 when they do not match. In its first `window` bases.
  int32_t alignedLength(const std::string& reference, const std::string& bases);
  int32_t alignedLength(const std::string& reference, size_t window, const std::string& bases);

  GRAPH::SeqKmerGraph& graph_;
  int prune_factor_, min_length_;
  std::vector<GRAPH::VertexId> reference_;  // its path
  std::vector<GRAPH::VertexId> prefixes_;   // of its first base, its first two, .. up to k - 1; or none
  std::vector<int32_t> index_;              // of vertices in reference_, or kNone
  SMITHWATERMAN::SWPairwiseAlignment aligner_;
  int alignments_ = 0;
};
