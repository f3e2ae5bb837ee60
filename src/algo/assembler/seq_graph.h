// seq_graph.h - the graphs of an assembly: k-mers with the reads through them, and sequences between branches.
// Both have the reference as a path from refSource to refSink, along edges with isRef.
// Threads  one graph, one thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "algo/assembler/directed_graph.h"

namespace GRAPH {

struct SimpleEdge {
  int32_t multiplicity = 1;  // sequences that took the edge
  bool isRef = false;
};

// Counts of one sample at a time: flush() ends a sample.
struct MultiSampleEdge : SimpleEdge {
  int32_t edgeWeight = 0;   // the largest count of any one sample
  int32_t sampleCount = 0;  // of the present sample

  void flush() {
    if (sampleCount > edgeWeight) edgeWeight = sampleCount;
    sampleCount = 0;
  }
};

struct SeqStringVertex {
  std::string bases;  // those that the vertex adds to a path; of a source all of the first k-mer
};

struct MultiSampleKmerVertex {
  // Points into a sequence that outlives the graph. Those in front of a recovered head have its first bases only.
  std::string_view kmer;
  int32_t readCount = 0;

  char lastBase() const { return kmer.back(); }
};

template <class V, class E>
class SeqBaseGraph : public DirectedGraph<V, E> {
 public:
  explicit SeqBaseGraph(int kmerSize) : kmerSize(kmerSize) {}

  bool isRefVertex(VertexId v) const {
    for (const EdgeId e : this->inEdges(v))
      if (this->edge(e).isRef) return true;
    for (const EdgeId e : this->outEdges(v))
      if (this->edge(e).isRef) return true;
    return v == refSource;
  }

  int kmerSize;
  VertexId refSource = kNone, refSink = kNone;
};

using SeqKmerGraph = SeqBaseGraph<MultiSampleKmerVertex, MultiSampleEdge>;
using SeqGraph = SeqBaseGraph<SeqStringVertex, SimpleEdge>;

}  // namespace GRAPH
