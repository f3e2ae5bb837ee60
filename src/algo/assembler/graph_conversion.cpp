#include "algo/assembler/graph_conversion.h"

#include <cstddef>
#include <string>
#include <vector>

using GRAPH::EdgeId;
using GRAPH::kNone;
using GRAPH::VertexId;

GRAPH::SeqGraph toSeqGraph(const GRAPH::SeqKmerGraph& graph) {
  GRAPH::SeqGraph sequences(graph.kmerSize);
  std::vector<VertexId> ids(static_cast<size_t>(graph.vertexLimit()), kNone);
  for (VertexId v = 0; v < graph.vertexLimit(); ++v) {
    if (!graph.hasVertex(v)) continue;
    const GRAPH::MultiSampleKmerVertex& vertex = graph.vertex(v);
    const bool whole = graph.isSource(v) || v == graph.refSource;
    ids[static_cast<size_t>(v)] =
        sequences.addVertex({whole ? std::string(vertex.kmer) : std::string(1, vertex.lastBase())});
  }
  for (EdgeId e = 0; e < graph.edgeLimit(); ++e)
    if (graph.hasEdge(e))
      sequences.addEdge(ids[static_cast<size_t>(graph.source(e))], ids[static_cast<size_t>(graph.target(e))],
                        graph.edge(e));
  if (graph.refSource != kNone) sequences.refSource = ids[static_cast<size_t>(graph.refSource)];
  if (graph.refSink != kNone) sequences.refSink = ids[static_cast<size_t>(graph.refSink)];
  return sequences;
}
